// orvane-helper: the root daemon. It runs until it is stopped; the service manager starts it.
#include <CLI/CLI.hpp>
#include <signal.h>
#include <unistd.h>

#include <iostream>

#include "core/privileged/client.hpp"
#include "helper/helper_log.hpp"
#include "helper/listener.hpp"

int main(int argc, char** argv) {
    using namespace orvane::helper;
    CLI::App app{"orvane-helper: performs the privileged operations of Velloran Orvane for one admitted client."};
    app.name("orvane-helper");
    std::string socketPath = orvane::kDefaultHelperSocket;
    std::string logPath = kDefaultLogPath;
    std::vector<std::string> clients;
    app.add_option("--socket", socketPath, "Where to listen")->capture_default_str();
    app.add_option("--log", logPath, "The log file")->capture_default_str();
    app.add_option("--allow-client", clients,
                   "A client program that may connect (repeatable); default: the installed orvane");
    app.set_version_flag("--version", std::string(orvane::helperVersion));
    CLI11_PARSE(app, argc, argv);

    if (clients.empty()) clients.emplace_back(installedClientPath());
    std::vector<AllowedClient> allowed;
    for (const auto& path : clients) {
        auto check = allowedClient(path);
        if (!check.client) {
            std::cerr << "orvane-helper: " << check.problem << '\n';
            return 2;
        }
        allowed.push_back(*check.client);
    }
    if (::geteuid() != 0) std::cerr << "orvane-helper: not running as root; operations will fail where root is needed.\n";

    // A client that goes away mid-reply must not end the daemon.
    ::signal(SIGPIPE, SIG_IGN);

    std::string problem;
    int fd = bindListeningSocket(socketPath, problem);
    if (fd < 0) {
        std::cerr << "orvane-helper: " << problem << '\n';
        return 1;
    }
    HelperSettings settings;
    settings.logPath = logPath;
    serve(fd, allowed, settings);
}
