// orvane ai-data, and the AI app data that orvane uninstall offers: on the recorded Mac of alex
// (LM Studio with its home named by its pointer file and its models on the mounted Archive), and on
// a small recording made here with a drive that is away, a sharer and a shared cache.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
using Json = nlohmann::json;

using testing::column;

TEST(AIDataCommand, TheRecordedMac) {
    testing::TempDir scratch;
    auto o = testing::runOrvane(testing::kAlexReplay + "ai-data 'LM Studio' --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    Json json = Json::parse(o.out);
    EXPECT_EQ(json["product"], "LM Studio");
    EXPECT_EQ(column(json["offers"], "path"), Json({"/Users/alex/.lmstudio", "/Volumes/Archive/AI/lmstudio-models",
                                                    "/Users/alex/.lmstudio-home-pointer"}));
    EXPECT_EQ(json["offers"][1]["note"],
              "LM Studio's models folder, as set in LM Studio's settings. On the external drive Archive.");
    EXPECT_EQ(column(json["offers"], "notConnected"), Json({false, false, false}));
    EXPECT_EQ(column(json["offers"], "bytes"), Json({23622320128, 9663676416, 4096}));

    // Uninstalling it offers the same places with the bundle, and changes nothing on a recording.
    o = testing::runOrvane(testing::kAlexReplay + "uninstall '/Applications/LM Studio.app' --dry-run --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    json = Json::parse(o.out);
    EXPECT_EQ(column(json["rows"], "source"), Json({"bundle", "aiData", "aiData", "aiData"}));
    EXPECT_EQ(column(json["rows"], "on"), Json({true, true, true, true}));

    const C cases[] = {
        {testing::kAlexReplay + "ai-data 'LM Studio'", 0, C::out,
         "LM Studio: 3 places with its data.\n"
         "  23.62 GB  /Users/alex/.lmstudio\n"
         "            LM Studio's home folder, named in ~/.lmstudio-home-pointer.\n"
         "            Models (6): bartowski/Phi-3.5-mini-instruct-GGUF, bartowski/Qwen2.5-7B-Instruct-GGUF, "
         "lmstudio-community/Meta-Llama-3.1-8B-Instruct-GGUF, lmstudio-community/gemma-2-9b-it-GGUF, "
         "mlx-community/Llama-3.2-3B-Instruct-4bit and 1 more.\n",
         C::contains},
        // Known by the team or the bundle id whatever the name; known but nothing there is still known.
        {testing::kAlexReplay + "ai-data Whatever --team-id D65G88RHWN --json", 0, C::out, "\"product\": \"LM Studio\"",
         C::contains},
        {testing::kAlexReplay + "ai-data Whatever --bundle-id AI.ElementLabs.Bionic", 0, C::out,
         "LM Studio: 3 places with its data.\n", C::contains},
        {testing::kAlexReplay + "ai-data Jan", 0, C::out, "Jan: none of its data was found.\n\nNothing was removed.\n"},
        {testing::kAlexReplay + "ai-data Docker --json", 1, C::out, "{\n  \"product\": null,\n  \"offers\": []\n}\n"},
        {testing::kAlexReplay + "ai-data Docker", 1, C::out,
         "No rule knows Docker (com.docker.docker): nothing is known of the data it keeps.\n"},
        {testing::kAlexReplay + "ai-data ' '", 2, C::err, "orvane: Name the app, such as \"LM Studio\".\n"},
        {testing::kAlexReplay + "ai-data Jan --bundle-id ''", 2, C::err, "orvane: --bundle-id needs an identifier.\n"},
        {testing::kAlexReplay + "ai-data", 2, C::err, "APP is required", C::contains},
    };
    testing::expectCommands(cases);
}

// LM Studio's home named on a drive that is away, Bionic installed beside it, and ComfyUI with the
// Hugging Face cache it shares with every other tool.
TEST(AIDataCommand, ADriveAwayASharerAndASharedCache) {
    testing::TempDir mac;
    mac.write("home", "/Users/sam\n");
    mac.write("tools.json", "[]");
    mac.write("root/Applications/LM Studio.app/Contents/Info.plist", testing::infoPlistWithIdentifier("ai.elementlabs.lmstudio"));
    mac.write("root/Applications/Bionic.app/Contents/Info.plist", testing::infoPlistWithIdentifier("ai.elementlabs.bionic"));
    mac.write("root/Applications/ComfyUI.app/Contents/Info.plist",
              testing::infoPlistWithIdentifier("com.comfyorg.comfyui-electron"));
    mac.write("root/Users/sam/.lmstudio-home-pointer", "/Volumes/Models/lmstudio\n");
    mac.write("root/Users/sam/.lmstudio/models/bartowski/Qwen2.5-7B-Instruct-GGUF/model.gguf");
    mac.write("root/Users/sam/.cache/huggingface/hub/models--org--model/refs/main");
    mac.write("root/Users/sam/Library/Application Support/ComfyUI/config.json", R"({"basePath": "/Users/sam/.ssh"})");
    const std::string replay = "--replay " + mac.path() + " ";

    testing::TempDir scratch;
    auto o = testing::runOrvane(replay + "ai-data 'LM Studio' --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    Json json = Json::parse(o.out);
    const std::string sharer = " Also used by Bionic: keep it unless you're removing that too.";
    EXPECT_EQ(column(json["offers"], "path"), Json({"/Volumes/Models/lmstudio", "/Users/sam/.lmstudio",
                                                    "/Users/sam/.lmstudio-home-pointer"}));
    EXPECT_EQ(json["offers"][0]["note"],
              "LM Studio's home folder, named in ~/.lmstudio-home-pointer. It's on Models, which isn't connected: "
              "connect it and open this review again to include it." + sharer);
    EXPECT_EQ(column(json["offers"], "notConnected"), Json({true, false, false}));
    EXPECT_EQ(column(json["offers"], "bytes"), Json({nullptr, nullptr, nullptr}));  // no du on this recording

    // Uninstalling: a drive away, a place Bionic uses too and the shared cache start unticked; a
    // ComfyUI basePath into ~/.ssh is never offered.
    o = testing::runOrvane(replay + "uninstall '/Applications/LM Studio.app' --dry-run --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    json = Json::parse(o.out);
    EXPECT_EQ(column(json["rows"], "on"), Json({true, false, false, false}));
    o = testing::runOrvane(replay + "uninstall /Applications/ComfyUI.app --dry-run --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    json = Json::parse(o.out);
    EXPECT_EQ(column(json["rows"], "path"), Json({"/Applications/ComfyUI.app", "/Users/sam/Library/Application Support/ComfyUI",
                                                  "/Users/sam/.cache/huggingface/hub"}));
    EXPECT_EQ(column(json["rows"], "source"), Json({"bundle", "aiData", "aiData"}));
    EXPECT_EQ(column(json["rows"], "on"), Json({true, true, false}));

    const C cases[] = {
        {replay + "ai-data 'LM Studio'", 0, C::out,
         "  drive away  /Volumes/Models/lmstudio\n", C::contains},
        {replay + "ai-data 'LM Studio'", 0, C::out,
         "     unknown  /Users/sam/.lmstudio\n"
         "              LM Studio's home: downloaded AI models (models, hub) and its settings. Bionic uses it too, for "
         "local AI." + sharer + "\n"
         "              Models (1): bartowski/Qwen2.5-7B-Instruct-GGUF.\n",
         C::contains},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
