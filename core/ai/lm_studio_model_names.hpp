// The models in an LM Studio models folder (publisher/model), named for a person deciding whether
// to remove them.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvane {

struct LMStudioModelNames {
    std::vector<std::string> names;  // "publisher/model", the first `limit` in name order
    std::size_t total = 0;           // every model found
    bool operator==(const LMStudioModelNames&) const = default;
};

// `list(path)` gives a folder's entry names, none when it can't be listed (counted as empty).
// Hidden publishers and models are passed over.
LMStudioModelNames lmStudioModelNames(const std::string& modelsFolder,
                                      const std::function<std::optional<std::vector<std::string>>(const std::string&)>& list,
                                      std::size_t limit);

}  // namespace orvane
