// The list of commands: adding one touches its own file and this list.
#include "cli/command.hpp"

namespace orvane::cli {

void registerCommands(Registry& registry) {
    addScanCommand(registry);
    addDuCommand(registry);
    addStorageCommand(registry);
    addStartupCommand(registry);
    addLeftoversCommands(registry);  // leftovers, uninstall
    addTrashAppsCommands(registry);
    addAppsCommands(registry);  // apps, apps copies, apps kexts, apps reset-permissions
    addGenuineCommand(registry);
    addDupesCommands(registry);  // dupes, dupes merge
    addCloudCommands(registry);  // cloud fetch
    addModelsCommand(registry);
    addAIDataCommand(registry);
    addMoveCommands(registry);  // destinations, move
    addAutoMoveCommands(registry);  // automove, automove set
    addMediaCommand(registry);
    addWatchCommand(registry);
    addReportCommand(registry);
    addCompressEstimateCommand(registry);
    addHealthCommand(registry);
    addUnreadableCommand(registry);
    addLedgerCommands(registry);  // repair, history, moves
    addVerdictCommand(registry);
    addArtifactsCommand(registry);
    addJanitorsCommand(registry);
    addPlanCommands(registry);
    addHelperCommands(registry);  // helper version, perform, status, clients
    addUpdateCommands(registry);  // update check, pkg-team
    addProtectCommands(registry);
}

}  // namespace orvane::cli
