// Decoding bytes as UTF-8 the forgiving way: what does not decode becomes U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace orvane::ledger::internal {

// Each maximal ill-formed subsequence is replaced by one U+FFFD, as Unicode recommends, so that
// a character cut in half at the start of a window costs one replacement character.
std::string repairUTF8(std::string_view bytes);

}  // namespace orvane::ledger::internal
