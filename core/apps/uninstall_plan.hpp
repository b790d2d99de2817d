// The whole removal of one app, as a list a person ticks: the bundle (or Homebrew's own uninstall
// of its cask), what the app left in the Library folders, its vendor's folders, the files its
// installer packages alone account for, the cask's own list, and the folder it leaves empty.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/apps/homebrew_casks.hpp"
#include "core/common/facts.hpp"
#include "core/startup/startup_owner.hpp"

namespace orvane {

// aiData: what an AI app's rule and settings lead to (its models, wherever they are), added by the
// caller from core/ai's offers.
enum class UninstallSource { bundle, leftover, vendorFolder, receipt, zap, emptiedFolder, aiData };
std::string_view rawValue(UninstallSource source);

struct UninstallPlanRow {
    std::string path;
    UninstallSource source = UninstallSource::bundle;
    bool on = true;  // whether it starts ticked
    std::string note;
    std::optional<std::string> packageID;  // a receipt's package
    bool operator==(const UninstallPlanRow&) const = default;
};

struct UninstallPlan {
    std::string app;
    std::string bundleID;  // "" when unknown
    std::string appName;   // the bundle's file name without ".app"
    std::optional<CaskRecord> cask;  // Homebrew removes the bundle when it installed it
    std::vector<UninstallPlanRow> rows;  // each path once, under its first source
    bool operator==(const UninstallPlan&) const = default;
};

// The plan for the bundle at `app`, with `installed` the apps on the Mac (the app itself among
// them or not). Activation data and what is protected by default start unticked.
UninstallPlan uninstallPlan(const std::string& app, const std::string& home, const std::vector<AppRef>& installed,
                            const Facts& facts = Facts::real());

// Adds a row unless the plan has its path already, judged as every row is: activation data and
// what is protected by default start unticked, whatever `on` asks.
void addUninstallRow(UninstallPlan& plan, std::string path, UninstallSource source, bool on, std::string_view note,
                     const std::string& home, std::optional<std::string> packageID = std::nullopt);

}  // namespace orvane
