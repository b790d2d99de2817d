// orvane scan: where a folder's space went.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <iostream>

#include "cli/context.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/privileged/protocol.hpp"
#include "core/privileged/wire.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/scan/generic_scan.hpp"

namespace orvane::cli {
namespace {

struct ScanOptions {
    std::string path;
    std::string volume;
    bool admin = false;
    bool json = false;
    std::string socket = "/var/run/com.velloran.orvane.helper.sock";
};

// One line that a terminal overwrites as the scan moves on; nothing when output is not a terminal.
class Phase {
public:
    explicit Phase(bool shown) : shown_(shown) {}
    ~Phase() { clear(); }
    void show(const std::string& text) {
        if (!shown_) return;
        std::cerr << "\r\033[K" << text << std::flush;
    }
    void clear() { show(""); }

private:
    bool shown_;
};

std::string padLeft(const std::string& text, std::size_t width) {
    const std::size_t n = characterCount(text);
    return n >= width ? text : std::string(width - n, ' ') + text;
}
std::string padRight(const std::string& text, std::size_t width) {
    const std::size_t n = characterCount(text);
    return n >= width ? text : text + std::string(width - n, ' ');
}

void printTable(const GenericScanDump& dump, const std::string& root) {
    if (dump.items.empty()) {
        printLine("No file over the size threshold under " + root + ".");
    } else {
        std::size_t categoryWidth = 0;
        for (const auto& item : dump.items) categoryWidth = std::max(categoryWidth, characterCount(shortCategoryName(item.category)));
        for (const auto& item : dump.items) {
            printLine(padLeft(fmtBytes(item.sizeBytes), 10) + "  " +
                      padRight(std::string(shortCategoryName(item.category)), categoryWidth) + "  " + item.title);
            printLine(std::string(12, ' ') + item.note);
        }
    }
    printLine("");
    if (dump.free >= 0 && dump.total >= 0)
        printLine(fmtBytes(dump.free) + " free of " + fmtBytes(dump.total) + " on this file system.");
    else
        printLine("The free space of this file system is unknown.");
    char elapsed[64];
    std::snprintf(elapsed, sizeof elapsed, "%.1f", dump.elapsed);
    printLine(std::to_string(dump.items.size()) + (dump.items.size() == 1 ? " finding" : " findings") + " in " +
              elapsed + " s. " + std::string(note(dump.privilege)));
    if (dump.skippedNames > 0)
        printLine(std::to_string(dump.skippedNames) + (dump.skippedNames == 1 ? " name" : " names") +
                  " skipped: not valid UTF-8.");
}

// The daemon scans as root into a fresh file of the caller's own; the file is read and removed.
int scanAsAdministrator(const ScanOptions& options, const std::string& root, GenericScanDump& dump) {
    std::string folder = home(".orvane-scan-XXXXXX");
    if (!::mkdtemp(folder.data())) {
        printError("Cannot make a private folder for the scan's result in your home folder.");
        return kBadInput;
    }
    const std::string out = folder + "/dump.json";
    const PrivilegedOperation request =
        op::PrivilegedScan{options.volume.empty() ? "folder" : "volume", root, options.volume, out};
    auto exchange = wire::askHelper(options.socket, wire::kPerform, encodeRequest(request));
    int status = kDone;
    if (auto* none = std::get_if<wire::NoDaemon>(&exchange)) {
        printError(none->why);
        status = kBadInput;
    } else if (std::holds_alternative<wire::NoAnswer>(exchange)) {
        printError("The helper closed the connection without answering; this program may not be one it admits.");
        status = kBadInput;
    } else if (const auto& reply = std::get<std::optional<std::string>>(exchange)) {
        printError("The helper did not scan: " + *reply);
        status = kRefused;
    } else {
        // At most 600 items: far below this, which only keeps a wrong file from costing memory.
        constexpr std::uint64_t kDumpMaxBytes = 64 * 1024 * 1024;
        auto text = readFile(out, kDumpMaxBytes).bytes;
        auto parsed = text ? parseJSONStrictly(*text, 64) : StrictJSON{};
        auto decoded = parsed.value ? decodeGenericScanDump(*parsed.value, JSONDateEncoding::iso8601)
                                    : GenericScanDumpDecoding{std::nullopt, "The helper's scan result cannot be read."};
        if (!decoded.dump) {
            printError(decoded.error);
            status = kBadInput;
        } else {
            dump = std::move(*decoded.dump);
        }
    }
    std::error_code ec;
    std::filesystem::remove_all(folder, ec);
    return status;
}

int runScan(const ScanOptions& options) {
    const std::string root = standardizePath(absolutePath(options.path), [](const std::string&) { return false; });
    if (!isDirectory(root)) {
        printError(root + " is not a folder.");
        return kBadInput;
    }
    if (listingRefused(root).value_or(true)) {
        printError(root + " cannot be read by this user.");
        return kBadInput;
    }
    const ScanScope scope = options.volume.empty() ? ScanScope(scope::Folder{root}) : ScanScope(scope::Volume{root, options.volume});

    GenericScanDump dump;
    if (options.admin) {
        if (int status = scanAsAdministrator(options, root, dump); status != kDone) return status;
    } else {
        Phase phase(!options.json && ::isatty(STDERR_FILENO));
        Facts tools = Facts::real();
        tools.run = [&phase](const std::string& tool, const std::vector<std::string>& args, double timeout, bool nul,
                             ToolErrors errors) {
            phase.show(std::string(label(tool == "/usr/bin/find" ? ScanPhase::cataloguing : ScanPhase::dating)));
            return runToolSplit(tool, args, timeout, nul, errors);
        };
        dump = buildGenericScanDump(scope, true, ScanPrivilege::standard, static_cast<std::uint32_t>(::getuid()), tools);
    }
    if (options.json) {
        printJSON(toJSON(dump, JSONDateEncoding::iso8601));
    } else {
        // What the user protected, or what is painful to lose, says so on its row.
        auto loaded = loadProtectList();
        if (!loaded.list) printError(loaded.problem + " The rows do not show your protections.");
        const ProtectList list = loaded.list.value_or(ProtectList{});
        const std::string userHome = home();
        for (auto& item : dump.items) {
            auto found = protection(item.id, list, {}, {}, userHome);
            item = applyingProtection(std::move(item), found);
        }
        printLine(scope.label() + " — " + scope.subtitle());
        printLine("");
        printTable(dump, root);
    }
    return kDone;
}

}  // namespace

void addScanCommand(CLI::App& app, Context& context) {
    auto options = std::make_shared<ScanOptions>();
    auto* scan = app.add_subcommand(
        "scan",
        "Find where the space under PATH went: every file over 10 MB (100 MB with --volume), largest first, with "
        "what kind of finding it is and a note on when it was last changed or opened. Nothing is changed.");
    scan->add_option("PATH", options->path, "The folder to scan")->required();
    scan->add_option("--volume", options->volume, "Scan PATH as a whole drive with this name (files over 100 MB, and its Trash)");
    scan->add_flag("--admin", options->admin, "Ask the privileged helper to scan as administrator");
    scan->add_option("--socket", options->socket, "The helper's socket, with --admin")->capture_default_str();
    scan->add_flag("--json", options->json, "Print the scan as the helper writes it (JSON, dates as ISO 8601)");
    scan->callback([options, &context] { context.exitCode = runScan(*options); });
}

}  // namespace orvane::cli
