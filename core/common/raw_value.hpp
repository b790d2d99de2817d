// The one declaration behind every closed enumeration's reading of its raw string; each
// enumeration specialises it beside its own rawValue().
#pragma once

#include <optional>
#include <string_view>

namespace orvane {

template <typename E>
std::optional<E> fromRawValue(std::string_view raw);

}  // namespace orvane
