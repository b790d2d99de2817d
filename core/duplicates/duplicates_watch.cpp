#include "core/duplicates/duplicates_watch.hpp"

#include <sys/stat.h>

namespace orvane {

bool duplicatesWatchEligible(const platform::FileFacts& stat) {
    return (stat.mode & S_IFMT) == S_IFREG && stat.size >= 1'000'000 && stat.allocatedBytes >= stat.size / 10;
}

}  // namespace orvane
