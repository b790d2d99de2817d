#include "helper/helper_log.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "core/common/json_files.hpp"
#include "core/common/text.hpp"

namespace orvane::helper {

void appendLogRecord(const std::string& logPath, std::string_view message, TimePoint now) {
    std::string record = "[" + iso8601(now) + "] ";
    // A path or a tool's text may hold a line break of its own, which would forge a record.
    record += escapeControlCharacters(message);
    record += '\n';
    // One write with O_APPEND: records from two connections never interleave within a line.
    // O_NOFOLLOW: a link planted at the log's place is not written through.
    int fd = ::open(logPath.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
    if (fd >= 0) {
        std::size_t done = 0;
        while (done < record.size()) {
            ssize_t n = ::write(fd, record.data() + done, record.size() - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<std::size_t>(n);
        }
        ::close(fd);
    } else if (errno == ENOENT) {
        (void)writeFileAtomically(logPath, record, 0640);
    }
    (void)::fchmodat(AT_FDCWD, logPath.c_str(), 0640, AT_SYMLINK_NOFOLLOW);
}

}  // namespace orvane::helper
