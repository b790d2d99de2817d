// Resetting the privacy permissions of an app that is being removed, through tccutil, and never
// those that a living copy of it, or this product itself, still uses.
#pragma once

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/common/facts.hpp"
#include "core/common/raw_value.hpp"

namespace orvane {

enum class TCCResetStatus {
    reset,
    notFound,            // tccutil knows no app of that id
    refused,             // not an id we reset: malformed, Apple's or our own; nothing ran
    otherCopyInstalled,  // another copy would lose its permissions; nothing ran
    failed,
};
template <>
struct RawValues<TCCResetStatus> {
    static constexpr std::array<std::pair<TCCResetStatus, std::string_view>, 5> table = {{
        {TCCResetStatus::reset, "reset"},
        {TCCResetStatus::notFound, "notFound"},
        {TCCResetStatus::refused, "refused"},
        {TCCResetStatus::otherCopyInstalled, "otherCopyInstalled"},
        {TCCResetStatus::failed, "failed"},
    }};
};

struct TCCResetOutcome {
    std::string bundleID;
    TCCResetStatus status = TCCResetStatus::failed;
    std::string detail;  // tccutil's own words, trimmed, or why it wasn't run
    bool operator==(const TCCResetOutcome&) const = default;
};
// {"bundleID","status","detail"}.
nlohmann::ordered_json toJSON(const TCCResetOutcome& outcome);

// The services a user grants app by app, and those granted in System Settings: for display only.
inline constexpr std::array<std::string_view, 7> userTCCServices = {
    "Camera", "Microphone", "Contacts", "Calendars", "Photos", "Files & Folders", "Automation"};
inline constexpr std::array<std::string_view, 5> systemTCCServices = {
    "Full Disk Access", "Accessibility", "Screen Recording", "Input Monitoring", "App Management"};

// A reverse-DNS id safe on tccutil's command line (ASCII letters, digits, ".", "-", "_"; at least
// two pieces; at most 255 characters) that is neither Apple's nor one of `ownIDs` or below it,
// case ignored: resetting Apple's would take permissions from the system itself.
bool isTCCResettableBundleID(std::string_view bundleID, const std::vector<std::string>& ownIDs);

// "reset", "All", the id; none for an id that isn't resettable.
std::optional<std::vector<std::string>> tccResetArguments(std::string_view bundleID,
                                                          const std::vector<std::string>& ownIDs);

// tccutil's answer. Its not-found wording wins over its exit status, which differs between
// releases; "Successfully reset" counts only with status 0.
TCCResetOutcome parseTCCReset(std::string_view bundleID, std::int32_t exitStatus,
                              std::string_view output);

namespace TCCPermissions {

inline constexpr const char* tccutil = "/usr/bin/tccutil";
inline constexpr double kResetTimeoutSeconds = 30.0;

// Runs `tool` (tccutil) to reset every permission of `bundleID`, unless the id is refused or a
// copy other than `excludingPath` (the one being removed, compared exactly) is still installed.
// On a recorded Mac nothing runs and the outcome is `failed`. Blocks for up to 30 seconds.
TCCResetOutcome reset(const std::string& bundleID, const std::vector<std::string>& ownIDs,
                      const std::string& tool, const std::string& home,
                      const std::optional<std::string>& excludingPath,
                      const Facts& facts = Facts::real());

}  // namespace TCCPermissions

}  // namespace orvane
