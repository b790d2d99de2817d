// Local AI models wherever their stores keep them: each named in its store's words, measured,
// dated by its last read, with what a new download would cost.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

inline constexpr std::string_view looseModelStore = "Downloaded model (no app)";
// Lowercased extensions of model files found by `find` in the tools' folders.
inline constexpr std::string_view modelExts[] = {"safetensors", "gguf", "ckpt", "pt", "pth", "bin", "onnx"};

struct LibraryModel {
    std::string name;
    std::string store;
    std::string format;
    std::int64_t bytes = 0;
    std::int64_t ownBytes = 0;  // what removing it alone frees; below `bytes` only for shared Ollama layers
    std::optional<TimePoint> lastRead;
    std::optional<std::string> movablePath;  // none for Ollama, whose models are no folders of their own
    std::string id() const { return store + "|" + name; }
    bool operator==(const LibraryModel&) const = default;
};

struct StoreEntry {
    std::string name;
    std::string path;
    std::int64_t bytes = 0;
    std::optional<TimePoint> lastUsed;
    bool operator==(const StoreEntry&) const = default;
};

// Every model under `home`, largest first. Blocks for as long as its tools run (du up to 120
// seconds, find up to 30 per folder); what can't be read is left out, never reported.
std::vector<LibraryModel> scanModelLibrary(const std::string& home, const Facts& facts);

// The newest content access date of `under` or of its first `limit` regular files.
std::optional<TimePoint> newestRead(const std::string& under, std::int64_t limit, const Facts& facts);

// "about 13 min to download again at 100 Mbit/s".
std::string redownloadEstimate(std::int64_t bytes, double megabitsPerSecond);

// Whole days since the model was last read, never below 0; none without a date.
std::optional<std::int64_t> daysUnused(const LibraryModel& model, TimePoint now);

// The entries of a store's folder (a hub's models-- folders when it has them), largest first.
std::vector<StoreEntry> storeEntries(const std::string& root, std::size_t limit, const Facts& facts);

// The first `limit` paths measured by du, four at a time; those measured above 0, largest first.
std::vector<StoreEntry> measurePaths(const std::vector<std::string>& paths, std::size_t limit, const Facts& facts);

}  // namespace orvane
