// Disk use as `du` measures it: allocated bytes on one file system, with -1 for every
// measurement that failed, never 0, since a 0 would read as "nothing there".
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

struct DuMeasurement {
    std::int64_t bytes = -1;
    std::vector<std::string> denied;  // folders du could not read, so not counted
    bool operator==(const DuMeasurement&) const = default;
};

// `du -sxk PATH` with a 180-second limit: bytes, or -1.
std::int64_t duSize(const std::string& path, const Facts& facts = Facts::real());
// The same run, also naming what du could not read (even after a timeout).
DuMeasurement duMeasure(const std::string& path, const Facts& facts = Facts::real());

// One `du -skx` over all the paths. Every path asked about gets an answer; -1 when du said
// nothing about it (gone, unreadable, or the run timed out). No paths: nothing is run.
std::map<std::string, std::int64_t> duBatchSizes(const std::vector<std::string>& paths, double timeout,
                                                 const Facts& facts = Facts::real());
struct DuBatch {
    std::map<std::string, std::int64_t> sizes;
    std::vector<std::string> denied;
    bool operator==(const DuBatch&) const = default;
};
DuBatch duBatchMeasure(const std::vector<std::string>& paths, double timeout, const Facts& facts = Facts::real());

// "SIZE<tab>PATH" lines, sizes in KiB; the first report of a path wins; paths not reported get -1.
std::map<std::string, std::int64_t> parseDuBatch(const std::vector<std::string>& lines,
                                                 const std::vector<std::string>& paths);

// The absolute paths du's error lines say it could not read, in order, duplicates kept. Reads
// the BSD form "du: /x: Permission denied" and GNU's "du: cannot read directory '/x': Permission
// denied" and "du: cannot access '/x': ...", with either ending "Operation not permitted" or
// "Permission denied".
std::vector<std::string> parseDuDenied(const std::vector<std::string>& errLines);

// The paths that lie inside no other path of the list, sorted.
std::vector<std::string> topmostPaths(const std::vector<std::string>& paths);

// Whether the system refuses to list a folder: none when it is not a folder (or is gone).
std::optional<bool> listingRefused(const std::string& path, const Facts& facts = Facts::real());

// Exists and, links followed, is a folder.
bool isDirectory(const std::string& path, const Facts& facts = Facts::real());

// 1 for a regular file (links followed); for a folder, the regular files anywhere inside it,
// links not counted and not followed; 0 when it cannot be listed.
std::int64_t countFiles(const std::string& path);

}  // namespace orvane
