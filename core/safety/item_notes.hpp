// Two warnings about items before they go: data that lies on a drive not connected now, and
// licence data that other programs' activations depend on.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

struct SizedPath {
    std::string path;
    std::int64_t bytes = 0;
    bool operator==(const SizedPath&) const = default;
};

// "2 GB on Drive, 1 GB on another drive — not on this Mac" for the items with bytes whose data
// `isHere` says is absent, summed per drive, largest first (equal sums by name). None when all
// are here.
std::optional<std::string> offVolumeNote(const std::vector<SizedPath>& items,
                                         const std::function<bool(const std::string&)>& isHere);

// Fragments, in lower case, of the places where licence managers keep activations.
inline constexpr std::array<std::string_view, 16> activationPathFragments = {
    "/pace/",          "/ilok",          "/syncrosoft",   "/elicenser",
    "/steinberg/soft-elicenser", "/waves/licenses", "/waves/licences", "/native instruments/service center",
    "/arturia/arturia software center", "/ableton/live/authorization", "/ableton/live/unlock", "/serato/license",
    "/izotope/authorization", "/plugin alliance/licens", "/slate digital/licens", "/toontrack/licens"};

// Whether the path (lowercased, with a "/" added so that a fragment can close on the last
// component) holds one of those fragments.
bool holdsActivationData(std::string_view path);

}  // namespace orvane
