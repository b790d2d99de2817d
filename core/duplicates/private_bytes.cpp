#include "core/duplicates/private_bytes.hpp"

#include <filesystem>

#include "core/common/format.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

std::optional<std::int64_t> privateBytesOfFile(const std::string& path) { return platform::privateSize(path); }

std::optional<std::int64_t> privateBytes(
    const std::string& path, std::int64_t maxFiles,
    const std::function<std::optional<std::int64_t>(const std::string&)>& ofFile) {
    namespace fs = std::filesystem;
    const auto facts = platform::lstatFacts(path);
    if (!facts) return std::nullopt;
    if (facts->isRegularFile()) return ofFile(path);
    if (!facts->isDirectory()) return 0;

    std::error_code error;
    fs::recursive_directory_iterator entries(path, fs::directory_options::skip_permission_denied, error);
    if (error) return std::nullopt;
    std::int64_t count = 0;
    std::int64_t total = 0;
    for (; entries != fs::recursive_directory_iterator(); entries.increment(error)) {
        if (error) return std::nullopt;  // the walk stopped short: a partial sum would be told as a fact
        const std::string entry = entries->path().string();
        const auto entryFacts = platform::lstatFacts(entry);
        if (!entryFacts || !entryFacts->isRegularFile()) continue;
        if (++count > maxFiles) return std::nullopt;
        const auto bytes = ofFile(entry);
        if (!bytes) return std::nullopt;
        total += *bytes;
    }
    return total;
}

std::optional<std::string> sharedStorageWarning(const std::vector<std::string>& paths, std::int64_t selectedBytes) {
    if (selectedBytes < 1) return std::nullopt;  // nothing to ask the disk about
    std::int64_t total = 0;
    for (const std::string& path : paths) {
        const auto bytes = privateBytes(path, kSharedStorageMaxFiles);
        if (!bytes) return std::nullopt;
        total += *bytes;
    }
    return sharedStorageWarningOf(total, selectedBytes);
}

std::optional<std::string> sharedStorageWarningOf(std::optional<std::int64_t> privateTotal, std::int64_t selectedBytes) {
    // Unknown is never told as a fact.
    if (selectedBytes < 1 || !privateTotal) return std::nullopt;
    if (*privateTotal >= selectedBytes * 9 / 10) return std::nullopt;
    const std::int64_t shared = selectedBytes - *privateTotal;
    if (shared < 100'000'000) return std::nullopt;
    if (*privateTotal > 999'999)
        return "Moving this frees only about " + fmtBytes(*privateTotal) + " on this Mac: " + fmtBytes(shared) +
               " of it shares storage with other copies that stay here (APFS clones), so that part isn't released. "
               "You can still move it to keep a copy on the drive.";
    return "Moving this frees almost nothing on this Mac: all " + fmtBytes(shared) +
           " of it shares storage with other copies that stay here (APFS clones), so it isn't released. "
           "You can still move it to keep a copy on the drive.";
}

}  // namespace orvane
