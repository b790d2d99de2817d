#include "core/ledger/versioned_payload.hpp"

#include <gtest/gtest.h>

#include "core/common/json_files.hpp"
#include "core/ledger/audit_snapshot.hpp"
#include "core/ledger/duplicates_watch_hit.hpp"
#include "core/ledger/internal/journal_entries.hpp"
#include "core/ledger/items_cache.hpp"
#include "core/ledger/journals.hpp"
#include "core/ledger/move_record.hpp"
#include "core/ledger/trash.hpp"

namespace orvane {
namespace {

using Strings = std::vector<std::string>;

TEST(LedgerVersioned, DecodesWrapperThenBareAndNothingElse) {
    struct Case {
        std::string bytes;
        std::optional<Strings> expected;
    };
    const Case cases[] = {
        {R"({"v":1,"data":["a","b"]})", Strings{"a", "b"}},
        {R"(["a","b"])", Strings{"a", "b"}},                    // from before the wrapper
        {R"({"v":99,"data":[]})", Strings{}},                   // another version still reads
        {R"({"v":99,"data":["x"]})", Strings{"x"}},
        {R"({"data":["x"],"v":1})", Strings{"x"}},              // key order does not matter
        {R"({"v":1.0,"data":["x"]})", Strings{"x"}}, {R"({"v":1,"data":["x"],"extra":true})", Strings{"x"}},
        {R"({"v":1,"data":{"a":1}})", std::nullopt},            // a payload of another shape
        {R"({"v":1,"data":["a",2]})", std::nullopt},            // one bad element fails all
        {R"({"v":"1","data":["a"]})", std::nullopt}, {R"({"v":1.5,"data":["a"]})", std::nullopt},
        {R"({"v":1})", std::nullopt}, {R"({"data":["a"]})", std::nullopt},
        {R"({"v":1,"data":["a")", std::nullopt},               // cut short
        {"", std::nullopt},
        {"not json", std::nullopt}, {"null", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(decodeVersioned<Strings>(c.bytes), c.expected) << c.bytes;
}

TEST(LedgerVersioned, EncodesCompactlyInTheWrapper) {
    EXPECT_EQ(encodeVersioned(Strings{"a", "b"}, 1), std::optional<std::string>(R"({"v":1,"data":["a","b"]})"));
    EXPECT_EQ(encodeVersioned(Strings{}, 7), std::optional<std::string>(R"({"v":7,"data":[]})"));
    EXPECT_EQ(encodeVersioned(Strings{"\xFF"}, 1), std::nullopt);  // not UTF-8: nothing, no throw
}

MoveRecord sampleMove() {
    return {*dateFromReferenceSeconds(100.5), "Movies", "/Users/a/Movies", "/Volumes/Drive/Movies", 1'500'000, true, std::nullopt};
}

// The record's JSON text, and whether that text decodes to the record again.
template <typename T>
std::pair<std::string, bool> coded(const T& record) {
    const std::string text = JSONCoding<T>::encode(record).dump();
    return {text, JSONCoding<T>::decode(nlohmann::json::parse(text)) == record};
}

TEST(LedgerRecords, EachInItsFormAndBack) {
    MoveRecord admin = sampleMove();
    admin.adminScope = false;
    AuditSnapshot snapshot;
    snapshot.date = *dateFromReferenceSeconds(10);
    snapshot.capacity = 500;
    snapshot.free = 100;
    snapshot.used = 400;
    snapshot.categoryTotals = {{"Junk", 7}};
    snapshot.topFindings = {{"/a", "a", "Junk", 7}};
    snapshot.actionsSince = {"[2026-01-01T00:00:00Z] MERGED x"};
    AuditSnapshot timed = snapshot;
    timed.scanSeconds = 12.5;
    const Ledger::ItemsCache cache{*dateFromReferenceSeconds(3), {}, 10, 20, std::nullopt};
    Ledger::ItemsCache older = cache;
    older.schema = 3;  // an old schema still decodes: the caller compares
    struct Case {
        std::pair<std::string, bool> coded;
        const char* form;
    } cases[] = {
        {coded(sampleMove()),
         R"({"date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":true})"},
        {coded(admin),
         R"({"date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":true,"adminScope":false})"},
        {coded(DuplicatesWatchHit{"h1", *dateFromReferenceSeconds(5), "/d", "/d/p.jpg", {"/q/p.jpg"}, 42, false}),
         R"({"id":"h1","date":5.0,"watchedRoot":"/d","newPath":"/d/p.jpg","matches":["/q/p.jpg"],"bytes":42,"dismissed":false})"},
        {coded(snapshot),
         R"({"date":10.0,"scope":"Startup disk","capacity":500,"free":100,"used":400,"categoryTotals":{"Junk":7},)"
         R"("topFindings":[{"path":"/a","title":"a","category":"Junk","bytes":7}],"actionsSince":["[2026-01-01T00:00:00Z] MERGED x"]})"},
        {coded(timed),
         R"({"date":10.0,"scope":"Startup disk","capacity":500,"free":100,"used":400,"scanSeconds":12.5,"categoryTotals":{"Junk":7},)"
         R"("topFindings":[{"path":"/a","title":"a","category":"Junk","bytes":7}],"actionsSince":["[2026-01-01T00:00:00Z] MERGED x"]})"},
        {coded(cache), R"({"date":3.0,"items":[],"free":10,"total":20})"},
        {coded(older), R"({"date":3.0,"items":[],"free":10,"total":20,"schema":3})"},
        {coded(TrashReceipt{"/Users/a/x", "/Users/a/.Trash/x"}), R"({"original":"/Users/a/x","inTrash":"/Users/a/.Trash/x"})"},
        {coded(ledger::internal::SwapEntry{"/p", InflightKind::dedupe}), R"({"path":"/p","kind":"dedupe"})"},
    };
    for (const auto& [got, form] : cases) {
        EXPECT_EQ(got.first, form);
        EXPECT_TRUE(got.second) << form;
    }
    EXPECT_EQ(quotedRawValues<InflightKind>(), R"("compact", "compress", "dedupe", "move")");
}

TEST(LedgerRecords, AMoveMayLackItsAdminScopeAlone) {
    EXPECT_EQ(sampleMove().id(), "/Volumes/Drive/Movies");
    const std::string base = R"("date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","symlinked":true)";
    auto with = [&](std::optional<bool> admin, std::int64_t bytes) {
        auto r = sampleMove();
        r.adminScope = admin;
        r.bytes = bytes;
        return r;
    };
    struct Case {
        std::string json;
        std::optional<MoveRecord> expected;
    } cases[] = {
        {"{" + base + R"(,"bytes":1500000,"adminScope":null})", with(std::nullopt, 1'500'000)},
        {"{" + base + R"(,"bytes":-1,"adminScope":true})", with(true, -1)},
        {"{" + base + R"(,"bytes":1500000,"adminScope":"yes"})", std::nullopt},
        {"{" + base + "}", std::nullopt},
        {R"({"date":"2026-01-01T00:00:00Z","title":"t","src":"s","dst":"d","bytes":1,"symlinked":true})", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(JSONCoding<MoveRecord>::decode(nlohmann::json::parse(c.json)), c.expected) << c.json;
}

TEST(LedgerRecords, DuplicatesWatchHitTitle) {
    DuplicatesWatchHit hit{"h1", *dateFromReferenceSeconds(5), "/Users/a/Downloads", "/Users/a/Downloads/photo.jpg", {}, 42, false};
    EXPECT_EQ(hit.title(), "photo.jpg");
    hit.matches = {"/Users/a/Pictures/photo.jpg"};
    EXPECT_EQ(hit.title(), "photo.jpg now has 2 copies");
    hit.matches.push_back("/Users/a/Desktop/photo.jpg");
    EXPECT_EQ(hit.title(), "photo.jpg now has 3 copies");
}

TEST(LedgerRecords, UndoTrashVerdict) {
    struct Case {
        bool originalExists, trashCopyExists;
        UndoTrashVerdict expected;
    };
    const Case cases[] = {
        {false, true, UndoTrashVerdict::restore}, {true, true, UndoTrashVerdict::skipAlreadyBack},
        {false, false, UndoTrashVerdict::skipGoneFromTrash}, {true, false, UndoTrashVerdict::skipGoneFromTrash},
    };
    for (const auto& c : cases)
        EXPECT_EQ(undoTrashVerdict(c.originalExists, c.trashCopyExists), c.expected) << c.originalExists << c.trashCopyExists;
}

}  // namespace
}  // namespace orvane
