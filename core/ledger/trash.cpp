#include "core/ledger/trash.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "core/common/json_fields.hpp"
#include "core/common/ov_error.hpp"
#include "core/common/path.hpp"
#include "core/common/uuid.hpp"
#include "core/ledger/internal/test_host.hpp"
#include "core/ledger/ledger.hpp"
#include "core/platform/platform.hpp"

namespace orvane {

nlohmann::ordered_json JSONCoding<TrashReceipt>::encode(const TrashReceipt& receipt) {
    nlohmann::ordered_json out;
    out["original"] = receipt.original;
    out["inTrash"] = receipt.inTrash;
    return out;
}

std::optional<TrashReceipt> JSONCoding<TrashReceipt>::decode(const nlohmann::json& value) {
    JSONFields fields(value, "a Trash receipt");
    TrashReceipt receipt{fields.string("original"), fields.string("inTrash")};
    if (!fields) return std::nullopt;
    return receipt;
}

UndoTrashVerdict undoTrashVerdict(bool originalExists, bool trashCopyExists) {
    if (!trashCopyExists) return UndoTrashVerdict::skipGoneFromTrash;
    return originalExists ? UndoTrashVerdict::skipAlreadyBack : UndoTrashVerdict::restore;
}

}  // namespace orvane

namespace orvane::Ledger {
namespace {

bool entryExists(const std::string& path) { return platform::lstatFacts(path).has_value(); }

// Moves `path` into `trash` under its own name, or under a fresh one when that is taken. The
// rename never replaces anything, so a name taken between the check and the move is not lost.
std::string moveInto(const std::string& trash, const std::string& path) {
    std::error_code ignored;
    std::filesystem::create_directories(trash, ignored);
    const std::string name = lastPathComponent(path);
    std::string target = appendingPathComponent(trash, name);
    for (int attempt = 0; attempt < 4; ++attempt) {
        if (attempt > 0 || entryExists(target)) target = appendingPathComponent(trash, freshUUID() + "-" + name);
        int error = platform::renameNoReplace(AT_FDCWD, path, AT_FDCWD, target);
        if (error == EINVAL && !entryExists(target)) {
            // A file system without an exclusive rename: the check above is the best there is.
            error = ::rename(path.c_str(), target.c_str()) == 0 ? 0 : errno;
        }
        if (error == 0) return target;
        if (error != EEXIST) {
            throw OVError("Could not move " + path + " to the Trash: " + std::strerror(error) + ".");
        }
    }
    throw OVError("Could not move " + path + " to the Trash: no free name was found there.");
}

}  // namespace

std::string moveToTrash(const std::string& path) {
    if (auto folder = testDirOverride()) return moveInto(appendingPathComponent(*folder, "Trash"), path);
    if (ledger::internal::isInsideTestHost()) throw OVError("tests never use the real Trash");
    return moveInto(home(".Trash"), path);
}

}  // namespace orvane::Ledger
