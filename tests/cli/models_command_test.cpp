// orvane models end to end: a home with an Ollama store built from real manifests and a Hugging
// Face model, another store given by --ollama, bad input, and the recorded Mac of alex with its
// small Ollama store.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/ai/ollama_store_fixture.hpp"
#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
using Json = nlohmann::json;

TEST(ModelsCommand, AHomeAndAnotherStore) {
    testing::TempDir home, other, scratch;
    testing::makeOllamaStore(home / ".ollama/models");
    home.write(".cache/huggingface/hub/models--org--name/blobs/x", std::string(20'000, 'x'));
    other.write("blobs/sha256-" + std::string(64, 'f'), "lost");

    const auto o = testing::runOrvane("models " + home.path() + " --ollama " + other.path() + " --speed 10 --json",
                                      scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const Json json = Json::parse(o.out);
    const Json& models = json["models"];
    ASSERT_EQ(models.size(), 4u);
    EXPECT_EQ(models[0]["id"], "Ollama|llama3:latest");
    EXPECT_EQ(models[0]["redownload"], "about 1.0 hours to download again at 10 Mbit/s");
    EXPECT_TRUE(models[0]["movablePath"].is_null());
    EXPECT_TRUE(models[0]["lastRead"].is_string());
    EXPECT_EQ(models[0]["daysUnused"], 0);
    EXPECT_EQ(models[2]["id"], "Hugging Face|org/name");
    EXPECT_EQ(models[3]["ownBytes"], 0);  // me/tool only shares llama3's licence
    EXPECT_EQ(models[2]["format"], "safetensors");
    EXPECT_EQ(models[2]["movablePath"], home / ".cache/huggingface/hub/models--org--name");
    EXPECT_GE(models[2]["bytes"].get<std::int64_t>(), 20'000);

    ASSERT_GE(json["ollama"].size(), 2u);
    const Json& own = json["ollama"][0];
    EXPECT_EQ(own["root"], home / ".ollama/models");
    EXPECT_EQ(own["models"][2]["name"], "me/tool:1");
    EXPECT_EQ(own["models"][2]["exclusiveBytes"], 0);
    EXPECT_EQ(own["models"][2]["blobCount"], 1);
    EXPECT_EQ(own["orphanCount"], 1);
    EXPECT_EQ(own["orphanBytes"], 1'000'000);
    ASSERT_EQ(own["blobs"].size(), 11u);  // the "-partial" is no blob
    for (const auto& blob : own["blobs"]) {
        if (blob["name"] == testing::kLlamaLicence) {
            EXPECT_EQ(blob["label"], "llama3:latest +1 more — licence");
        }
        if (blob["name"] == testing::kOrphan) {
            EXPECT_TRUE(blob["label"].is_null());
        }
    }
    EXPECT_EQ(json["ollama"][1]["root"], other.path());
    EXPECT_EQ(json["ollama"][1]["orphanBytes"], 4);

    const C cases[] = {
        {"models {D}", 0, C::out, "No models in {D}.\n", C::whole},
        {"models " + home.path(), 0, C::out, "  Orphan blobs: 1, 1 MB\n", C::contains},
        {"models " + home.path(), 0, C::out, "             frees Zero KB alone · last read ", C::contains},
        {"models {D}/none", 2, C::err, "orvane: {D}/none is not a folder.\n", C::whole},
        {"models {D} --ollama {D}/none", 2, C::err, "orvane: {D}/none is not a folder.\n", C::whole},
        {"models {D} --speed 0", 2, C::err, "orvane: --speed must be a number of Mbit/s above 0.\n", C::whole},
        // The recording holds a store but no du or find runs: the store is read from its files.
        {testing::kAlexReplay + "models", 0, C::out,
         "1 model in /Users/alex, largest first:\n    4.66 GB  llama3:latest  (Ollama, GGUF)\n", C::contains},
        {testing::kAlexReplay + "models", 0, C::out,
         "Ollama store /Users/alex/.ollama/models\n    4.66 GB  llama3:latest  (4.66 GB its own, 5 blobs)\n"
         "  Orphan blobs: 1, 2 GB\n",
         C::contains},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
