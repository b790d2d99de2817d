#include "core/update/support_folder.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>

#include "core/common/path.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

std::string ProductName::supportDir(std::string_view home) {
    return appendingPathComponent(home, "Library/Application Support/Velloran Orvane");
}

std::string ProductName::legacySupportDir(std::string_view home) {
    return appendingPathComponent(home, "Library/Application Support/Orvane");
}

std::optional<std::string> renameFolderWithoutReplacing(const std::string& from, const std::string& to) {
    const int error = platform::renameNoReplace(AT_FDCWD, from, AT_FDCWD, to);
    if (error == 0) return std::nullopt;
    return "“" + lastPathComponent(from) + "” couldn't be moved to “" + lastPathComponent(to) + "”: " +
           std::strerror(error) + ".";
}

SupportFolderMigration migrateSupportFolder(const std::string& from, const std::string& to, const FolderMover& move) {
    struct stat st{};
    if (::lstat(from.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return migration::NothingToMove{};
    if (::lstat(to.c_str(), &st) == 0) return migration::BothExist{};
    const auto failure = move(from, to);
    if (!failure) return migration::Moved{};
    if (::lstat(from.c_str(), &st) != 0 && ::lstat(to.c_str(), &st) == 0) return migration::Moved{};
    return migration::Failed{*failure};
}

}  // namespace orvane
