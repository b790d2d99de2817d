#include "cli/command.hpp"

#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/replay.hpp"
#include "core/common/text.hpp"
#include "core/ledger/ledger.hpp"
#include "core/scan/disk_measure.hpp"
#include "core/update/support_folder.hpp"

namespace orvane::cli {

void Result::add(const Table& table) {
    for (auto& row : table.lines()) lines.push_back(std::move(row));
}

Result nothingChangedOnARecording(const std::vector<std::string>& plan) {
    Result result;
    result.status = kRefused;
    for (const auto& step : plan) result.line(step);
    result.json = {{"changed", false}, {"plan", plan}, {"reason", kNothingChangedOnARecording}};
    result.notes.emplace_back(kNothingChangedOnARecording);
    return result;
}

Registry::Registry(CLI::App& app) : app_(app) {
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.add_option("--replay", replayDir_,
                    "Read the world from a recorded Mac in DIR instead of this machine: its tools' answers "
                    "(tools.json), its disk (root/), its home (home). Nothing is changed and the helper is "
                    "never asked.")
        ->type_name("DIR");
    // Applied as soon as it is read, before any command's callback touches the ledger.
    app_.add_option("--ledger-dir", "Keep the ledger (moves, history, journals, protections) in DIR instead of its "
                                    "usual folder")
        ->type_name("DIR")
        ->each([this](const std::string& dir) {
            Ledger::setTestDirOverride(absolutePath(dir));
            ledgerDirGiven_ = true;
        });
}

CLI::App* Registry::add(CLI::App& parent, std::string name, std::string help, Run run) {
    auto* command = parent.add_subcommand(std::move(name), std::move(help));
    auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print the result as JSON");
    command->callback([this, command, json, run = std::move(run)] {
        // A command that is also a group ("janitors", "janitors run") runs only when none of its
        // own commands was given.
        if (!command->get_subcommands().empty()) return;
        exitCode_ = execute(run, *json);
    });
    return command;
}

CLI::App* Registry::group(std::string name, std::string help) {
    auto* group = app_.add_subcommand(std::move(name), std::move(help));
    group->require_subcommand(1);
    return group;
}

namespace {

// The app's former name left its ledger under the old folder name; it moves once, before
// anything reads or repairs the ledger. A failure is said once and the launch goes on: the old
// folder stays where it was, whole.
void moveSupportFolderToItsNewName() {
    const std::string homeFolder = Facts::real().home("");
    const auto outcome = migrateSupportFolder(ProductName::legacySupportDir(homeFolder), ProductName::supportDir(homeFolder));
    if (const auto* failed = std::get_if<migration::Failed>(&outcome)) printError(failed->reason);
}

}  // namespace

int Registry::execute(const Run& run, bool json) {
    try {
        std::optional<Facts> recorded;
        if (!replayDir_.empty()) {
            auto load = loadRecording(absolutePath(replayDir_));
            if (!load.recording) throw OVError(load.error);
            recorded = recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));
        }
        if (!recorded && !ledgerDirGiven_) moveSupportFolderToItsNewName();
        Progress progress(!json);
        Result result = run(Invocation{recorded ? *recorded : Facts::real(), json, progress});
        progress.clear();
        for (const auto& note : result.notes) printError(note);
        if (json) {
            std::cout << result.json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << '\n';
        } else {
            for (const auto& line : result.lines) std::cout << escapeControlCharacters(line) << '\n';
        }
        std::cout.flush();
        return result.status;
    } catch (const OVError& error) {
        printError(error.msg);
    } catch (const std::exception& error) {
        printError(std::string("The command stopped on an unexpected error: ") + error.what() + ".");
    } catch (...) {
        printError("The command stopped on an unexpected error.");
    }
    return kBadInput;
}

int Registry::run(int argc, char** argv) {
    try {
        app_.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app_.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app_.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app_.exit(e);
    } catch (const CLI::ParseError& e) {
        std::string message = e.what();
        if (!message.empty() && message.back() != '.') message += '.';
        printError(message + " See orvane --help.");
        return kBadInput;
    }
    return exitCode_;
}

std::string absolutePath(const std::string& path) {
    if (path.empty() || path.starts_with('/')) return path;
    char cwd[4096];
    if (!::getcwd(cwd, sizeof cwd)) return path;
    return standardizePath(appendingPathComponent(cwd, path), [](const std::string&) { return false; });
}

std::string readableFolder(const std::string& typed, const Facts& facts) {
    const std::string folder = typed.empty() ? facts.home("")
                                             : standardizePath(absolutePath(typed), [](const std::string&) { return false; });
    if (!isDirectory(folder, facts)) throw OVError(folder + " is not a folder.");
    if (listingRefused(folder, facts).value_or(true)) throw OVError(folder + " cannot be read by this user.");
    return folder;
}

bool onHomeFileSystem(const std::string& path, const Facts& facts) {
    const auto at = facts.mount(path), home = facts.mount(facts.home(""));
    return at && home && at->mountPoint == home->mountPoint && at->device == home->device;
}

std::string ledgerFile(const Facts& facts, std::string_view name) {
    const std::string folder =
        facts.recorded ? facts.home("Library/Application Support/Velloran Orvane") : Ledger::dir();
    return appendingPathComponent(folder, name);
}

StoredProtectList storedProtections(const Facts& facts) {
    return loadProtectList(ledgerFile(facts, "protect-list.json"), facts);
}

bool answeredYes() {
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    return answer == "y" || answer == "Y" || answer == "yes" || answer == "Yes";
}

void printError(std::string_view sentence) { std::cerr << "orvane: " << escapeControlCharacters(sentence) << '\n'; }

std::string readInput(const std::string& fileOrDash, std::size_t limitBytes) {
    const std::string tooLarge =
        "The input is larger than " + std::to_string(limitBytes / (1024 * 1024)) + " MiB, more than any plan needs.";
    if (fileOrDash == "-") {
        std::string text;
        char buffer[65536];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, stdin)) > 0) {
            text.append(buffer, n);
            if (text.size() > limitBytes) throw OVError(tooLarge);
        }
        return text;
    }
    // Never waits on a FIFO or a device, and never reads past the limit.
    auto read = readFile(fileOrDash, limitBytes);
    if (read.bytes) return std::move(*read.bytes);
    if (read.failure == ReadFailure::tooLarge) throw OVError(tooLarge);
    throw OVError("Cannot read " + fileOrDash + ": it " + std::string(readFailureClause(read.failure)) + ".");
}

}  // namespace orvane::cli
