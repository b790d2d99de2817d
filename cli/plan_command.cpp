// orvane plan check: the dry run of a plan of privileged operations.
#include "cli/command.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/path_rules.hpp"
#include "core/privileged/admin_fallback.hpp"
#include "core/privileged/validation.hpp"

namespace orvane::cli {
namespace {

// Thousands of operations; a plan is a short list, and a bound keeps a wrong file from costing memory.
constexpr std::size_t kPlanLimit = 8 * 1024 * 1024;

struct PlanOptions {
    std::string file;
    std::string home;
};

std::vector<PrivilegedOperation> readPlan(const std::string& file) {
    auto parsed = parseJSONStrictly(readInput(file, kPlanLimit));
    if (!parsed.value) throw OVError("The plan cannot be read. " + parsed.error);
    if (!parsed.value->is_array())
        throw OVError("The plan must be a JSON array of operations, such as [{\"removePath\":{\"_0\":\"/path\"}}].");
    std::vector<PrivilegedOperation> operations;
    for (std::size_t i = 0; i < parsed.value->size(); ++i) {
        auto decoded = decodeOperation((*parsed.value)[i]);
        if (!decoded.operation) throw OVError("Step " + std::to_string(i + 1) + " is not an operation: " + decoded.error);
        operations.push_back(std::move(*decoded.operation));
    }
    return operations;
}

Result runPlanCheck(const PlanOptions& options, const Invocation& in) {
    const auto operations = readPlan(options.file);
    const std::string home = options.home.empty() ? in.facts.home("") : options.home;
    const auto refusal = validatePrivilegedBatch(operations, home, in.facts);
    Result result;
    result.json = {{"ok", !refusal.has_value()}, {"steps", operations.size()}};
    if (refusal) {
        result.json["refusal"] = rawValue(refusal->refusal);
        result.json["step"] = refusal->index + 1;
        result.json["operation"] = toJSON(refusal->op);
        result.json["description"] = refusal->op.description();
        result.line(std::string(rawValue(refusal->refusal)) + " at step " + std::to_string(refusal->index + 1) + ": " +
                    refusal->op.description());
        result.status = kRefused;
    } else {
        result.line("ok");
    }
    return result;
}

// What a shell running the plan as administrator would walk through with links followed: the
// fallback has no no-follow primitives, so a link on the way or a folder above that someone else
// may exchange is exactly what it would be exposed to.
Result runPlanFallback(const PlanOptions& options, const Invocation& in) {
    const auto operations = readPlan(options.file);
    const std::string home = options.home.empty() ? in.facts.home("") : absolutePath(options.home);
    Result result;
    auto steps = nlohmann::ordered_json::array();
    bool throughLink = false;
    for (std::size_t i = 0; i < operations.size(); ++i) {
        auto paths = nlohmann::ordered_json::array();
        result.line("Step " + std::to_string(i + 1) + ": " + operations[i].description());
        const auto followed = fallbackFollowedPaths(operations[i], home);
        if (followed.empty()) result.line("  follows no path");
        for (const auto& path : followed) {
            const bool link = pathTraversesSymlink(path, in.facts);
            const bool exposed = fallbackSwapVulnerable(path, home, in.facts);
            throughLink = throughLink || link;
            paths.push_back({{"path", path}, {"traversesSymlink", link}, {"swapVulnerable", exposed}});
            std::string line = "  " + path + ": ";
            line += link ? "goes through a link" : "no link on the way";
            line += exposed ? "; a folder above it could be exchanged while the step runs" : "";
            result.line(line);
        }
        steps.push_back({{"operation", toJSON(operations[i])}, {"paths", paths}});
    }
    result.json = {{"steps", steps}};
    if (throughLink) result.status = kRefused;
    return result;
}

}  // namespace

void addPlanCommands(Registry& registry) {
    auto* plan = registry.group("plan", "Check plans of privileged operations before they are carried out");
    auto options = std::make_shared<PlanOptions>();
    auto* check = registry.add(
        *plan, "check",
        "Dry-run a plan: a JSON array of operations in the daemon's request form, checked in order "
        "the way the daemon would check them (without the checks that depend on who asks). A later "
        "step may use a place that an earlier step empties. Prints \"ok\", or the refusal with its "
        "1-based step. Exit 0 ok, 1 refused, 2 unreadable plan.",
        [options](const Invocation& in) { return runPlanCheck(*options, in); });
    check->add_option("FILE", options->file, "The plan file, or - for standard input")->required();
    check->add_option("--home", options->home, "The home folder the plan is checked for (default: yours)");

    auto fallbackOptions = std::make_shared<PlanOptions>();
    auto* fallback = registry.add(
        *plan, "fallback",
        "Show what the plan would be exposed to if it ran without the helper, as one administrator shell "
        "command: for each step the paths the shell would follow links on, whether a link lies on the way, "
        "and whether someone other than root could exchange a folder above the path meanwhile. Runs "
        "nothing. Exit 0 when no path goes through a link, 1 otherwise, 2 for an unreadable plan.",
        [fallbackOptions](const Invocation& in) { return runPlanFallback(*fallbackOptions, in); });
    fallback->add_option("FILE", fallbackOptions->file, "The plan file, or - for standard input")->required();
    fallback->add_option("--home", fallbackOptions->home, "The home folder (default: yours)");
}

}  // namespace orvane::cli
