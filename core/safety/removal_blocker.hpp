// What stops even root from deleting an item (System Integrity Protection, the no-unlink flag),
// and the sentence for each way a system delete can end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// One item's st_flags as lstat gives them; of these only kFlagRestricted and kFlagNoUnlink count.
struct PathFlags {
    std::string path;
    std::uint32_t flags = 0;
    bool operator==(const PathFlags&) const = default;
};

struct RemovalBlocker {
    enum class Kind {
        systemIntegrityProtection,  // the item or something in it is restricted
        unlinkProhibited,           // the item or something in it has the no-unlink flag
    };
    Kind kind = Kind::systemIntegrityProtection;
    std::string path;  // the item that carries the flag

    static RemovalBlocker systemIntegrityProtection(std::string path) {
        return {Kind::systemIntegrityProtection, std::move(path)};
    }
    static RemovalBlocker unlinkProhibited(std::string path) { return {Kind::unlinkProhibited, std::move(path)}; }
    // The sentence for the user, naming the item by its last component.
    std::string reason() const;
    bool operator==(const RemovalBlocker&) const = default;
};
// "systemIntegrityProtection(PATH)" or "unlinkProhibited(PATH)".
std::string describe(const RemovalBlocker& blocker);
// "systemIntegrityProtection" or "unlinkProhibited".
std::string_view rawValue(RemovalBlocker::Kind kind);

// On facts already gathered: a restriction anywhere outranks a no-unlink flag, and the item's own
// no-unlink flag outranks a descendant's.
std::optional<RemovalBlocker> removalBlocker(const PathFlags& item, const std::vector<PathFlags>& descendants);

// Gathers the flags breadth-first through `facts` (lstat and listings), links not followed, within
// `maxDepth` levels and about `maxEntries` names, and stops at the first restricted descendant. A
// miss means only that nothing was found in the budget.
std::optional<RemovalBlocker> removalBlocker(const std::string& path, int maxDepth, int maxEntries,
                                             const Facts& facts = Facts::real());

// How a delete that asked for the administrator's password ended.
struct SystemDeleteResult {
    struct Deleted {
        std::string path;
        bool operator==(const Deleted&) const = default;
    };
    struct Blocked {
        RemovalBlocker blocker;
        bool operator==(const Blocked&) const = default;
    };
    struct Refused {
        std::string reason;
        bool operator==(const Refused&) const = default;
    };
    struct Failed {
        std::string toolOutput;
        bool operator==(const Failed&) const = default;
    };
    struct Cancelled {
        bool operator==(const Cancelled&) const = default;
    };
    std::variant<Deleted, Blocked, Refused, Failed, Cancelled> value;

    bool succeeded() const { return std::holds_alternative<Deleted>(value); }
    // The sentence for the user; the tool's output is cut to its first 200 characters.
    std::string message() const;
    bool operator==(const SystemDeleteResult&) const = default;
};

}  // namespace orvane
