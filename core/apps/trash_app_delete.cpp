#include "core/apps/trash_app_delete.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/privileged/no_follow.hpp"
#include "core/privileged/validation.hpp"

namespace orvane {

namespace apps::internal {
int (*removeBundle)(int trashFD, const std::string& name, dev_t volume) = removeTreeNoFollow;
}  // namespace apps::internal

nlohmann::ordered_json toJSON(const TrashAppDeleteOutcome& outcome) {
    nlohmann::ordered_json out;
    out["name"] = outcome.name;
    out["deleted"] = outcome.deleted;
    out["needsAdmin"] = outcome.needsAdmin;
    if (outcome.reason) out["reason"] = *outcome.reason;
    return out;
}

TrashAppDeleteOutcome deleteTrashedApp(const std::string& name, const std::string& trashDir,
                                       std::uint32_t trashOwner) {
    TrashAppDeleteOutcome outcome{name, false, false, std::nullopt};
    if (!isTrashedAppName(name)) {
        outcome.reason = "not an app in the Trash";
        return outcome;
    }
    int fd = openDirectoryChainNoFollow(trashDir);
    if (fd < 0) {
        outcome.reason = "the Trash couldn't be opened";
        return outcome;
    }
    struct stat trash{};
    if (::fstat(fd, &trash) != 0 || !S_ISDIR(trash.st_mode) || trash.st_uid != trashOwner) {
        ::close(fd);
        outcome.reason = "the Trash isn't a normal folder";
        return outcome;
    }
    struct stat entry{};
    if (::fstatat(fd, name.c_str(), &entry, AT_SYMLINK_NOFOLLOW) != 0) {
        ::close(fd);
        outcome.reason = "it's no longer in the Trash";
        return outcome;
    }
    if (!S_ISDIR(entry.st_mode)) {
        ::close(fd);
        outcome.reason = "not an app bundle";
        return outcome;
    }
    const int result = apps::internal::removeBundle(fd, name, trash.st_dev);
    ::close(fd);
    if (result == 0) {
        outcome.deleted = true;
    } else if (result == EACCES) {
        outcome.needsAdmin = true;
        outcome.reason = std::strerror(result);
    } else if (result == EPERM) {
        outcome.needsAdmin = true;
        outcome.reason = ::getuid() != 0
                             ? std::string("macOS refused (it may need Full Disk Access, or the app belongs to the system)")
                             : std::string(std::strerror(result));
    } else {
        outcome.reason = std::strerror(result);
    }
    return outcome;
}

}  // namespace orvane
