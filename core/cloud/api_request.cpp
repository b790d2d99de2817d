#include "core/cloud/api_request.hpp"

#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>

#include "core/common/text.hpp"

namespace orvane {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kNoHTTPResponse = "The provider returned no HTTP response.";
constexpr std::string_view kNoAnswerInTime = "The provider did not answer in time.";
// Beyond the transport's own time-out, so that a transport that never gives up still lets go.
constexpr double kBackstopSeconds = 5.0;
constexpr double kDefaultRetryAfter = 2.0;
constexpr double kMaxRetryAfter = 5.0;

void ensureCurl() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct CurlFree {
    void operator()(char* text) const { curl_free(text); }
};
struct UrlFree {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using ParsedURL = std::unique_ptr<CURLU, UrlFree>;

ParsedURL parseURL(std::string_view url) {
    ensureCurl();
    if (url.empty()) return nullptr;
    ParsedURL parsed(curl_url());
    if (!parsed) return nullptr;
    const std::string text(url);
    if (curl_url_set(parsed.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) return nullptr;
    return parsed;
}

std::string urlPart(const ParsedURL& url, CURLUPart part) {
    char* raw = nullptr;
    if (!url || curl_url_get(url.get(), part, &raw, 0) != CURLUE_OK || !raw) return {};
    std::unique_ptr<char, CurlFree> owned(raw);
    return owned.get();
}

std::string hostOf(std::string_view url) { return urlPart(parseURL(url), CURLUPART_HOST); }

// A "Location" field read against the address that sent it, since it may be relative.
std::string resolvedLocation(const std::string& from, const std::string& location) {
    auto parsed = parseURL(from);
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, location.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
        return {};
    return urlPart(parsed, CURLUPART_URL);
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (auto& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    return out;
}

// The address as a refusal shows it: a user name or password written into it is left out.
std::string shownAddress(std::string_view url) {
    if (url.empty()) return "that address";
    auto parsed = parseURL(url);
    if (!parsed || (urlPart(parsed, CURLUPART_USER).empty() && urlPart(parsed, CURLUPART_PASSWORD).empty()))
        return std::string(url);
    curl_url_set(parsed.get(), CURLUPART_USER, nullptr, 0);
    curl_url_set(parsed.get(), CURLUPART_PASSWORD, nullptr, 0);
    return urlPart(parsed, CURLUPART_URL);
}

bool isFollowedRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool sameFieldName(std::string_view a, std::string_view b) { return asciiLower(a) == asciiLower(b); }

void removeField(APIRequest& request, std::string_view name) {
    std::erase_if(request.headers, [&](const auto& field) { return sameFieldName(field.first, name); });
}

std::string trimmedField(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return std::string(text);
}

// What one transfer (one hop of a redirect chain) sees as curl reports it.
struct Hop {
    CURL* easy = nullptr;
    std::string url;
    BoundedBodyCollector* collector = nullptr;
    bool mayRedirect = true;
    std::map<std::string, std::string> headers;
    bool headersDone = false;
    std::optional<std::string> redirectTo;  // set when this hop was stopped to follow a redirect
    long redirectStatus = 0;
    bool dropAuthorization = false;
};

// The end of the header block is where the declared length and a redirect are judged, before
// any byte of the body is taken.
bool headersComplete(Hop& hop) {
    long status = 0;
    curl_easy_getinfo(hop.easy, CURLINFO_RESPONSE_CODE, &status);
    if (status >= 100 && status < 200) return true;  // an interim answer; the real one follows
    hop.headersDone = true;
    if (hop.mayRedirect && isFollowedRedirect(status)) {
        const auto field = hop.headers.find("location");
        const std::string location = field == hop.headers.end() ? "" : resolvedLocation(hop.url, field->second);
        if (!location.empty()) {
            const auto step = hop.collector->redirectProposed(location);
            if (step != BoundedBodyCollector::Redirect::refuse) {
                hop.redirectTo = location;
                hop.redirectStatus = status;
                hop.dropAuthorization = step == BoundedBodyCollector::Redirect::followWithoutAuthorization;
                return false;  // the redirect's own body is of no use
            }
        }
    }
    curl_off_t declared = -1;
    curl_easy_getinfo(hop.easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &declared);
    return hop.collector->responseReceived(static_cast<int>(status), std::move(hop.headers),
                                           static_cast<std::int64_t>(declared));
}

std::size_t onHeader(char* data, std::size_t size, std::size_t count, void* user) {
    auto& hop = *static_cast<Hop*>(user);
    const std::size_t n = size * count;
    const std::string_view line(data, n);
    if (line.starts_with("HTTP/")) {
        hop.headers.clear();
        hop.headersDone = false;
        return n;
    }
    if (hop.headersDone) return n;  // trailers after a chunked body
    if (line == "\r\n" || line == "\n") return headersComplete(hop) ? n : 0;
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return n;
    const std::string name = asciiLower(trimmedField(line.substr(0, colon)));
    const std::string value = trimmedField(line.substr(colon + 1));
    auto [at, fresh] = hop.headers.try_emplace(name, value);
    if (!fresh) at->second += ", " + value;
    return n;
}

std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto& hop = *static_cast<Hop*>(user);
    const std::size_t n = size * count;
    return hop.collector->dataReceived(std::string_view(data, n)) ? n : 0;
}

struct EasyFree {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
struct MultiFree {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
};
struct ListFree {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

enum class HopEnd { done, redirected, outOfTime };

// One transfer, waited for on this thread until `deadline` at the latest.
HopEnd runHop(const APIRequest& request, double timeout, Clock::time_point deadline, Hop& hop) {
    // Declared before the handle that points at them, so that they outlive its clean-up.
    char errorText[CURL_ERROR_SIZE] = {};
    std::unique_ptr<curl_slist, ListFree> fields;
    std::unique_ptr<CURL, EasyFree> easy(curl_easy_init());
    std::unique_ptr<CURLM, MultiFree> multi(curl_multi_init());
    if (!easy || !multi) {
        hop.collector->completed("The request could not be prepared.");
        return HopEnd::done;
    }
    hop.easy = easy.get();
    hop.url = request.url;
    CURL* e = easy.get();
    curl_easy_setopt(e, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(e, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(e, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
    const double transportSeconds = std::isfinite(timeout) && timeout > 0 ? std::min(timeout, 1e6) : 0.001;
    curl_easy_setopt(e, CURLOPT_TIMEOUT_MS, std::max(1L, std::lround(transportSeconds * 1000)));
    curl_easy_setopt(e, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(e, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(e, CURLOPT_HEADERDATA, &hop);
    curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(e, CURLOPT_WRITEDATA, &hop);
    curl_easy_setopt(e, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
    // Decoded as a browser would; the budget counts the decoded bytes, so a small compressed
    // answer cannot unpack past it.
    curl_easy_setopt(e, CURLOPT_ACCEPT_ENCODING, "");
    if (request.caFile) curl_easy_setopt(e, CURLOPT_CAINFO, request.caFile->c_str());

    if (request.method == "HEAD") {
        curl_easy_setopt(e, CURLOPT_NOBODY, 1L);
    } else if (request.method != "GET" || !request.body.empty()) {
        if (request.method != "POST") curl_easy_setopt(e, CURLOPT_CUSTOMREQUEST, request.method.c_str());
        curl_easy_setopt(e, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(e, CURLOPT_POSTFIELDS, request.body.data());
    }
    const auto append = [&](const std::string& line) {
        if (auto* grown = curl_slist_append(fields.get(), line.c_str())) {
            (void)fields.release();
            fields.reset(grown);
        }
    };
    append("Expect:");  // no wait for a "100 Continue" that some servers never send
    for (const auto& [name, value] : request.headers)
        append(value.empty() ? name + ";" : name + ": " + value);  // "Name;" is how curl sends an empty field
    curl_easy_setopt(e, CURLOPT_HTTPHEADER, fields.get());

    curl_multi_add_handle(multi.get(), e);
    CURLcode code = CURLE_OK;
    for (;;) {
        int running = 0;
        if (const CURLMcode failed = curl_multi_perform(multi.get(), &running); failed != CURLM_OK) {
            curl_multi_remove_handle(multi.get(), e);
            hop.collector->completed(curl_multi_strerror(failed));
            return HopEnd::done;
        }
        if (running == 0) {
            int queued = 0;
            while (CURLMsg* message = curl_multi_info_read(multi.get(), &queued))
                if (message->msg == CURLMSG_DONE) code = message->data.result;
            break;
        }
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) {
            curl_multi_remove_handle(multi.get(), e);
            return HopEnd::outOfTime;
        }
        curl_multi_poll(multi.get(), nullptr, 0, static_cast<int>(std::min<long long>(left, 1000)), nullptr);
    }
    curl_multi_remove_handle(multi.get(), e);
    if (hop.redirectTo) return HopEnd::redirected;
    if (code == CURLE_OK)
        hop.collector->completed(std::nullopt);
    else
        hop.collector->completed(errorText[0] ? std::string(errorText) : std::string(curl_easy_strerror(code)));
    return HopEnd::done;
}

// One attempt, redirects included, within `timeout` plus the backstop.
APIResult attempt(const APIRequest& request, double timeout, std::int64_t maxBytes, bool allowLoopback) {
    const double wait = (std::isfinite(timeout) ? std::clamp(timeout, 0.0, 1e6) : 1e6) + kBackstopSeconds;
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(wait));
    BoundedBodyCollector collector(maxBytes, hostOf(request.url), allowLoopback);
    APIRequest current = request;
    for (int followed = 0;; ++followed) {
        Hop hop;
        hop.collector = &collector;
        hop.mayRedirect = followed < kMaxRedirects;
        switch (runHop(current, timeout, deadline, hop)) {
            case HopEnd::outOfTime:
                return OVError(std::string(kNoAnswerInTime));
            case HopEnd::done:
                return collector.outcome();
            case HopEnd::redirected:
                break;
        }
        current.url = *hop.redirectTo;
        // Once dropped the credential stays dropped, even if a later hop comes back to the origin.
        if (hop.dropAuthorization) removeField(current, "Authorization");
        if (hop.redirectStatus <= 303 && current.method != "GET" && current.method != "HEAD") {
            current.method = "GET";
            current.body.clear();
            removeField(current, "Content-Type");
            removeField(current, "Content-Length");
        }
    }
}

double retryDelay(const APIHTTPResponse& response) {
    const auto text = response.header("Retry-After");
    if (!text || text->empty()) return kDefaultRetryAfter;
    char* end = nullptr;
    const double asked = std::strtod(text->c_str(), &end);
    if (end != text->c_str() + text->size() || std::isnan(asked)) return kDefaultRetryAfter;
    return std::clamp(asked, 0.0, kMaxRetryAfter);
}

}  // namespace

std::optional<std::string> APIHTTPResponse::header(std::string_view name) const {
    const auto found = headers.find(asciiLower(name));
    if (found == headers.end()) return std::nullopt;
    return found->second;
}

bool isLoopbackHost(std::string_view host) {
    if (host.empty()) return false;
    std::string lower = lowercased(host);
    if (lower.size() >= 2 && lower.front() == '[' && lower.back() == ']') lower = lower.substr(1, lower.size() - 2);
    return lower == "127.0.0.1" || lower == "localhost" || lower == "::1";
}

bool apiRequestSchemeAllowed(std::string_view url, bool allowLoopback) {
    const auto parsed = parseURL(url);
    const std::string scheme = asciiLower(urlPart(parsed, CURLUPART_SCHEME));
    if (scheme.empty()) return false;
    if (scheme == "https") return true;
    return allowLoopback && scheme == "http" && isLoopbackHost(urlPart(parsed, CURLUPART_HOST));
}

bool isHTTPSWithHost(std::string_view url) {
    // libcurl reads "https:///a" as the host "a"; an address written with no authority has no host.
    const auto authority = url.find("://");
    if (authority == std::string_view::npos || url.substr(authority + 3).starts_with('/')) return false;
    const auto parsed = parseURL(url);
    return parsed && asciiLower(urlPart(parsed, CURLUPART_SCHEME)) == "https" && !urlPart(parsed, CURLUPART_HOST).empty();
}

bool bearerHostAllowed(std::string_view url, const std::vector<std::string>& allowedHosts) {
    const auto parsed = parseURL(url);
    if (asciiLower(urlPart(parsed, CURLUPART_SCHEME)) != "https") return false;
    const std::string host = lowercased(urlPart(parsed, CURLUPART_HOST));
    if (host.empty()) return false;
    return std::any_of(allowedHosts.begin(), allowedHosts.end(),
                       [&](const std::string& allowed) { return lowercased(allowed) == host; });
}

bool redirectKeepsCredentials(std::string_view originHost, std::string_view to) {
    const std::string target = hostOf(to);
    return !originHost.empty() && !target.empty() && lowercased(originHost) == lowercased(target);
}

std::string pathSegmentEncoded(std::string_view segment) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(segment.size());
    for (const char c : segment) {
        const auto byte = static_cast<unsigned char>(c);
        const bool unreserved = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                                (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' || byte == '_' ||
                                byte == '~';
        if (unreserved) {
            out += c;
        } else {
            out += '%';
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
        }
    }
    return out;
}

BoundedBodyCollector::BoundedBodyCollector(std::int64_t maxBytes, std::string originHost, bool allowLoopback)
    : maxBytes_(maxBytes), originHost_(std::move(originHost)), allowLoopback_(allowLoopback) {}

BoundedBodyCollector::Redirect BoundedBodyCollector::redirectProposed(std::string_view newURL) const {
    if (!apiRequestSchemeAllowed(newURL, allowLoopback_)) return Redirect::refuse;
    if (!redirectKeepsCredentials(originHost_, newURL)) return Redirect::followWithoutAuthorization;
    return Redirect::follow;
}

bool BoundedBodyCollector::responseReceived(int status, std::map<std::string, std::string> headers,
                                            std::int64_t declaredLength) {
    if (settled_) return false;
    if (status <= 0) {
        fail(std::string(kNoHTTPResponse));
        return false;
    }
    http_ = APIHTTPResponse{status, {}, std::move(headers)};
    if (declaredLength >= 1 && declaredLength > maxBytes_) {
        fail("The provider declared a " + std::to_string(declaredLength) + "-byte response; this request allows " +
             std::to_string(maxBytes_) + ".");
        return false;
    }
    return true;
}

bool BoundedBodyCollector::dataReceived(std::string_view chunk) {
    if (settled_) return false;
    if (static_cast<std::int64_t>(chunk.size()) > maxBytes_ - static_cast<std::int64_t>(body_.size())) {
        fail("The provider's response went past this request's " + std::to_string(maxBytes_) + "-byte limit.");
        return false;
    }
    body_.append(chunk);
    return true;
}

void BoundedBodyCollector::completed(std::optional<std::string> error) {
    if (settled_) return;
    settled_ = true;
    if (error) failure_ = std::move(*error);
}

void BoundedBodyCollector::fail(std::string text) {
    if (settled_) return;
    settled_ = true;
    failure_ = std::move(text);
}

APIResult BoundedBodyCollector::outcome() const {
    if (failure_) return OVError(*failure_);
    if (!http_) return OVError(std::string(kNoHTTPResponse));
    APIHTTPResponse response = *http_;
    response.data = body_;
    return response;
}

APIResult performAPIRequest(const APIRequest& request, double timeout, bool retry429, std::int64_t maxBytes,
                            bool allowLoopback) {
    if (!apiRequestSchemeAllowed(request.url, allowLoopback))
        return OVError("Refused: " + shownAddress(request.url) +
                       (allowLoopback ? " is neither HTTPS nor a local address." : " is not an HTTPS address."));
    if (maxBytes <= 0) return OVError("Refused a request with no response-size budget.");
    // curl sends a field as written: a line break in it would smuggle in fields of its own.
    const bool spansLines = std::any_of(request.headers.begin(), request.headers.end(), [](const auto& field) {
        return (field.first + field.second).find_first_of("\r\n") != std::string::npos;
    });
    if (spansLines) return OVError("Refused a request whose header fields span lines.");
    APIResult result = attempt(request, timeout, maxBytes, allowLoopback);
    const auto* response = std::get_if<APIHTTPResponse>(&result);
    if (!retry429 || !response || response->status != 429) return result;
    std::this_thread::sleep_for(std::chrono::duration<double>(retryDelay(*response)));
    return performAPIRequest(request, timeout, false, maxBytes, allowLoopback);
}

}  // namespace orvane
