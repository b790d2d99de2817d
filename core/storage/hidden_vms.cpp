#include "core/storage/hidden_vms.hpp"

#include "core/common/path.hpp"

namespace orvane {

std::vector<HiddenVM> hiddenVMFolders(const std::string& home) {
    struct Place {
        const char* name;
        const char* below;
        const char* bundleID;
    };
    // Product knowledge: a new app that hides its machines gets a row here.
    static constexpr Place kPlaces[] = {
        {"Claude (Cowork)", "Library/Application Support/Claude/vm_bundles", "com.anthropic.claudefordesktop"},
        {"Docker", "Library/Containers/com.docker.docker/Data/vms", "com.docker.docker"},
        {"Podman", ".local/share/containers/podman/machine", nullptr},
        {"OrbStack", ".orbstack", "dev.kdrag0n.MacVirt"},
        {"UTM", "Library/Containers/com.utmapp.UTM/Data/Documents", nullptr},
        {"Parallels", "Parallels", "com.parallels.desktop.console"},
    };
    std::vector<HiddenVM> folders;
    for (const auto& place : kPlaces) {
        HiddenVM vm{place.name, appendingPathComponent(home, place.below), std::nullopt};
        if (place.bundleID) vm.bundleID = place.bundleID;
        folders.push_back(std::move(vm));
    }
    return folders;
}

}  // namespace orvane
