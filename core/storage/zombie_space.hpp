// Space held by files that were deleted while a process still had them open: gone from every
// folder, their blocks are not free until the last holder closes them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// The bytes of deleted files per command name, from the field output of `lsof -Fcsi`. A file
// that several processes hold counts once, for the first one listed: inodes are remembered over
// the whole listing. A size that is not a whole number from 0 to 2^60 counts nothing; a total
// past 2^60 is -1 (unknown).
std::map<std::string, std::int64_t> parseZombieSpace(const std::vector<std::string>& lines);

struct ZombieSpace {
    std::map<std::string, std::int64_t> perApp;
    std::int64_t total = 0;  // -1 when it passes 2^60
    bool timedOut = false;   // then nothing else is known
    bool operator==(const ZombieSpace&) const = default;
};
// Runs `lsof -n -P +L1 -Fcsi` (the facts' lsof). lsof sees only the processes this one may
// inspect, so the total is a floor.
ZombieSpace measureZombieSpace(double timeout, const Facts& facts = Facts::real());

}  // namespace orvane
