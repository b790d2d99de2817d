#include "core/storage/apple_models.hpp"

#include <algorithm>
#include <array>

#include "core/common/byte_counts.hpp"
#include "core/common/path.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {
namespace {

constexpr std::string_view kAssetPrefix = "com_apple_MobileAsset_UAF_";
constexpr double kModelsTimeout = 60;

struct FamilyRule {
    std::array<std::string_view, 3> starts;  // empty entries match nothing
    AppleModelFamilyText family;
};

// First match wins: "Siri_TextToSpeech" must come before "Siri_".
constexpr std::array<FamilyRule, 10> kFamilyRules = {{
    {{"FM_", "SummarizationKit", "Shortcuts_Generator"},
     {"Apple Intelligence language models", "Writing Tools, summaries, smart replies and Shortcuts generation."}},
    {{"IF_"}, {"Apple Intelligence planning", "How Siri and Apple Intelligence work out what you asked for."}},
    {{"Siri_TextToSpeech"}, {"Siri voices", "The voices Siri and Spoken Content speak with."}},
    {{"Siri_"}, {"Siri understanding", "How Siri understands requests on your Mac."}},
    {{"Speech_"}, {"Dictation and speech recognition", "Turning speech into text without the internet."}},
    {{"Photos_"}, {"Photos features", "Clean Up and spatial photos in the Photos app."}},
    {{"Translation_"}, {"Translation", "Translating text and conversations on your Mac."}},
    {{"Handwriting"}, {"Handwriting", "Handwriting features."}},
    {{"SearchQuery"}, {"Search understanding", "How Spotlight and apps understand what you search for."}},
    {{"LinguisticData"}, {"Language data", "Dictionaries and language data the models share."}},
}};
constexpr AppleModelFamilyText kOtherFamily = {"Other on-device models",
                                               "Smaller models macOS uses for other features."};

}  // namespace

std::vector<std::string> appleModelAssetFolders(const std::string& root, const Facts& facts) {
    std::vector<std::string> folders;
    auto entries = facts.list(root);
    if (!entries) return folders;
    for (const auto& entry : *entries)
        if (entry.name.starts_with(kAssetPrefix)) folders.push_back(appendingPathComponent(root, entry.name));
    std::sort(folders.begin(), folders.end());
    return folders;
}

AppleModelFamilyText appleModelFamily(std::string_view assetFolder) {
    std::string name = lastPathComponent(assetFolder);
    std::string_view rest = name;
    if (rest.starts_with(kAssetPrefix)) rest.remove_prefix(kAssetPrefix.size());
    for (const auto& rule : kFamilyRules)
        for (std::string_view start : rule.starts)
            if (!start.empty() && rest.starts_with(start)) return rule.family;
    return kOtherFamily;
}

std::vector<AppleModelFamily> appleModelFamilies(const std::map<std::string, std::int64_t>& sizes) {
    std::vector<AppleModelFamily> families;
    for (const auto& [folder, bytes] : sizes) {
        if (bytes < 1) continue;
        const auto family = appleModelFamily(folder);
        auto it = std::find_if(families.begin(), families.end(),
                               [&](const AppleModelFamily& f) { return f.name == family.name; });
        if (it == families.end())
            families.push_back({std::string(family.name), std::string(family.what), bytes});
        else
            it->bytes = addBytesOrUnknown(it->bytes, bytes);
    }
    std::stable_sort(families.begin(), families.end(),
                     [](const AppleModelFamily& a, const AppleModelFamily& b) { return a.bytes > b.bytes; });
    return families;
}

AppleModelMeasurement measureAppleModelFamilies(const std::string& root, const Facts& facts) {
    const auto batch = duBatchMeasure(appleModelAssetFolders(root, facts), kModelsTimeout, facts);
    AppleModelMeasurement measurement;
    measurement.families = appleModelFamilies(batch.sizes);
    for (const auto& family : measurement.families)
        measurement.total = addBytesOrUnknown(measurement.total, family.bytes);
    measurement.partial = !batch.denied.empty();
    return measurement;
}

}  // namespace orvane
