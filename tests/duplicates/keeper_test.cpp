#include "core/duplicates/keeper.hpp"

#include <gtest/gtest.h>

#include <chrono>

namespace orvane {
namespace {

const std::string home = "/Users/alex";
std::string at(const std::string& relative) { return home + "/" + relative; }

TEST(Keeper, ScoresOfNamesAndPlaces) {
    struct Row {
        std::string path;
        int score;
    };
    const std::vector<Row> rows = {
        {"/Volumes/Disk/Report copy 2.pdf", -40},
        {"/Volumes/Disk/Report Copy.PDF", -40},
        {"/Volumes/Disk/Report (2).pdf", -30},
        {"/Volumes/Disk/Report(12).pdf", -30},
        {"/Volumes/Disk/report copy (2).pdf", -30},
        {"/Volumes/Disk/photocopy.pdf", 0},
        {"/Volumes/Disk/Report copy 2 final.pdf", 0},
        {at("Downloads/x.pdf"), -20},
        {at("Downloads/sub/x.pdf"), -20},
        {at("DownloadsOld/x.pdf"), 0},
        {at("Desktop/x.pdf"), -10},
        {at("Desktop/sub/x.pdf"), 0},
        {at(".Trash/x.pdf"), -60},
        {"/private/tmp/x.pdf", -50},
        {at("Library/Caches/app/x.pdf"), -50},
        {at("Documents/x.pdf"), 0},
        {at("Documents/Taxes/x.pdf"), 15},
        {at("Movies/a/b/x.mov"), 15},
        {at("Pictures/Trip/x.jpg"), 15},
        {at("Music/Album/x.m4a"), 15},
        {at("Downloads/Report copy.pdf"), -60},
        {at("Documents/Old/Report (3).pdf"), -15},
    };
    for (const Row& row : rows) EXPECT_EQ(keeperScore(row.path, home), row.score) << row.path;
    EXPECT_TRUE(keeperSignals("/Volumes/Disk/x.pdf", home).empty());
}

TEST(Keeper, OrderAndReason) {
    using std::chrono::hours;
    const TimePoint day{};
    struct OrderCase {
        const char* why;
        std::vector<std::string> paths;
        std::map<std::string, TimePoint> modified;
        std::vector<std::string> expected;
    };
    const std::vector<OrderCase> orders = {
        {"higher score first", {at("Downloads/a.pdf"), at("Documents/W/a.pdf")}, {},
         {at("Documents/W/a.pdf"), at("Downloads/a.pdf")}},
        {"earlier date beats a shorter path", {"/v/a.pdf", "/v/longer/a.pdf"}, {{"/v/a.pdf", day + hours(2)}, {"/v/longer/a.pdf", day}},
         {"/v/longer/a.pdf", "/v/a.pdf"}},
        {"one date absent: length decides", {"/v/longer/a.pdf", "/v/a.pdf"}, {{"/v/longer/a.pdf", day}},
         {"/v/a.pdf", "/v/longer/a.pdf"}},
        {"characters, not bytes", {"/v/abc.pdf", "/v/\u00e9\u00e9.pdf"}, {}, {"/v/\u00e9\u00e9.pdf", "/v/abc.pdf"}},
        {"same length: text order", {"/v/b.pdf", "/v/a.pdf"}, {{"/v/b.pdf", day}, {"/v/a.pdf", day}},
         {"/v/a.pdf", "/v/b.pdf"}},
    };
    for (const OrderCase& c : orders) EXPECT_EQ(orderByKeeper(c.paths, c.modified, home), c.expected) << c.why;

    const std::string oldest = "Kept: the oldest copy \u2014 the others appeared later.";
    struct ReasonCase {
        std::string keeper;
        std::vector<std::string> over;
        std::string expected;
    };
    const std::vector<ReasonCase> reasons = {
        {"/v/a.pdf", {at("Downloads/a.pdf")}, "Kept: the others sit in transit locations."},
        {"/v/a.pdf", {"/w/a.pdf"}, oldest},
        {"/v/a.pdf", {}, oldest},
        // Judged against the weakest of the others, not the strongest.
        {"/v/a.pdf", {"/w/a.pdf", at("Downloads/a.pdf")}, "Kept: the others sit in transit locations."},
        {at("Downloads/a.pdf"), {at("Downloads/b.pdf"), "/w/a.pdf"}, oldest},
        {"/v/a.pdf", {at("Documents/W/a.pdf")}, "Kept: best location and name."},
        {at("Documents/W/a.pdf"),
         {at("Downloads/a copy.pdf"), at(".Trash/a.pdf"), at("Desktop/a (2).pdf")},
         "Kept: filed in your own folders; the others carry copy-suffix names; the others sit in transit locations; "
         "the others are already in a Trash."},
    };
    for (const ReasonCase& c : reasons) EXPECT_EQ(keeperReason(c.keeper, c.over, home), c.expected) << c.keeper;
}

}  // namespace
}  // namespace orvane
