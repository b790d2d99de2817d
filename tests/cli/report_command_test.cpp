#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include "tests/cli/run_orvane.hpp"

namespace orvane::testing {
namespace {

// A small home with a finding of a hostile name, a duplicate and a project.
void smallTree(const TempDir& dir) {
    dir.write("tree/a/big.bin", std::string(12'000'000, 'b'));
    dir.write("tree/c/copy.bin", std::string(12'000'000, 'b'));
    dir.write("tree/<script>alert(1)</script>.bin", std::string(11'000'000, 's'));
    dir.write("tree/proj/package.json", "{}");
    dir.write("tree/proj/node_modules/x/i.js", std::string(300'000, 'j'));
}

TEST(ReportCommand, WritesOnePageAndSaysWhatGrewNextTime) {
    TempDir dir;
    smallTree(dir);
    const std::string run = "--ledger-dir " + (dir / "ledger") + " report " + (dir / "tree");
    auto o = runOrvane(run + " --json", dir.path(), "cd " + dir.path() + " &&");
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    const std::string file = json["file"];
    EXPECT_TRUE(file.starts_with(dir / "orvane-report-")) << file;
    EXPECT_TRUE(file.ends_with(".html"));
    EXPECT_EQ(json["growth"], nullptr);
    EXPECT_EQ(json["duplicates"].size(), 1U);
    EXPECT_EQ(json["artifacts"][0]["path"], dir / "tree/proj/node_modules");
    EXPECT_EQ(json["categories"].size() >= 1, true);
    const auto page = readFile(file).value_or("");
    EXPECT_EQ(page.find("<script>"), std::string::npos);
    EXPECT_NE(page.find("&lt;script&gt;alert(1)&lt;/script&gt;.bin"), std::string::npos);
    // Nothing the page needs comes from elsewhere.
    for (const char* outside : {"http://", "https://", "src=", "@import", "url("})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;

    o = runOrvane(run + " --out " + (dir / "second.md") + " --format md", dir.path());
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.out, dir / "second.md\n");
    EXPECT_NE(readFile(dir / "second.md").value_or("").find("| Size | Safety | Category | Item | Note |"), std::string::npos);
    dir.write("tree/a/more.bin", std::string(2'000'000, 'm'));
    o = runOrvane(run + " --json --out " + (dir / "third.html"), dir.path());
    const auto again = nlohmann::json::parse(o.out);
    ASSERT_EQ(again["growth"].size(), 1U) << again["growth"];
    EXPECT_EQ(again["growth"][0]["path"], dir / "tree/a");

    const CommandCase refused[] = {
        {"report {D}/nothing", 2, CommandCase::err, "is not a folder.", CommandCase::contains},
        {"report {D}/fifo", 2, CommandCase::err, "is not a folder.", CommandCase::contains,
         [](const TempDir& d) { ::mkfifo((d / "fifo").c_str(), 0600); }},
        {"report {D} --format pdf", 2, CommandCase::err, "--format is html or md", CommandCase::contains},
        {"report {D} --out {D}/missing/r.html", 2, CommandCase::err, "Cannot write the report to", CommandCase::contains},
    };
    expectCommands(refused);
}

TEST(ReportCommand, ARecordedMacGetsItsPageWithoutHistory) {
    TempDir dir;
    const auto o = runOrvane(kAlexReplay + "report /Users/alex --json --out " + (dir / "alex.html"), dir.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const auto json = nlohmann::json::parse(o.out);
    EXPECT_FALSE(json["categories"].empty());
    EXPECT_EQ(json["trend"].size(), 0U);
    bool said = false;
    for (const auto& sentence : json["leftOut"]) said = said || sentence.get<std::string>().find("recorded Mac") != std::string::npos;
    EXPECT_TRUE(said);
}

TEST(ReportCommand, TheWeeklyScanOfTheHomeWritesTheSummaryOnce) {
    TempDir dir;
    dir.write("home/big.bin", std::string(11'000'000, 'b'));
    dir.write("ledger/user-defaults.json",
              nlohmann::json{{"autoSummaryAfterWeeklyScan", true}, {"autoSummaryFormat", "md"},
                             {"autoSummaryDir", dir / "summaries"}}
                  .dump());
    std::filesystem::create_directory(dir / "summaries");
    const std::string scan = "--ledger-dir " + (dir / "ledger") + " scan " + (dir / "home");
    auto o = runOrvane(scan, dir.path(), "HOME=" + (dir / "home"));
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find("The weekly summary is at " + (dir / "summaries/orvane-report-")), std::string::npos) << o.out;
    std::vector<std::string> written;
    for (const auto& entry : std::filesystem::directory_iterator(dir / "summaries")) written.push_back(entry.path());
    ASSERT_EQ(written.size(), 1U);
    EXPECT_TRUE(written[0].ends_with(".md"));
    EXPECT_NE(readFile(written[0]).value_or("").find("big.bin"), std::string::npos);
    // Within the week the next scan writes none.
    o = runOrvane(scan, dir.path(), "HOME=" + (dir / "home"));
    EXPECT_EQ(o.out.find("weekly summary"), std::string::npos) << o.out;
}

// The pixels of a PNG screenshot: whether any two differ, read with zlib from its IDAT chunks.
bool pngHasContent(const std::string& png) {
    std::string compressed;
    for (std::size_t at = 8; at + 12 <= png.size();) {
        const std::uint32_t length = (static_cast<unsigned char>(png[at]) << 24) | (static_cast<unsigned char>(png[at + 1]) << 16) |
                                     (static_cast<unsigned char>(png[at + 2]) << 8) | static_cast<unsigned char>(png[at + 3]);
        if (png.compare(at + 4, 4, "IDAT") == 0) compressed += png.substr(at + 8, length);
        at += 12 + length;
    }
    std::string pixels(64 << 20, '\0');
    uLongf size = pixels.size();
    if (uncompress(reinterpret_cast<Bytef*>(pixels.data()), &size, reinterpret_cast<const Bytef*>(compressed.data()),
                   compressed.size()) != Z_OK)
        return false;
    std::set<char> seen(pixels.begin(), pixels.begin() + static_cast<long>(size));
    return seen.size() > 8;
}

TEST(ReportCommand, ABrowserOpensThePageOfflineAndDrawsIt) {
    const char* browser = nullptr;
    for (const char* candidate : {"/usr/bin/chromium", "/usr/bin/chromium-browser"})
        if (std::filesystem::exists(candidate)) browser = candidate;
    if (!browser) GTEST_SKIP() << "Chromium is not installed (scripts/test installs it as root); the page is not opened";
    TempDir dir;
    smallTree(dir);
    auto o = runOrvane("--ledger-dir " + (dir / "ledger") + " report " + (dir / "tree") + " --out " + (dir / "page.html"),
                       dir.path());
    ASSERT_EQ(o.status, 0) << o.err;
    // No network at all: every host resolves to nothing and no proxy is reachable.
    const std::string flags = std::string(browser) +
                              " --headless --no-sandbox --disable-gpu --no-first-run --user-data-dir=" + (dir / "profile") +
                              " --host-resolver-rules='MAP * ~NOTFOUND' --proxy-server=127.0.0.1:9 --window-size=1280,1600 ";
    ASSERT_EQ(std::system((flags + "--dump-dom file://" + (dir / "page.html") + " >" + (dir / "dom.html") + " 2>/dev/null").c_str()), 0);
    const std::string dom = readFile(dir / "dom.html").value_or("");
    std::size_t tiles = 0, rows = 0;
    for (std::size_t at = 0; (at = dom.find("class=\"tile ", at)) != std::string::npos; ++at) ++tiles;
    for (std::size_t at = 0; (at = dom.find("<tr class=\"finding\"", at)) != std::string::npos; ++at) ++rows;
    EXPECT_GE(tiles, 5U) << dom.substr(0, 2000);
    EXPECT_EQ(rows, 3U);
    EXPECT_EQ(dom.find("<script>alert"), std::string::npos);
    ASSERT_EQ(std::system((flags + "--screenshot=" + (dir / "shot.png") + " file://" + (dir / "page.html") + " >/dev/null 2>&1").c_str()), 0);
    EXPECT_TRUE(pngHasContent(readFile(dir / "shot.png").value_or("")));
}

}  // namespace
}  // namespace orvane::testing
