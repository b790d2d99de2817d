// The one guarded road to a cloud provider's web interface: HTTPS only, a hard budget of response
// bytes held while the body arrives, the bearer credential dropped on a redirect to another host,
// one retry of a rate limit, and a wait that ends whatever the network does.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/ov_error.hpp"

namespace orvane {

// A request as the caller prepares it.
struct APIRequest {
    std::string url;
    std::string method = "GET";
    std::vector<std::pair<std::string, std::string>> headers;  // sent in this order
    std::string body;
    // Certificate authorities to trust instead of the system's, for a private authority (and
    // tests); absent trusts the system's.
    std::optional<std::string> caFile;

    bool operator==(const APIRequest&) const = default;
};

struct APIHTTPResponse {
    int status = 0;
    std::string data;  // never more than the request's budget
    // Field names lowercased, since HTTP does not care how a server spelled them; a field sent
    // twice keeps its values joined with ", ".
    std::map<std::string, std::string> headers;

    bool operator==(const APIHTTPResponse&) const = default;
    // The value of a field by any spelling of its name.
    std::optional<std::string> header(std::string_view name) const;
};

using APIResult = std::variant<APIHTTPResponse, OVError>;

// "127.0.0.1", "localhost" and "::1" (brackets allowed), in any case; no other name or address.
bool isLoopbackHost(std::string_view host);
// HTTPS, or with `allowLoopback` plain HTTP to a loopback host. An empty or scheme-less address
// is refused.
bool apiRequestSchemeAllowed(std::string_view url, bool allowLoopback);
// An address that parses, whose scheme is HTTPS in any case and whose host is not empty.
bool isHTTPSWithHost(std::string_view url);
// An HTTPS address whose host is exactly one of `allowedHosts` (case aside): a subdomain is not.
bool bearerHostAllowed(std::string_view url, const std::vector<std::string>& allowedHosts);
// Whether a redirect to `to` may carry the credential sent to `originHost`: the same host only.
bool redirectKeepsCredentials(std::string_view originHost, std::string_view to);
// One path segment percent-encoded byte by byte: only unreserved characters stay, "/" too is
// encoded.
std::string pathSegmentEncoded(std::string_view segment);

// The rules of one request as its events arrive. The first failure settles it; later events
// change nothing, so a completion reported after an abort cannot replace the reason for it.
class BoundedBodyCollector {
public:
    enum class Redirect {
        follow,
        followWithoutAuthorization,
        refuse,  // the 3xx response at hand is the result
    };

    BoundedBodyCollector(std::int64_t maxBytes, std::string originHost, bool allowLoopback);

    Redirect redirectProposed(std::string_view newURL) const;
    // A status of 0 stands for an answer that is not HTTP; a declared length below 0 is unknown.
    // False when the transfer must stop.
    bool responseReceived(int status, std::map<std::string, std::string> headers, std::int64_t declaredLength);
    // False when the transfer must stop; nothing of a refused chunk is kept.
    bool dataReceived(std::string_view chunk);
    // `error` is the transport's description, absent when the transfer ended well.
    void completed(std::optional<std::string> error);

    bool settled() const { return settled_; }
    APIResult outcome() const;

private:
    void fail(std::string text);

    std::int64_t maxBytes_;
    std::string originHost_;
    bool allowLoopback_;
    std::string body_;
    std::optional<APIHTTPResponse> http_;
    std::optional<std::string> failure_;
    bool settled_ = false;
};

// At most this many redirects are followed; the response that would lead past them stands.
inline constexpr int kMaxRedirects = 10;

// Sends `request` on the calling thread and blocks, the retry's sleep included, for at most
// `timeout` + 5 seconds per attempt. Any HTTP status is a response; refusals, an overrun budget
// and transport trouble are an OVError whose text carries neither a credential nor a body.
APIResult performAPIRequest(const APIRequest& request, double timeout, bool retry429, std::int64_t maxBytes,
                            bool allowLoopback);

}  // namespace orvane
