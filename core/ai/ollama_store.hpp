// Ollama's content-addressed store: which model each blob belongs to, what each model occupies
// and would free, and the blobs no model uses any more.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

struct OllamaModel {
    std::string name;
    std::int64_t bytes = 0;           // all its blobs, shared ones included
    std::int64_t exclusiveBytes = 0;  // blobs no other model uses: what removing it frees
    std::int64_t blobCount = 0;
    std::optional<TimePoint> lastRead;
    bool operator==(const OllamaModel&) const = default;
};

struct OllamaBlobLabel {
    std::vector<std::string> models;  // ascending
    std::optional<std::string> role;
    // "a", "a +1 more", "weights", "a +1 more — weights"; empty with neither models nor role.
    std::string display() const;
    bool operator==(const OllamaBlobLabel&) const = default;
};

struct OllamaInventory {
    std::vector<OllamaModel> models;  // largest first
    std::int64_t orphanBytes = 0;
    std::int64_t orphanCount = 0;
    bool operator==(const OllamaInventory&) const = default;
};

// One finished blob of blobs/: a name "sha256-…", its size (0 when unreadable) and its content
// access date.
struct OllamaBlob {
    std::string name;
    std::int64_t bytes = 0;
    std::optional<TimePoint> accessed;
    bool operator==(const OllamaBlob&) const = default;
};

// The blobs that the manifests of `root` (the folder holding "manifests" and "blobs") name, by
// file name. Both manifests/ and the newer manifests-v2/ are read; an entry of either that is a
// link into blobs/, a hard link to a blob or a copy of one marks that blob as the model's
// manifest, so a blob in use is never left unnamed.
std::map<std::string, OllamaBlobLabel> ollamaBlobLabels(const std::string& root, const Facts& facts);

// The finished blobs of root/blobs by name: a "-partial" download is not a blob yet.
std::vector<OllamaBlob> ollamaBlobs(const std::string& root, const Facts& facts);

OllamaInventory ollamaModelInventory(const std::string& root, const Facts& facts);

bool isOllamaBlobDirectory(std::string_view path);

// The models folder the Ollama desktop app keeps in its database, read with the sqlite3 tool: none
// when the database is missing or the tool fails; empty text is the caller's to interpret.
std::optional<std::string> ollamaAppModelLocation(const std::string& db, const Facts& facts);

// The role a layer's media type gives its blob, if any.
std::optional<std::string> ollamaLayerRole(std::string_view mediaType);

}  // namespace orvane
