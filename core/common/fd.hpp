// One open descriptor that closes itself.
#pragma once

#include <unistd.h>

#include <utility>

namespace orvane {

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept {
        reset();
        fd_ = std::exchange(other.fd_, -1);
        return *this;
    }
    ~Fd() { reset(); }

    int get() const { return fd_; }
    bool open() const { return fd_ >= 0; }
    // The descriptor, no longer closed by this object.
    int release() { return std::exchange(fd_, -1); }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

}  // namespace orvane
