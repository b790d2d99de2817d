// orvane cloud fetch: one guarded provider request, for a person checking a provider's address
// and for the tests of the guards; it shows what the request gave back and nothing more.
#include <cmath>
#include <cstdlib>
#include <memory>

#include "cli/command.hpp"
#include "core/cloud/api_request.hpp"
#include "core/common/format.hpp"
#include "core/common/json_files.hpp"
#include "core/common/text.hpp"

namespace orvane::cli {

namespace {

// A token is a line at most; anything this large is not one.
constexpr std::uint64_t kMaxTokenBytes = 64 * 1024;

struct FetchOptions {
    std::string url;
    std::int64_t maxBytes = 1'048'576;
    double timeout = 30;
    bool retry429 = false;
    bool allowLoopback = false;
    std::string bearerFile;
    std::string caFile;
};

// Read from a file so that the token never stands in the process list or a shell's history.
std::string bearerToken(const std::string& typed) {
    const std::string path = absolutePath(typed);
    auto read = readFile(path, kMaxTokenBytes);
    if (!read.bytes) throw OVError("Cannot read " + path + ": it " + std::string(readFailureClause(read.failure)) + ".");
    std::string token = trimWhitespace(*read.bytes);
    if (token.empty()) throw OVError(path + " holds no token.");
    // A second line would become a second header field.
    if (token.find_first_of("\r\n") != std::string::npos) throw OVError(path + " holds more than one line.");
    return token;
}

Result runFetch(const FetchOptions& options) {
    APIRequest request;
    request.url = options.url;
    if (!options.bearerFile.empty()) request.headers.emplace_back("Authorization", "Bearer " + bearerToken(options.bearerFile));
    if (!options.caFile.empty()) request.caFile = absolutePath(options.caFile);

    Result result;
    auto outcome = performAPIRequest(request, options.timeout, options.retry429, options.maxBytes, options.allowLoopback);
    if (const auto* error = std::get_if<OVError>(&outcome)) {
        result.status = kRefused;
        result.notes.push_back(error->msg);
        result.json = {{"error", error->msg}};
        return result;
    }
    const auto& response = std::get<APIHTTPResponse>(outcome);
    const auto bytes = static_cast<std::int64_t>(response.data.size());
    result.line("Status: " + std::to_string(response.status));
    result.line("Body: " + fmtBytes(bytes));
    // The printer repairs text that is not UTF-8 as it writes JSON.
    result.json = {{"status", response.status}, {"headers", response.headers}, {"bytes", bytes}, {"body", response.data}};
    return result;
}

}  // namespace

void addCloudFetchCommand(Registry& registry, CLI::App& cloud) {
    auto options = std::make_shared<FetchOptions>();
    auto* fetch = registry.add(
        cloud, "fetch",
        "Ask URL once through the guarded provider request, as the cloud pages do: HTTPS only (plain HTTP to "
        "this machine with --allow-loopback), at most --max-bytes of answer, kept while it arrives, the bearer "
        "token dropped on a redirect to another host, redirects to anything but HTTPS not followed. Prints the "
        "status and the size of the answer; --json adds its header fields and its text. Exit 0 for any HTTP "
        "status, 1 when the request is refused or fails, 2 for bad options.",
        [options](const Invocation&) { return runFetch(*options); });
    fetch->add_option("URL", options->url, "The address to ask")->required();
    fetch->add_option("--max-bytes", options->maxBytes, "The most bytes of answer to accept (default 1,048,576)")
        ->type_name("N");
    fetch->add_option("--timeout", options->timeout, "Seconds to wait for the answer (default 30)")
        ->type_name("S")
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                char* end = nullptr;
                const double seconds = std::strtod(text.c_str(), &end);
                if (end == text.c_str() || *end || !std::isfinite(seconds) || seconds <= 0 || seconds > 86400)
                    return "a time-out is a number of seconds above 0 and at most a day";
                return {};
            },
            ""));
    fetch->add_flag("--retry-429", options->retry429, "Ask once more when the provider answers 429 (after at most 5 s)");
    fetch->add_flag("--allow-loopback", options->allowLoopback, "Allow plain HTTP to this machine (127.0.0.1, ::1, localhost)");
    fetch->add_option("--bearer-file", options->bearerFile, "Send the token in FILE as \"Authorization: Bearer TOKEN\"")
        ->type_name("FILE");
    fetch->add_option("--cacert", options->caFile, "Trust the certificate authorities in FILE instead of the system's")
        ->type_name("FILE");
}

}  // namespace orvane::cli
