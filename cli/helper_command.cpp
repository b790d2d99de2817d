// orvane helper: talk to the privileged daemon directly.
#include "cli/context.hpp"
#include "core/privileged/protocol.hpp"
#include "core/privileged/wire.hpp"

namespace orvane::cli {
namespace {

constexpr const char* kDefaultSocket = "/var/run/com.velloran.orvane.helper.sock";

// Prints what came back; the exit status says how it went.
int report(const wire::Exchange& exchange) {
    if (auto* none = std::get_if<wire::NoDaemon>(&exchange)) {
        printError(none->why);
        return kBadInput;
    }
    if (std::holds_alternative<wire::NoAnswer>(exchange)) {
        printError("The helper closed the connection without answering; this program may not be one it admits.");
        return kBadInput;
    }
    const auto& reply = std::get<std::optional<std::string>>(exchange);
    if (!reply) return kDone;  // done: nothing to say
    printLine(*reply);
    return readPerformReply(reply).kind == PerformReply::Kind::done ? kDone : kRefused;
}

}  // namespace

void addHelperCommands(CLI::App& app, Context& context) {
    auto* helper = app.add_subcommand("helper", "Talk to the privileged helper daemon");
    helper->require_subcommand(1);
    auto socket = std::make_shared<std::string>(kDefaultSocket);

    auto* version = helper->add_subcommand("version", "Print the helper's version. Exit 2 when no helper answers.");
    version->add_option("--socket", *socket, "The helper's socket")->capture_default_str();
    version->callback([socket, &context] {
        auto exchange = wire::askHelper(*socket, wire::kVersion);
        auto* reply = std::get_if<std::optional<std::string>>(&exchange);
        if (!reply) {
            context.exitCode = report(exchange);
        } else if (!*reply) {
            printError("The helper answered without a version.");
            context.exitCode = kBadInput;
        } else {
            printLine(**reply);
            context.exitCode = kDone;
        }
    });

    auto request = std::make_shared<std::string>();
    auto* perform = helper->add_subcommand(
        "perform",
        "Send one operation (JSON in the request form, e.g. '{\"removePath\":{\"_0\":\"/path\"}}', or - to read "
        "it from standard input) and print the helper's reply: nothing when it was carried out (exit 0), the "
        "refusal or \"operationFailed: ...\" otherwise (exit 1). Exit 2 when no helper answers.");
    perform->add_option("JSON", *request, "The operation, or -")->required();
    perform->add_option("--socket", *socket, "The helper's socket")->capture_default_str();
    perform->callback([socket, request, &context] {
        std::string body = *request;
        if (body == "-") {
            auto input = readInput("-", wire::kMaxFrame);
            if (!input.text) {
                printError(input.error);
                context.exitCode = kBadInput;
                return;
            }
            body = std::move(*input.text);
        }
        if (body.size() + 1 > wire::kMaxFrame) {
            printError("The request is larger than the helper accepts (1 MiB).");
            context.exitCode = kBadInput;
            return;
        }
        context.exitCode = report(wire::askHelper(*socket, wire::kPerform, body));
    });
}

}  // namespace orvane::cli
