// How the Logic Pro sound library is to be moved, for the Logic Pro and MainStage versions that are
// installed: their menu for the older apps, a single bundle in the Music folder for the newer.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace orvane {

// The sentence that tells the user how to move the sound library. The newest behaviour among the
// installed apps decides: one app that keeps its sounds in the bundle is enough, and the older
// app's menu is then no longer offered.
std::string logicSoundLibraryRoute(std::optional<std::string_view> logicVersion,
                                   std::optional<std::string_view> mainStageVersion, bool libraryBundleInMusic);

// Whether that sentence gives a route: false exactly where it says that no bundle was found.
bool logicSoundLibraryRouteKnown(std::optional<std::string_view> logicVersion,
                                 std::optional<std::string_view> mainStageVersion, bool libraryBundleInMusic);

}  // namespace orvane
