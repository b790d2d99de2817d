// An Ollama store laid out from the real manifests of tests/data/ollama, its blobs sparse files of
// the sizes the manifests give: llama3 at four components, gemma at three, a tool of another
// namespace that shares llama3's licence, a two-component stray, an orphan and a "-partial".
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "core/common/json_files.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane::testing {

inline std::string blobFile(std::string digest) {
    std::replace(digest.begin(), digest.end(), ':', '-');
    return digest;
}

inline void sparseFile(const std::string& path, std::int64_t size) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream{path, std::ios::binary};
    std::filesystem::resize_file(path, static_cast<std::uintmax_t>(size));
}

inline const std::string kLlamaLicence = "sha256-4fa551d4f938f68b8c1e6afa9d28befb70e3f33f75d0753248d530364aeea40f";
inline const std::string kOrphan = "sha256-" + std::string(64, 'e');

// Lays the store out under `root`.
inline void makeOllamaStore(const std::string& root) {
    const std::string dir = std::string(TEST_DATA_DIR) + "/ollama/";
    const auto llama = readFile(dir + "manifest-library-llama3-latest-ollamafind.json").value();
    const auto gemma = readFile(dir + "manifest-library-gemma-2b-ollama0.1.48-zoomcamp.json").value();
    writeFile(root + "/manifests/registry.ollama.ai/library/llama3/latest", llama);
    writeFile(root + "/manifests/library/gemma/2b", gemma);
    for (const auto& text : {llama, gemma}) {
        const auto manifest = nlohmann::json::parse(text);
        sparseFile(root + "/blobs/" + blobFile(manifest["config"]["digest"]), manifest["config"]["size"]);
        for (const auto& layer : manifest["layers"])
            sparseFile(root + "/blobs/" + blobFile(layer["digest"]), layer["size"]);
    }
    writeFile(root + "/manifests/registry.ollama.ai/me/tool/1",
              R"({"layers":[{"mediaType":"application/vnd.ollama.image.license","digest":"sha256:)" +
                  kLlamaLicence.substr(7) + R"(","size":12403}]})");
    // Too short to be a name: what it lists stays an orphan.
    writeFile(root + "/manifests/stray/1", R"({"layers":[{"digest":"sha256:)" + kOrphan.substr(7) + R"("}]})");
    sparseFile(root + "/blobs/" + kOrphan, 1'000'000);
    sparseFile(root + "/blobs/sha256-abc-partial", 5'000'000);
}

}  // namespace orvane::testing
