// The order of version texts, as an update sees it: numbers place by place, so 1.10 follows 1.9.
#pragma once

#include <string>
#include <string_view>

namespace orvane {

// True when `a` is a later version than `b`; a part that is not a number counts 0, a missing one too.
bool isNewerVersion(std::string_view a, std::string_view b);

// The leading digits and dots ("2.1.0-beta" gives "2.1.0"); the whole text when there are none.
std::string versionCore(std::string_view version);

// Whether `candidate` would take the app back to an earlier version; equal is not.
bool isDowngrade(std::string_view installed, std::string_view candidate);

}  // namespace orvane
