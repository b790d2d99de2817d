// The version of the running system, as the watch compares it between scans to tell an update
// that took space.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "core/common/facts.hpp"

namespace orvane {

// The value of `key` in os-release text: KEY=VALUE lines, the value bare or in single or double
// quotes (backslash escapes taken in double quotes); comments and other lines skipped. None when
// the key is absent or its value empty.
std::optional<std::string> osReleaseValue(std::string_view text, std::string_view key);

// The system's version in one text: on macOS its product version; on Linux the distribution's
// PRETTY_NAME (from /etc/os-release, else /usr/lib/os-release) and the kernel release, so that
// either changing counts as an update. Empty when nothing can be read.
std::string currentOSVersion(const Facts& facts = Facts::real());

}  // namespace orvane
