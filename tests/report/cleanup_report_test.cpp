#include "core/report/cleanup_report.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

SpaceItem finding(std::string id, std::int64_t bytes, Safety safety, Suggested suggested, std::string category) {
    SpaceItem item;
    item.id = std::move(id);
    item.title = item.id.substr(item.id.rfind('/') + 1);
    item.category = std::move(category);
    item.safety = safety;
    item.suggested = suggested;
    item.sizeBytes = bytes;
    return item;
}

TEST(CleanupReport, TextOnThePageIsTextWhateverItHolds) {
    EXPECT_EQ(pageText("<script>alert(1)</script>.bin"), "&lt;script&gt;alert(1)&lt;/script&gt;.bin");
    EXPECT_EQ(pageText("a\"b'c&d"), "a&quot;b&apos;c&amp;d");
    EXPECT_EQ(pageText("bad\xFF\xFEname"), "bad\\xFF\\xFEname");
    EXPECT_EQ(pageText("rtl\u202Egnp.exe and \u2066x\u2069 \u200F"), "rtl\\u202Egnp.exe and \\u2066x\\u2069 \\u200F");
    EXPECT_EQ(pageText("line\nbreak"), "line\\nbreak");
    EXPECT_EQ(pageText("Café — ok"), "Café — ok");
}

TEST(CleanupReport, TheWholePageEscapesInOnePlace) {
    CleanupReport report;
    report.root = "/Users/a/<b>";
    report.canvas = {0, 0, 100, 100};
    report.tiles = {{{0, 0, 100, 100}, TileKind::finding, "/Users/a/<b>/\"><img src=x>", 5, FileKind::video,
                     Safety::safe, "", 1}};
    std::vector<ReportRow> rows = {
        {finding("/Users/a/<b>/<script>alert(1)</script>.bin", 20'000'000, Safety::safe, Suggested::delete_, "Junk"),
         std::string("Protected: <yours>")},
        {finding("/Users/a/<b>/big.mov", 30'000'000, Safety::review, Suggested::move, "Media & big downloads"), std::nullopt},
        {finding("/Users/a/<b>/inside/x", 10'000'000, Safety::review, Suggested::move, "Media & big downloads"),
         std::nullopt},
    };
    rows[2].item.id = "/Users/a/<b>/big.mov/inside";  // inside another finding: counted once
    report.categories = reportCategories(rows);
    report.leftOut = {"Left <out> & said"};
    const std::string page = reportHTML(report);
    for (const char* raw : {"<script>alert", "<img", "<b>", "<yours>", "<out>"})
        EXPECT_EQ(page.find(raw), std::string::npos) << raw;
    EXPECT_NE(page.find("&lt;script&gt;alert(1)&lt;/script&gt;.bin"), std::string::npos);
    EXPECT_NE(page.find("&quot;&gt;&lt;img src=x&gt;"), std::string::npos);
    EXPECT_NE(page.find("<html lang=\"en\">"), std::string::npos);
    EXPECT_NE(page.find("<title>Clean-up report: /Users/a/&lt;b&gt;</title>"), std::string::npos);

    ASSERT_EQ(report.categories.size(), 2U);
    EXPECT_EQ(report.categories[0].name, "Media & big downloads");
    EXPECT_EQ(report.categories[0].bytes, 30'000'000);
    EXPECT_EQ(report.categories[0].rows.front().item.sizeBytes, 30'000'000);
    std::vector<SpaceItem> items;
    for (const auto& row : rows) items.push_back(row.item);
    EXPECT_EQ(reportTotals(items), (ReportTotals{20'000'000, 30'000'000, 0}));

    const std::string md = reportMarkdown(report);
    EXPECT_NE(md.find("\\<script>alert(1)\\</script>.bin"), std::string::npos) << md;
    EXPECT_EQ(toJSON(report)["categories"][0]["items"][0]["protection"], nullptr);
}

}  // namespace
}  // namespace orvane
