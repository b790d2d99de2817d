// Models downloaded by hand into folders of no app: ~/Models, ~/Downloads and their like.
#pragma once

#include <string>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

struct LooseModelFolder {
    std::string path;
    std::string name;
    std::string format;
    bool operator==(const LooseModelFolder&) const = default;
};

// The folders of the home where people keep models by hand, each once (a file system that
// ignores case makes "Models" and "models" one), links never taken for a folder.
std::vector<std::string> looseModelRoots(const std::string& home, const Facts& facts);

// The model folders in those roots and one level below them (Downloads only at its top): a
// folder with a config.json beside weights.
std::vector<LooseModelFolder> looseModelFolders(const std::string& home, const Facts& facts);

}  // namespace orvane
