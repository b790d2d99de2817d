#include "core/ai/loose_models.hpp"

#include <algorithm>
#include <set>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

// A model's config.json is kilobytes; one this size is no config to trust.
constexpr std::uint64_t kConfigLimit = 1'999'999;

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool isRealFolder(const std::string& path, const Facts& facts) {
    auto st = facts.lstat(path);
    return st && st->isDirectory();
}

bool quantized(const std::string& config, const Facts& facts) {
    auto bytes = facts.read(config, kConfigLimit).bytes;
    if (!bytes) return false;
    auto parsed = parseJSONStrictly(*bytes);
    if (!parsed.value || !parsed.value->is_object()) return false;
    auto q = parsed.value->find("quantization");
    return q != parsed.value->end() && q->is_object() && q->contains("bits");
}

bool checkFolder(const std::string& folder, const std::string& name, const Facts& facts,
                 std::vector<LooseModelFolder>& found) {
    auto entries = facts.list(folder);
    if (!entries) return false;
    bool hasConfig = false;
    std::set<std::string> exts;
    for (const auto& entry : *entries) {
        if (entry.name == "config.json" && !entry.isFolder) hasConfig = true;
        exts.insert(lowercased(pathExtension(entry.name)));
    }
    if (!hasConfig) return false;
    if (!exts.contains("safetensors") && !exts.contains("gguf") && !exts.contains("npz")) return false;
    std::string format;
    if (lowercased(name).find("mlx") != std::string::npos || exts.contains("npz") ||
        quantized(appendingPathComponent(folder, "config.json"), facts))
        format = "MLX";
    else
        format = exts.contains("gguf") ? "GGUF" : "safetensors";
    found.push_back({folder, name, format});
    return true;
}

std::vector<FolderEntry> visibleEntries(const std::string& folder, const Facts& facts) {
    auto entries = facts.list(folder).value_or(std::vector<FolderEntry>{});
    std::erase_if(entries, [](const FolderEntry& e) { return e.name.starts_with("."); });
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
}

}  // namespace

std::vector<std::string> looseModelRoots(const std::string& home, const Facts& facts) {
    std::vector<std::string> roots;
    std::set<std::string> seen;
    for (const char* name : {"Models", "models", "AI", "ai", "llm", "LLM", "LLMs", "mlx", "MLX", "Downloads"}) {
        const std::string path = appendingPathComponent(home, name);
        auto st = facts.lstat(path);
        if (!st || !st->isDirectory()) continue;
        if (!seen.insert(std::to_string(st->device) + ":" + std::to_string(st->inode)).second) continue;
        roots.push_back(path);
    }
    return roots;
}

std::vector<LooseModelFolder> looseModelFolders(const std::string& home, const Facts& facts) {
    std::vector<LooseModelFolder> found;
    for (const auto& root : looseModelRoots(home, facts)) {
        const bool downloads = endsWith(root, "/Downloads");
        for (const auto& entry : visibleEntries(root, facts)) {
            const std::string path = appendingPathComponent(root, entry.name);
            if (endsWith(entry.name, ".app") || !isRealFolder(path, facts)) continue;
            if (checkFolder(path, entry.name, facts, found) || downloads) continue;
            for (const auto& child : visibleEntries(path, facts)) {
                const std::string childPath = appendingPathComponent(path, child.name);
                if (isRealFolder(childPath, facts)) checkFolder(childPath, entry.name + "/" + child.name, facts, found);
            }
        }
    }
    return found;
}

}  // namespace orvane
