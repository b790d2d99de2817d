// orvane cloud: the group of the cloud drive commands.
#include "cli/command.hpp"

namespace orvane::cli {

void addCloudCommands(Registry& registry) {
    auto* cloud = registry.group("cloud", "Cloud drives: what their providers answer");
    addCloudFetchCommand(registry, *cloud);
}

}  // namespace orvane::cli
