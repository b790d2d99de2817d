#include "core/scan/space_item.hpp"
#include "tests/scan/item_at.hpp"

#include <gtest/gtest.h>

#include <functional>

#include "core/common/json_files.hpp"

namespace orvane {
namespace {

using json = nlohmann::json;

using testing::at;

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
        {"lastUsed", "2026-01-31T12:00:00Z", iso, nullptr}, {"unknownKey", 1, secs, nullptr},
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

    const std::vector<std::pair<const char*, std::function<void(SpaceItem&)>>> changes = {
        {"id", [](SpaceItem& i) { i.id += "x"; }}, {"title", [](SpaceItem& i) { i.title = "y.dmg"; }},
        {"category", [](SpaceItem& i) { i.category = std::string(catDL) + " "; }},
        {"safety", [](SpaceItem& i) { i.safety = Safety::caution; }},
        {"suggested", [](SpaceItem& i) { i.suggested = Suggested::move; }},
        {"note", [](SpaceItem& i) { i.note.clear(); }}, {"contentsOnly", [](SpaceItem& i) { i.contentsOnly = true; }},
        {"extra joined", [](SpaceItem& i) { i.extra = {"/b/c"}; }},
        {"extra split", [](SpaceItem& i) { i.extra = {"/b", "", "/c"}; }},
        {"isDir", [](SpaceItem& i) { i.isDir = true; }}, {"sizeBytes", [](SpaceItem& i) { i.sizeBytes = -1234; }},
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

TEST(Categories, DistinctShortNamesAndGroups) {
    for (std::size_t i = 0; i < categoryOrder.size(); ++i)
        for (std::size_t j = i + 1; j < categoryOrder.size(); ++j)
            EXPECT_NE(categoryOrder[i], categoryOrder[j]);

    const std::vector<std::pair<std::string, std::string>> shortNames = {
        {std::string(catDeep), "Deep scan"}, {std::string(catJunk), "Junk"},
        {std::string(catLeftover), "Orphaned app data"}, {std::string(catVM), "VM & container disks"},
        {"\t Padded (x) \u2014 y", "Padded"}, {"Em \u2014 dash (then paren)", "Em"},
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
        {group(catDupes, {}), false, true}, {group(catBig, {"/Users/a/.ollama/x"}), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(isAIDupe(c.item), c.ai) << c.item.category << " " << c.item.extra.size();
        EXPECT_EQ(isOrdinaryDupe(c.item), c.ordinary)
            << c.item.category << " " << c.item.extra.size();
    }
}

}  // namespace
}  // namespace orvane
