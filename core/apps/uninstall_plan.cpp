#include "core/apps/uninstall_plan.hpp"

#include <algorithm>

#include "core/apps/installer_receipts.hpp"
#include "core/apps/leftover_ownership.hpp"
#include "core/apps/leftovers.hpp"
#include "core/apps/vendor_folders.hpp"
#include "core/common/path.hpp"
#include "core/common/property_list.hpp"
#include "core/common/text.hpp"
#include "core/safety/protection.hpp"

namespace orvane {

namespace {

constexpr std::string_view kSupportFolder = "Library/Application Support";

std::string leftoverNote(const LeftoverRow& row) {
    switch (row.rule) {
        case LeftoverRule::groupContainer: return "Data the app shared with its helpers";
        case LeftoverRule::freeform: return "The app's support folder";
        default: return "Settings or data named after " + row.id.value_or("the app");
    }
}

// The listing vendorFolderPlan judges; only a vendor's folder is looked into.
std::vector<VendorFolderEntry> vendorFolderEntries(const std::string& directory, const VendorNameRule& rule,
                                                   const Facts& facts) {
    std::vector<VendorFolderEntry> entries;
    for (const auto& entry : sortedEntries(directory, facts, [](std::string_view) { return true; })) {
        VendorFolderEntry row{entry.name, entry.isFolder, {}};
        if (entry.isFolder && rule.isVendorFolder(entry.name))
            if (auto children = facts.list(appendingPathComponent(directory, entry.name))) {
                for (const auto& child : *children) row.children.push_back(child.name);
                std::sort(row.children.begin(), row.children.end());
            }
        entries.push_back(std::move(row));
    }
    return entries;
}

}  // namespace

std::string_view rawValue(UninstallSource source) {
    switch (source) {
        case UninstallSource::bundle: return "bundle";
        case UninstallSource::leftover: return "leftover";
        case UninstallSource::vendorFolder: return "vendorFolder";
        case UninstallSource::receipt: return "receipt";
        case UninstallSource::zap: return "zap";
        case UninstallSource::emptiedFolder: return "emptiedFolder";
        case UninstallSource::aiData: return "aiData";
    }
    return "bundle";
}

UninstallPlan uninstallPlan(const std::string& app, const std::string& home, const std::vector<AppRef>& installed,
                            const Facts& facts) {
    UninstallPlan plan;
    plan.app = app;
    plan.appName = deletingPathExtension(lastPathComponent(app));
    plan.bundleID = bundleIdentifier(app, facts);
    plan.cask = HomebrewCasks::cask(app, home, {HomebrewCasks::defaultCaskrooms.begin(), HomebrewCasks::defaultCaskrooms.end()},
                                    facts);

    auto add = [&](std::string path, UninstallSource source, bool on, std::string_view note,
                   std::optional<std::string> packageID = std::nullopt) {
        addUninstallRow(plan, std::move(path), source, on, note, home, std::move(packageID));
    };

    if (!plan.cask) add(app, UninstallSource::bundle, true, "The app itself");

    // The app's leftovers are what the others leave unclaimed once it is gone.
    if (!plan.bundleID.empty()) {
        std::vector<AppRef> others;
        std::copy_if(installed.begin(), installed.end(), std::back_inserter(others),
                     [&](const AppRef& other) { return standardizePath(other.path) != standardizePath(app); });
        const std::string base = baseBundleID(plan.bundleID);
        for (const auto& row : leftoverRows(home, leftoverOwners(others, home, facts), facts))
            if (leftoverBelongsTo(row, base)) add(row.path, UninstallSource::leftover, true, leftoverNote(row));
    }

    const VendorNameRule rule = vendorNameRule(plan.appName, plan.bundleID);
    for (const std::string& directory : {appendingPathComponent(home, kSupportFolder), "/" + std::string(kSupportFolder)})
        for (const auto& pick : vendorFolderPlan(plan.appName, plan.bundleID, directory,
                                                 vendorFolderEntries(directory, rule, facts)))
            add(appendingPathComponent(directory, pick.relativePath), UninstallSource::vendorFolder, pick.on, pick.note);

    for (auto& receipt : InstallerReceipts::leftovers(app, home, facts))
        add(receipt.path, UninstallSource::receipt, true, "Installed by the package " + receipt.packageID,
            receipt.packageID);

    if (plan.cask)
        for (const auto& raw : plan.cask->zap)
            if (auto path = zapPath(raw, home); path && facts.lstat(*path))
                add(*path, UninstallSource::zap, true, "On the cask's own list of what it leaves");

    const std::string folder = deletingLastPathComponent(app);
    std::vector<std::string> remaining;
    for (const auto& entry : sortedEntries(folder, facts, [&](std::string_view name) { return name != lastPathComponent(app); }))
        remaining.push_back(entry.name);
    if (auto emptied = emptiedVendorFolder(app, {"/Applications", appendingPathComponent(home, "Applications")}, remaining))
        add(*emptied, UninstallSource::emptiedFolder, true, "The folder that held the app, empty without it");
    return plan;
}

void addUninstallRow(UninstallPlan& plan, std::string path, UninstallSource source, bool on, std::string_view note,
                     const std::string& home, std::optional<std::string> packageID) {
    if (std::any_of(plan.rows.begin(), plan.rows.end(), [&](const UninstallPlanRow& row) { return row.path == path; }))
        return;
    UninstallRowState state = uninstallRow(path, on, note);
    // What is protected by default is shown, never ticked: the person may still choose it.
    if (auto builtIn = builtInProtection(path, home); builtIn && state.on)
        state = {false, "Protected by Velloran Orvane: " + lowercased(builtIn->label) + ". " + builtIn->why};
    plan.rows.push_back({std::move(path), source, state.on, std::move(state.note), std::move(packageID)});
}

}  // namespace orvane
