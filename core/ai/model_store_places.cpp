#include "core/ai/model_store_places.hpp"

#include <algorithm>
#include <set>

#include "core/ai/ai_app_data.hpp"

#include "core/common/path.hpp"

namespace orvane {

namespace {

// Pointer and settings files are a few lines; anything larger is not what the app wrote.
constexpr std::uint64_t kPointerLimit = 65'536;

// The names of the mounted drives, as the judgement knows them: the last component under /Volumes.
std::set<std::string> mountedVolumeNames(const Facts& facts) {
    std::set<std::string> names;
    for (const auto& volume : facts.volumes())
        if (volume.path.starts_with("/Volumes/")) names.insert(lastPathComponent(volume.path));
    return names;
}

// The path a pointer file gives, when the judgement allows it. A drive that is away is no place to
// look for models now, so only an allowed target counts.
std::optional<std::string> allowedPointer(const std::string& file, const AIDataPointer::Format& format,
                                          const std::string& home, const Facts& facts) {
    auto bytes = facts.read(file, kPointerLimit).bytes;
    if (!bytes) return std::nullopt;
    auto value = readAIDataPointer(format, *bytes);
    if (!value) return std::nullopt;
    auto target = judgeAIDataTarget(*value, home, mountedVolumeNames(facts), facts.resolve);
    if (!target || target->kind != AIDataTarget::Kind::allowed) return std::nullopt;
    return target->path;
}

}  // namespace

std::vector<std::string> lmStudioModelRoots(const std::string& home, const Facts& facts) {
    std::string lmHome = appendingPathComponent(home, ".lmstudio");
    if (auto pointed = allowedPointer(appendingPathComponent(home, ".lmstudio-home-pointer"), AIDataPointer::PlainPath{}, home, facts))
        lmHome = *pointed;
    std::vector<std::string> roots;
    if (auto downloads =
            allowedPointer(appendingPathComponent(lmHome, "settings.json"), AIDataPointer::JSONKey{"downloadsFolder"}, home, facts))
        roots.push_back(*downloads);
    for (const auto& root : {appendingPathComponent(lmHome, "models"), appendingPathComponent(home, ".lmstudio/models"),
                             appendingPathComponent(home, ".cache/lm-studio/models")})
        if (std::find(roots.begin(), roots.end(), root) == roots.end()) roots.push_back(root);
    return roots;
}

std::optional<std::string> comfyUIBasePath(const std::string& home, const Facts& facts) {
    return allowedPointer(appendingPathComponent(home, "Library/Application Support/ComfyUI/config.json"),
                          AIDataPointer::JSONKey{"basePath"}, home, facts);
}

}  // namespace orvane
