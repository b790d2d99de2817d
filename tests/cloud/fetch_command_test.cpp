#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"
#include "tests/support/http_test_server.hpp"

namespace orvane::testing {
namespace {

TEST(CloudFetchCommand, StatusSizeAndTheGuards) {
    HttpTestServer server;
    server.on("/ok", {httpResponse(200, "hello")});
    server.on("/gone", {httpResponse(404, std::string("bad \xFF byte"), {"X-Kind: Test"})});
    const std::string ok = server.url("/ok");
    const CommandCase cases[] = {
        {"cloud fetch --allow-loopback " + ok, 0, CommandCase::out, "Status: 200\nBody: 5 bytes\n"},
        {"cloud fetch " + ok, 1, CommandCase::err, "orvane: Refused: " + ok + " is not an HTTPS address.\n"},
        {"cloud fetch --allow-loopback --max-bytes 0 " + ok, 1, CommandCase::err,
         "orvane: Refused a request with no response-size budget.\n"},
        {"cloud fetch --allow-loopback --max-bytes 4 " + ok, 1, CommandCase::err,
         "orvane: The provider declared a 5-byte response; this request allows 4.\n"},
        {"cloud fetch --allow-loopback --max-bytes lots " + ok, 2, CommandCase::err, "--max-bytes", CommandCase::contains},
        {"cloud fetch --allow-loopback --timeout 0 " + ok, 2, CommandCase::err, "--timeout", CommandCase::contains},
        // A FIFO is refused rather than waited on.
        {"cloud fetch --allow-loopback --bearer-file {D}/fifo " + ok, 2, CommandCase::err, "is not a regular file",
         CommandCase::contains, [](const TempDir& dir) { ::mkfifo((dir / "fifo").c_str(), 0600); }},
    };
    expectCommands(cases);
    // Only the answer within budget and the one refused on its declared length reached the server.
    EXPECT_EQ(server.seen().size(), 2U);

    TempDir dir;
    dir.write("token", "tok-123\n");
    const auto o = runOrvane("cloud fetch --json --allow-loopback --bearer-file " + (dir / "token") + " " +
                                 server.url("/gone"),
                             dir.path());
    EXPECT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out, nullptr, false);
    EXPECT_EQ(json.value("status", 0), 404);
    EXPECT_EQ(json.value("bytes", 0), 10);
    EXPECT_EQ(json.value("body", ""), "bad \xEF\xBF\xBD byte");
    EXPECT_EQ(json["headers"].value("x-kind", ""), "Test");
    EXPECT_EQ(server.seen().back().headers["authorization"], "Bearer tok-123");
}

}  // namespace
}  // namespace orvane::testing
