#include "core/ai/model_library.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <mutex>
#include <set>
#include <thread>

#include "core/ai/loose_models.hpp"
#include "core/ai/model_store_places.hpp"
#include "core/ai/ollama_store.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane {

namespace {

constexpr std::int64_t kNewestReadLimit = 400;
constexpr std::int64_t kLooseFileMinimum = 50'000'000;
constexpr double kBatchTimeout = 120;
constexpr double kFindTimeout = 30;

std::optional<TimePoint> dateOf(std::int64_t seconds) { return Clock::from_time_t(static_cast<std::time_t>(seconds)); }

std::vector<FolderEntry> visibleEntries(const std::string& folder, const Facts& facts) {
    auto entries = facts.list(folder).value_or(std::vector<FolderEntry>{});
    std::erase_if(entries, [](const FolderEntry& e) { return e.name.starts_with("."); });
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return entries;
}

bool mentionsMLX(std::string_view name) { return lowercased(name).find("mlx") != std::string::npos; }

std::string replacedAll(std::string text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

struct Candidate {
    std::string path;
    std::string name;
    std::string store;
    std::string format;
};

// A single file is sized by its blocks, so that a sparse or compressed file shows what it holds.
LibraryModel fileModel(const std::string& path, std::string store, std::string format, const platform::FileFacts& st,
                       const Facts& facts) {
    return {lastPathComponent(path), std::move(store), std::move(format), st.allocatedBytes, st.allocatedBytes,
            newestRead(path, kNewestReadLimit, facts), path};
}

bool isModelExt(std::string_view ext) {
    return std::find(std::begin(modelExts), std::end(modelExts), ext) != std::end(modelExts);
}

void findToolModels(const std::string& home, const Facts& facts, std::vector<LibraryModel>& models) {
    std::vector<std::string> roots;
    if (auto base = comfyUIBasePath(home, facts)) roots.push_back(appendingPathComponent(*base, "models"));
    for (const char* folder : {"ComfyUI/models", "Documents/ComfyUI/models", "stable-diffusion-webui/models",
                               "Documents/stable-diffusion-webui/models", "Library/Application Support/nomic.ai/GPT4All"})
        roots.push_back(appendingPathComponent(home, folder));
    std::sort(roots.begin(), roots.end());
    roots.erase(std::unique(roots.begin(), roots.end()), roots.end());
    for (const auto& root : roots) {
        if (!facts.exists(root)) continue;
        auto found = facts.run("/usr/bin/find", {root, "-maxdepth", "3", "-type", "f", "-size", "+50M", "-print0"},
                               kFindTimeout, true, ToolErrors::discarded);
        for (const auto& path : found.lines) {
            const std::string ext = lowercased(pathExtension(path));
            if (!isModelExt(ext)) continue;
            auto st = facts.lstat(path);
            if (!st) continue;
            const char* store = path.find("GPT4All") != std::string::npos            ? "GPT4All"
                                : path.find("stable-diffusion") != std::string::npos ? "Stable Diffusion"
                                                                                     : "ComfyUI";
            models.push_back(fileModel(path, store, ext, *st, facts));
        }
    }
}

}  // namespace

std::vector<LibraryModel> scanModelLibrary(const std::string& home, const Facts& facts) {
    std::vector<LibraryModel> models;

    const std::string ollama = appendingPathComponent(home, ".ollama/models");
    if (facts.exists(ollama))
        for (auto& model : ollamaModelInventory(ollama, facts).models)
            models.push_back({model.name, "Ollama", "GGUF", model.bytes, model.exclusiveBytes, model.lastRead, std::nullopt});

    std::vector<Candidate> candidates;
    const std::string hub = appendingPathComponent(home, ".cache/huggingface/hub");
    for (const auto& entry : facts.list(hub).value_or(std::vector<FolderEntry>{})) {
        if (!entry.name.starts_with("models--")) continue;
        const std::string name = replacedAll(entry.name.substr(8), "--", "/");
        candidates.push_back({appendingPathComponent(hub, entry.name), name, "Hugging Face",
                              mentionsMLX(name) ? "MLX" : "safetensors"});
    }

    for (const auto& root : lmStudioModelRoots(home, facts))
        for (const auto& publisher : visibleEntries(root, facts))
            for (const auto& entry : visibleEntries(appendingPathComponent(root, publisher.name), facts))
                candidates.push_back({appendingPathComponent(appendingPathComponent(root, publisher.name), entry.name),
                                      publisher.name + "/" + entry.name, "LM Studio",
                                      mentionsMLX(entry.name) ? "MLX" : "GGUF"});

    for (const char* folder : {"Library/Application Support/Jan/data/models", "jan/models"}) {
        const std::string root = appendingPathComponent(home, folder);
        for (const auto& entry : visibleEntries(root, facts))
            candidates.push_back({appendingPathComponent(root, entry.name), entry.name, "Jan", "GGUF"});
    }

    for (auto& folder : looseModelFolders(home, facts))
        candidates.push_back({folder.path, folder.name, std::string(looseModelStore), folder.format});

    std::vector<std::string> paths;
    for (const auto& candidate : candidates) paths.push_back(candidate.path);
    // du walks the candidates in its own process while this one reads their dates: two walks of
    // the same folders side by side rather than one after the other.
    auto measuring = std::async(std::launch::async, [&] {
        return paths.empty() ? std::map<std::string, std::int64_t>{} : duBatchMeasure(paths, kBatchTimeout, facts).sizes;
    });
    std::vector<std::optional<TimePoint>> reads;
    for (const auto& candidate : candidates) reads.push_back(newestRead(candidate.path, kNewestReadLimit, facts));
    const auto sizes = measuring.get();
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        auto& candidate = candidates[i];
        auto size = sizes.find(candidate.path);
        if (size == sizes.end() || size->second < 1) continue;
        models.push_back({std::move(candidate.name), std::move(candidate.store), std::move(candidate.format),
                          size->second, size->second, reads[i], candidate.path});
    }

    findToolModels(home, facts, models);

    for (const auto& root : looseModelRoots(home, facts))
        for (const auto& entry : facts.list(root).value_or(std::vector<FolderEntry>{})) {
            if (!lowercased(entry.name).ends_with(".gguf")) continue;
            const std::string path = appendingPathComponent(root, entry.name);
            auto st = facts.lstat(path);
            if (!st || !st->isRegularFile() || st->allocatedBytes < kLooseFileMinimum) continue;
            models.push_back(fileModel(path, std::string(looseModelStore), "GGUF", *st, facts));
        }

    std::stable_sort(models.begin(), models.end(), [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
    return models;
}

std::optional<TimePoint> newestRead(const std::string& under, std::int64_t limit, const Facts& facts) {
    auto top = facts.lstat(under);
    if (!top) return std::nullopt;
    if (!top->isDirectory()) return dateOf(top->accessedSeconds);
    std::optional<TimePoint> newest;
    std::int64_t looked = 0;
    std::vector<std::string> pending{under};
    while (!pending.empty() && looked < limit) {
        const std::string dir = std::move(pending.back());
        pending.pop_back();
        auto entries = facts.list(dir);
        if (!entries) continue;
        std::sort(entries->begin(), entries->end(), [](const auto& a, const auto& b) { return a.name > b.name; });
        for (const auto& entry : *entries) {
            const std::string path = appendingPathComponent(dir, entry.name);
            if (entry.isFolder) {
                pending.push_back(path);
                continue;
            }
            if (entry.isLink) continue;
            auto st = facts.lstat(path);
            if (!st || !st->isRegularFile()) continue;
            auto date = dateOf(st->accessedSeconds);
            if (!newest || *date > *newest) newest = date;
            if (++looked >= limit) break;
        }
    }
    return newest;
}

std::string redownloadEstimate(std::int64_t bytes, double megabitsPerSecond) {
    const double seconds =
        static_cast<double>(std::max<std::int64_t>(bytes, 0)) * 8 / (megabitsPerSecond * 1'000'000);
    std::string time;
    if (seconds < 90)
        time = "about a minute";
    else if (seconds < 3600)
        time = fmt::format("about {} min", static_cast<std::int64_t>(std::round(seconds / 60)));
    else
        time = fmt::format("about {:.1f} hours", seconds / 3600);
    return time + " to download again at " + std::to_string(static_cast<std::int64_t>(megabitsPerSecond)) + " Mbit/s";
}

std::optional<std::int64_t> daysUnused(const LibraryModel& model, TimePoint now) {
    if (!model.lastRead) return std::nullopt;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - *model.lastRead).count();
    return std::max<std::int64_t>(seconds / 86'400, 0);
}

std::vector<StoreEntry> storeEntries(const std::string& root, std::size_t limit, const Facts& facts) {
    std::string folder = root;
    for (const char* inner : {"hub", "models"}) {
        const std::string candidate = appendingPathComponent(root, inner);
        if (!isDirectory(candidate, facts)) continue;
        auto entries = facts.list(candidate).value_or(std::vector<FolderEntry>{});
        if (std::any_of(entries.begin(), entries.end(), [](const auto& e) { return e.name.starts_with("models--"); })) {
            folder = candidate;
            break;
        }
    }
    std::vector<StoreEntry> found;
    for (const auto& entry : visibleEntries(folder, facts)) {
        if (entry.isLink) continue;
        const std::string path = appendingPathComponent(folder, entry.name);
        const std::int64_t bytes = duSize(path, facts);
        if (bytes <= 0) continue;
        auto st = facts.lstat(path);
        found.push_back({entry.name.starts_with("models--") ? replacedAll(entry.name.substr(8), "--", "/") : entry.name,
                         path, bytes, st ? dateOf(st->modifiedSeconds) : std::nullopt});
    }
    std::stable_sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
    if (found.size() > limit) found.resize(limit);
    return found;
}

std::vector<StoreEntry> measurePaths(const std::vector<std::string>& paths, std::size_t limit, const Facts& facts) {
    const std::size_t count = std::min(limit, paths.size());
    std::vector<StoreEntry> table(count);
    std::mutex lock;
    std::atomic<std::size_t> next{0};
    auto work = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < count;) {
            const std::int64_t bytes = duSize(paths[i], facts);
            auto st = facts.lstat(paths[i]);
            StoreEntry entry{lastPathComponent(paths[i]), paths[i], bytes,
                             st ? dateOf(st->modifiedSeconds) : std::nullopt};
            std::lock_guard guard(lock);
            table[i] = std::move(entry);
        }
    };
    {
        std::vector<std::jthread> workers;
        for (std::size_t n = 0; n < std::min<std::size_t>(4, count); ++n) workers.emplace_back(work);
    }
    std::erase_if(table, [](const StoreEntry& e) { return e.bytes <= 0; });
    std::stable_sort(table.begin(), table.end(), [](const auto& a, const auto& b) { return a.bytes > b.bytes; });
    return table;
}

}  // namespace orvane
