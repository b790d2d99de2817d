// orvane: the command-line front end over the library and the daemon.
#include "cli/command.hpp"

int main(int argc, char** argv) {
    CLI::App app{
        "Velloran Orvane finds where a disk's space went, says how sure each figure is, and "
        "carries out clean-up decisions without losing anything irreplaceable."};
    app.name("orvane");
    app.set_version_flag("--version", "orvane " + std::string(orvane::cli::kProgramVersion));
    orvane::cli::Registry registry(app);
    orvane::cli::registerCommands(registry);
    return registry.run(argc, argv);
}
