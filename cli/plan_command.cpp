// orvane plan check: the dry run of a plan of privileged operations.
#include "cli/context.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/privileged/validation.hpp"

namespace orvane::cli {
namespace {

// Thousands of operations; a plan is a short list, and a bound keeps a wrong file from costing memory.
constexpr std::size_t kPlanLimit = 8 * 1024 * 1024;

struct PlanOptions {
    std::string file;
    std::string home;
    bool json = false;
};

int runPlanCheck(const PlanOptions& options) {
    auto input = readInput(options.file, kPlanLimit);
    if (!input.text) {
        printError(input.error);
        return kBadInput;
    }
    auto parsed = parseJSONStrictly(*input.text);
    if (!parsed.value) {
        printError("The plan cannot be read. " + parsed.error);
        return kBadInput;
    }
    if (!parsed.value->is_array()) {
        printError("The plan must be a JSON array of operations, such as [{\"removePath\":{\"_0\":\"/path\"}}].");
        return kBadInput;
    }
    std::vector<PrivilegedOperation> operations;
    for (std::size_t i = 0; i < parsed.value->size(); ++i) {
        auto decoded = decodeOperation((*parsed.value)[i]);
        if (!decoded.operation) {
            printError("Step " + std::to_string(i + 1) + " is not an operation: " + decoded.error);
            return kBadInput;
        }
        operations.push_back(std::move(*decoded.operation));
    }

    const std::string home = options.home.empty() ? orvane::home() : options.home;
    auto refusal = validatePrivilegedBatch(operations, home);
    if (options.json) {
        nlohmann::ordered_json out;
        out["ok"] = !refusal.has_value();
        out["steps"] = operations.size();
        if (refusal) {
            out["refusal"] = rawValue(refusal->refusal);
            out["step"] = refusal->index + 1;
            out["operation"] = toJSON(refusal->op);
            out["description"] = refusal->op.description();
        }
        printJSON(out);
    } else if (refusal) {
        printLine(std::string(rawValue(refusal->refusal)) + " at step " + std::to_string(refusal->index + 1) + ": " +
                  refusal->op.description());
    } else {
        printLine("ok");
    }
    return refusal ? kRefused : kDone;
}

}  // namespace

void addPlanCommands(CLI::App& app, Context& context) {
    auto* plan = app.add_subcommand("plan", "Check plans of privileged operations before they are carried out");
    plan->require_subcommand(1);

    auto options = std::make_shared<PlanOptions>();
    auto* check = plan->add_subcommand(
        "check",
        "Dry-run a plan: a JSON array of operations in the daemon's request form, checked in order "
        "the way the daemon would check them (without the checks that depend on who asks). A later "
        "step may use a place that an earlier step empties. Prints \"ok\", or the refusal with its "
        "1-based step. Exit 0 ok, 1 refused, 2 unreadable plan.");
    check->add_option("FILE", options->file, "The plan file, or - for standard input")->required();
    check->add_option("--home", options->home, "The home folder the plan is checked for (default: yours)");
    check->add_flag("--json", options->json, "Print the result as JSON");
    check->callback([options, &context] { context.exitCode = runPlanCheck(*options); });
}

}  // namespace orvane::cli
