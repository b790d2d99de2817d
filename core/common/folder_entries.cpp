#include "core/common/folder_entries.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "core/common/facts.hpp"

namespace orvane {
namespace {

std::vector<FolderEntry> drain(DIR* dir) {
    std::vector<FolderEntry> entries;
    if (!dir) return entries;
    while (const dirent* e = ::readdir(dir)) {
        const std::string_view name = e->d_name;
        if (name == "." || name == "..") continue;
        bool folder = e->d_type == DT_DIR;
        bool link = e->d_type == DT_LNK;
        if (e->d_type == DT_UNKNOWN) {
            struct stat st{};
            const bool known = ::fstatat(::dirfd(dir), e->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0;
            folder = known && S_ISDIR(st.st_mode);
            link = known && S_ISLNK(st.st_mode);
        }
        entries.push_back({std::string(name), folder, link});
    }
    ::closedir(dir);
    return entries;
}

}  // namespace

std::vector<FolderEntry> readFolderEntries(int fd) {
    DIR* dir = ::fdopendir(fd);
    if (!dir) ::close(fd);
    return drain(dir);
}

std::vector<FolderEntry> readFolderEntries(const std::string& path) { return drain(::opendir(path.c_str())); }

std::optional<std::vector<FolderEntry>> listFolder(const std::string& path) {
    DIR* dir = ::opendir(path.c_str());
    if (!dir) return std::nullopt;
    return drain(dir);
}

std::vector<FolderEntry> sortedEntries(const std::string& folder, const Facts& facts,
                                       const std::function<bool(std::string_view)>& keep) {
    std::vector<FolderEntry> kept;
    if (auto entries = facts.list(folder))
        for (auto& entry : *entries)
            if (keep(entry.name)) kept.push_back(std::move(entry));
    std::sort(kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return kept;
}

}  // namespace orvane
