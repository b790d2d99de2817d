// A synced cloud folder as this disk holds it: which providers have one, and the inventory of a
// folder, walked through the facts so that a recorded Mac reads as well as this machine.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/cloud/cloud_inventory.hpp"
#include "core/common/facts.hpp"

namespace orvane {

// One folder of ~/Library/CloudStorage, named "Provider-account" by the system.
struct CloudStorageFolder {
    std::string provider;
    std::string account;  // as the folder name gives it; empty when it gives none
    std::string root;
    bool operator==(const CloudStorageFolder&) const = default;
};

// The folders of ~/Library/CloudStorage in name order; none when there is no such folder.
std::vector<CloudStorageFolder> cloudStorageFolders(const Facts& facts);

// A native cloud document shown as a tiny pointer file (".gdoc", ".gsheet", ...): its real size
// can't be read here.
bool isPointerDocument(std::string_view path);

// The record of one regular file: a file with less than a tenth of its size allocated here (or,
// on a Mac, marked dataless) has its content only in the cloud.
CloudFile cloudFileOf(const std::string& path, const platform::FileFacts& stat);

inline constexpr std::size_t kCloudLargestKept = 10;

// Every regular file under `root`, links not followed and the walk kept on root's file system;
// the largest ten, the counts and the probable duplicates. `progress` hears the count of files
// seen now and then.
CloudInventory takeCloudInventory(const std::string& provider, const std::string& root, const Facts& facts,
                                  const std::function<void(std::int64_t files)>& progress = {});

}  // namespace orvane
