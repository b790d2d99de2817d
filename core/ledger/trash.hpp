// The Trash as the ledger uses it: putting things in it, and deciding whether to take one back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/ledger/versioned_payload.hpp"

namespace orvane {

// One thing put in the Trash, so that it can be taken back.
struct TrashReceipt {
    std::string original;  // where it was
    std::string inTrash;   // where it is now
    bool operator==(const TrashReceipt&) const = default;
};

// {"original","inTrash"}, both required.
template <>
struct JSONCoding<TrashReceipt> {
    static nlohmann::ordered_json encode(const TrashReceipt& receipt);
    static std::optional<TrashReceipt> decode(const nlohmann::json& value);
};

enum class UndoTrashVerdict {
    restore,
    skipAlreadyBack,    // something stands at the original place again
    skipGoneFromTrash,  // the Trash no longer holds it
};

UndoTrashVerdict undoTrashVerdict(bool originalExists, bool trashCopyExists);

}  // namespace orvane

namespace orvane::Ledger {

// Moves `path` to the Trash and returns where it went. With the test override set, the Trash is
// the folder "Trash" inside the override; a name already taken there gets a fresh UUID and a
// hyphen in front. Otherwise it is the user's Trash, never from inside a test program: there it
// refuses with "tests never use the real Trash". Throws OVError on any failure; nothing is
// replaced, and an item on another file system than its Trash stays where it is.
std::string moveToTrash(const std::string& path);

}  // namespace orvane::Ledger
