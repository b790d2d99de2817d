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
        {R"({"v":1.0,"data":["x"]})", Strings{"x"}},
        {R"({"v":1,"data":["x"],"extra":true})", Strings{"x"}},
        {R"({"v":1,"data":{"a":1}})", std::nullopt},            // a payload of another shape
        {R"({"v":1,"data":["a",2]})", std::nullopt},            // one bad element fails all
        {R"({"v":"1","data":["a"]})", std::nullopt},
        {R"({"v":1.5,"data":["a"]})", std::nullopt},
        {R"({"v":1})", std::nullopt},
        {R"({"data":["a"]})", std::nullopt},
        {R"({"v":1,"data":["a")", std::nullopt},               // cut short
        {"", std::nullopt},
        {"not json", std::nullopt},
        {"null", std::nullopt},
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

TEST(LedgerRecords, MoveRecordJSON) {
    auto record = sampleMove();
    EXPECT_EQ(JSONCoding<MoveRecord>::encode(record).dump(),
              R"({"date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":true})");
    record.adminScope = false;
    EXPECT_EQ(JSONCoding<MoveRecord>::encode(record).dump(),
              R"({"date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","bytes":1500000,"symlinked":true,"adminScope":false})");
    EXPECT_EQ(record.id(), "/Volumes/Drive/Movies");

    const std::string base = R"("date":100.5,"title":"Movies","src":"/Users/a/Movies","dst":"/Volumes/Drive/Movies","symlinked":true)";
    struct Case {
        std::string json;
        std::optional<MoveRecord> expected;
    };
    auto with = [&](std::optional<bool> admin, std::int64_t bytes) {
        auto r = sampleMove();
        r.adminScope = admin;
        r.bytes = bytes;
        return r;
    };
    const Case cases[] = {
        {"{" + base + R"(,"bytes":1500000})", with(std::nullopt, 1'500'000)},
        {"{" + base + R"(,"bytes":1500000,"adminScope":null})", with(std::nullopt, 1'500'000)},
        {"{" + base + R"(,"bytes":1500000,"adminScope":true})", with(true, 1'500'000)},
        {"{" + base + R"(,"bytes":2.0})", with(std::nullopt, 2)},
        {"{" + base + R"(,"bytes":-1})", with(std::nullopt, -1)},
        {"{" + base + R"(,"bytes":1500000,"adminScope":"yes"})", std::nullopt},
        {"{" + base + R"(,"bytes":1.5})", std::nullopt},
        {"{" + base + R"(,"bytes":"1"})", std::nullopt},
        {"{" + base + R"(,"bytes":9223372036854775808})", std::nullopt},
        {"{" + base + "}", std::nullopt},  // "bytes" is required
        {R"({"date":"2026-01-01T00:00:00Z","title":"t","src":"s","dst":"d","bytes":1,"symlinked":true})", std::nullopt},
    };
    for (const auto& c : cases)
        EXPECT_EQ(JSONCoding<MoveRecord>::decode(nlohmann::json::parse(c.json)), c.expected) << c.json;
}

TEST(LedgerRecords, DuplicatesWatchHitTitleAndJSON) {
    DuplicatesWatchHit hit{"h1", *dateFromReferenceSeconds(5), "/Users/a/Downloads", "/Users/a/Downloads/photo.jpg", {}, 42, false};
    EXPECT_EQ(hit.title(), "photo.jpg");
    hit.matches = {"/Users/a/Pictures/photo.jpg"};
    EXPECT_EQ(hit.title(), "photo.jpg now has 2 copies");
    hit.matches.push_back("/Users/a/Desktop/photo.jpg");
    EXPECT_EQ(hit.title(), "photo.jpg now has 3 copies");

    const auto json = JSONCoding<DuplicatesWatchHit>::encode(hit).dump();
    EXPECT_EQ(json, R"({"id":"h1","date":5.0,"watchedRoot":"/Users/a/Downloads","newPath":"/Users/a/Downloads/photo.jpg",)"
                    R"("matches":["/Users/a/Pictures/photo.jpg","/Users/a/Desktop/photo.jpg"],"bytes":42,"dismissed":false})");
    EXPECT_EQ(JSONCoding<DuplicatesWatchHit>::decode(nlohmann::json::parse(json)), hit);
    auto noTitle = nlohmann::json::parse(json);
    noTitle.erase("dismissed");
    EXPECT_EQ(JSONCoding<DuplicatesWatchHit>::decode(noTitle), std::nullopt);
}

TEST(LedgerRecords, AuditSnapshotJSON) {
    AuditSnapshot snapshot;
    snapshot.date = *dateFromReferenceSeconds(10);
    snapshot.capacity = 500;
    snapshot.free = 100;
    snapshot.used = 400;
    snapshot.categoryTotals = {{"Junk", 7}};
    snapshot.topFindings = {{"/a", "a", "Junk", 7}};
    snapshot.actionsSince = {"[2026-01-01T00:00:00Z] MERGED x"};
    const auto json = JSONCoding<AuditSnapshot>::encode(snapshot).dump();
    EXPECT_EQ(json, R"({"date":10.0,"scope":"Startup disk","capacity":500,"free":100,"used":400,"categoryTotals":{"Junk":7},)"
                    R"("topFindings":[{"path":"/a","title":"a","category":"Junk","bytes":7}],"actionsSince":["[2026-01-01T00:00:00Z] MERGED x"]})");
    EXPECT_EQ(JSONCoding<AuditSnapshot>::decode(nlohmann::json::parse(json)), snapshot);
    snapshot.scanSeconds = 12.5;
    const auto withSeconds = JSONCoding<AuditSnapshot>::encode(snapshot);
    EXPECT_EQ(withSeconds["scanSeconds"], 12.5);
    EXPECT_EQ(JSONCoding<AuditSnapshot>::decode(nlohmann::json::parse(withSeconds.dump())), snapshot);
}

TEST(LedgerRecords, ItemsCacheJSON) {
    EXPECT_EQ(Ledger::cacheSchema, 44);
    SpaceItem item;
    item.id = "/Users/a/big";
    item.title = "big";
    item.category = std::string(catBig);
    item.sizeBytes = 9;
    Ledger::ItemsCache cache{*dateFromReferenceSeconds(3), {item}, 10, 20, std::nullopt};
    auto json = JSONCoding<Ledger::ItemsCache>::encode(cache);
    EXPECT_FALSE(json.contains("schema"));
    EXPECT_EQ(JSONCoding<Ledger::ItemsCache>::decode(nlohmann::json::parse(json.dump())), cache);
    cache.schema = 3;  // an old schema still decodes: the caller compares
    json = JSONCoding<Ledger::ItemsCache>::encode(cache);
    EXPECT_EQ(json["schema"], 3);
    EXPECT_EQ(JSONCoding<Ledger::ItemsCache>::decode(nlohmann::json::parse(json.dump())), cache);
    json.erase("items");
    EXPECT_EQ(JSONCoding<Ledger::ItemsCache>::decode(nlohmann::json::parse(json.dump())), std::nullopt);
}

TEST(LedgerRecords, TrashReceiptAndUndoVerdict) {
    TrashReceipt receipt{"/Users/a/x", "/Users/a/.Trash/x"};
    EXPECT_EQ(JSONCoding<TrashReceipt>::encode(receipt).dump(), R"({"original":"/Users/a/x","inTrash":"/Users/a/.Trash/x"})");
    EXPECT_EQ(JSONCoding<TrashReceipt>::decode(nlohmann::json::parse(R"({"inTrash":"/t","original":"/o"})")),
              (TrashReceipt{"/o", "/t"}));
    EXPECT_EQ(JSONCoding<TrashReceipt>::decode(nlohmann::json::parse(R"({"original":"/o"})")), std::nullopt);

    struct Case {
        bool originalExists, trashCopyExists;
        UndoTrashVerdict expected;
    };
    const Case cases[] = {
        {false, true, UndoTrashVerdict::restore},
        {true, true, UndoTrashVerdict::skipAlreadyBack},
        {false, false, UndoTrashVerdict::skipGoneFromTrash},
        {true, false, UndoTrashVerdict::skipGoneFromTrash},
    };
    for (const auto& c : cases)
        EXPECT_EQ(undoTrashVerdict(c.originalExists, c.trashCopyExists), c.expected) << c.originalExists << c.trashCopyExists;
}

TEST(LedgerRecords, InflightKindAndSwapEntry) {
    const std::pair<InflightKind, std::string_view> kinds[] = {
        {InflightKind::compact, "compact"}, {InflightKind::compress, "compress"},
        {InflightKind::dedupe, "dedupe"}, {InflightKind::move, "move"}};
    for (const auto& [kind, raw] : kinds) {
        EXPECT_EQ(rawValue(kind), raw);
        EXPECT_EQ(fromRawValue<InflightKind>(raw), kind);
    }
    EXPECT_EQ(fromRawValue<InflightKind>("Compress"), std::nullopt);

    using ledger::internal::SwapEntry;
    EXPECT_EQ(JSONCoding<SwapEntry>::encode({"/p", InflightKind::dedupe}).dump(), R"({"path":"/p","kind":"dedupe"})");
    EXPECT_EQ(JSONCoding<SwapEntry>::decode(nlohmann::json::parse(R"({"path":"/p","kind":"move"})")),
              (SwapEntry{"/p", InflightKind::move}));
    EXPECT_EQ(JSONCoding<SwapEntry>::decode(nlohmann::json::parse(R"({"path":"/p","kind":"zip"})")), std::nullopt);
    EXPECT_EQ(JSONCoding<SwapEntry>::decode(nlohmann::json::parse(R"({"path":"/p"})")), std::nullopt);
}

}  // namespace
}  // namespace orvane
