// orvane scan: where a folder's space went.
#include "cli/context.hpp"

namespace orvane::cli {

void addScanCommand(CLI::App& app, Context& context) {
    auto path = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    auto* scan = app.add_subcommand("scan", "Find where the space under PATH went");
    scan->add_option("PATH", *path, "The folder to scan")->required();
    scan->add_flag("--json", *json, "Print the result as JSON");
    scan->callback([path, json, &context] {
        printError("Scanning is not built yet.");
        context.exitCode = kBadInput;
    });
}

}  // namespace orvane::cli
