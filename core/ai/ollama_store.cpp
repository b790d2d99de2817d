#include "core/ai/ollama_store.hpp"

#include <algorithm>
#include <functional>
#include <set>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

// Manifests are a few kilobytes; a bound keeps a damaged or hostile one from costing memory.
constexpr std::uint64_t kManifestLimit = 4 * 1024 * 1024;
// Deeper than any host/namespace/model/tag; a loop of folders ends here.
constexpr int kManifestDepth = 8;

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

std::optional<TimePoint> dateOf(std::int64_t seconds) { return Clock::from_time_t(static_cast<std::time_t>(seconds)); }

struct Labels {
    std::map<std::string, OllamaBlobLabel> byBlob;

    void add(const std::string& blob, const std::string& model, std::optional<std::string> role) {
        auto& label = byBlob[blob];
        if (std::find(label.models.begin(), label.models.end(), model) == label.models.end())
            label.models.push_back(model);
        if (!label.role && role) label.role = std::move(role);
    }

    void record(const nlohmann::json& object, const std::string& model) {
        if (!object.is_object()) return;
        auto digest = object.find("digest");
        if (digest == object.end() || !digest->is_string()) return;
        std::string blob = digest->get<std::string>();
        std::replace(blob.begin(), blob.end(), ':', '-');
        auto mediaType = object.find("mediaType");
        add(blob, model,
            mediaType != object.end() && mediaType->is_string() ? ollamaLayerRole(mediaType->get<std::string>())
                                                                : std::nullopt);
    }
};

// A file's name under a folder, walked through the facts without following links to folders.
void walkFiles(const std::string& dir, const std::string& relative, int depth, const Facts& facts,
               const std::function<void(const std::string& path, const std::string& relative, const FolderEntry&)>& visit) {
    if (depth > kManifestDepth) return;
    auto entries = facts.list(dir);
    if (!entries) return;
    std::sort(entries->begin(), entries->end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const auto& entry : *entries) {
        const std::string path = appendingPathComponent(dir, entry.name);
        const std::string rel = relative.empty() ? entry.name : relative + "/" + entry.name;
        if (entry.isFolder)
            walkFiles(path, rel, depth + 1, facts, visit);
        else if (entry.name != ".DS_Store")
            visit(path, rel, entry);
    }
}

std::optional<std::string> modelName(const std::string& relative) {
    auto parts = splitKeepingEmpties(relative, '/');
    if (parts.size() < 3) return std::nullopt;
    const auto& tag = parts[parts.size() - 1];
    const auto& model = parts[parts.size() - 2];
    const auto& ns = parts[parts.size() - 3];
    return ns == "library" ? model + ":" + tag : ns + "/" + model + ":" + tag;
}

}  // namespace

std::optional<std::string> ollamaLayerRole(std::string_view mediaType) {
    if (endsWith(mediaType, ".image.model")) return "weights";
    if (endsWith(mediaType, ".image.license")) return "licence";
    if (endsWith(mediaType, ".image.template")) return "template";
    if (endsWith(mediaType, ".image.params")) return "parameters";
    if (endsWith(mediaType, ".image.system")) return "system prompt";
    if (mediaType.find("container.image") != std::string_view::npos) return "config";
    return std::nullopt;
}

std::string OllamaBlobLabel::display() const {
    std::string text;
    if (models.size() == 1) text = models.front();
    if (models.size() > 1) text = models.front() + " +" + std::to_string(models.size() - 1) + " more";
    if (role && !role->empty()) text = text.empty() ? *role : text + " — " + *role;
    return text;
}

std::vector<OllamaBlob> ollamaBlobs(const std::string& root, const Facts& facts) {
    std::vector<OllamaBlob> blobs;
    const std::string dir = appendingPathComponent(root, "blobs");
    auto entries = facts.list(dir);
    if (!entries) return blobs;
    for (const auto& entry : *entries) {
        if (!entry.name.starts_with("sha256-") || endsWith(entry.name, "-partial")) continue;
        OllamaBlob blob{entry.name, 0, std::nullopt};
        if (auto st = facts.lstat(appendingPathComponent(dir, entry.name))) {
            blob.bytes = st->size;
            blob.accessed = dateOf(st->accessedSeconds);
        }
        blobs.push_back(std::move(blob));
    }
    std::sort(blobs.begin(), blobs.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return blobs;
}

std::map<std::string, OllamaBlobLabel> ollamaBlobLabels(const std::string& root, const Facts& facts) {
    Labels labels;
    const std::string blobsDir = appendingPathComponent(root, "blobs");
    const std::string resolvedBlobs = facts.resolve(blobsDir).value_or(blobsDir);

    // Hard links and copies of manifest blobs in manifests-v2 are told by identity or content;
    // the blobs are only looked at when such an entry turns up.
    std::optional<std::vector<std::pair<std::string, platform::FileFacts>>> blobFacts;
    auto blobsOnce = [&]() -> const std::vector<std::pair<std::string, platform::FileFacts>>& {
        if (!blobFacts) {
            blobFacts.emplace();
            for (const auto& blob : ollamaBlobs(root, facts))
                if (auto st = facts.lstat(appendingPathComponent(blobsDir, blob.name)))
                    blobFacts->emplace_back(blob.name, *st);
        }
        return *blobFacts;
    };

    std::function<void(const std::string&, const std::string&, int)> readManifest = [&](const std::string& path, const std::string& model, int nesting) {
        auto bytes = facts.read(path, kManifestLimit).bytes;
        if (!bytes) return;
        auto parsed = parseJSONStrictly(*bytes);
        if (!parsed.value || !parsed.value->is_object()) return;
        const auto& manifest = *parsed.value;
        if (auto config = manifest.find("config"); config != manifest.end()) labels.record(*config, model);
        if (auto layers = manifest.find("layers"); layers != manifest.end() && layers->is_array())
            for (const auto& layer : *layers) labels.record(layer, model);
        // A manifest list names its children, which are manifests stored as blobs.
        if (auto children = manifest.find("manifests"); children != manifest.end() && children->is_array() && nesting < 2)
            for (const auto& child : *children) {
                if (!child.is_object() || !child.contains("digest") || !child["digest"].is_string()) continue;
                std::string blob = child["digest"].get<std::string>();
                std::replace(blob.begin(), blob.end(), ':', '-');
                if (blob.find('/') != std::string::npos) continue;
                labels.add(blob, model, "manifest");
                readManifest(appendingPathComponent(blobsDir, blob), model, nesting + 1);
            }
    };

    for (const char* folder : {"manifests", "manifests-v2"}) {
        const bool v2 = std::string_view(folder) == "manifests-v2";
        walkFiles(appendingPathComponent(root, folder), "", 0, facts,
                  [&](const std::string& path, const std::string& relative, const FolderEntry& entry) {
                      auto model = modelName(relative);
                      if (!model) return;
                      std::string readable = path;
                      if (entry.isLink) {
                          auto target = facts.resolve(path);
                          if (!target) return;
                          if (deletingLastPathComponent(*target) == resolvedBlobs)
                              labels.add(lastPathComponent(*target), *model, "manifest");
                          readable = *target;
                      } else if (v2) {
                          auto st = facts.lstat(path);
                          if (!st || !st->isRegularFile()) return;
                          for (const auto& [blob, blobSt] : blobsOnce()) {
                              bool same = blobSt.device == st->device && blobSt.inode == st->inode;
                              if (!same && blobSt.size == st->size && st->size <= static_cast<std::int64_t>(kManifestLimit)) {
                                  auto mine = facts.read(path, kManifestLimit).bytes;
                                  auto theirs = facts.read(appendingPathComponent(blobsDir, blob), kManifestLimit).bytes;
                                  same = mine && theirs && *mine == *theirs;
                              }
                              if (same) labels.add(blob, *model, "manifest");
                          }
                      }
                      readManifest(readable, *model, 0);
                  });
    }
    for (auto& [blob, label] : labels.byBlob) std::sort(label.models.begin(), label.models.end());
    return labels.byBlob;
}

OllamaInventory ollamaModelInventory(const std::string& root, const Facts& facts) {
    const auto labels = ollamaBlobLabels(root, facts);
    std::map<std::string, OllamaModel> byName;
    OllamaInventory inventory;
    for (const auto& blob : ollamaBlobs(root, facts)) {
        auto label = labels.find(blob.name);
        if (label == labels.end() || label->second.models.empty()) {
            inventory.orphanBytes += blob.bytes;
            inventory.orphanCount += 1;
            continue;
        }
        for (const auto& name : label->second.models) {
            auto& model = byName[name];
            model.name = name;
            model.bytes += blob.bytes;
            model.blobCount += 1;
            if (label->second.models.size() == 1) model.exclusiveBytes += blob.bytes;
            if (blob.accessed && (!model.lastRead || *blob.accessed > *model.lastRead)) model.lastRead = blob.accessed;
        }
    }
    for (auto& [name, model] : byName) inventory.models.push_back(std::move(model));
    std::stable_sort(inventory.models.begin(), inventory.models.end(),
                     [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
    return inventory;
}

bool isOllamaBlobDirectory(std::string_view path) {
    return endsWith(path, "/.ollama/models/blobs") || path.find("/.ollama/models/blobs/") != std::string_view::npos;
}

std::optional<std::string> ollamaAppModelLocation(const std::string& db, const Facts& facts) {
    if (!facts.exists(db)) return std::nullopt;
    auto result = facts.run("/usr/bin/sqlite3", {"-readonly", db, "SELECT models FROM settings LIMIT 1;"}, 5, false,
                            ToolErrors::discarded);
    if (result.status != 0 || result.timedOut) return std::nullopt;
    // The runner drops empty lines, so an empty answer has no first line: empty text.
    return result.lines.empty() ? std::string() : trimWhitespace(result.lines.front());
}

}  // namespace orvane
