// The app's names, and the one-time move of its support folder from its former name.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace orvane {

namespace ProductName {
inline constexpr std::string_view display = "Velloran Orvane";
// The app's former name.
inline constexpr std::string_view legacy = "Orvane";
std::string supportDir(std::string_view home);
std::string legacySupportDir(std::string_view home);
}  // namespace ProductName

namespace migration {
struct Failed {
    std::string reason;
    bool operator==(const Failed&) const = default;
};
struct NothingToMove {
    bool operator==(const NothingToMove&) const = default;
};
struct Moved {
    bool operator==(const Moved&) const = default;
};
// Both folders exist: neither is moved or merged, since either may hold what the user needs.
struct BothExist {
    bool operator==(const BothExist&) const = default;
};
}  // namespace migration
using SupportFolderMigration = std::variant<migration::Failed, migration::NothingToMove, migration::Moved, migration::BothExist>;

// Moves `from` to `to`; none on success, else the error's sentence.
using FolderMover = std::function<std::optional<std::string>(const std::string& from, const std::string& to)>;

// The move by one rename that never replaces what stands at `to`.
std::optional<std::string> renameFolderWithoutReplacing(const std::string& from, const std::string& to);

// A folder at `from` (a link to one is not one) moves to `to` unless something is there already.
// When the move fails because another launch made it first, that counts as moved.
SupportFolderMigration migrateSupportFolder(const std::string& from, const std::string& to,
                                            const FolderMover& move = renameFolderWithoutReplacing);

}  // namespace orvane
