// orvane watch: what the history of scans says is coming: the pace at which free space goes, when
// the disk fills, what grew, what a system update cost, how old the downloads are, what of the last
// scan's findings is still there and what to do next.
#include <fmt/format.h>

#include <cstdio>
#include <memory>

#include "cli/command.hpp"
#include "core/common/byte_counts.hpp"
#include "core/common/json_files.hpp"
#include "core/common/text.hpp"
#include "core/ledger/ledger.hpp"
#include "core/ledger/user_defaults.hpp"
#include "core/monitoring/fill_forecast.hpp"
#include "core/monitoring/health_sample.hpp"
#include "core/monitoring/health_sentences.hpp"
#include "core/monitoring/space_watch.hpp"
#include "core/monitoring/watch_inputs.hpp"
#include "core/scan/reconciliation.hpp"

namespace orvane::cli {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::int64_t kGB = 1'000'000'000;

Json orNull(const std::optional<std::int64_t>& value) { return value ? Json(*value) : Json(); }
Json orNull(const std::optional<std::string>& value) { return value ? Json(*value) : Json(); }
Json knownOrNull(std::int64_t bytes) { return bytes >= 0 ? Json(bytes) : Json(); }

Json pointJSON(const std::optional<ScanSnapshot>& snapshot) {
    if (!snapshot) return Json();
    return {{"date", iso8601(snapshot->date)}, {"free", snapshot->free}};
}

// The items of `present` that reconciling changed: the groups that lost members.
std::vector<SpaceItem> prunedItems(const std::vector<SpaceItem>& cached, const Reconciliation& reconciled) {
    std::vector<SpaceItem> pruned;
    std::size_t p = 0, v = 0;
    for (const auto& item : cached) {
        if (v < reconciled.vanished.size() && reconciled.vanished[v] == item) {
            ++v;
        } else if (p < reconciled.present.size()) {
            if (!(reconciled.present[p] == item)) pruned.push_back(reconciled.present[p]);
            ++p;
        }
    }
    return pruned;
}

struct Watch {
    std::vector<ScanSnapshot> trends;  // known free space only
    SpaceWatchConfig config;
    TrendTone tone = TrendTone::normal;
    std::optional<FillForecast> forecast;
    std::optional<std::string> sentence, runway;
    std::optional<ScanSnapshot> lowest, weekAgo;
    std::vector<Growth> growth;
    std::optional<std::int64_t> osUpdateLoss, swap;
    DownloadsAge downloads;
    bool downloadsOver = false;
    std::optional<Ledger::ItemsCache> cache;
    Reconciliation reconciled;
    std::vector<SpaceItem> pruned;
    ReclaimableSplit reclaimable;
    CleanupSplit cleanup;
    std::vector<NextStep> steps;
};

Watch look(const Facts& facts, const std::function<std::int64_t()>& swapUsed) {
    Watch w;
    for (auto& point : Ledger::loadTrends())
        if (point.free >= 0) w.trends.push_back(std::move(point));
    w.config = SpaceWatchConfig::from([](std::string_view key) { return userDefault(key); });
    const TimePoint now = facts.now();

    const std::int64_t floorBytes = w.config.ruleFloorOn ? std::int64_t{w.config.ruleFloorGB} * kGB : 0;
    if (!w.trends.empty()) {
        const ScanSnapshot& newest = w.trends.back();
        std::optional<std::int64_t> previous;
        if (w.trends.size() >= 2) previous = w.trends[w.trends.size() - 2].free;
        w.tone = trendTone(newest.free, previous, floorBytes);
    }
    std::vector<FreePoint> points;
    for (const auto& point : w.trends) points.push_back({point.date, point.free});
    w.forecast = fillForecast(points, now);
    w.sentence = forecastSentence(w.forecast);
    w.runway = spaceWatchRunway(w.trends, w.config.ruleFloorGB, w.config.ruleFloorOn);
    w.lowest = lowestFreePoint(w.trends);
    w.weekAgo = weekAgoSnapshot(w.trends);
    if (w.weekAgo) w.growth = biggestGrowth(w.weekAgo->sizes, w.trends.back().sizes, 100'000'000, 5);

    const OSScanHistory os = storedOSScanHistory();
    if (os.newest)
        w.osUpdateLoss = spaceLostAcrossOSUpdate(os.beforeUpdate ? std::optional(os.beforeUpdate->os) : std::nullopt,
                                                 os.newest->os,
                                                 os.beforeUpdate ? std::optional(os.beforeUpdate->free) : std::nullopt,
                                                 os.newest->free);
    w.swap = swapWorthMentioning(swapUsed());

    w.downloads = downloadsAge(downloadEntries(facts.home("Downloads"), facts), now);
    w.downloadsOver = w.config.ruleDLOn && w.downloads.total() > std::int64_t{w.config.ruleDLCapGB} * kGB;

    w.cache = Ledger::loadItemsCache(ScanScope(scope::Folder{facts.home("")}));
    if (w.cache) {
        w.reconciled = reconcileWithDisk(w.cache->items, facts);
        w.pruned = prunedItems(w.cache->items, w.reconciled);
    }
    std::set<std::string> safeIDs, moveIDs;
    std::vector<SpaceItem> safeItems;
    for (const auto& item : w.reconciled.present) {
        if (item.safety == Safety::safe) {
            safeIDs.insert(item.id);
            safeItems.push_back(item);
        }
        if (item.suggested == Suggested::move) moveIDs.insert(item.id);
    }
    w.reclaimable = reclaimableSplit(w.reconciled.present, safeIDs, moveIDs);
    w.cleanup = safeCleanupSplit(safeItems);
    w.steps = nextSteps(w.cache.has_value(), w.reclaimable.safe, w.reclaimable.move, w.reclaimable.review);
    return w;
}

Json watchJSON(const Watch& w) {
    Json growth = Json::array(), vanished = Json::array(), pruned = Json::array(), steps = Json::array();
    for (const auto& g : w.growth) growth.push_back({{"id", g.id}, {"grew", g.grew}});
    for (const auto& item : w.reconciled.vanished) vanished.push_back(item.id);
    for (const auto& item : w.pruned) pruned.push_back(toJSON(item, JSONDateEncoding::iso8601));
    for (const auto& step : w.steps)
        steps.push_back({{"kind", rawValue(step.kind)}, {"bytes", orNull(step.bytes)}, {"done", step.done}});
    return {
        {"free", w.trends.empty() ? Json() : Json(w.trends.back().free)},
        {"tone", rawValue(w.tone)},
        {"forecast", w.forecast ? Json{{"lossPerWeek", w.forecast->lossPerWeek}, {"weeksLeft", w.forecast->weeksLeft}}
                                : Json()},
        {"forecastSentence", orNull(w.sentence)},
        {"runway", orNull(w.runway)},
        {"lowestFree", pointJSON(w.lowest)},
        {"weekAgo", pointJSON(w.weekAgo)},
        {"growth", std::move(growth)},
        {"osUpdateLoss", orNull(w.osUpdateLoss)},
        {"swap", orNull(w.swap)},
        {"downloads",
         {{"recent", w.downloads.recent},
          {"middle", w.downloads.middle},
          {"old", w.downloads.old},
          {"undated", w.downloads.undated},
          {"total", w.downloads.total()},
          {"capGB", w.config.ruleDLCapGB},
          {"over", w.downloadsOver}}},
        {"reconciled",
         {{"vanished", std::move(vanished)},
          {"lostBytes", knownOrNull(w.reconciled.lostBytes())},
          {"pruned", std::move(pruned)}}},
        {"reclaimable",
         {{"total", knownOrNull(w.reclaimable.total)},
          {"safe", knownOrNull(w.reclaimable.safe)},
          {"move", knownOrNull(w.reclaimable.move)},
          {"review", knownOrNull(w.reclaimable.review)}}},
        {"cleanupSplit", {{"stays", knownOrNull(w.cleanup.stays)}, {"regrows", knownOrNull(w.cleanup.regrows)}}},
        {"nextSteps", std::move(steps)},
        {"config", toJSON(w.config)},
    };
}

std::string toneText(TrendTone tone) {
    switch (tone) {
        case TrendTone::low: return "below your floor";
        case TrendTone::drop: return "a sharp drop since the scan before";
        case TrendTone::normal: break;
    }
    return "steady";
}

// What the forecast still needs, when it has nothing to say.
std::string historyNeeded(const std::vector<ScanSnapshot>& trends) {
    const std::size_t count = trends.size();
    const bool spansAWeek =
        count >= 2 && std::chrono::duration<double>(trends.back().date - trends.front().date).count() >= 604'800;
    if (count >= 3 && spansAWeek) return "Free space is not falling across your scans: nothing to forecast.";
    return "A forecast needs at least three scans of your home's disk spread over a week or more (" +
           counted(static_cast<std::int64_t>(count), "scan") + " so far; run orvane scan ~ every few days).";
}

std::string stepText(const NextStep& step) {
    const std::string bytes = step.bytes ? " — " + sizeText(*step.bytes) : "";
    switch (step.kind) {
        case NextStep::Kind::scan: return "Scan your home folder";
        case NextStep::Kind::freeSafe: return "Free what is safe to remove" + bytes;
        case NextStep::Kind::moveToExternal: return "Move big data to an external drive" + bytes;
        case NextStep::Kind::review: return "Review the rest" + bytes;
    }
    return {};
}

void describe(const Watch& w, Result& result) {
    if (w.trends.empty()) {
        result.line("No scan of your home's disk is recorded yet: run orvane scan ~ to start the history.");
    } else {
        const ScanSnapshot& newest = w.trends.back();
        result.line(fmt::format("{} free at the last scan ({}): {}.", fmtBytes(newest.free), fmtMediumDate(newest.date),
                                toneText(w.tone)));
    }
    result.line(w.sentence ? *w.sentence : historyNeeded(w.trends));
    if (w.runway) result.line(*w.runway);
    if (w.lowest) result.line("Lowest free space: " + fmtBytes(w.lowest->free) + " on " + fmtMediumDate(w.lowest->date) + ".");
    if (w.weekAgo) {
        result.line("Since the scan of " + fmtMediumDate(w.weekAgo->date) + " (" + fmtBytes(w.weekAgo->free) + " free)" +
                    (w.growth.empty() ? ", no category grew by 100 MB or more." : ":"));
        for (const auto& g : w.growth) result.line("  grew " + fmtBytes(g.grew) + ": " + g.id);
    }
    if (w.osUpdateLoss) result.line("The last system update took " + fmtBytes(*w.osUpdateLoss) + " of free space.");
    if (w.swap) result.line(swapSentence(*w.swap));

    result.line();
    result.line(fmt::format("Downloads: {} (recent {}, 1 to 6 months {}, older {}{}){}", fmtBytes(w.downloads.total()),
                            fmtBytes(w.downloads.recent), fmtBytes(w.downloads.middle), fmtBytes(w.downloads.old),
                            w.downloads.undated > 0 ? ", undated " + fmtBytes(w.downloads.undated) : "",
                            w.downloadsOver ? fmt::format(", over your {} GB cap.", w.config.ruleDLCapGB) : "."));

    if (w.cache) {
        result.line(fmt::format("Last scan of your home folder: {}, {}.", fmtMediumDate(w.cache->date),
                                counted(static_cast<std::int64_t>(w.cache->items.size()), "finding")));
        if (!w.reconciled.vanished.empty())
            result.line("  " + counted(static_cast<std::int64_t>(w.reconciled.vanished.size()), "finding") +
                        " gone since, " + sizeText(w.reconciled.lostBytes()) + ".");
        for (const auto& item : w.pruned) result.line("  smaller now: " + item.title + ", " + sizeText(item.sizeBytes));
        result.line("Reclaimable: " + sizeText(w.reclaimable.total) + " (safe " + sizeText(w.reclaimable.safe) +
                    ", to move " + sizeText(w.reclaimable.move) + ", to review " + sizeText(w.reclaimable.review) + ").");
        if (w.reclaimable.safe > 0)
            result.line("Of the safe part, " + sizeText(w.cleanup.stays) + " stays free and " +
                        sizeText(w.cleanup.regrows) + " builds itself again.");
    }
    result.line();
    result.line("Next steps:");
    for (const auto& step : w.steps) result.line(std::string(step.done ? "  [x] " : "  [ ] ") + stepText(step));
}

Result runWatch(const Invocation& in, const std::function<std::int64_t()>& swapUsed) {
    if (in.facts.recorded)
        throw OVError("orvane watch needs this machine: it reads the scan history kept here, which a recorded Mac "
                      "does not carry.");
    const Watch w = look(in.facts, swapUsed);
    Result result;
    result.json = watchJSON(w);
    describe(w, result);
    if (w.tone == TrendTone::drop || w.tone == TrendTone::low) result.status = kRefused;
    return result;
}

}  // namespace

void addWatchCommand(Registry& registry) {
    registry.add(
        "watch",
        "What the history of your scans says is coming (orvane scan ~ keeps it): free space at the last scan and its "
        "tone against the one before (low under your floor of free space, drop for a fall of 10 GB that is also a "
        "tenth of what was free), when the disk fills at this pace, what grew most since a week before, the free "
        "space a system update took, swap when it passes 1 GB, how old the files in ~/Downloads are, which findings "
        "of the last scan of your home are gone or smaller, what is reclaimable and the next steps. Nothing is "
        "changed. Exit 1 when the tone is drop or low, so that a scheduled job can warn; 2 on a recorded Mac, whose "
        "history is not kept here.",
        [](const Invocation& in) { return runWatch(in, currentSwapUsed); });
}

}  // namespace orvane::cli
