// The model library of a home built on a real disk: every store, the folders of no app, files
// judged by their blocks, and the texts a person reads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "core/ai/loose_models.hpp"
#include "core/ai/model_library.hpp"
#include "core/ai/model_store_places.hpp"
#include "core/ai/ollama_store.hpp"
#include "tests/ai/ollama_store_fixture.hpp"

namespace orvane {
namespace {

// A file with `size` bytes really allocated.
void allocatedFile(const std::string& path, off_t size) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::posix_fallocate(fd, 0, size), 0);
    ::close(fd);
}

const LibraryModel* find(const std::vector<LibraryModel>& models, const std::string& id) {
    for (const auto& model : models)
        if (model.id() == id) return &model;
    return nullptr;
}

TEST(ModelLibrary, EveryStoreOfAHome) {
    testing::TempDir home("/var/tmp");
    testing::makeOllamaStore(home / ".ollama/models");
    home.write(".cache/huggingface/hub/models--mlx-community--Qwen-4bit/snapshots/a/model.safetensors", "weights");
    home.write(".cache/huggingface/hub/models--org--name/blobs/x", "weights");
    home.write(".cache/huggingface/hub/version.txt", "1");
    home.write(".lmstudio/models/lmstudio-community/Llama-GGUF/m.gguf", "weights");
    home.write(".lmstudio/models/.hidden/x/m.gguf", "weights");
    home.write("jan/models/tinyllama/m.gguf", "weights");
    // Folders of no app: quantized MLX, plain safetensors, GGUF beside safetensors, and one level down.
    home.write("Models/q/config.json", R"({"quantization":{"bits":4}})");
    home.write("Models/q/w.safetensors", "w");
    home.write("Models/plain/config.json", "{}");
    home.write("Models/plain/w.safetensors", "w");
    home.write("Models/both/config.json", "{}");
    home.write("Models/both/w.safetensors", "w");
    home.write("Models/both/w.gguf", "w");
    home.write("Models/org/deep/config.json", "not json");
    home.write("Models/org/deep/w.safetensors", "w");
    home.write("Models/noconfig/w.safetensors", "w");
    home.write("Downloads/pack/inner/config.json", "{}");
    home.write("Downloads/pack/inner/w.safetensors", "w");
    // Files judged by their blocks: above and below 50 MB allocated, and a sparse one that only looks big.
    allocatedFile(home / "Models/big.gguf", 52'000'000);
    allocatedFile(home / "Models/small.gguf", 48'000'000);
    testing::sparseFile(home / "Models/sparse.gguf", 60'000'000);
    allocatedFile(home / "ComfyUI/models/checkpoints/sd.safetensors", 53'000'000);
    // find's +50M counts whole mebibytes: 51 MB is not above 50 of them.
    allocatedFile(home / "ComfyUI/models/checkpoints/near.safetensors", 51'000'000);
    allocatedFile(home / "ComfyUI/models/notes.txt", 51'000'000);
    testing::sparseFile(home / "stable-diffusion-webui/models/v1.ckpt", 60'000'000);

    const auto models = scanModelLibrary(home.path(), Facts::real());
    std::vector<std::string> ids;
    for (const auto& model : models) ids.push_back(model.id());
    const std::string loose(looseModelStore);
    const std::vector<std::string> expected = {
        "ComfyUI|sd.safetensors", "Ollama|llama3:latest", "Ollama|gemma:2b", "Ollama|me/tool:1",
        "Stable Diffusion|v1.ckpt", loose + "|big.gguf"};
    for (const auto& id : expected) EXPECT_NE(find(models, id), nullptr) << id;
    for (const auto& id : {"Hugging Face|mlx-community/Qwen-4bit", "Hugging Face|org/name", "LM Studio|lmstudio-community/Llama-GGUF",
                           "Jan|tinyllama"})
        EXPECT_NE(find(models, id), nullptr) << id;
    for (const auto& id : {loose + "|small.gguf", loose + "|sparse.gguf", loose + "|noconfig", loose + "|pack/inner",
                           std::string("ComfyUI|notes.txt"), std::string("ComfyUI|near.safetensors"), std::string("LM Studio|.hidden/x")})
        EXPECT_EQ(find(models, id), nullptr) << id;

    struct Format {
        std::string id, format;
    };
    const Format formats[] = {{"Hugging Face|mlx-community/Qwen-4bit", "MLX"}, {"Hugging Face|org/name", "safetensors"},
                              {"LM Studio|lmstudio-community/Llama-GGUF", "GGUF"}, {loose + "|q", "MLX"},
                              {loose + "|plain", "safetensors"}, {loose + "|both", "GGUF"},
                              {loose + "|org/deep", "safetensors"}, {"Stable Diffusion|v1.ckpt", "ckpt"}};
    for (const auto& f : formats) {
        const auto* model = find(models, f.id);
        ASSERT_NE(model, nullptr) << f.id;
        EXPECT_EQ(model->format, f.format) << f.id;
        EXPECT_EQ(model->movablePath.has_value(), true) << f.id;
    }
    // Shared Ollama layers are in bytes but not in what removal frees; a sparse file is its blocks.
    EXPECT_LT(find(models, "Ollama|me/tool:1")->ownBytes, find(models, "Ollama|me/tool:1")->bytes);
    EXPECT_FALSE(find(models, "Ollama|gemma:2b")->movablePath.has_value());
    EXPECT_LT(find(models, "Stable Diffusion|v1.ckpt")->bytes, 1'000'000);
    EXPECT_GE(find(models, loose + "|big.gguf")->bytes, 52'000'000);
    for (std::size_t i = 1; i < models.size(); ++i) EXPECT_GE(models[i - 1].bytes, models[i].bytes);
}

TEST(ModelLibrary, LMStudioFollowsItsPointersOnlyWhenAllowed) {
    struct Case {
        std::string pointer, settings;
        std::vector<std::string> roots;  // under the home
    };
    const Case cases[] = {
        {"", "", {".lmstudio/models", ".cache/lm-studio/models"}},
        {"{H}/Elsewhere", R"({"downloadsFolder":"{H}/Downloads/lm"})",
         {"Downloads/lm", "Elsewhere/models", ".lmstudio/models", ".cache/lm-studio/models"}},
        // A pointer to a system folder or to the home itself is refused, and so is the folder it names.
        {"/etc", R"({"downloadsFolder":"{H}"})", {".lmstudio/models", ".cache/lm-studio/models"}},
    };
    for (const auto& c : cases) {
        testing::TempDir home;
        const auto withHome = [&](std::string text) {
            for (std::size_t at; (at = text.find("{H}")) != std::string::npos;) text.replace(at, 3, home.path());
            return text;
        };
        home.mkdir("Elsewhere");
        home.mkdir("Downloads/lm");
        if (!c.pointer.empty()) home.write(".lmstudio-home-pointer", withHome(c.pointer));
        if (!c.settings.empty()) {
            home.write(".lmstudio/settings.json", withHome(c.settings));
            home.write("Elsewhere/settings.json", withHome(c.settings));
        }
        std::vector<std::string> expected;
        for (const auto& root : c.roots) expected.push_back(home / root);
        EXPECT_EQ(lmStudioModelRoots(home.path(), Facts::real()), expected) << c.pointer;
    }
}

TEST(ModelLibrary, LooseRootsAreRealFoldersOnce) {
    testing::TempDir home;
    home.mkdir("Models");
    home.mkdir("Downloads");
    std::filesystem::create_symlink(home / "Models", home / "AI");
    std::filesystem::create_directory_symlink(home / "Downloads", home / "llm");
    EXPECT_EQ(looseModelRoots(home.path(), Facts::real()),
              (std::vector<std::string>{home / "Models", home / "Downloads"}));
}

TEST(ModelLibrary, StoreFoldersMeasuredLargestFirst) {
    testing::TempDir root;
    root.write("hub/models--org--small/f", "x");
    root.write("hub/models--org--large/f", std::string(100'000, 'x'));
    root.write("hub/.locks/f", std::string(100'000, 'x'));
    const auto entries = storeEntries(root.path(), 10, Facts::real());
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].name, "org/large");
    EXPECT_EQ(entries[1].name, "org/small");
    EXPECT_EQ(storeEntries(root.path(), 1, Facts::real()).size(), 1u);

    std::vector<std::string> paths;
    for (int i = 0; i < 9; ++i) paths.push_back(root.write("many/" + std::to_string(i), std::string(static_cast<std::size_t>(i) * 5000, 'x')));
    paths.push_back(root / "gone");
    const auto measured = measurePaths(paths, 9, Facts::real());
    ASSERT_EQ(measured.size(), 8u);  // the empty file measures 0 and is left out
    EXPECT_EQ(measured.front().name, "8");
    EXPECT_EQ(measured.front().path, root / "many/8");
}

TEST(ModelLibrary, Texts) {
    struct Estimate {
        std::int64_t bytes;
        double speed;
        std::string text;
    };
    const Estimate estimates[] = {
        {1'000'000'000, 100, "about a minute to download again at 100 Mbit/s"},
        {10'000'000'000, 100, "about 13 min to download again at 100 Mbit/s"},
        {100'000'000'000, 100, "about 2.2 hours to download again at 100 Mbit/s"},
        {-5, 50.9, "about a minute to download again at 50 Mbit/s"},
    };
    for (const auto& e : estimates) EXPECT_EQ(redownloadEstimate(e.bytes, e.speed), e.text);

    const OllamaBlobLabel labels[] = {{{"a", "b"}, "weights"}, {{"a"}, std::nullopt}, {{}, "config"}, {{}, std::nullopt},
                                      {{"a", "b", "c"}, ""}};
    const std::string displays[] = {"a +1 more — weights", "a", "config", "", "a +2 more"};
    for (std::size_t i = 0; i < std::size(labels); ++i) EXPECT_EQ(labels[i].display(), displays[i]);

    const TimePoint now = Clock::from_time_t(1'800'000'000);
    LibraryModel model;
    EXPECT_EQ(daysUnused(model, now), std::nullopt);
    model.lastRead = now + std::chrono::hours(30);
    EXPECT_EQ(daysUnused(model, now), 0);
    model.lastRead = now - std::chrono::hours(71);
    EXPECT_EQ(daysUnused(model, now), 2);
    EXPECT_TRUE(isOllamaBlobDirectory("/Users/a/.ollama/models/blobs"));
    EXPECT_TRUE(isOllamaBlobDirectory("/Users/a/.ollama/models/blobs/sha256-1"));
    EXPECT_FALSE(isOllamaBlobDirectory("/Users/a/.ollama/models/blobs2"));
}

}  // namespace
}  // namespace orvane
