#include "core/scan/space_item.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <thread>

#include "core/common/json_files.hpp"
#include "core/scan/file_kind.hpp"
#include "core/scan/top_most.hpp"

namespace orvane {
namespace {

using json = nlohmann::json;

SpaceItem at(std::string id, std::int64_t size = 1, std::vector<std::string> extra = {}) {
    SpaceItem item;
    item.id = std::move(id);
    item.extra = std::move(extra);
    item.sizeBytes = size;
    return item;
}

std::vector<std::string> idsOf(const std::vector<SpaceItem>& items) {
    std::vector<std::string> ids;
    for (const auto& item : items) ids.push_back(item.id);
    return ids;
}

SpaceItem fullItem() {
    return SpaceItem{.id = "/Users/a/Downloads/x.dmg",
                     .title = "x.dmg",
                     .category = std::string(catDL),
                     .safety = Safety::safe,
                     .suggested = Suggested::delete_,
                     .note = "An installer, \"used\" once.",
                     .contentsOnly = false,
                     .extra = {"/b", "/c"},
                     .isDir = false,
                     .sizeBytes = 1234,
                     .lastUsed = *dateFromReferenceSeconds(86400.5)};
}

TEST(SpaceItemJSON, KeysInOrderAndRoundTripInBothDateForms) {
    const SpaceItem item = fullItem();
    EXPECT_EQ(
        toJSON(item).dump(),
        R"x({"id":"/Users/a/Downloads/x.dmg","title":"x.dmg","category":"Downloads (one-time files)",)x"
        R"x("safety":"Safe","suggested":"Delete","note":"An installer, \"used\" once.",)x"
        R"x("contentsOnly":false,"extra":["/b","/c"],"isDir":false,"sizeBytes":1234,"lastUsed":86400.5})x");

    SpaceItem whole = item;
    whole.lastUsed = Clock::from_time_t(1'769'860'800);
    auto iso = toJSON(whole, JSONDateEncoding::iso8601);
    EXPECT_EQ(iso["lastUsed"], "2026-01-31T12:00:00Z");
    EXPECT_EQ(decodeSpaceItem(json::parse(iso.dump()), JSONDateEncoding::iso8601).item, whole);

    for (const auto& original : {item, at("group:1", -1, {"/x", "/y"}), at("/", 0)}) {
        auto decoded = decodeSpaceItem(json::parse(toJSON(original).dump()));
        EXPECT_EQ(decoded.item, original) << original.id << ": " << decoded.error;
        auto ordered = decodeSpaceItem(nlohmann::ordered_json::parse(toJSON(original).dump()));
        EXPECT_EQ(ordered.item, original) << original.id;
    }

    auto array = decodeSpaceItems(toJSON(std::vector<SpaceItem>{item, at("/z")}));
    ASSERT_TRUE(array.items) << array.error;
    EXPECT_EQ(*array.items, (std::vector<SpaceItem>{item, at("/z")}));
}

TEST(SpaceItemJSON, LastUsedIsOptionalAndNothingElseIs) {
    SpaceItem undated = fullItem();
    undated.lastUsed.reset();
    auto written = toJSON(undated);
    EXPECT_FALSE(written.contains("lastUsed"));
    EXPECT_EQ(decodeSpaceItem(json::parse(written.dump())).item, undated);
    written["lastUsed"] = nullptr;
    EXPECT_EQ(decodeSpaceItem(json::parse(written.dump())).item, undated);

    const json good = json::parse(toJSON(fullItem()).dump());
    for (const char* key : {"id", "title", "category", "safety", "suggested", "note",
                            "contentsOnly", "extra", "isDir", "sizeBytes"}) {
        json bad = good;
        bad.erase(key);
        auto one = decodeSpaceItem(bad);
        EXPECT_FALSE(one.item) << key;
        EXPECT_EQ(one.error, "No value for \"" + std::string(key) + "\" in an item.");
        // One bad item fails the whole document, not just its own row.
        auto document = decodeSpaceItems(json::array({good, bad, good}));
        EXPECT_FALSE(document.items) << key;
        EXPECT_EQ(document.error, "No value for \"" + std::string(key) + "\" in item 1.");
    }
}

// Each key is read as its kind; the rules of each kind are the field reader's.
TEST(SpaceItemJSON, EachKeyIsReadAsItsKind) {
    const json good = json::parse(toJSON(fullItem()).dump());
    struct Case {
        const char* key;
        json value;
        JSONDateEncoding dates;
        const char* error;  // none when the item decodes
    };
    const auto secs = JSONDateEncoding::secondsSinceReferenceDate;
    const auto iso = JSONDateEncoding::iso8601;
    const std::vector<Case> cases = {
        {"id", 5, secs, "\"id\" in an item must be a string."},
        {"safety", "safe", secs, "\"safety\" in an item must be one of \"Safe\", \"Caution\", \"Review\"."},
        {"suggested", "Move to External", secs,
         "\"suggested\" in an item must be one of \"Delete\", \"Move to external\", \"Review first\"."},
        {"contentsOnly", "false", secs, "\"contentsOnly\" in an item must be true or false."},
        {"extra", "/b", secs, "\"extra\" in an item must be an array of strings."},
        {"sizeBytes", -2, secs, "\"sizeBytes\" in an item must be a whole number from -1 to 2^60."},
        {"lastUsed", "2026-01-31T12:00:00Z", secs,
         "\"lastUsed\" in an item must be a number of seconds since 2001 within the years 1 to 9999."},
        {"lastUsed", 5, iso, "\"lastUsed\" in an item must be an ISO 8601 date of the years 1 to 9999."},
        {"lastUsed", "2026-01-31T12:00:00Z", iso, nullptr},
        {"unknownKey", 1, secs, nullptr},
    };
    for (const auto& c : cases) {
        json value = good;
        value[c.key] = c.value;
        auto decoded = decodeSpaceItem(value, c.dates);
        EXPECT_EQ(decoded.item.has_value(), c.error == nullptr) << c.key << " = " << c.value.dump();
        EXPECT_EQ(decoded.error, c.error ? c.error : "") << c.key << " = " << c.value.dump();
    }
    EXPECT_EQ(decodeSpaceItem(json::array()).error, "An item must be a JSON object.");
    EXPECT_EQ(decodeSpaceItems(json::array({good, 5})).error, "Item 1 must be a JSON object.");
    EXPECT_EQ(decodeSpaceItems(good).error, "Items must be a JSON array.");
    EXPECT_EQ(decodeSpaceItems(json::array()).items, std::vector<SpaceItem>{});
}

TEST(SpaceItem, EqualityAndHashCoverEveryField) {
    const SpaceItem base = fullItem();
    const std::hash<SpaceItem> hash;
    EXPECT_EQ(hash(base), hash(fullItem()));
    EXPECT_EQ(base.path(), base.id);

    const std::vector<std::pair<const char*, std::function<void(SpaceItem&)>>> changes = {
        {"id", [](SpaceItem& i) { i.id += "x"; }},
        {"title", [](SpaceItem& i) { i.title = "y.dmg"; }},
        {"category", [](SpaceItem& i) { i.category = std::string(catDL) + " "; }},
        {"safety", [](SpaceItem& i) { i.safety = Safety::caution; }},
        {"suggested", [](SpaceItem& i) { i.suggested = Suggested::move; }},
        {"note", [](SpaceItem& i) { i.note.clear(); }},
        {"contentsOnly", [](SpaceItem& i) { i.contentsOnly = true; }},
        {"extra joined", [](SpaceItem& i) { i.extra = {"/b/c"}; }},
        {"extra split",
         [](SpaceItem& i) {
             i.extra = {"/b", "", "/c"};
         }},
        {"isDir", [](SpaceItem& i) { i.isDir = true; }},
        {"sizeBytes", [](SpaceItem& i) { i.sizeBytes = -1234; }},
        {"lastUsed absent", [](SpaceItem& i) { i.lastUsed.reset(); }},
        {"lastUsed moved", [](SpaceItem& i) { *i.lastUsed += std::chrono::seconds(1); }},
    };
    for (const auto& [name, change] : changes) {
        SpaceItem other = base;
        change(other);
        EXPECT_NE(other, base) << name;
        EXPECT_NE(hash(other), hash(base)) << name;
    }
}

TEST(Vocabulary, RawValuesAndDisplayTexts) {
    EXPECT_EQ(displayName(Safety::caution), "Caution");

    for (std::size_t i = 0; i < allFileKinds.size(); ++i) {
        FileKind kind = allFileKinds[i];
        EXPECT_EQ(order(kind), static_cast<int>(i));
        EXPECT_EQ(fromRawValue<FileKind>(rawValue(kind)), kind);
    }
    EXPECT_EQ(order(static_cast<FileKind>(42)), 99);
    EXPECT_EQ(rawValue(FileKind::aiModel), "aiModel");
    EXPECT_EQ(fromRawValue<FileKind>("AIModel"), std::nullopt);
    EXPECT_EQ(label(FileKind::archive), "Archives & disk images");
    EXPECT_EQ(icon(FileKind::code), "chevron.left.forwardslash.chevron.right");
    EXPECT_EQ(advice(FileKind::archive), FileKindAdvice::removeOnceInstalled);
    EXPECT_EQ(advice(FileKind::image), FileKindAdvice::move);
    EXPECT_EQ(advice(FileKind::app), FileKindAdvice::review);
}

TEST(FileKindOf, ExtensionsFoldersAndBlobs) {
    struct Case {
        const char* id;
        bool isDir;
        FileKind expected;
    };
    const std::vector<Case> cases = {
        {"/Applications/Tool.app", true, FileKind::app},
        {"/Users/a/Tool.APP", false, FileKind::app},  // a file named .app too
        {"/Users/a/bundle.zip", true, FileKind::archive},
        {"/Users/a/Projects", true, FileKind::folder},
        {"/Users/a/README", false, FileKind::other},
        {"/Users/a/.ollama/models/blobs/sha256-1f2e", false, FileKind::aiModel},
        {"/Users/a/.ollama/models/blobs/sha256-1f2e", true, FileKind::folder},
        {"/Users/a/.ollama/models/blobs/x.json", false,
         FileKind::aiModel},  // blobs win over extensions
        {"/Users/a/.ollama/models/blobs.json", false, FileKind::code},
        {"/Users/a/Clip.MP4", false, FileKind::video},
        {"/Users/a/a.tar.gz", false, FileKind::archive},
        {"/Users/a/.mp4", false, FileKind::other},  // a leading dot names the file, not its kind
        {"/Users/a/trailing.", false, FileKind::other},
        {"/Users/a/x.unknown", true, FileKind::folder},
        {"/Users/a/weights.pt", false, FileKind::aiModel},
        {"/Users/a/Model.mlpackage", true, FileKind::aiModel},
        {"/Users/a/logo.ai", false, FileKind::image},
        {"/Users/a/Talk.key", false, FileKind::document},
        {"/Users/a/Sparkle.framework", true, FileKind::code},
        {"/Users/a/libz.a", false, FileKind::code},
        {"/Users/a/dir.d/file", false, FileKind::other},  // only the last component's extension
    };
    for (const auto& c : cases) {
        SpaceItem item = at(c.id);
        item.isDir = c.isDir;
        EXPECT_EQ(fileKindOf(item), c.expected) << c.id << (c.isDir ? " (folder)" : " (file)");
    }
}

TEST(Categories, OrderShortNamesAndGroups) {
    EXPECT_EQ(categoryOrder.front(), catBig);
    EXPECT_EQ(categoryOrder[9], catVM);
    EXPECT_EQ(categoryOrder.back(), catDupes);
    for (std::size_t i = 0; i < categoryOrder.size(); ++i)
        for (std::size_t j = i + 1; j < categoryOrder.size(); ++j)
            EXPECT_NE(categoryOrder[i], categoryOrder[j]);

    const std::vector<std::pair<std::string, std::string>> shortNames = {
        {std::string(catDeep), "Deep scan"},
        {std::string(catJunk), "Junk"},
        {std::string(catLeftover), "Orphaned app data"},
        {std::string(catVM), "VM & container disks"},
        {"\t Padded (x) \u2014 y", "Padded"},
        {"Em \u2014 dash (then paren)", "Em"},
        {"No blank(before paren)", "No blank(before paren)"},
        {"No blank\u2014before dash", "No blank\u2014before dash"},
        {"", ""},
    };
    for (const auto& [category, expected] : shortNames)
        EXPECT_EQ(shortCategoryName(category), expected) << category;

    const std::vector<std::pair<std::string, std::string>> groups = {
        {std::string(catAI), "AI Models"},   {std::string(catMedia), "Media"},
        {std::string(catOld), "Files"},      {std::string(catDL), "Downloads"},
        {std::string(catDev), "Dev"},        {std::string(catEnv), "Dev"},
        {std::string(catLib), "Libraries"},  {std::string(catVM), "VMs"},
        {std::string(catApp), "App Data"},   {std::string(catJunk), "Other"},
        {std::string(catAI) + " ", "Other"}, {"ai models & caches", "Other"},
    };
    for (const auto& [category, expected] : groups) {
        SpaceItem item = at("/x");
        item.category = category;
        EXPECT_EQ(smartGroup(item), expected) << category;
    }
}

TEST(Classification, LooseModelsAndTheirGroups) {
    auto model = [](std::string id, std::string_view category, bool isDir) {
        SpaceItem item = at(std::move(id));
        item.category = std::string(category);
        item.isDir = isDir;
        return item;
    };
    EXPECT_TRUE(isLooseAIModel(model("/m/a.gguf", catAI, false)));
    EXPECT_TRUE(isLooseAIModel(model("/u/.ollama/models/blobs/sha256-1", catAI, false)));
    EXPECT_FALSE(isLooseAIModel(model("/m/a.gguf", catAI, true)));
    EXPECT_FALSE(isLooseAIModel(model("/m/a.gguf", catBig, false)));
    EXPECT_FALSE(isLooseAIModel(model("/m/a.txt", catAI, false)));

    const std::string sep = " \u203A ";
    const std::vector<std::tuple<std::string, std::string, std::string>> groups = {
        {"/x/models/llama/weights/a.gguf", "/x/models/llama", "llama"},
        {"/x/models/checkpoints/a.safetensors", "/x/models/checkpoints",
         "models" + sep + "checkpoints"},
        {"/a.gguf", "/", ""},
        {"/x/a.gguf", "/x", "x"},
        {"/x/models/a.gguf", "/x/models", "x" + sep + "models"},  // "models" is the file's folder
        {"/x/Models/Llama-3/a.gguf", "/x/Models/Llama-3", "Llama-3"},
        {"/x/models/LoRA/style/a.safetensors", "/x/models/LoRA/style", "LoRA" + sep + "style"},
        {"/models/a/models/b/c/d.gguf", "/models/a/models/b", "b"},  // the last "models" counts
        {"/models/a/models/vae/d.gguf", "/models/a/models/vae", "models" + sep + "vae"},
    };
    for (const auto& [path, key, name] : groups)
        EXPECT_EQ(looseModelGroup(path), (LooseModelGroup{key, name})) << path;
}

TEST(Classification, AIAndOrdinaryDuplicates) {
    auto group = [](std::string_view category, std::vector<std::string> members) {
        SpaceItem item = at("dupes:1", 1, std::move(members));
        item.category = std::string(category);
        return item;
    };
    struct Case {
        SpaceItem item;
        bool ai;
        bool ordinary;
    };
    const std::vector<Case> cases = {
        {group(catDupes, {"/Users/a/x.bin", "/Users/a/.ollama/models/blobs/x"}), true, false},
        {group(catDupes, {"/Users/a/.cache/huggingface/hub/m.safetensors"}), true, false},
        {group(catDupes, {"/Users/a/.cache/ace-step/c.pt"}), true, false},
        {group(catDupes, {"/Users/a/.lmstudio"}), true, false},
        {group(catDupes, {"/Users/a/ollama/x", "/Users/a/.cache/hugging"}), false, true},
        {group(catDupes, {}), false, true},
        {group(catBig, {"/Users/a/.ollama/x"}), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isAIDupe(c.item), c.ai) << c.item.category << " " << c.item.extra.size();
        EXPECT_EQ(isOrdinaryDupe(c.item), c.ordinary)
            << c.item.category << " " << c.item.extra.size();
    }
}

TEST(TopMost, OneRowPerStretchOfDisk) {
    struct Case {
        const char* name;
        std::vector<SpaceItem> items;
        std::vector<std::string> expected;  // ids in result order
    };
    const std::vector<Case> cases = {
        {"empty", {}, {}},
        {"child after", {at("/a/b"), at("/a/b/c")}, {"/a/b"}},
        {"child before", {at("/a/b/c"), at("/a/b")}, {"/a/b"}},
        {"sorted by length", {at("/a/b/c"), at("/zz/y"), at("/q")}, {"/q", "/zz/y", "/a/b/c"}},
        {"component, not prefix", {at("/a/bc"), at("/a/bcd")}, {"/a/bc", "/a/bcd"}},
        {"root covers nothing", {at("/a"), at("/", 9)}, {"/", "/a"}},
        // "/" with a combining accent is one character, so it covers nothing either.
        {"one-character parent", {at("/\u0301/a"), at("/\u0301")}, {"/\u0301", "/\u0301/a"}},
        {"deep nesting", {at("/a/b/c/d/e"), at("/a/b"), at("/a/x")}, {"/a/b", "/a/x"}},
        {"trailing slash", {at("/a/b/"), at("/a")}, {"/a"}},
        {"group under kept", {at("g1", 1, {"/x/y/z"}), at("/x/y")}, {"/x/y"}},
        {"group member is kept", {at("/x/y"), at("g", 1, {"/q", "/x/y"})}, {"/x/y"}},
        {"group above kept", {at("g", 1, {"/x/y/z"}), at("/x/y/z/w")}, {"g", "/x/y/z/w"}},
        {"empty group", {at("/x"), at("gg")}, {"/x", "gg"}},
        {"only non-paths", {at("/x"), at("gg", 1, {"x/y", "gg"})}, {"/x", "gg"}},
        {"group never covers paths", {at("g", 1, {"/m"}), at("/m/n")}, {"g", "/m/n"}},
        {"two groups", {at("gA", 1, {"/m"}), at("gB", 1, {"/m"})}, {"gA", "gB"}},
        // Characters, not bytes: four two-byte letters sort before six one-byte ones.
        {"characters",
         {at("/abcdef"), at("/\u00e9\u00e9\u00e9\u00e9")},
         {"/\u00e9\u00e9\u00e9\u00e9", "/abcdef"}},
    };
    for (const auto& c : cases) EXPECT_EQ(idsOf(topMostByPath(c.items)), c.expected) << c.name;

    // Ties in length keep input order, also in lists long enough for a sort to reorder them:
    // 60 rows over 40 ids of one length, where the first row of each id must stay.
    std::vector<SpaceItem> level;
    for (int i = 0; i < 60; ++i) level.push_back(at("/p" + std::to_string(10 + (i * 7) % 40), i));
    auto kept = topMostByPath(level);
    ASSERT_EQ(kept.size(), 40u);
    std::vector<SpaceItem> expectedLevel;
    std::set<std::string> seen;
    for (const auto& item : level)
        if (seen.insert(item.id).second) expectedLevel.push_back(item);
    EXPECT_EQ(kept, expectedLevel);

    // Of two rows for the same path, the first in input order stays, whatever its size.
    auto first = topMostByPath({at("/dup", 5), at("/dup", 7)});
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].sizeBytes, 5);
    auto reversed = topMostByPath({at("/dup", 7), at("/dup", 5)});
    ASSERT_EQ(reversed.size(), 1u);
    EXPECT_EQ(reversed[0].sizeBytes, 7);
}

TEST(TopMost, CoveredGroupMembers) {
    const std::unordered_set<std::string> counted = {"/x/y", "/solo"};
    struct Case {
        std::vector<std::string> extra;
        bool covered;
    };
    const std::vector<Case> cases = {
        {{"/x/y/z"}, true},
        {{"/x/y"}, true},
        {{"/x"}, false},
        {{"/x/yz"}, false},
        {{"/other", "/solo/deep/file"}, true},
        {{"x/y/z", "solo"}, false},  // members that are not paths are skipped
        {{}, false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(pseudoGroupAlreadyCounted(at("g", 1, c.extra), counted), c.covered)
            << (c.extra.empty() ? "(empty)" : c.extra.front());
    EXPECT_FALSE(pseudoGroupAlreadyCounted(at("g", 1, {"/a/b"}), {"/"}));  // "/" covers nothing
}

TEST(TopMost, SumsSkipNestedAndNegativeSizes) {
    EXPECT_EQ(topMostBytes({}), 0);
    EXPECT_EQ(safeReclaimBytes({}), 0);
    EXPECT_EQ(topMostBytes({at("/s/a", 100), at("/s/a/b", 40), at("/s/c", -7), at("/s/d", 3),
                            at("grp", 50, {"/s/a/x"}), at("grp2", 20, {"/elsewhere"})}),
              123);

    auto reclaim = [](Safety safety, Suggested suggested, std::int64_t size) {
        SpaceItem item = at("/r", size);
        item.safety = safety;
        item.suggested = suggested;
        return item;
    };
    EXPECT_EQ(safeReclaimBytes({reclaim(Safety::safe, Suggested::delete_, 10),
                                reclaim(Safety::safe, Suggested::delete_, 5),  // no nesting check
                                reclaim(Safety::safe, Suggested::delete_, -3),
                                reclaim(Safety::safe, Suggested::delete_, 0),
                                reclaim(Safety::caution, Suggested::delete_, 100),
                                reclaim(Safety::safe, Suggested::move, 100),
                                reclaim(Safety::review, Suggested::review, 100)}),
              15);
}

TEST(TopMostMemo, HitsReturnTheStoredAnswerUnverified) {
    std::vector<SpaceItem> items = {at("/memo/a", 10, {"/ignored"}), at("/memo/a/b", 5),
                                    at("memo-group", 3, {"/m"})};
    items[0].title = "first";
    const auto answer = topMostByPath(items);
    ASSERT_EQ(idsOf(answer), (std::vector<std::string>{"/memo/a", "memo-group"}));
    EXPECT_EQ(topMostByPath(items), answer);

    // Titles and a real path's `extra` are not part of the key: the stored rows come back as they
    // were.
    auto retitled = items;
    retitled[0].title = "second";
    retitled[0].extra = {"/also/ignored"};
    EXPECT_EQ(topMostByPath(retitled), answer);

    // Sizes and pseudo-group members are.
    auto resized = items;
    resized[0].sizeBytes = 11;
    EXPECT_EQ(topMostByPath(resized)[0].sizeBytes, 11);
    auto regrouped = items;
    regrouped[2].extra = {"/memo/a/c"};
    EXPECT_EQ(idsOf(topMostByPath(regrouped)), (std::vector<std::string>{"/memo/a"}));
}

TEST(TopMostMemo, DroppedWholeWhenFull) {
    TopMostMemo memo;
    for (std::int64_t key = 0; key < static_cast<std::int64_t>(TopMostMemo::capacity); ++key)
        memo.store(key, {at("/k" + std::to_string(key))});
    EXPECT_EQ(idsOf(*memo.value(0)), std::vector<std::string>{"/k0"});
    EXPECT_TRUE(memo.value(64));
    memo.store(-1, {});
    EXPECT_FALSE(memo.value(0));
    EXPECT_FALSE(memo.value(64));
    EXPECT_EQ(memo.value(-1), std::vector<SpaceItem>{});
}

TEST(TopMostMemo, ThreadsAgreeOnTheAnswer) {
    // Input i: a folder of i bytes, a file inside it, and a group of 2 bytes whose member is the
    // folder itself for i < 7 (so not counted) and another path otherwise.
    std::vector<std::vector<SpaceItem>> inputs;
    std::vector<std::int64_t> expected;
    for (int i = 0; i < 100; ++i) {
        const std::string folder = "/t/" + std::to_string(i);
        inputs.push_back(
            {at(folder, i), at(folder + "/x", 1), at("grp", 2, {"/t/" + std::to_string(i % 7)})});
        expected.push_back(i + (i < 7 ? 0 : 2));
    }
    std::vector<int> wrong(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 3; ++round)
                for (std::size_t i = 0; i < inputs.size(); ++i)
                    if (topMostBytes(inputs[i]) != expected[i]) ++wrong[t];
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

TEST(TopMost, TotalsPastTheLargestByteCountAreUnknown) {
    SpaceItem big = at("/big", kMaxByteCount);
    big.safety = Safety::safe;
    big.suggested = Suggested::delete_;
    SpaceItem one = big;
    one.id = "/one";
    one.sizeBytes = 1;
    EXPECT_EQ(topMostBytes({big, one}), -1);
    EXPECT_EQ(safeReclaimBytes({big, one}), -1);
    EXPECT_EQ(topMostBytes({big, at("/neg", -1)}), kMaxByteCount);  // a negative size is not subtracted
    // Eight counts a decoder accepts would pass 64 bits: the total is unknown, not an abort.
    std::vector<SpaceItem> eight;
    for (int i = 0; i < 8; ++i) {
        eight.push_back(big);
        eight.back().id = "/big" + std::to_string(i);
    }
    EXPECT_EQ(topMostBytes(eight), -1);
    EXPECT_EQ(safeReclaimBytes(eight), -1);
}

}  // namespace
}  // namespace orvane
