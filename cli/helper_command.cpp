// orvane helper: talk to the privileged daemon directly.
#include <sys/stat.h>

#include "cli/command.hpp"
#include "core/common/path.hpp"
#include "core/privileged/client.hpp"
#include "core/privileged/helper_lifecycle.hpp"
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

// A helper tool is an executable of a few megabytes; its embedded property list sits near the start.
constexpr std::uint64_t kHelperToolReadLimit = 8 * 1024 * 1024;

// Here no system service registers the helper; its socket standing where the daemon listens is
// what registered means, and there is no approval to wait for.
bool helperRegistered(const std::string& socket) {
    struct stat st{};
    return ::lstat(socket.c_str(), &st) == 0 && S_ISSOCK(st.st_mode);
}

std::string linuxHelperAdvice(HelperUpgradeDecision decision) {
    if (decision == HelperUpgradeDecision::notInstalled)
        return "Privileged steps need the helper, and it is not running. Start it with: sudo systemctl enable --now "
               "orvane-helper";
    return "Privileged steps need the helper, and the one running is older than this program can use or does not "
           "say its version. Install the new one and restart it with: sudo systemctl restart orvane-helper";
}

Result runStatus(const std::string& socket, const Invocation& in) {
    if (in.facts.recorded) throw OVError("The helper of a recorded Mac cannot be asked; run this on the Mac itself.");
    const bool registered = helperRegistered(socket);
    const auto reported = registered ? helperVersionThrough(socket).version : std::nullopt;
    const auto decision = helperUpgradeDecision(registered, reported, PrivilegedHelper::requiredHelperVersion);
    const std::string note = helperUnavailableNote(decision, false);

    Result result;
    result.json = {{"registered", registered},
                   {"reportedVersion", reported ? nlohmann::ordered_json(*reported) : nlohmann::ordered_json(nullptr)},
                   {"required", PrivilegedHelper::requiredHelperVersion},
                   {"decision", rawValue(decision)},
                   {"note", note},
                   {"permitsPrivilegedWork", permitsPrivilegedWork(decision)}};
    result.line("Registered: " + std::string(registered ? "yes, at " + socket : "no, nothing listens at " + socket));
    result.line("Reported version: " + (reported ? *reported : std::string("none")));
    result.line("Required version: " + std::to_string(PrivilegedHelper::requiredHelperVersion));
    result.line("Decision: " + std::string(rawValue(decision)) +
                (permitsPrivilegedWork(decision) ? ", privileged steps go through the helper." : "."));
    if (!permitsPrivilegedWork(decision)) {
#ifdef __APPLE__
        result.line(note);
#else
        result.line(linuxHelperAdvice(decision));
#endif
        result.line(std::string("May re-register it by itself: ") + (mayAutoUpgradeHelper(0) ? "yes, once." : "no."));
        result.status = kRefused;
    }
    return result;
}

Result runClients(const std::vector<std::string>& files, const Invocation& in) {
    Result result;
    result.json = nlohmann::ordered_json::array();
    for (const auto& typed : files) {
        const std::string path = absolutePath(typed);
        const auto seen = in.facts.lstat(path);
        if (!seen || !S_ISREG(seen->mode)) throw OVError(path + " is not a file.");
        const auto clients = smAuthorizedClients(path, kHelperToolReadLimit, in.facts);
        result.json.push_back({{"path", path}, {"clients", clients}});
        std::string list;
        for (const auto& client : clients) list += (list.empty() ? "" : ", ") + client;
        result.line(path + ": " + (clients.empty() ? std::string("no authorised clients found") : list));
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

    auto* status = registry.add(
        *helper, "status",
        "Say whether the helper can do privileged work: whether it is registered (its socket is there), the "
        "version it reports against the version this program needs, and what to do when it can't. Exit 0 when "
        "it is current, 1 otherwise.",
        [socket](const Invocation& in) { return runStatus(*socket, in); });
    status->add_option("--socket", *socket, "The helper's socket")->capture_default_str();

    auto files = std::make_shared<std::vector<std::string>>();
    auto* clients = registry.add(
        *helper, "clients",
        "List the apps each privileged helper tool admits as its clients (its SMAuthorizedClients), read from "
        "the first 8 MiB of the file. A helper whose clients are all gone was left behind by an uninstalled app.",
        [files](const Invocation& in) { return runClients(*files, in); });
    clients->add_option("FILE", *files, "Helper tools, such as /Library/PrivilegedHelperTools/*")->required();
}

}  // namespace orvane::cli
