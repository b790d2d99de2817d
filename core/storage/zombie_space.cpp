#include "core/storage/zombie_space.hpp"

#include <charconv>
#include <set>
#include <string_view>

#include "core/common/byte_counts.hpp"

namespace orvane {
namespace {

// -1 for anything but a whole number from 0 to 2^60.
std::int64_t byteCount(std::string_view text) {
    std::int64_t value = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || ec != std::errc{} || end != text.data() + text.size() || value < 0 || value > kMaxByteCount)
        return -1;
    return value;
}

}  // namespace

std::map<std::string, std::int64_t> parseZombieSpace(const std::vector<std::string>& lines) {
    std::map<std::string, std::int64_t> perApp;
    std::string command;
    std::int64_t size = -1;  // none yet
    std::set<std::string> seenInodes;
    for (const auto& line : lines) {
        if (line.empty()) continue;
        const std::string_view value = std::string_view(line).substr(1);
        switch (line.front()) {
            case 'p':
            case 'f':
                size = -1;
                break;
            case 'c':
                command = value;
                size = -1;
                break;
            case 's':
                size = byteCount(value);
                break;
            case 'i':
                if (size >= 0 && seenInodes.emplace(value).second) {
                    auto& bytes = perApp[command];
                    bytes = addBytesOrUnknown(bytes, size);
                }
                size = -1;
                break;
            default:
                break;
        }
    }
    return perApp;
}

ZombieSpace measureZombieSpace(double timeout, const Facts& facts) {
    auto run = facts.run(facts.lsofTool, {"-n", "-P", "+L1", "-Fcsi"}, timeout, false, ToolErrors::discarded);
    ZombieSpace space;
    if (run.timedOut) {
        space.timedOut = true;
        return space;
    }
    space.perApp = parseZombieSpace(run.lines);
    for (const auto& [app, bytes] : space.perApp) space.total = addBytesOrUnknown(space.total, bytes);
    return space;
}

}  // namespace orvane
