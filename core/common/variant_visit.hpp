// Visiting a std::variant with one lambda per alternative.
#pragma once

namespace orvane {

template <typename... Ts>
struct Overloaded : Ts... {
    using Ts::operator()...;
};
template <typename... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

}  // namespace orvane
