#include "core/common/facts.hpp"

#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <limits>
#include <memory>

#include "core/common/path.hpp"

namespace orvane {

const Facts& Facts::real() {
    static const Facts facts = [] {
        Facts f;
        f.run = runToolSplit;
        f.exists = fileExists;
        f.list = [](const std::string& path) { return listFolder(path); };
        f.read = [](const std::string& path, std::uint64_t maxBytes) { return readFile(path, maxBytes); };
        f.readHead = readFileHead;
        f.resolve = [](const std::string& path) -> std::optional<std::string> {
            std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
            if (!resolved) return std::nullopt;
            return std::string(resolved.get());
        };
        f.lstat = platform::lstatFacts;
        f.extendedAttribute = platform::extendedAttribute;
        f.localPath = [](const std::string& path) { return std::optional<std::string>(path); };
        f.home = [](std::string_view component) { return orvane::home(component); };
        f.mount = platform::mountOf;
        f.volumes = platform::browsableVolumes;
        f.volume = [](const std::string& path) {
            VolumeFigures figures;
            struct statvfs vfs{};
            if (::statvfs(path.c_str(), &vfs) != 0) return figures;
            const auto unit = static_cast<std::int64_t>(vfs.f_frsize);
            figures.total = static_cast<std::int64_t>(vfs.f_blocks) * unit;
            figures.available = static_cast<std::int64_t>(vfs.f_bavail) * unit;
            // statvfs knows no purgeable space; on a Mac the true figure needs the URL resource
            // values, which this layer does not reach, so the two are equal there too.
            figures.availableForImportantUsage = figures.available;
            return figures;
        };
        f.walkable = platform::walkablePath;
        f.isAdministrator = platform::isAdministrator;
        f.now = [] { return Clock::now(); };
        f.processPath = platform::processPath;
        const char* tmp = std::getenv("TMPDIR");
        f.temporaryFolder = tmp && *tmp == '/' ? tmp : "/tmp";
        f.lsofTool = kHostLsofTool;
        f.uid = static_cast<std::uint32_t>(::getuid());
        f.rules = kHostRuleSet;
        f.namesAreNormalized = platform::namesAreNormalized();
        return f;
    }();
    return facts;
}

std::int32_t runStatusThrough(const Facts& facts, const std::string& tool, const std::vector<std::string>& args) {
    return facts.run(tool, args, std::numeric_limits<double>::infinity(), false, ToolErrors::discarded).status;
}

}  // namespace orvane
