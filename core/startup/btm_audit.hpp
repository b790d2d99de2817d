// The background-task database as `sfltool dumpbtm` prints it: how many records it holds, which
// are ghosts (every place they point at is gone, so they can be cleared), and how many cannot be
// judged and why. Pure: the lines, the user and an existence test are handed in.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/raw_value.hpp"

namespace orvane {

inline constexpr const char* kBackgroundTaskDumpTool = "/usr/bin/sfltool";

struct BTMRecord {
    std::string name;              // "" when absent
    std::string identifier;        // "" when absent
    std::string parentIdentifier;  // "" when absent
    std::vector<std::string> paths;  // absolute or relative, as given
    bool operator==(const BTMRecord&) const = default;
};

namespace btm_path {
struct Checkable {
    std::string path;
    bool operator==(const Checkable&) const = default;
};
struct OtherUser {
    std::string path;
    bool operator==(const OtherUser&) const = default;
};
}  // namespace btm_path
struct BTMPath {
    std::variant<btm_path::Checkable, btm_path::OtherUser> value;
    bool operator==(const BTMPath&) const = default;
};

enum class BTMUnjudged { noPath, otherUser, parentMissingFromDump, parentHasNoLocation };
template <>
struct RawValues<BTMUnjudged> {
    static constexpr std::array<std::pair<BTMUnjudged, std::string_view>, 4> table = {{
        {BTMUnjudged::noPath, "noPath"},
        {BTMUnjudged::otherUser, "otherUser"},
        {BTMUnjudged::parentMissingFromDump, "parentMissingFromDump"},
        {BTMUnjudged::parentHasNoLocation, "parentHasNoLocation"},
    }};
};

struct BTMAssessment {
    int records = 0;                  // group headers left out
    std::vector<std::string> ghosts;  // display names, each once, sorted
    int unjudged = 0;                 // records with no place to look at
    std::map<BTMUnjudged, int> unjudgedReasons;  // sums to `unjudged`
    bool operator==(const BTMAssessment&) const = default;
};

std::vector<BTMRecord> parseBTMDump(const std::vector<std::string>& lines);
// A row that only groups one developer's records; it is not an item.
bool isDeveloperGroupHeader(const BTMRecord& record);
// The database writes a user's files as /Users/<uid>/…: this user's become paths under `home`.
BTMPath resolveBTMPath(std::string_view path, std::uint32_t uid, std::string_view home);
// A ghost needs positive evidence: a place to look at, and every such place gone.
BTMAssessment assessBTMDump(const std::vector<BTMRecord>& records, std::uint32_t uid, std::string_view home,
                            const std::function<bool(const std::string&)>& exists);
// "3 record no location and belong to no app, 1 point inside an app macOS didn't list": to be
// written after a plural subject.
std::string describeBTMUnjudged(const std::map<BTMUnjudged, int>& reasons);

}  // namespace orvane
