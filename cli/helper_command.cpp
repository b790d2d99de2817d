// orvane helper: talk to the privileged daemon directly.
#include "cli/command.hpp"
#include "core/privileged/client.hpp"
#include "core/privileged/wire.hpp"

namespace orvane::cli {
namespace {

Result runVersion(const std::string& socket, const Invocation& in) {
    if (in.facts.recorded) return nothingChangedOnARecording({"Would ask the privileged helper for its version."});
    const auto answer = helperVersionThrough(socket);
    if (!answer.version) throw OVError(answer.problem);
    Result result;
    result.line(*answer.version);
    result.json = {{"version", *answer.version}};
    return result;
}

Result runPerform(const std::string& socket, const std::string& request, const Invocation& in) {
    const std::string body = request == "-" ? readInput("-", wire::kMaxFrame) : request;
    if (in.facts.recorded) return nothingChangedOnARecording({"Would send the helper: " + body});
    const HelperAnswer answer = performThroughHelper(body, socket);
    if (answer.kind == HelperAnswer::Kind::unreachable) throw OVError(answer.sentence);
    Result result;
    if (!answer.reply.empty()) result.line(answer.reply);  // done: nothing to say
    result.json = {{"done", answer.kind == HelperAnswer::Kind::done},
                   {"reply", answer.reply.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(answer.reply)}};
    if (answer.kind != HelperAnswer::Kind::done) {
        result.status = kRefused;
        result.json["sentence"] = answer.sentence;
    }
    return result;
}

}  // namespace

void addHelperCommands(Registry& registry) {
    auto* helper = registry.group("helper", "Talk to the privileged helper daemon");
    auto socket = std::make_shared<std::string>(kDefaultHelperSocket);

    auto* version = registry.add(*helper, "version", "Print the helper's version. Exit 2 when no helper answers.",
                                 [socket](const Invocation& in) { return runVersion(*socket, in); });
    version->add_option("--socket", *socket, "The helper's socket")->capture_default_str();

    auto request = std::make_shared<std::string>();
    auto* perform = registry.add(
        *helper, "perform",
        "Send one operation (JSON in the request form, e.g. '{\"removePath\":{\"_0\":\"/path\"}}', or - to read "
        "it from standard input) and print the helper's reply: nothing when it was carried out (exit 0), the "
        "refusal or \"operationFailed: ...\" otherwise (exit 1). Exit 2 when no helper answers.",
        [socket, request](const Invocation& in) { return runPerform(*socket, *request, in); });
    perform->add_option("JSON", *request, "The operation, or -")->required();
    perform->add_option("--socket", *socket, "The helper's socket")->capture_default_str();
}

}  // namespace orvane::cli
