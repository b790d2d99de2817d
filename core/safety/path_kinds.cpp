#include "core/safety/path_kinds.hpp"

#include <algorithm>

#include "core/common/path.hpp"
#include "core/platform/platform.hpp"

namespace orvane {
namespace {

bool atOrUnder(std::string_view path, std::string_view dir) {
    return path == dir || (path.size() > dir.size() && path.starts_with(dir) && path[dir.size()] == '/');
}

}  // namespace

const std::string& userTempRoot() {
    static const std::string root = platform::userTempRoot();
    return root;
}

bool isRelocatableSystemContent(std::string_view path) {
    return std::any_of(relocatableSystemContent.begin(), relocatableSystemContent.end(),
                       [&](std::string_view entry) { return atOrUnder(path, entry); });
}

bool isProtectedSystemPath(std::string_view path) {
    if (!path.starts_with('/') || isRelocatableSystemContent(path)) return false;
    if (atOrUnder(path, home())) return false;
    if (path.starts_with("/Volumes/")) return false;
    if (atOrUnder(path, userTempRoot())) return false;
    return true;
}

bool isInTrash(std::string_view path) { return path.find("/.Trash") != std::string_view::npos; }

bool isAppInternalPath(std::string_view path) {
    const std::string homeDir = home();
    for (std::string_view folder :
         {"/Library/Application Support/", "/Library/Containers/", "/Library/Group Containers/"}) {
        if (path.starts_with(homeDir + std::string(folder))) return true;
    }
    return false;
}

bool isToolInternalPath(std::string_view path) {
    if (path.find("/.Trash/") != std::string_view::npos || path.find("/.Trashes/") != std::string_view::npos)
        return false;
    if (isAppInternalPath(path)) return true;
    return path.starts_with(home() + "/.");
}

bool isStandardHomeContainer(std::string_view path) {
    const std::string homeDir = home();
    return std::any_of(standardHomeContainers.begin(), standardHomeContainers.end(),
                       [&](std::string_view name) { return path == appendingPathComponent(homeDir, name); });
}

bool leadsToUserContent(std::string_view path) {
    const std::string homeDir = home();
    if (path == homeDir) return true;
    if (std::string_view(homeDir + "/").starts_with(path)) return true;
    return path == "/Applications" || path == appendingPathComponent(homeDir, "Applications");
}

}  // namespace orvane
