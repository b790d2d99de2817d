// The entries of a folder as walks need them: names, and whether each is a real folder or a link.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

struct FolderEntry {
    std::string name;
    bool isFolder = false;  // a real folder, not a link to one
    bool isLink = false;    // a symbolic link, whatever it points at
    bool operator==(const FolderEntry&) const = default;
};

// The entries of an open folder, "." and ".." left out; the descriptor is consumed. Where the file
// system gives no type, one fstatat without following links tells. Unreadable: no entries.
std::vector<FolderEntry> readFolderEntries(int fd);
// The same by path (a link given as the folder itself is followed, as a listing does).
std::vector<FolderEntry> readFolderEntries(const std::string& path);
// The same, telling a folder that cannot be listed (refused, gone, not a folder) from an empty one.
std::optional<std::vector<FolderEntry>> listFolder(const std::string& path);

struct Facts;
// The entries of a folder, listed through `facts`, whose names pass `keep`, by name; a folder that
// cannot be listed has none.
std::vector<FolderEntry> sortedEntries(const std::string& folder, const Facts& facts,
                                       const std::function<bool(std::string_view)>& keep);

}  // namespace orvane
