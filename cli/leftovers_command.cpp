// orvane leftovers: what apps that are gone left behind. orvane uninstall: the whole removal of one
// app, shown as a plan first and carried out into the Trash only when the person agrees.
#include <pwd.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

#include "cli/command.hpp"
#include "core/ai/ai_app_data_offers.hpp"
#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/leftovers.hpp"
#include "core/apps/uninstall_plan.hpp"
#include "core/common/path.hpp"
#include "core/ledger/action_log.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/trash.hpp"
#include "core/privileged/client.hpp"
#include "core/safety/delete_verdict.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

constexpr double kMeasureSeconds = 180;

struct LeftoversOptions {
    std::string app;
    bool dryRun = false;
    bool yes = false;
    std::string socket = kDefaultHelperSocket;
};

// The sentence that keeps a path: the verdict's first, then the person's own protections.
std::optional<std::string> refusalOf(const std::string& path, const DeleteVerdict& verdict,
                                     const StoredProtectList& protections, const std::string& home) {
    if (auto reason = verdict.reason()) return reason;
    return protectionRefusal(path, protections, {}, {}, home);
}

std::vector<std::optional<std::string>> refusalsOf(const std::vector<std::string>& paths, const Facts& facts,
                                                   const StoredProtectList& protections) {
    std::vector<std::optional<std::string>> refusals;
    for (const auto& judged : leftoverCommitVerdict(paths, facts))
        refusals.push_back(refusalOf(judged.path, judged.verdict, protections, facts.home("")));
    return refusals;
}

// Who owns what cannot be told while part of the apps is unknown; the person is told why nothing
// of that kind is offered.
void noteUnknownOwners(const InstalledApps& installed, const LeftoverOwners& owners, Result& result) {
    if (!installed.complete)
        result.notes.push_back("Not every Applications folder could be read, so no leftover is offered: an app "
                               "that could not be seen may still own them.");
    for (const auto& path : owners.unidentified)
        result.notes.push_back(path + " has no readable identifier, so no named leftover is offered: they could be "
                               "its data.");
}

Result runLeftovers(const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string home = facts.home("");
    in.progress.show("Listing the installed apps…");
    const InstalledApps installed = installedApps(facts);
    LeftoverOwners owners = leftoverOwners(installed.apps, home, facts);
    owners.complete = installed.complete;
    in.progress.show("Looking through the Library folders…");
    const std::vector<LeftoverRow> rows = leftoverRows(home, owners, facts);

    std::vector<std::string> paths;
    for (const auto& row : rows) paths.push_back(row.path);
    in.progress.show("Measuring what they take…");
    const auto sizes = duBatchMeasure(paths, kMeasureSeconds, facts).sizes;
    const StoredProtectList protections = storedProtections(facts);
    const auto refusals = refusalsOf(paths, facts, protections);

    Result result;
    noteUnknownOwners(installed, owners, result);
    if (!protections.list) result.notes.push_back(protections.problem);
    Table table({Table::Align::right, Table::Align::left, Table::Align::left});
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    std::int64_t total = 0;
    std::size_t unmeasured = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const LeftoverRow& row = rows[i];
        const auto size = sizes.find(row.path);
        const bool measured = size != sizes.end() && size->second >= 0;
        if (measured) total += size->second;
        else ++unmeasured;
        table.row({measured ? fmtBytes(size->second) : "?", std::string(rawValue(row.rule)), row.path});
        if (refusals[i]) table.note("kept — " + *refusals[i]);

        nlohmann::ordered_json item = {{"path", row.path}, {"rule", rawValue(row.rule)}};
        if (row.id) item["id"] = *row.id;
        if (measured) item["sizeBytes"] = size->second;
        if (refusals[i]) item["refusal"] = *refusals[i];
        items.push_back(std::move(item));
    }
    if (rows.empty()) result.line("Nothing left behind by apps that are gone.");
    else result.add(table);
    if (!rows.empty()) {
        const std::string count = std::to_string(rows.size()) + (rows.size() == 1 ? " leftover" : " leftovers");
        std::string line = "Total: " + fmtBytes(total) + " in " + count;
        if (unmeasured == rows.size()) line = count + ", whose sizes could not be measured";
        else if (unmeasured > 0) line += " (" + std::to_string(unmeasured) + " not measured)";
        result.line();
        result.line(line + ". Nothing was removed.");
    }
    result.json = {{"leftovers", std::move(items)}};
    if (unmeasured < rows.size() || rows.empty()) result.json["totalBytes"] = total;
    return result;
}

// The bundle a person named: anything else is bad input, not a refusal.
std::string requireAppBundle(const std::string& typed, const Facts& facts) {
    const std::string app = standardizePath(absolutePath(typed));
    const auto bundle = facts.lstat(app);
    if (!bundle) throw OVError(app + " does not exist.");
    if (!bundle->isDirectory()) throw OVError(app + " is not an app: an app is a folder, and this is not one.");
    const auto info = facts.lstat(appendingPathComponent(app, "Contents/Info.plist"));
    if (!info) throw OVError(app + " is not an app: it has no Contents/Info.plist.");
    if (!info->isRegularFile()) throw OVError(app + " is not an app: its Contents/Info.plist is not a file.");
    return app;
}

// What an AI app keeps beyond the Library folders (its models, wherever its settings put them),
// offered with the rest. A place shared with other tools, used by another installed app too, or on
// a drive that is away starts unticked; so does every one when some app could not be seen.
void addAIDataRows(UninstallPlan& plan, const InstalledApps& installed, const std::string& home, const Facts& facts) {
    std::vector<AIOtherApp> others;
    for (const auto& other : installed.apps)
        if (standardizePath(other.path) != standardizePath(plan.app)) others.push_back({other.name, other.bundleID, std::nullopt});
    for (const auto& offer : aiAppDataOffers(plan.appName, plan.bundleID, std::nullopt, others, facts))
        addUninstallRow(plan, offer.path, UninstallSource::aiData, offer.preselected && installed.complete, offer.note,
                        home);
}

struct JudgedRow {
    UninstallPlanRow row;
    std::optional<std::string> refusal;
};

std::string planLine(const JudgedRow& judged) {
    return std::string(judged.row.on && !judged.refusal ? "[x] " : "[ ] ") + judged.row.path;
}

void describePlan(const UninstallPlan& plan, const std::vector<JudgedRow>& rows, Result& result) {
    std::string title = "Uninstall " + plan.appName;
    if (!plan.bundleID.empty()) title += " (" + plan.bundleID + ")";
    result.line(title + ":");
    if (plan.cask)
        result.line("    " + brewUninstallDisplay(plan.cask->token) +
                    (plan.cask->needsAdmin ? "   (Homebrew will ask for an administrator's password)" : ""));
    for (const auto& judged : rows) {
        result.line(planLine(judged));
        result.line("      " + std::string(rawValue(judged.row.source)) + ": " +
                    (judged.refusal ? "kept — " + *judged.refusal : judged.row.note));
    }
    nlohmann::ordered_json json = {{"app", plan.app}, {"bundleID", plan.bundleID}};
    if (plan.cask)
        json["cask"] = {{"token", plan.cask->token},
                        {"command", brewUninstallDisplay(plan.cask->token)},
                        {"needsAdmin", plan.cask->needsAdmin}};
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const auto& judged : rows) {
        nlohmann::ordered_json item = {{"path", judged.row.path},
                                       {"source", rawValue(judged.row.source)},
                                       {"on", judged.row.on},
                                       {"note", judged.row.note}};
        if (judged.row.packageID) item["packageID"] = *judged.row.packageID;
        if (judged.refusal) item["refusal"] = *judged.refusal;
        items.push_back(std::move(item));
    }
    json["rows"] = std::move(items);
    result.json = std::move(json);
}

bool confirmedOnTerminal(std::size_t ticked, bool cask) {
    std::cout << "\nMove the " << ticked << " ticked item" << (ticked == 1 ? "" : "s") << " to the Trash"
              << (cask ? ", after Homebrew's uninstall," : "") << "? [y/N] " << std::flush;
    return answeredYes();
}

std::string userName(std::uint32_t uid) {
    if (const passwd* entry = ::getpwuid(uid)) return entry->pw_name;
    const char* fromEnvironment = std::getenv("USER");
    return fromEnvironment ? fromEnvironment : "";
}

// The helper sets an item aside into the user's Trash under a free name.
std::optional<std::string> freeTrashName(const std::string& trash, const std::string& name, const Facts& facts) {
    for (int n = 1; n <= 100; ++n) {
        const std::string candidate =
            appendingPathComponent(trash, n == 1 ? name : name + " " + std::to_string(n));
        if (!facts.lstat(candidate)) return candidate;
    }
    return std::nullopt;
}

// Where the row went, or the sentence that kept it.
struct Removal {
    std::optional<std::string> inTrash;
    std::string problem;
};

// The user moves what the user may (the home, an app in /Applications); the machine's Library,
// and whatever the user was refused outside the home, is the helper's to set aside.
Removal removeRow(const std::string& path, const LeftoversOptions& options, const Facts& facts) {
    const bool inHome = isAtOrBelow(path, facts.home(""));
    if (inHome || !path.starts_with("/Library/")) {
        try {
            return {Ledger::moveToTrash(path), ""};
        } catch (const OVError& error) {
            if (inHome) return {std::nullopt, error.what()};
        }
    }
    const std::string trash = facts.home(".Trash");
    const auto target = freeTrashName(trash, lastPathComponent(path), facts);
    if (!target) return {std::nullopt, "no free name was found for it in " + trash + "."};
    const HelperAnswer answer = performThroughHelper(op::MoveAside{path, *target, facts.uid}, options.socket);
    if (answer.kind == HelperAnswer::Kind::done) return {*target, ""};
    return {std::nullopt, answer.sentence};
}

Result runUninstall(const LeftoversOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    const std::string app = requireAppBundle(options.app, facts);
    const std::string home = facts.home("");
    in.progress.show("Listing the installed apps…");
    const InstalledApps installed = installedApps(facts);
    in.progress.show("Gathering what the app left…");
    UninstallPlan plan = uninstallPlan(app, home, installed.apps, facts);

    Result result;
    // An app that could not be seen may own what would be offered as this one's.
    if (!installed.complete) {
        std::erase_if(plan.rows, [](const UninstallPlanRow& row) { return row.source == UninstallSource::leftover; });
        result.notes.push_back("Not every Applications folder could be read, so the app's named leftovers are left "
                               "out: another app may still use them.");
    }
    addAIDataRows(plan, installed, home, facts);
    const StoredProtectList protections = storedProtections(facts);
    if (!protections.list) result.notes.push_back(protections.problem);
    std::vector<std::string> paths;
    for (const auto& row : plan.rows) paths.push_back(row.path);
    const auto refusals = refusalsOf(paths, facts, protections);
    std::vector<JudgedRow> rows;
    for (std::size_t i = 0; i < plan.rows.size(); ++i) rows.push_back({plan.rows[i], refusals[i]});
    describePlan(plan, rows, result);
    if (options.dryRun) return result;

    std::vector<std::string> steps;
    if (plan.cask) steps.push_back("Would run " + brewUninstallDisplay(plan.cask->token) + ".");
    std::size_t ticked = 0;
    for (const auto& judged : rows)
        if (judged.row.on && !judged.refusal) {
            ++ticked;
            steps.push_back("Would move " + judged.row.path + " to the Trash.");
        }
    if (facts.recorded) {
        Result recorded = nothingChangedOnARecording(steps);
        recorded.lines.insert(recorded.lines.begin(), result.lines.begin(), result.lines.end());
        recorded.json["uninstall"] = result.json;
        return recorded;
    }
    if (!options.yes && in.json) throw OVError("With --json, give --yes: the confirmation cannot be asked in JSON output.");
    if (!options.yes && (!::isatty(STDIN_FILENO) || !confirmedOnTerminal(ticked, plan.cask.has_value()))) {
        result.status = kRefused;
        result.line();
        result.line(::isatty(STDIN_FILENO) ? "Nothing was removed." : "Nothing was removed: confirm on a terminal, or give --yes.");
        result.json["done"] = false;
        return result;
    }

    result.line();
    bool allGone = true;
    nlohmann::ordered_json outcomes = nlohmann::ordered_json::array();
    if (plan.cask) {
        if (!in.json) std::cout << "Running " << brewUninstallDisplay(plan.cask->token) << " …" << std::endl;
        const InvocationResult brew = HomebrewCasks::uninstall(*plan.cask, std::nullopt, home, userName(facts.uid), facts);
        result.json["brewStatus"] = brew.status;
        if (brew.status != 0) {
            // The app is still installed, so what it left is still its own.
            result.status = kRefused;
            result.line(brewUninstallDisplay(plan.cask->token) + " did not succeed (status " +
                        std::to_string(brew.status) + "); nothing else was removed.");
            std::istringstream said(brew.output);
            for (std::string line; std::getline(said, line);) result.line("  " + line);
            result.json["done"] = false;
            return result;
        }
        result.line("• " + brewUninstallDisplay(plan.cask->token) + " — done");
    }
    for (const auto& judged : rows) {
        if (!judged.row.on) continue;
        nlohmann::ordered_json outcome = {{"path", judged.row.path}};
        if (judged.refusal) {
            allGone = false;
            result.line("• " + judged.row.path + " — kept: " + *judged.refusal);
            outcome["kept"] = *judged.refusal;
        } else if (!facts.lstat(judged.row.path)) {
            result.line("• " + judged.row.path + " — already gone");
            outcome["gone"] = true;
        } else if (const Removal removal = removeRow(judged.row.path, options, facts); removal.inTrash) {
            Ledger::log("UNINSTALL " + judged.row.path + " -> " + *removal.inTrash);
            result.line("• " + judged.row.path + " — moved to the Trash");
            outcome["inTrash"] = *removal.inTrash;
        } else {
            allGone = false;
            result.line("• " + judged.row.path + " — kept: " + removal.problem);
            outcome["kept"] = removal.problem;
        }
        outcomes.push_back(std::move(outcome));
    }
    Ledger::flush();
    result.json["done"] = allGone;
    result.json["outcomes"] = std::move(outcomes);
    result.status = allGone ? kDone : kRefused;
    return result;
}

}  // namespace

void addLeftoversCommands(Registry& registry) {
    registry.add("leftovers",
                 "List what apps that are gone left behind: settings, caches, containers, support folders and "
                 "launch files in your Library and the machine's, named after an app nothing installed owns, and the "
                 "folders of /Applications left empty. Each row says which rule found it, its size, and why it "
                 "would be kept if something refuses it. Deletes nothing.",
                 runLeftovers);

    auto options = std::make_shared<LeftoversOptions>();
    auto* uninstall = registry.add(
        "uninstall",
        "Remove an app and what it leaves: the bundle (or Homebrew's own uninstall when a cask installed it), "
        "its settings and caches, its vendor's folders, files its installer put elsewhere, and the folder it "
        "leaves empty. The plan is shown first; ticked rows go to the Trash after you agree (or with --yes); "
        "licences and protected places start unticked. Exit 1 when something ticked stayed, 2 when APP is not "
        "an app.",
        [options](const Invocation& in) { return runUninstall(*options, in); });
    uninstall->add_option("APP", options->app, "The app bundle, such as /Applications/Name.app")->required();
    uninstall->add_flag("--dry-run", options->dryRun, "Show the plan and change nothing");
    uninstall->add_flag("--yes", options->yes, "Go ahead without asking");
    uninstall->add_option("--socket", options->socket, "The helper's socket, for items outside your home")
        ->type_name("PATH")
        ->capture_default_str();
}

}  // namespace orvane::cli
