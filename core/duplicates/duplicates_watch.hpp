// Whether a file that has just arrived deserves a duplicate check at all.
#pragma once

#include "core/platform/platform.hpp"

namespace orvane {

// A regular file of at least 1,000,000 bytes with at least a tenth of its size allocated here.
// Dataless cloud placeholders and sparse files fail the last test: hashing them would fetch or
// read bytes that aren't on the disk.
bool duplicatesWatchEligible(const platform::FileFacts& stat);

}  // namespace orvane
