// Other tools' own clean-up commands ("janitors"): which exist, which cache folder belongs to
// which, whether a tool is really installed and working, and the words around running one.
// The tool does the deleting, never this system.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/tool_runner.hpp"

namespace orvane {

struct VendorTool {
    std::string id;
    std::string title;
    std::string note;                     // what the command does, for display
    std::vector<std::string> candidates;  // absolute paths where the tool may live, tried in order
    std::vector<std::string> args;        // the clean-up arguments
    std::optional<std::string> requirePath;  // must exist for the janitor to be of use
    std::vector<std::string> preflightArgs = {"--version"};  // a harmless run proving it works
    bool removesStoppedContainers = false;
    bool operator==(const VendorTool&) const = default;
};

// The twenty janitors, with "~" replaced by the home the facts give.
std::vector<VendorTool> vendorToolTable(const Facts& facts = Facts::real());

// The janitor whose cache holds `path` (the folder itself or anything in it), by the fixed list
// of cache folders relative to the home; none for any other path.
std::optional<std::string> vendorJanitorID(std::string_view path, const Facts& facts = Facts::real());
std::optional<VendorTool> vendorJanitor(std::string_view path, const Facts& facts = Facts::real());

// The cache folders that the list above gives to janitor `id`, in its order, under the home.
std::vector<std::string> vendorJanitorCachePaths(std::string_view id, const Facts& facts = Facts::real());

// Where detection looks for a tool: its own candidates, then, on a system other than macOS, the
// same file names in that system's extra tool folders (platform::extraToolFolders), each path once.
std::vector<std::string> vendorToolCandidates(const VendorTool& tool, const Facts& facts = Facts::real());

// The search path a tool runs with, so that an npm of a Node version manager finds its node: the
// tool's folder, the usual system folders, then ~/.nvm/versions/node/*/bin in descending text
// order; each folder once.
std::string vendorToolPATH(std::string_view path, const Facts& facts = Facts::real());

// Runs `path` with `args` and that search path, output discarded: true when it ended with status
// 0 within `timeout` seconds. A tool that cannot start, fails or hangs is no tool. A path holding
// "=" is refused outright, since it would not reach the tool as its name.
bool vendorToolRuns(const std::string& path, const std::vector<std::string>& args, double timeout = 5.0,
                    const Facts& facts = Facts::real());

struct DetectedVendorTool {
    VendorTool tool;
    std::string path;
    bool operator==(const DetectedVendorTool&) const = default;
};

// The janitors of `table` (the whole table unless given) whose tool is here and passes its
// harmless run, in table order. Only the first existing candidate of a tool is tried: a broken
// tool at the front is not passed over for a working one behind it. Runs every preflight in
// turn, each up to 5 s: not for an interactive thread.
std::vector<DetectedVendorTool> detectVendorTools(const Facts& facts = Facts::real());
std::vector<DetectedVendorTool> detectVendorTools(const std::vector<VendorTool>& table,
                                                  const Facts& facts = Facts::real());

struct JanitorConfirmation {
    std::string title;
    std::string message;
    bool operator==(const JanitorConfirmation&) const = default;
};
// What the user reads before a janitor runs: the exact command, that nothing can be restored,
// and, for container tools, what a stopped container loses.
JanitorConfirmation vendorJanitorConfirmation(const VendorTool& tool, std::string_view binary);

// Runs the clean-up itself with the same search path as the preflight; standard error merged
// into the lines so that the user sees what the tool said.
ToolRun runVendorJanitor(const VendorTool& tool, const std::string& binary, double timeout,
                         const Facts& facts = Facts::real());

// What may be said of the space after a run: a rough figure, or nothing.
struct JanitorSpaceClaim {
    enum class Kind { approximate, none };
    Kind kind = Kind::none;
    std::int64_t approximateBytes = 0;  // for `approximate` only

    static JanitorSpaceClaim approximate(std::int64_t bytes) { return {Kind::approximate, bytes}; }
    static JanitorSpaceClaim none() { return {}; }
    std::optional<std::int64_t> bytes() const {
        return kind == Kind::approximate ? std::optional<std::int64_t>(approximateBytes) : std::nullopt;
    }
    bool operator==(const JanitorSpaceClaim&) const = default;
};

// "✓ done — ..."; an approximate figure is marked as not counted toward space reclaimed.
std::string janitorDoneStatus(const JanitorSpaceClaim& claim);

}  // namespace orvane
