// One admitted connection's request road: decode, find the caller's home, validate, run, log,
// reply. The caller's user id comes from the kernel at admission and never from a request.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/privileged/operations.hpp"

namespace orvane::helper {

struct HelperSettings {
    std::string logPath = "/var/log/orvane-helper.log";
    // The caller's home from the password database; none when there is no record or no folder.
    std::function<std::optional<std::string>(std::uint32_t uid)> homeOf;
    // The world validation looks at and the bodies act in, and where launch items live (tests
    // replace these). Its home is the one the password database gives for each request.
    OperationContext operations;
    // How long a connection may take to send one whole request, and to take in one reply, before
    // it is closed; the time an operation runs is not counted.
    std::chrono::milliseconds frameTimeout = std::chrono::seconds(30);
};

class Helper {
public:
    Helper(std::uint32_t callerUID, HelperSettings settings);

    // The daemon's version text; needs no decoding and logs nothing.
    std::string version() const;
    // Absent: done. A refusal's raw value alone: refused before anything happened.
    // "operationFailed: " and a sentence: it began and failed. Never throws.
    std::optional<std::string> perform(std::string_view request) const;

    std::uint32_t callerUID() const { return callerUID_; }

private:
    void log(std::string_view message) const;

    std::uint32_t callerUID_;
    HelperSettings settings_;
};

}  // namespace orvane::helper
