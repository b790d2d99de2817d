// orvane: the command-line front end over the library and the daemon.
#include <iostream>

#include "cli/context.hpp"
#include "core/ledger/ledger.hpp"

int main(int argc, char** argv) {
    using namespace orvane::cli;
    CLI::App app{
        "Velloran Orvane finds where a disk's space went, says how sure each figure is, and "
        "carries out clean-up decisions without losing anything irreplaceable."};
    app.name("orvane");
    app.set_version_flag("--version", "orvane 0.1.0");
    app.require_subcommand(1);
    app.fallthrough();

    Context context;
    // Applied as soon as it is read, before any command's callback touches the ledger.
    app.add_option("--ledger-dir", context.ledgerDir,
                   "Keep the ledger (moves, history, journals, protections) in DIR instead of its usual folder")
        ->each([](const std::string& dir) { orvane::Ledger::setTestDirOverride(absolutePath(dir)); });

    addScanCommand(app, context);
    addDuCommand(app, context);
    addRepairCommand(app, context);
    addHistoryCommand(app, context);
    addMovesCommand(app, context);
    addVerdictCommand(app, context);
    addArtifactsCommand(app, context);
    addJanitorsCommand(app, context);
    addPlanCommands(app, context);
    addHelperCommands(app, context);
    addProtectCommands(app, context);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::string message = e.what();
        if (!message.empty() && message.back() != '.') message += '.';
        printError(message + " See orvane --help.");
        return kBadInput;
    }
    return context.exitCode;
}
