// Which rule knows an app, and the offers made when it is removed: table tests over a made-up
// disk of files, folders and links.
#include <gtest/gtest.h>

#include <map>

#include "core/ai/ai_app_data_offers.hpp"
#include "core/ai/lm_studio_model_names.hpp"

namespace orvane {
namespace {

const std::string kHome = "/Users/alex";

// A made-up disk: files with their bytes, folders, and links with where they lead.
struct World {
    std::map<std::string, std::string> files;
    std::set<std::string> folders;
    std::map<std::string, std::string> links;
    std::set<std::string> mounted = {"Archive"};

    std::vector<AIAppDataOffer> offers(const std::string& app, const std::string& bundleID,
                                       const std::vector<AIOtherApp>& others = {}) const {
        return aiAppDataOffers(
            app, bundleID, std::nullopt, others, kHome, mounted,
            [&](const std::string& path) -> std::optional<std::string> {
                const auto found = files.find(path);
                return found == files.end() ? std::nullopt : std::optional<std::string>(found->second);
            },
            [&](const std::string& path) { return files.contains(path) || folders.contains(path); },
            [&](const std::string& path) -> std::optional<std::string> {
                if (const auto found = links.find(path); found != links.end()) return found->second;
                if (files.contains(path) || folders.contains(path)) return path;
                return std::nullopt;
            });
    }
};

std::vector<std::string> pathsOf(const std::vector<AIAppDataOffer>& offers) {
    std::vector<std::string> paths;
    for (const auto& offer : offers) paths.push_back(offer.path);
    return paths;
}

constexpr const char* kHomeNote =
    "LM Studio's home: downloaded AI models (models, hub) and its settings. Bionic uses it too, for local AI.";
constexpr const char* kHomePointerNote = "LM Studio's home folder, named in ~/.lmstudio-home-pointer.";
constexpr const char* kModelsPointerNote = "LM Studio's models folder, as set in LM Studio's settings.";
constexpr const char* kPointerFileNote =
    "A small file that tells LM Studio and Bionic where LM Studio's home folder is.";

TEST(AIAppDataRule, BundleIDThenTeamThenName) {
    ASSERT_EQ(aiAppDataRules().size(), 9u);
    const struct {
        std::string bundleID;
        std::optional<std::string> teamID;
        std::string name;
        std::optional<std::string> product;
    } cases[] = {
        {"AI.ElementLabs.Bionic", std::nullopt, "Whatever", "LM Studio"},
        {"com.comfyorg.comfyui-electron", "D65G88RHWN", "Jan", "ComfyUI"},  // the bundle id wins
        {"com.example.unknown", "D65G88RHWN", "Jan", "LM Studio"},          // then the team
        {"com.example.unknown", "d65g88rhwn", "Jan", "Jan"},                // a team id is exact
        {"", std::nullopt, "comfy desktop", "ComfyUI"},
        {"", std::nullopt, "gpt4all", "GPT4All"},
        {"com.example.unknown", std::nullopt, "Ollama", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto rule = aiAppDataRule(c.bundleID, c.teamID, c.name);
        EXPECT_EQ(rule ? std::optional<std::string>(rule->product) : std::nullopt, c.product) << c.bundleID << " " << c.name;
    }
}

// LM Studio's default home, its older cache, and the pointer file beside it.
World lmStudioAtHome() {
    World w;
    w.folders = {kHome + "/.lmstudio", kHome + "/.cache/lm-studio"};
    return w;
}

TEST(AIAppDataOffers, PointersLeadTheWayAndAreJudged) {
    // No pointer: the default home and the older cache, as the table says.
    auto offers = lmStudioAtHome().offers("LM Studio", "ai.elementlabs.lmstudio");
    EXPECT_EQ(offers, (std::vector<AIAppDataOffer>{
                          {kHome + "/.lmstudio", kHomeNote, false, true, true},
                          {kHome + "/.cache/lm-studio", "LM Studio's older models and cache folder.", false, true, false},
                      }));

    // A home moved to a mounted drive replaces the default home, for the settings read after it too.
    World moved = lmStudioAtHome();
    moved.files[kHome + "/.lmstudio-home-pointer"] = "/Volumes/Archive/AI/lmstudio\n";
    moved.folders.insert({"/Volumes/Archive/AI/lmstudio", kHome + "/Models"});
    moved.files["/Volumes/Archive/AI/lmstudio/settings.json"] = R"({"downloadsFolder": "~/Models"})";
    moved.files[kHome + "/.lmstudio/settings.json"] = R"({"downloadsFolder": "/Volumes/Archive/old"})";
    offers = moved.offers("LM Studio", "ai.elementlabs.lmstudio");
    EXPECT_EQ(pathsOf(offers), (std::vector<std::string>{"/Volumes/Archive/AI/lmstudio", kHome + "/Models",
                                                         kHome + "/.cache/lm-studio", kHome + "/.lmstudio-home-pointer"}));
    EXPECT_EQ(offers[0].note, std::string(kHomePointerNote) + " On the external drive Archive.");
    EXPECT_TRUE(offers[0].isHome);
    EXPECT_EQ(offers[1].note, kModelsPointerNote);

    // The same drive away: offered as away whether or not it can be seen, and the anchor stays the
    // default home, whose settings are read instead.
    World away = moved;
    away.mounted.clear();
    away.folders.insert("/Volumes/Archive/old");
    offers = away.offers("LM Studio", "ai.elementlabs.lmstudio");
    EXPECT_EQ(pathsOf(offers), (std::vector<std::string>{"/Volumes/Archive/AI/lmstudio", "/Volumes/Archive/old",
                                                         kHome + "/.lmstudio", kHome + "/.cache/lm-studio",
                                                         kHome + "/.lmstudio-home-pointer"}));
    EXPECT_EQ(offers[0].note, std::string(kHomePointerNote) +
                                  " It's on Archive, which isn't connected: connect it and open this review again to "
                                  "include it.");
    EXPECT_TRUE(offers[0].notConnected);
    EXPECT_FALSE(offers[0].preselected);
    EXPECT_FALSE(offers[0].isHome);
    EXPECT_TRUE(offers[2].isHome);

    // A path reached both ways is offered once, with the pointer's note.
    World same = lmStudioAtHome();
    same.files[kHome + "/.lmstudio-home-pointer"] = "~/.lmstudio";
    offers = same.offers("LM Studio", "ai.elementlabs.lmstudio");
    EXPECT_EQ(pathsOf(offers), (std::vector<std::string>{kHome + "/.lmstudio", kHome + "/.cache/lm-studio",
                                                         kHome + "/.lmstudio-home-pointer"}));
    EXPECT_EQ(offers[0].note, kHomePointerNote);
    EXPECT_EQ(offers[2].note, kPointerFileNote);
}

TEST(AIAppDataOffers, RefusedPointersOfferNothing) {
    const std::vector<std::string> defaults = {kHome + "/.lmstudio", kHome + "/.cache/lm-studio",
                                               kHome + "/.lmstudio-home-pointer"};
    const struct {
        std::string homePointer;
        std::string settings;
        std::string link;  // where ~/AI leads, if anywhere
    } cases[] = {
        {"~/Documents", R"({"downloadsFolder": "/tmp/models"})", ""},
        {"/Volumes/Archive", R"({"downloadsFolder": "~/models/../.ssh"})", ""},
        {"~/AI\n~/Other", R"({"downloadsFolder": "~/AI"})", kHome + "/.ssh"},  // two lines; a link into ~/.ssh
        {"/", R"({"downloadsFolder": "~/AI"})", "/etc"},
        {"", "not JSON", ""},
    };
    for (const auto& c : cases) {
        World w = lmStudioAtHome();
        w.files[kHome + "/.lmstudio-home-pointer"] = c.homePointer;
        w.files[kHome + "/.lmstudio/settings.json"] = c.settings;
        w.folders.insert({kHome + "/AI", kHome + "/Documents", "/Volumes/Archive", "/tmp/models", kHome + "/.ssh"});
        if (!c.link.empty()) w.links[kHome + "/AI"] = c.link;
        EXPECT_EQ(pathsOf(w.offers("LM Studio", "ai.elementlabs.lmstudio")), defaults) << c.homePointer;
    }
}

TEST(AIAppDataOffers, SharersAndSharedPlaces) {
    const std::string once = " Also used by LM Studio: keep it unless you're removing that too.";
    const std::string many = " Also used by LM Studio, Bionic: keep it unless you're removing those too.";
    World w = lmStudioAtHome();
    w.files[kHome + "/.lmstudio-home-pointer"] = "/Volumes/Away/lmstudio";

    // Removing Bionic with LM Studio installed; an app with no rule or another ecosystem is no sharer.
    auto offers = w.offers("Bionic", "ai.elementlabs.bionic",
                           {{"LM Studio", "ai.elementlabs.lmstudio", std::nullopt},
                            {"Safari", "com.apple.Safari", std::nullopt},
                            {"Jan", "jan.ai.app", std::nullopt}});
    ASSERT_EQ(offers.size(), 4u);
    EXPECT_TRUE(offers[0].notConnected);
    EXPECT_TRUE(offers[0].note.ends_with("open this review again to include it." + once)) << offers[0].note;
    EXPECT_EQ(offers[1].note, kHomeNote + once);
    EXPECT_FALSE(offers[1].preselected);

    // Three sharers, one known by its team alone: two are named.
    offers = w.offers("Bionic", "ai.elementlabs.bionic",
                      {{"LM Studio", "ai.elementlabs.lmstudio", std::nullopt},
                       {"Bionic", "ai.elementlabs.bionic", std::nullopt},
                       {"LM Studio Beta", "ai.elementlabs.lmstudio.beta", "D65G88RHWN"}});
    EXPECT_EQ(offers[1].note, kHomeNote + many);

    // The Hugging Face cache is offered, never preselected, and says so instead of naming sharers.
    const std::string comfySharer = " Also used by Comfy Desktop: keep it unless you're removing that too.";
    World comfy;
    comfy.folders = {kHome + "/.cache/huggingface/hub", kHome + "/Library/Application Support/ComfyUI",
                     kHome + "/ComfyUI"};
    comfy.files[kHome + "/Library/Application Support/ComfyUI/config.json"] = R"({"basePath": "~/ComfyUI"})";
    offers = comfy.offers("ComfyUI", "com.comfyorg.comfyui-electron",
                          {{"Pinokio", "computer.pinokio", std::nullopt},
                           {"Comfy Desktop", "com.todesktop.241012ess7yxs0e", std::nullopt}});
    EXPECT_EQ(offers, (std::vector<AIAppDataOffer>{
                          {kHome + "/ComfyUI",
                           "ComfyUI's files (models, inputs, outputs, custom nodes, workflows), at the location chosen "
                           "in ComfyUI." + comfySharer,
                           false, false, false},
                          {kHome + "/Library/Application Support/ComfyUI",
                           "ComfyUI Desktop's settings and model paths." + comfySharer, false, false, false},
                          {kHome + "/.cache/huggingface/hub",
                           "Hugging Face's shared model cache. Shared by other AI tools (Python and command-line tools "
                           "use it too): kept unless you tick it.",
                           false, false, false},
                      }));

    EXPECT_TRUE(w.offers("Ollama", "com.electron.ollama").empty());
}

TEST(LMStudioModelNames, PublishersAndModelsInOrder) {
    const std::map<std::string, std::vector<std::string>> folders = {
        {"/m", {"mlx-community", ".DS_Store", "bartowski", "README.md", "lmstudio-community"}},
        {"/m/bartowski", {"Qwen2.5-7B-Instruct-GGUF", ".hidden", "Phi-3.5-mini-instruct-GGUF"}},
        {"/m/lmstudio-community", {"gemma-2-9b-it-GGUF", "Meta-Llama-3.1-8B-Instruct-GGUF"}},
        {"/m/mlx-community", {"Mistral-7B-Instruct-v0.3-4bit", "Llama-3.2-3B-Instruct-4bit"}},
    };
    const auto list = [&](const std::string& path) -> std::optional<std::vector<std::string>> {
        const auto found = folders.find(path);
        return found == folders.end() ? std::nullopt : std::optional(found->second);
    };
    EXPECT_EQ(lmStudioModelNames("/m", list, 3),
              (LMStudioModelNames{{"bartowski/Phi-3.5-mini-instruct-GGUF", "bartowski/Qwen2.5-7B-Instruct-GGUF",
                                   "lmstudio-community/Meta-Llama-3.1-8B-Instruct-GGUF"},
                                  6}));
    EXPECT_EQ(lmStudioModelNames("/missing", list, 5), LMStudioModelNames{});
}

}  // namespace
}  // namespace orvane
