// Tests that write into the machine's own folders (/Library as root) take this lock, so that two
// running at once never remove a folder the other is still using.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace orvane::testing {

class MachineFoldersLock {
public:
    MachineFoldersLock() : fd_(::open("/tmp/orvane-tests-machine-folders.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
        if (fd_ >= 0) ::flock(fd_, LOCK_EX);
    }
    ~MachineFoldersLock() {
        if (fd_ >= 0) ::close(fd_);
    }
    MachineFoldersLock(const MachineFoldersLock&) = delete;
    MachineFoldersLock& operator=(const MachineFoldersLock&) = delete;

private:
    int fd_;
};

}  // namespace orvane::testing
