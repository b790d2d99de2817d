#include "core/privileged/client.hpp"

#include <stdlib.h>

#include <filesystem>

#include "core/common/json_files.hpp"
#include "core/privileged/wire.hpp"

namespace orvane {
namespace {

// At most 600 items: far below this, which only keeps a wrong file from costing memory.
constexpr std::uint64_t kDumpMaxBytes = 64 * 1024 * 1024;

HelperAnswer unreachable(std::string why) { return {HelperAnswer::Kind::unreachable, std::nullopt, std::move(why), {}}; }

HelperAnswer answerOf(const wire::Exchange& exchange) {
    if (auto* none = std::get_if<wire::NoDaemon>(&exchange)) return unreachable(none->why);
    if (std::holds_alternative<wire::NoAnswer>(exchange))
        return unreachable("The helper closed the connection without answering; this program may not be one it admits.");
    const auto& reply = std::get<std::optional<std::string>>(exchange);
    const PerformReply read = readPerformReply(reply);
    HelperAnswer answer;
    answer.reply = reply.value_or("");
    switch (read.kind) {
        case PerformReply::Kind::done: answer.kind = HelperAnswer::Kind::done; break;
        case PerformReply::Kind::refused:
            answer.kind = HelperAnswer::Kind::refused;
            answer.refusal = read.refusal;
            answer.sentence = std::string(refusalSentence(*read.refusal));
            break;
        case PerformReply::Kind::failed:
            answer.kind = HelperAnswer::Kind::failed;
            answer.sentence = read.description;
            break;
        case PerformReply::Kind::unrecognised:
            answer.kind = HelperAnswer::Kind::failed;
            answer.sentence = "The helper answered something this program does not understand.";
            break;
    }
    return answer;
}

}  // namespace

std::string_view refusalSentence(PrivilegedRefusal refusal) {
    switch (refusal) {
        case PrivilegedRefusal::pathNotAllowed: return "The helper does not act on that place for you.";
        case PrivilegedRefusal::pathTraversesSymlink: return "The path leads through a shortcut, so the helper left it alone.";
        case PrivilegedRefusal::notAbsolutePath: return "The helper needs a full path that starts with /.";
        case PrivilegedRefusal::sourceMissing: return "What the helper was asked to act on is not there.";
        case PrivilegedRefusal::destinationOccupied: return "Something is already where the helper was to put it.";
        case PrivilegedRefusal::malformedSnapshotDate: return "A snapshot date is not one the helper can use.";
        case PrivilegedRefusal::operationFailed: return "The helper could not read the request.";
    }
    return "The helper refused.";
}

HelperAnswer performThroughHelper(std::string_view request, const std::string& socket) {
    if (request.size() + 1 > wire::kMaxFrame) return unreachable("The request is larger than the helper accepts (1 MiB).");
    return answerOf(wire::askHelper(socket, wire::kPerform, request));
}

HelperAnswer performThroughHelper(const PrivilegedOperation& operation, const std::string& socket) {
    return performThroughHelper(encodeRequest(operation), socket);
}

HelperVersion helperVersionThrough(const std::string& socket) {
    auto exchange = wire::askHelper(socket, wire::kVersion);
    auto* reply = std::get_if<std::optional<std::string>>(&exchange);
    if (!reply) return {std::nullopt, answerOf(exchange).sentence};
    if (!*reply) return {std::nullopt, "The helper answered without a version."};
    return {**reply, {}};
}

AdministratorScan scanAsAdministrator(const ScanScope& scope, const std::string& home, const std::string& socket) {
    std::string folder = home + "/.orvane-scan-XXXXXX";
    if (!::mkdtemp(folder.data()))
        return {std::nullopt, unreachable("Cannot make a private folder for the scan's result in your home folder.")};
    const std::string out = folder + "/dump.json";
    const bool isVolume = std::holds_alternative<scope::Volume>(scope.value);
    const std::string label = isVolume ? std::get<scope::Volume>(scope.value).name : std::string();
    AdministratorScan scan;
    scan.answer = performThroughHelper(PrivilegedOperation(op::PrivilegedScan{isVolume ? "volume" : "folder",
                                                                              scope.root(), label, out}),
                                       socket);
    if (scan.answer.kind == HelperAnswer::Kind::done) {
        auto text = readFile(out, kDumpMaxBytes).bytes;
        auto parsed = text ? parseJSONStrictly(*text, 64) : StrictJSON{};
        auto decoded = parsed.value ? decodeGenericScanDump(*parsed.value, JSONDateEncoding::iso8601)
                                    : GenericScanDumpDecoding{std::nullopt, "The helper's scan result cannot be read."};
        if (decoded.dump) scan.dump = std::move(*decoded.dump);
        else scan.answer = {HelperAnswer::Kind::failed, std::nullopt, decoded.error, {}};
    }
    std::error_code ec;
    std::filesystem::remove_all(folder, ec);
    return scan;
}

}  // namespace orvane
