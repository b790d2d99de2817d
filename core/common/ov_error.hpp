// The library's one thrown error: a sentence shown to the user as it stands.
#pragma once

#include <exception>
#include <string>

namespace orvane {

struct OVError : std::exception {
    std::string msg;

    explicit OVError(std::string message) : msg(std::move(message)) {}
    const char* what() const noexcept override { return msg.c_str(); }
    bool operator==(const OVError& other) const { return msg == other.msg; }
};

}  // namespace orvane
