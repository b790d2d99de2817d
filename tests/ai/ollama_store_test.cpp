// Ollama stores on disk: shared and orphan blobs, names from manifests at any depth, the newer
// manifests-v2 whose entries are links, hard links or copies of manifest blobs, and the desktop
// app's database read through the sqlite3 tool.
#include <gtest/gtest.h>
#include <unistd.h>

#include "core/ai/ollama_store.hpp"
#include "tests/ai/ollama_store_fixture.hpp"

namespace orvane {
namespace {

using testing::kLlamaLicence;
using testing::kOrphan;

std::int64_t sum(std::initializer_list<std::int64_t> sizes) {
    std::int64_t total = 0;
    for (auto size : sizes) total += size;
    return total;
}

TEST(OllamaStore, SharedBlobsCountInEachModelAndOrphansInNone) {
    testing::TempDir dir;
    const std::string root = dir / "models";
    testing::makeOllamaStore(root);
    const auto inventory = ollamaModelInventory(root, Facts::real());

    ASSERT_EQ(inventory.models.size(), 3u);
    const std::int64_t llamaAll = sum({485, 4'661'211'424, 12'403, 254, 110});
    EXPECT_EQ(inventory.models[0].name, "llama3:latest");
    EXPECT_EQ(inventory.models[0].bytes, llamaAll);
    EXPECT_EQ(inventory.models[0].exclusiveBytes, llamaAll - 12'403);
    EXPECT_EQ(inventory.models[0].blobCount, 5);
    EXPECT_EQ(inventory.models[1].name, "gemma:2b");
    EXPECT_EQ(inventory.models[1].exclusiveBytes, inventory.models[1].bytes);
    EXPECT_EQ(inventory.models[2].name, "me/tool:1");
    EXPECT_EQ(inventory.models[2].bytes, 12'403);
    EXPECT_EQ(inventory.models[2].exclusiveBytes, 0);
    EXPECT_TRUE(inventory.models[2].lastRead.has_value());
    // The stray's blob and nothing of the unfinished download.
    EXPECT_EQ(inventory.orphanCount, 1);
    EXPECT_EQ(inventory.orphanBytes, 1'000'000);

    const auto labels = ollamaBlobLabels(root, Facts::real());
    EXPECT_EQ(labels.at(kLlamaLicence).display(), "llama3:latest +1 more — licence");
    EXPECT_FALSE(labels.contains(kOrphan));
}

TEST(OllamaStore, ManifestsV2EntriesKeepTheirBlobsInUse) {
    testing::TempDir dir;
    const std::string root = dir / "models";
    testing::makeOllamaStore(root);
    // The newer layout: manifests are blobs, and a named entry links to one, is a hard link to it
    // or a copy of it.
    const auto manifestNaming = [](const std::string& layer) {
        return R"({"schemaVersion":2,"layers":[{"mediaType":"application/vnd.ollama.image.model","digest":"sha256:)" +
               layer.substr(7) + "\"}]}\n";
    };
    struct Case {
        std::string how;
        std::string manifestBlob;
        std::string weights;
    };
    const Case cases[] = {{"link", "sha256-" + std::string(64, '1'), "sha256-" + std::string(64, 'a')},
                          {"hard", "sha256-" + std::string(64, '2'), "sha256-" + std::string(64, 'b')},
                          {"copy", "sha256-" + std::string(64, '3'), "sha256-" + std::string(64, 'c')}};
    for (const auto& c : cases) {
        const std::string blob = root + "/blobs/" + c.manifestBlob, entry = root + "/manifests-v2/ollama.com/library/" + c.how + "/latest";
        testing::writeFile(blob, manifestNaming(c.weights));
        testing::sparseFile(root + "/blobs/" + c.weights, 7'000);
        std::filesystem::create_directories(std::filesystem::path(entry).parent_path());
        if (c.how == "link") std::filesystem::create_symlink("../../../../blobs/" + c.manifestBlob, entry);
        if (c.how == "hard") std::filesystem::create_hard_link(blob, entry);
        if (c.how == "copy") std::filesystem::copy_file(blob, entry);
    }
    const auto labels = ollamaBlobLabels(root, Facts::real());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.how);
        EXPECT_EQ(labels.at(c.manifestBlob).display(), c.how + ":latest — manifest");
        EXPECT_EQ(labels.at(c.weights).display(), c.how + ":latest — weights");
    }
    EXPECT_EQ(ollamaModelInventory(root, Facts::real()).orphanCount, 1);
}

TEST(OllamaStore, DesktopAppDatabase) {
    if (::access("/usr/bin/sqlite3", X_OK) != 0) GTEST_SKIP() << "/usr/bin/sqlite3 is not installed (Debian package sqlite3)";
    testing::TempDir dir;
    struct Case {
        std::string sql;
        std::optional<std::string> expected;
    };
    const Case cases[] = {
        {"CREATE TABLE settings(models TEXT); INSERT INTO settings VALUES('  /Volumes/Big/ollama  ');",
         "/Volumes/Big/ollama"},
        {"CREATE TABLE settings(models TEXT); INSERT INTO settings VALUES('');", ""},
        {"CREATE TABLE other(x);", std::nullopt},  // no such table: sqlite3 fails
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string db = dir / ("db" + std::to_string(n++) + ".sqlite");
        ASSERT_EQ(std::system(("/usr/bin/sqlite3 " + db + " \"" + c.sql + "\"").c_str()), 0);
        EXPECT_EQ(ollamaAppModelLocation(db, Facts::real()), c.expected) << c.sql;
    }
    EXPECT_EQ(ollamaAppModelLocation(dir / "missing.sqlite", Facts::real()), std::nullopt);
}

}  // namespace
}  // namespace orvane
