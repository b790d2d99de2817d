// What crosses between the front end and the root daemon: the closed set of operations, their
// JSON form, the refusals, and the constants both sides must agree on.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "core/common/raw_value.hpp"

namespace orvane {

// The cases of a privileged operation, one struct each, in the protocol's declared order.
namespace op {
struct RemovePath {
    std::string path;  // "_0" on the wire
    bool operator==(const RemovePath&) const = default;
};
struct SwapToSymlink {
    std::string original;
    std::string target;
    bool operator==(const SwapToSymlink&) const = default;
};
struct RestoreFromStaging {
    std::string staging;
    std::string destination;
    bool operator==(const RestoreFromStaging&) const = default;
};
struct DeleteSnapshots {
    std::vector<std::string> dates;  // "_0" on the wire
    bool operator==(const DeleteSnapshots&) const = default;
};
struct ThinSnapshots {
    bool operator==(const ThinSnapshots&) const = default;
};
struct PurgeInactiveMemory {
    bool operator==(const PurgeInactiveMemory&) const = default;
};
struct ResetBackgroundItems {
    bool operator==(const ResetBackgroundItems&) const = default;
};
struct MoveAside {
    std::string path;
    std::string to;
    std::uint32_t chownTo = 0;
    bool operator==(const MoveAside&) const = default;
};
struct PrivilegedScan {
    std::string kind;  // "folder" or "volume"; anything else is refused, not undecodable
    std::string root;
    std::string label;
    std::string outPath;
    bool operator==(const PrivilegedScan&) const = default;
};
struct SetLaunchItemEnabled {
    std::string path;
    bool enabled = false;
    bool operator==(const SetLaunchItemEnabled&) const = default;
};
struct TrashLaunchItem {
    std::string path;
    std::string to;
    std::uint32_t chownTo = 0;
    bool operator==(const TrashLaunchItem&) const = default;
};
struct DeleteTrashedApp {
    std::string name;
    bool operator==(const DeleteTrashedApp&) const = default;
};
}  // namespace op

struct PrivilegedOperation {
    using Case = std::variant<op::RemovePath, op::SwapToSymlink, op::RestoreFromStaging,
                              op::DeleteSnapshots, op::ThinSnapshots, op::PurgeInactiveMemory,
                              op::ResetBackgroundItems, op::MoveAside, op::PrivilegedScan,
                              op::SetLaunchItemEnabled, op::TrashLaunchItem, op::DeleteTrashedApp>;
    Case value;

    template <typename T>
        requires std::is_constructible_v<Case, T&&>
    PrivilegedOperation(T&& operation) : value(std::forward<T>(operation)) {}

    // The case name, which is also the request's one key: "removePath".
    std::string_view caseName() const;
    // Whether carrying it out takes something away; thinSnapshots counts as not destructive.
    bool isDestructive() const;
    // The form the daemon's log prints: removePath("/p"), moveAside(path: "/p", to: "/q",
    // chownTo: 501), thinSnapshots. Strings are quoted and escaped, so no path forges a line.
    std::string description() const;

    template <typename T>
    const T* as() const { return std::get_if<T>(&value); }

    bool operator==(const PrivilegedOperation&) const = default;
};

// The request body: {"case":{fields}}, unlabelled fields under "_0", compact, keys in field order.
nlohmann::ordered_json toJSON(const PrivilegedOperation& operation);
std::string encodeRequest(const PrivilegedOperation& operation);

// Decoding a request never throws: an operation, or the reason it is not one.
struct OperationDecoding {
    std::optional<PrivilegedOperation> operation;
    std::string error;  // empty when decoded
};
OperationDecoding decodeRequest(std::string_view bytes);
// The same from an already parsed value (an element of a plan).
OperationDecoding decodeOperation(const nlohmann::json& value);

// The decoder's message when the top level does not hold exactly one known case.
inline constexpr std::string_view kInvalidNumberOfKeys = "Invalid number of keys found, expected one.";

enum class PrivilegedRefusal {
    pathNotAllowed,         // the path, or the caller's standing, fails a rule
    pathTraversesSymlink,   // a symlink lies on the way (also: not a directory, for trashed apps)
    notAbsolutePath,        // not absolute, or holds a NUL
    sourceMissing,
    destinationOccupied,
    malformedSnapshotDate,  // a date of the wrong form, or no dates at all
    operationFailed,        // the request did not decode; also the head of a failure reply
};

// The raw value of a refusal is its case name.
template <>
struct RawValues<PrivilegedRefusal> {
    static constexpr std::array<std::pair<PrivilegedRefusal, std::string_view>, 7> table = {{
        {PrivilegedRefusal::pathNotAllowed, "pathNotAllowed"},
        {PrivilegedRefusal::pathTraversesSymlink, "pathTraversesSymlink"},
        {PrivilegedRefusal::notAbsolutePath, "notAbsolutePath"},
        {PrivilegedRefusal::sourceMissing, "sourceMissing"},
        {PrivilegedRefusal::destinationOccupied, "destinationOccupied"},
        {PrivilegedRefusal::malformedSnapshotDate, "malformedSnapshotDate"},
        {PrivilegedRefusal::operationFailed, "operationFailed"},
    }};
};

// The daemon's own version text.
inline constexpr std::string_view helperVersion = "6";

namespace PrivilegedHelper {
inline constexpr int requiredHelperVersion = 6;
inline constexpr std::string_view machServiceName = "com.velloran.orvane.helper";
inline constexpr std::string_view daemonPlistName = "com.velloran.orvane.helper.plist";
inline constexpr std::string_view clientRequirement =
    R"(anchor apple generic and identifier "com.velloran.orvane" and certificate leaf[subject.OU] = "Q7RTK2MXLE")";
inline constexpr std::string_view helperRequirement =
    R"(anchor apple generic and identifier "com.velloran.orvane.helper" and certificate leaf[subject.OU] = "Q7RTK2MXLE")";
// The head of a reply for an operation that began and failed.
inline constexpr std::string_view failurePrefix = "operationFailed: ";
}  // namespace PrivilegedHelper

// The major number of a version text: "6.1.2" gives 6, ".7" gives 7; anything unreadable gives 0,
// which counts as older than every required version.
std::int64_t helperMajorVersion(std::string_view version);

// How a client reads a reply to perform: done, refused before anything happened, or failed
// on the way with a sentence for the user.
struct PerformReply {
    enum class Kind { done, refused, failed, unrecognised };
    Kind kind = Kind::done;
    std::optional<PrivilegedRefusal> refusal;  // for refused
    std::string description;                   // for failed: the text after the prefix
    bool operator==(const PerformReply&) const = default;
};
PerformReply readPerformReply(const std::optional<std::string>& reply);

}  // namespace orvane
