// File primitives for a root process acting on paths that others may change under it: each
// walks down from "/" holding a descriptor per step and refuses every symlink, then acts relative
// to that descriptor. A link planted after validation makes a primitive fail; it can never
// redirect one. No locks, no logging; every descriptor is close-on-exec and closed on every path.
#pragma once

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace orvane {

// The folders whose launch items may be switched on and off by renaming.
inline constexpr std::array<std::string_view, 2> launchItemFolders = {"/Library/LaunchAgents",
                                                                      "/Library/LaunchDaemons"};

// A descriptor of the folder at `path`, reached without following any link; -1 on any failure,
// including a ".." component. The system's own link folders (/tmp, /var, /etc) are taken in
// their real form.
int openDirectoryChainNoFollow(std::string_view path);

// Whether the open descriptor really is the folder at `path`, by the kernel's own path for it.
bool fdIsDirectory(int fd, std::string_view path);

// Removes the file, link (not what it points at) or tree at `path`. What went before a failure
// stays gone.
bool removeNoFollow(std::string_view path);
// Removes the folder `name` in `parentFD` and everything in it, down to 128 levels.
bool removeDirNoFollow(int parentFD, const std::string& name, int depth);

// Creates a symlink at `at` pointing to `to`, never replacing anything.
bool symlinkNoFollow(std::string_view at, std::string_view to);

// Moves `staging` to `destination`, replacing at most a symlink, and gives it to uid:gid. Both
// parents are reached without following links, and a link as `staging` itself moves as a link.
// Refuses a destination whose real folder is a persistence location.
bool moveIntoPlaceNoFollow(std::string_view staging, std::string_view destination, uid_t uid, gid_t gid);

// Renames a regular file within one of `folders` (exactly), never overwriting.
template <std::size_t N>
bool renameLaunchItemNoFollow(std::string_view from, std::string_view to,
                              const std::array<std::string_view, N>& folders);
bool renameLaunchItemNoFollow(std::string_view from, std::string_view to, const std::string_view* folders,
                              std::size_t folderCount);

// Gives `name` in `parentFD` (and, for a folder, everything in it) to uid:gid without following
// links. Files with more than one hard link keep their owner. True if every change succeeded.
bool chownEntryNoFollow(int parentFD, const std::string& name, uid_t uid, gid_t gid);

// Removes `name` in `parentFD` with everything in it, never entering another volume than
// `device` (EXDEV for such a folder, left untouched). All siblings are tried; 0 or the first errno.
int removeTreeNoFollow(int parentFD, const std::string& name, dev_t device);

template <std::size_t N>
bool renameLaunchItemNoFollow(std::string_view from, std::string_view to,
                              const std::array<std::string_view, N>& folders) {
    return renameLaunchItemNoFollow(from, to, folders.data(), folders.size());
}

namespace privileged::internal {
// A test seam: called just before a folder emptied by removeDirNoFollow is itself removed, so a
// test can add an entry at that moment. Null outside tests.
extern void (*beforeRemovingEmptiedFolder)(int parentFD, const char* name);
}  // namespace privileged::internal

}  // namespace orvane
