#include "core/ai/ai_app_data_rules.hpp"

#include <algorithm>

#include "core/common/text.hpp"

namespace orvane {

namespace {

// Where a row's facts came from, for whoever maintains the table; never shown.
constexpr const char* kCheckedSource = "The design's table of AI apps; the row was checked against the product.";
constexpr const char* kUncheckedSource = "The design's table of AI apps; not yet checked against the product.";

constexpr const char* kSharedHuggingFaceHub = "~/.cache/huggingface/hub";
constexpr const char* kSharedHuggingFaceNote = "Hugging Face's shared model cache.";

std::vector<AIAppDataRule> makeRules() {
    using JSONKey = AIDataPointer::JSONKey;
    using PlainPath = AIDataPointer::PlainPath;
    std::vector<AIAppDataRule> rules;
    rules.push_back({
        .product = "LM Studio",
        .ecosystem = "lmstudio",
        .bundleIDs = {"ai.elementlabs.lmstudio", "ai.elementlabs.bionic"},
        .teamIDs = {"D65G88RHWN"},
        .appNames = {"LM Studio", "Bionic"},
        .defaultHome = "~/.lmstudio",
        .locations =
            {
                {"{home}",
                 "LM Studio's home: downloaded AI models (models, hub) and its settings. Bionic uses it too, for "
                 "local AI."},
                {"~/.cache/lm-studio", "LM Studio's older models and cache folder."},
                {"~/.lmstudio-home-pointer",
                 "A small file that tells LM Studio and Bionic where LM Studio's home folder is."},
            },
        .pointers =
            {
                {"~/.lmstudio-home-pointer", PlainPath{},
                 "LM Studio's home folder, named in ~/.lmstudio-home-pointer.", true},
                {"{home}/settings.json", JSONKey{"downloadsFolder"},
                 "LM Studio's models folder, as set in LM Studio's settings.", false},
            },
        .source = kCheckedSource,
        .verified = true,
    });
    rules.push_back({
        .product = "Jan",
        .ecosystem = "jan",
        .bundleIDs = {"jan.ai.app"},
        .appNames = {"Jan"},
        .locations =
            {
                {"~/Library/Application Support/Jan/data",
                 "Jan's data folder: downloaded models, chats, assistants and settings."},
                {"~/jan", "Jan's older data folder: models and chats."},
            },
        .source = kCheckedSource,
        .verified = true,
    });
    rules.push_back({
        .product = "GPT4All",
        .ecosystem = "gpt4all",
        .bundleIDs = {"io.gpt4all.gpt4all", "ai.nomic.gpt4all"},
        .appNames = {"GPT4All", "gpt4all"},
        .locations =
            {
                {"~/Library/Application Support/nomic.ai/GPT4All", "GPT4All's downloaded models and chats."},
                {"~/.cache/gpt4all", "GPT4All's cache."},
            },
        .source = kUncheckedSource,
    });
    rules.push_back({
        .product = "Msty",
        .ecosystem = "msty",
        .bundleIDs = {"app.msty.app"},
        .appNames = {"Msty"},
        .locations = {{"~/Library/Application Support/Msty", "Msty's models, chats and settings."}},
        .source = kUncheckedSource,
    });
    rules.push_back({
        .product = "AnythingLLM",
        .ecosystem = "anythingllm",
        .bundleIDs = {"com.anythingllm"},
        .appNames = {"AnythingLLM"},
        .locations = {{"~/Library/Application Support/anythingllm-desktop",
                       "AnythingLLM's storage: models, documents, vector data and chats."}},
        .source = kUncheckedSource,
    });
    rules.push_back({
        .product = "Draw Things",
        .ecosystem = "drawthings",
        .bundleIDs = {"com.liuliu.draw-things"},
        .appNames = {"Draw Things"},
        .locations = {{"~/Library/Containers/com.liuliu.draw-things",
                       "Draw Things' container: its downloaded models and images."}},
        .source = kUncheckedSource,
    });
    rules.push_back({
        .product = "DiffusionBee",
        .ecosystem = "diffusionbee",
        .bundleIDs = {"com.diffusionbee.diffusionbee"},
        .appNames = {"DiffusionBee"},
        .locations = {{"~/.diffusionbee", "DiffusionBee's downloaded models and images."}},
        .source = kUncheckedSource,
    });
    rules.push_back({
        .product = "ComfyUI",
        .ecosystem = "comfyui",
        .bundleIDs = {"com.todesktop.241012ess7yxs0e", "com.comfyorg.comfyui-electron"},
        .appNames = {"ComfyUI", "Comfy Desktop"},
        .locations =
            {
                {"~/Library/Application Support/ComfyUI", "ComfyUI Desktop's settings and model paths."},
                {kSharedHuggingFaceHub, kSharedHuggingFaceNote, true},
            },
        .pointers = {{"~/Library/Application Support/ComfyUI/config.json", JSONKey{"basePath"},
                      "ComfyUI's files (models, inputs, outputs, custom nodes, workflows), at the location chosen in "
                      "ComfyUI.",
                      false}},
        .source = kCheckedSource,
        .verified = true,
    });
    rules.push_back({
        .product = "Pinokio",
        .ecosystem = "pinokio",
        .bundleIDs = {"computer.pinokio"},
        .appNames = {"Pinokio"},
        .locations =
            {
                {"~/pinokio", "Pinokio's home: installed AI apps and their models."},
                {kSharedHuggingFaceHub, kSharedHuggingFaceNote, true},
            },
        .source = kUncheckedSource,
    });
    return rules;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) { return lowercased(a) == lowercased(b); }

template <typename Matches>
const AIAppDataRule* firstRule(const std::vector<AIAppDataRule>& rules, Matches matches) {
    const auto found = std::find_if(rules.begin(), rules.end(), matches);
    return found == rules.end() ? nullptr : &*found;
}

}  // namespace

const std::vector<AIAppDataRule>& aiAppDataRules() {
    static const std::vector<AIAppDataRule> rules = makeRules();
    return rules;
}

std::optional<AIAppDataRule> aiAppDataRule(std::string_view bundleID, const std::optional<std::string>& teamID,
                                           std::string_view appName, const std::vector<AIAppDataRule>& rules) {
    const auto anyOf = [](const std::vector<std::string>& values, auto same) {
        return std::any_of(values.begin(), values.end(), same);
    };
    const AIAppDataRule* rule = firstRule(rules, [&](const AIAppDataRule& r) {
        return anyOf(r.bundleIDs, [&](const std::string& id) { return equalIgnoringCase(id, bundleID); });
    });
    if (!rule && teamID)
        rule = firstRule(rules, [&](const AIAppDataRule& r) {
            return anyOf(r.teamIDs, [&](const std::string& id) { return id == *teamID; });
        });
    if (!rule)
        rule = firstRule(rules, [&](const AIAppDataRule& r) {
            return anyOf(r.appNames, [&](const std::string& name) { return equalIgnoringCase(name, appName); });
        });
    if (!rule) return std::nullopt;
    return *rule;
}

}  // namespace orvane
