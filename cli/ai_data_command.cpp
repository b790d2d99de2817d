// orvane ai-data: what an AI app keeps and where, as its removal would offer it: the paths its
// rule and its own settings lead to, each judged first, with their sizes and, for LM Studio's
// home, the models in it. Deletes nothing.
#include <algorithm>

#include "cli/command.hpp"
#include "core/ai/ai_app_data_offers.hpp"
#include "core/ai/lm_studio_model_names.hpp"
#include "core/apps/app_bundle_inventory.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/scan/disk_measure.hpp"

namespace orvane::cli {
namespace {

// Model folders can hold hundreds of gigabytes; beyond an hour something is wrong with the disk.
constexpr double kMeasureSeconds = 3600;
constexpr std::size_t kModelNamesShown = 5;

struct AIDataOptions {
    std::string app;
    std::optional<std::string> bundleID;
    std::optional<std::string> teamID;
};

// The installed app of that name: the exact name first, then the name with case ignored.
const AppRef* installedAppNamed(const std::vector<AppRef>& apps, const std::string& name) {
    auto found = std::find_if(apps.begin(), apps.end(), [&](const AppRef& app) { return app.name == name; });
    if (found == apps.end())
        found = std::find_if(apps.begin(), apps.end(),
                             [&](const AppRef& app) { return lowercased(app.name) == lowercased(name); });
    return found == apps.end() ? nullptr : &*found;
}

std::string modelsLine(const LMStudioModelNames& models) {
    std::string line = "Models (" + std::to_string(models.total) + "): ";
    for (std::size_t i = 0; i < models.names.size(); ++i) line += (i ? ", " : "") + models.names[i];
    if (models.total > models.names.size()) line += " and " + std::to_string(models.total - models.names.size()) + " more";
    return line + ".";
}

Result runAIData(const AIDataOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    if (trimWhitespace(options.app).empty()) throw OVError("Name the app, such as \"LM Studio\".");
    if (options.bundleID && trimWhitespace(*options.bundleID).empty()) throw OVError("--bundle-id needs an identifier.");
    if (options.teamID && trimWhitespace(*options.teamID).empty()) throw OVError("--team-id needs an identifier.");
    in.progress.show("Listing the installed apps…");
    const InstalledApps installed = installedApps(facts);
    const AppRef* app = installedAppNamed(installed.apps, options.app);
    const std::string bundleID = options.bundleID ? *options.bundleID : app ? app->bundleID : "";
    const std::optional<std::string> teamID = options.teamID;

    Result result;
    const auto rule = aiAppDataRule(bundleID, teamID, options.app);
    if (!rule) {
        result.status = kRefused;
        result.line("No rule knows " + options.app + (bundleID.empty() ? "" : " (" + bundleID + ")") +
                    ": nothing is known of the data it keeps.");
        result.json = {{"product", nullptr}, {"offers", nlohmann::ordered_json::array()}};
        return result;
    }

    std::vector<AIOtherApp> others;
    for (const auto& other : installed.apps)
        if (!app || other.path != app->path) others.push_back({other.name, other.bundleID, std::nullopt});
    in.progress.show("Reading what " + rule->product + " keeps…");
    const auto offers = aiAppDataOffers(options.app, bundleID, teamID, others, facts);

    std::vector<std::string> paths;
    for (const auto& offer : offers)
        if (!offer.notConnected) paths.push_back(offer.path);
    std::map<std::string, std::int64_t> sizes;
    if (!paths.empty()) {
        in.progress.show("Measuring " + counted(static_cast<std::int64_t>(paths.size()), "place") + " with du…");
        sizes = duBatchMeasure(paths, kMeasureSeconds, facts).sizes;
    }
    in.progress.clear();

    const auto names = [&](const std::string& folder) -> std::optional<std::vector<std::string>> {
        const auto entries = facts.list(folder);
        if (!entries) return std::nullopt;
        std::vector<std::string> found;
        for (const auto& entry : *entries) found.push_back(entry.name);
        return found;
    };
    result.line(rule->product + ": " +
                (offers.empty() ? "none of its data was found." : counted(static_cast<std::int64_t>(offers.size()), "place") + " with its data."));
    Table table({Table::Align::right, Table::Align::left});
    nlohmann::ordered_json items = nlohmann::ordered_json::array();
    for (const auto& offer : offers) {
        const auto size = sizes.find(offer.path);
        const std::int64_t bytes = size == sizes.end() ? -1 : size->second;
        table.row({offer.notConnected ? "drive away" : sizeText(bytes), offer.path});
        table.note(offer.note);
        if (offer.isHome && !offer.notConnected && rule->ecosystem == "lmstudio") {
            const auto models =
                lmStudioModelNames(appendingPathComponent(offer.path, "models"), names, kModelNamesShown);
            if (models.total > 0) table.note(modelsLine(models));
        }
        items.push_back({{"path", offer.path},
                         {"note", offer.note},
                         {"notConnected", offer.notConnected},
                         {"bytes", bytes < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(bytes)}});
    }
    for (const auto& line : table.lines()) result.line("  " + line);
    result.line();
    result.line("Nothing was removed.");
    result.json = {{"product", rule->product}, {"offers", std::move(items)}};
    return result;
}

}  // namespace

void addAIDataCommand(Registry& registry) {
    auto options = std::make_shared<AIDataOptions>();
    auto* command = registry.add(
        "ai-data",
        "Show what an AI app keeps and where, as removing it would offer it: its home and models folders, "
        "including those its own settings point to (on another drive too), each with its size by du and a note "
        "that says who else uses it. The app is known by its bundle id, its team id or its name; the bundle id "
        "of the installed app of that name is used when none is given. Exit 1 when no rule knows the app. "
        "Deletes nothing.",
        [options](const Invocation& in) { return runAIData(*options, in); });
    command->add_option("APP", options->app, "The app's name, such as \"LM Studio\"")->required();
    command->add_option("--bundle-id", options->bundleID, "The app's bundle identifier")->type_name("ID");
    command->add_option("--team-id", options->teamID, "The app's signing team identifier")->type_name("ID");
}

}  // namespace orvane::cli
