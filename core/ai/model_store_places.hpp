// Where the app stores that let people move their models keep them: LM Studio's model folders and
// ComfyUI's base path, read from the apps' own pointers and settings and judged before use.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane {

// LM Studio's model folders, distinct, in the order they are searched: its settings' downloads
// folder, its home's models, then the two places it used before.
std::vector<std::string> lmStudioModelRoots(const std::string& home, const Facts& facts);

// ComfyUI's "basePath" from its config.json, when it is a path the user may be offered.
std::optional<std::string> comfyUIBasePath(const std::string& home, const Facts& facts);

}  // namespace orvane
