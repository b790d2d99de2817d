// Deleting an app bundle that lies in a Trash, without following any link on the way, and
// saying in a sentence why not when it cannot.
#pragma once

#include <sys/types.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace orvane {

struct TrashAppDeleteOutcome {
    std::string name;
    bool deleted = false;
    bool needsAdmin = false;  // the system refused this user; an administrator might succeed
    std::optional<std::string> reason;
    bool operator==(const TrashAppDeleteOutcome&) const = default;
};

// {"name":...,"deleted":...,"needsAdmin":...,"reason":...}; "reason" left out when there is none.
nlohmann::ordered_json toJSON(const TrashAppDeleteOutcome& outcome);

// Removes the bundle `name` from `trashDir`, which must be a real folder owned by `trashOwner`.
// Never leaves the Trash's volume; every descriptor opened is closed.
TrashAppDeleteOutcome deleteTrashedApp(const std::string& name, const std::string& trashDir,
                                       std::uint32_t trashOwner);

namespace apps::internal {
// A test seam for the one call that removes the bundle: as root a temp folder cannot make it fail
// with EACCES, which a user on a Mac meets. The real removal outside tests.
extern int (*removeBundle)(int trashFD, const std::string& name, dev_t volume);
}  // namespace apps::internal

}  // namespace orvane
