// The generic scanner on real trees with the real find: thresholds, dates, categories, bounds.
#include "core/scan/generic_scan.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "core/common/path.hpp"
#include "core/scan/scan_snapshot.hpp"

#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
constexpr std::int64_t MiB = 1024 * 1024;
constexpr std::int64_t kDay = 86400;

class ScanTree : public ::testing::Test {
protected:
    // A file of `logical` bytes; sparse unless `allocated` asks for real blocks. Dated `ageDays` back.
    std::string file(const std::string& relative, std::int64_t logical, int ageDays = 0, std::int64_t allocated = 0) {
        const std::string path = root_ + "/" + relative;
        fs::create_directories(fs::path(path).parent_path());
        int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        EXPECT_GE(fd, 0);
        if (allocated > 0) {
            EXPECT_EQ(::posix_fallocate(fd, 0, allocated), 0);
        }
        EXPECT_EQ(::ftruncate(fd, logical), 0);
        ::close(fd);
        if (ageDays > 0) {
            const time_t when = ::time(nullptr) - ageDays * kDay;
            timespec times[2] = {{when, 0}, {when, 0}};
            EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
        }
        return path;
    }
    const SpaceItem* find(const GenericScanDump& dump, const std::string& path) const {
        for (const auto& item : dump.items)
            if (item.id == path) return &item;
        return nullptr;
    }
    // 151 bigger files, so that the ones under test stay out of the dated top 150.
    void crowd(std::int64_t base) {
        for (int i = 0; i < 151; ++i) file("crowd/f" + std::to_string(i), base + i * 4096);
    }
    orvane::testing::TempDir temp_{"/var/tmp"};
    std::string root_ = temp_.path();
};

TEST_F(ScanTree, ThresholdsFollowTheScope) {
    const auto big = file("big.bin", 120 * MiB);
    const auto middle = file("middle.bin", 50 * MiB);
    const auto small = file("small.bin", 10 * MiB - 1);
    auto folder = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501);
    EXPECT_TRUE(find(folder, big));
    EXPECT_TRUE(find(folder, middle));
    EXPECT_FALSE(find(folder, small));
    auto volume = buildGenericScanDump(scope::Volume{root_, "Drive"}, false, ScanPrivilege::administrator, 501);
    EXPECT_TRUE(find(volume, big));
    EXPECT_FALSE(find(volume, middle));
    EXPECT_EQ(volume.privilege, ScanPrivilege::administrator);
    EXPECT_GT(volume.total, 0);
    EXPECT_GE(volume.free, 0);

    auto gone = buildGenericScanDump(scope::Folder{root_ + "/missing"}, false, ScanPrivilege::standard, 501);
    EXPECT_TRUE(gone.items.empty());
    EXPECT_EQ(gone.free, -1);
    EXPECT_EQ(gone.total, -1);
}

TEST_F(ScanTree, CategoriesBelowTheDatedTop) {
    crowd(500 * MiB);
    const auto coldText = file("docs/notes.txt", 20 * MiB, 100);
    const auto recent = file("docs/recent.bin", 20 * MiB, 3);
    const auto oldBin = file("docs/old.bin", 20 * MiB, 100);
    const auto offloaded = file("Offloaded/movie.txt", 20 * MiB, 400);

    Facts apfs = Facts::real();
    apfs.mount = [](const std::string&) { return platform::MountFacts{"/", "apfs", ""}; };
    auto onAPFS = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501, apfs);
    const std::string label = lastPathComponent(root_);
    ASSERT_TRUE(find(onAPFS, coldText));
    EXPECT_EQ(find(onAPFS, coldText)->category, catCompact);
    EXPECT_TRUE(find(onAPFS, coldText)->note.starts_with("Untouched since "));
    EXPECT_TRUE(find(onAPFS, coldText)->note.ends_with(
        " — compressible type; often shrinks in place, and the result is kept only when it measures smaller. In docs on " +
        label + "."));
    EXPECT_EQ(find(onAPFS, recent)->category, catDeep);
    EXPECT_TRUE(find(onAPFS, recent)->note.starts_with("Last changed "));
    EXPECT_TRUE(find(onAPFS, recent)->note.ends_with(" — in docs on " + label + "."));
    EXPECT_EQ(find(onAPFS, oldBin)->category, catOld);
    const SpaceItem* relocated = find(onAPFS, offloaded);
    ASSERT_TRUE(relocated);
    EXPECT_EQ(relocated->category, catDeep);  // never a compression candidate, old or not
    EXPECT_TRUE(relocated->note.starts_with("Moved here by Velloran Orvane — shortcuts on this Mac may point at this "
                                            "file, and deleting or re-encoding it would break them. Undo lives in "
                                            "History; each shortcut's health in Symlinks. Untouched since "));
    EXPECT_EQ(find(onAPFS, coldText)->safety, Safety::review);
    EXPECT_EQ(find(onAPFS, coldText)->suggested, Suggested::review);
    EXPECT_FALSE(find(onAPFS, coldText)->lastUsed);

    // The same cold text on a file system that cannot compress in place is simply old.
    Facts exfat = Facts::real();
    exfat.mount = [](const std::string&) { return platform::MountFacts{"/", "exfat", ""}; };
    const auto onExFAT = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501, exfat);
    EXPECT_EQ(find(onExFAT, coldText)->category, catOld);
}

TEST_F(ScanTree, TheBiggestAreDatedAndBecomeLargestFiles) {
    const auto cold = file("a/cold.txt", 30 * MiB, 200);
    const auto fresh = file("b/fresh.bin", 31 * MiB, 2);
    auto plain = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501);
    const SpaceItem* c = find(plain, cold);
    ASSERT_TRUE(c);
    EXPECT_EQ(c->category, catBig);  // the earlier category is lost
    EXPECT_TRUE(c->note.starts_with("No record of it being opened — last changed "));
    EXPECT_NE(c->note.find(", 200 days ago. In a on "), std::string::npos) << c->note;
    ASSERT_TRUE(c->lastUsed);
    const SpaceItem* f = find(plain, fresh);
    EXPECT_EQ(f->note.find("days ago"), std::string::npos);  // under 31 days: no count

    // With metadata dates: the metadata tool is asked, and a later use wins.
    Facts tools = Facts::real();
    std::vector<std::string> asked;
    tools.run = [&](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                    ToolErrors errors) {
        if (tool == "/usr/bin/mdls") {
            asked.push_back(args.back());
            EXPECT_EQ(args, (std::vector<std::string>{"-name", "kMDItemLastUsedDate", "-raw", args.back()}));
            EXPECT_EQ(timeout, 5);
            if (args.back() == cold) return ToolResult{{"  2020-05-26 13:04:03 +0000\t"}, {}, false, 0};
            return ToolResult{{"(null)"}, {}, false, 0};
        }
        return runToolSplit(tool, args, timeout, nul, errors);
    };
    auto dated = buildGenericScanDump(scope::Folder{root_}, true, ScanPrivilege::standard, 501, tools);
    EXPECT_EQ(asked.size(), 2u);
    // The recorded use is older than the file's own dates: opened all the same, dated by the later.
    EXPECT_TRUE(find(dated, cold)->note.starts_with("Last opened ")) << find(dated, cold)->note;
    EXPECT_EQ(find(dated, cold)->lastUsed, find(plain, cold)->lastUsed);
    EXPECT_TRUE(find(dated, fresh)->note.starts_with("No record of it being opened"));

    tools.now = [] { return Clock::now() + std::chrono::hours(24 * 3650); };
    const auto stamp = file("c/opened.bin", 32 * MiB, 3000);
    tools.run = [&](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                    ToolErrors errors) {
        if (tool == "/usr/bin/mdls")
            return ToolResult{{args.back() == stamp ? "2026-01-31 12:00:00 +0000" : "(null)"}, {}, false, 0};
        return runToolSplit(tool, args, timeout, nul, errors);
    };
    const auto later = buildGenericScanDump(scope::Folder{root_}, true, ScanPrivilege::standard, 501, tools);
    const SpaceItem* o = find(later, stamp);
    ASSERT_TRUE(o);
    EXPECT_TRUE(o->note.starts_with("Last opened Jan 31, 2026 — ")) << o->note;
    EXPECT_NE(o->note.find(" days ago. In c on "), std::string::npos) << o->note;
}

TEST_F(ScanTree, BoundsAndPartialScans) {
    // The 150 largest by logical size also take real blocks, so they survive the cap by allocated size.
    for (int i = 0; i < 605; ++i)
        file("many/f" + std::to_string(i), 11 * MiB + i, 0, i < 5 ? 64 * 1024 : (i >= 455 ? 8 * 1024 : 0));
    auto dump = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501);
    ASSERT_EQ(dump.items.size(), 600u);
    for (int i = 0; i < 5; ++i) EXPECT_GE(dump.items[static_cast<std::size_t>(i)].sizeBytes, 64 * 1024);  // biggest allocated first
    std::size_t big = 0;
    for (const auto& item : dump.items) big += item.category == catBig;
    EXPECT_EQ(big, 150u);

    // A find that ran out of time: what it printed is the scan.
    Facts slow = Facts::real();
    slow.run = [&](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                   ToolErrors errors) {
        if (tool == "/usr/bin/find") {
            EXPECT_EQ(timeout, 240);
            EXPECT_EQ(args, (std::vector<std::string>{root_, "-type", "f", "-size", "+10M", "-print0"}));
            return ToolResult{{root_ + "/many/f1", root_ + "/many/f2"}, {}, true, 15};
        }
        return runToolSplit(tool, args, timeout, nul, errors);
    };
    EXPECT_EQ(buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::standard, 501, slow).items.size(), 2u);
    slow.run = [](const std::string&, const std::vector<std::string>& args, double timeout, bool, ToolErrors) {
        EXPECT_EQ(timeout, 900);
        EXPECT_EQ(args[4], "+100M");
        return ToolResult{};
    };
    EXPECT_TRUE(buildGenericScanDump(scope::NetworkShare{root_, "Share"}, false, ScanPrivilege::standard, 501, slow)
                    .items.empty());
}

TEST_F(ScanTree, TheVolumesTrash) {
    fs::create_directories(root_ + "/.Trashes/501");
    std::ofstream(root_ + "/.Trashes/501/deleted") << std::string(100000, 'x');
    auto dump = buildGenericScanDump(scope::Volume{root_, "Drive"}, false, ScanPrivilege::standard, 501);
    const SpaceItem* trash = find(dump, root_ + "/.Trashes/501");
    ASSERT_TRUE(trash);
    EXPECT_EQ(trash->title, "Trash on Drive");
    EXPECT_EQ(trash->category, catJunk);
    EXPECT_EQ(trash->safety, Safety::safe);
    EXPECT_EQ(trash->suggested, Suggested::delete_);
    EXPECT_TRUE(trash->contentsOnly);
    EXPECT_EQ(trash->note, "Deleted items still occupying this drive. Emptying frees Drive, not your Mac.");
    EXPECT_GE(trash->sizeBytes, 100000);
    const auto otherUser = buildGenericScanDump(scope::Volume{root_, "Drive"}, false, ScanPrivilege::standard, 502);
    EXPECT_FALSE(find(otherUser, root_ + "/.Trashes/502"));

    // du says nothing there, or cannot measure.
    Facts unmeasured = Facts::real();
    for (std::int64_t size : {0, -1}) {
        unmeasured.run = [size](const std::string& tool, const std::vector<std::string>& args, double timeout,
                                bool nul, ToolErrors errors) {
            if (tool != "/usr/bin/du") return runToolSplit(tool, args, timeout, nul, errors);
            if (size < 0) return ToolResult{};
            return ToolResult{{"0\t" + args.back()}, {}, false, 0};
        };
        EXPECT_TRUE(buildGenericScanDump(scope::Volume{root_, "Drive"}, false, ScanPrivilege::standard, 501, unmeasured)
                        .items.empty());
    }
}

TEST_F(ScanTree, DumpFileForm) {
    file("x/big.bin", 12 * MiB, 10);
    auto dump = buildGenericScanDump(scope::Folder{root_}, false, ScanPrivilege::administrator, 501);
    auto json = toJSON(dump, JSONDateEncoding::iso8601);
    EXPECT_EQ(json.begin().key(), "items");
    EXPECT_TRUE(json["items"][0]["lastUsed"].is_string());
    EXPECT_EQ(json["privilege"], "Administrator");
    auto back = decodeGenericScanDump(nlohmann::json::parse(json.dump()), JSONDateEncoding::iso8601);
    ASSERT_TRUE(back.dump) << back.error;
    EXPECT_EQ(back.dump->items.size(), 1u);
    EXPECT_EQ(back.dump->free, dump.free);
    EXPECT_EQ(back.dump->privilege, ScanPrivilege::administrator);
    auto missing = nlohmann::json::parse(json.dump());
    missing.erase("total");
    EXPECT_FALSE(decodeGenericScanDump(missing, JSONDateEncoding::iso8601).dump);
    auto odd = nlohmann::json::parse(json.dump());
    odd["privilege"] = "Root";
    EXPECT_FALSE(decodeGenericScanDump(odd, JSONDateEncoding::iso8601).dump);
}

TEST(ScanMerging, ReplaceSurviveAndForeign) {
    auto item = [](std::string id, std::string_view category) {
        SpaceItem i;
        i.id = std::move(id);
        i.category = std::string(category);
        return i;
    };
    std::map<std::string, SpaceItem> current = {{"/a", item("/a", catBig)}, {"/b", item("/b", catOld)}};
    auto replaced = doorScanReplace(current, std::set<std::string>{std::string(catBig)}, {item("/c", catBig), item("/b", catJunk)});
    EXPECT_EQ(replaced.size(), 2u);
    EXPECT_FALSE(replaced.contains("/a"));
    EXPECT_EQ(replaced.at("/b").category, catJunk);  // replaced although not cleared
    EXPECT_EQ(doorScanReplace(current, std::set<std::string>{}, {item("/d", catDL)}).size(), 3u);
    EXPECT_EQ(doorScanReplace(current, [](const SpaceItem& i) { return i.id == "/b"; }, {}).size(), 1u);

    EXPECT_EQ(fullScanSurvivorIds({item("/a", catBig)}, {item("/b", catDeep)}, {item("/a", catDupes)}, {}, {item("/v", catVM)}),
              (std::set<std::string>{"/a", "/b", "/v"}));

    EXPECT_TRUE(scopeForeign("/Volumes/Drive/x"));
    EXPECT_FALSE(scopeForeign("/Volumes/Drive/.Trashes/501/x"));
    EXPECT_FALSE(scopeForeign("/Users/ann/x"));
    EXPECT_FALSE(scopeForeign("/Volumes"));
}

TEST(ScanVocabulary, PhasesPrivilegesMetricsDates) {
    EXPECT_EQ(label(ScanPhase::cataloguing), "Cataloguing… — 1 of 6");
    EXPECT_EQ(label(ScanPhase::finishing), "Finishing up… — 6 of 6");
    EXPECT_DOUBLE_EQ(fraction(ScanPhase::dating), 4.0 / 6);
    EXPECT_EQ(fromRawValue<ScanPrivilege>("Standard"), ScanPrivilege::standard);
    EXPECT_FALSE(fromRawValue<ScanPrivilege>("standard"));

    ScanMetrics metrics;
    metrics.record("find", 2.25);
    metrics.record("dates", 0.04);
    metrics.record("sort", 3.0);
    metrics.mark("now");
    EXPECT_EQ(metrics.phases().size(), 4u);
    EXPECT_EQ(metrics.summary(0.05), "sort 3.0s, find 2.2s");

    EXPECT_EQ(parseMetadataDate("2020-05-26 13:04:03 +0000"), Clock::from_time_t(1590498243));
    EXPECT_EQ(parseMetadataDate("2020-05-26 15:04:03 +0200"), Clock::from_time_t(1590498243));
    for (const char* bad : {"(null)", "", "2020-05-26 13:04:03", "2020-05-26T13:04:03 +0000"})
        EXPECT_FALSE(parseMetadataDate(bad)) << bad;

    ScanSnapshot snapshot{Clock::from_time_t(978'307'200 + 100), 5, 7, {{"Junk", 3}}};
    auto json = toJSON(snapshot);
    EXPECT_EQ(json.dump(), R"({"date":100.0,"free":5,"reclaimable":7,"sizes":{"Junk":3}})");
    EXPECT_EQ(scanSnapshotFromJSON(nlohmann::json::parse(json.dump())), snapshot);
    EXPECT_FALSE(scanSnapshotFromJSON(nlohmann::json::parse(R"({"date":1,"free":5,"sizes":{}})")));
}

}  // namespace
}  // namespace orvane
