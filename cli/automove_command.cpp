// orvane automove: the user's rule for moving big unused data to another drive when free space
// runs low, whether a move is due now, and what a run would take. Runs on a schedule are the
// front end's; this command only answers, and writes the rule.
#include <charconv>
#include <filesystem>

#include "cli/command.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"
#include "core/relocation/auto_move.hpp"

namespace orvane::cli {
namespace {

// A scan of a whole disk lists many thousands of items; far beyond that is a mistake.
constexpr std::size_t kItemsLimit = 64 * 1024 * 1024;

struct AutoMoveOptions {
    std::string items;
    std::string free;
    bool enable = false;
    bool disable = false;
    std::string thresholdGB;
    std::optional<std::string> drive;
    std::string kinds;
    std::string unusedDays;
    bool withoutAsking = false;
    bool askFirst = false;
};

StoredAutoMoveRule storedRule(const Facts& facts) {
    return loadAutoMoveRule(ledgerFile(facts, "auto-move-rule.json"), facts);
}

// A count typed on the command line: digits only, so "-5", "5.0" and "5k" are all refused.
std::int64_t countOption(const std::string& text, std::string_view option, std::string_view unit) {
    std::int64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [at, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || text.front() == '-' || error != std::errc() || at != end)
        throw OVError(std::string(option) + " must be a whole number of " + std::string(unit) + ", 0 or more, not \"" +
                      text + "\".");
    return value;
}

std::set<AutoMoveRule::Kind> kindsOption(const std::string& text) {
    std::set<AutoMoveRule::Kind> kinds;
    for (const auto& name : splitKeepingEmpties(text, ',')) {
        const auto kind = fromRawValue<AutoMoveRule::Kind>(trimWhitespace(name));
        if (!kind)
            throw OVError("Unknown kind \"" + name + "\" for --kinds: the kinds are aiModels, media and devFolders.");
        kinds.insert(*kind);
    }
    return kinds;
}

std::string kindsText(const AutoMoveRule& rule) {
    std::string text;
    for (auto kind : AutoMoveRule::allCases)
        if (rule.kinds.contains(kind)) text += (text.empty() ? "" : ", ") + std::string(label(kind));
    return text.empty() ? "none" : text;
}

void describe(Result& result, const AutoMoveRule& rule, bool stored) {
    result.line(std::string("Automatic moves: ") + (rule.enabled ? "on" : "off") +
                (stored ? "" : " (no rule is set: this is the default rule)"));
    result.line("Threshold: below " + std::to_string(rule.thresholdGB) + " GB free");
    result.line("Drive: " + (rule.driveName.empty() ? std::string("none chosen") : rule.driveName));
    result.line("Kinds: " + kindsText(rule));
    result.line("Unused for more than: " + counted(rule.unusedDays, "day"));
    result.line(std::string("Moves without asking: ") + (rule.moveWithoutAsking ? "yes" : "no"));
}

std::vector<SpaceItem> readItems(const std::string& fileOrDash) {
    auto parsed = parseJSONStrictly(readInput(fileOrDash, kItemsLimit));
    if (!parsed.value) throw OVError("The items cannot be read. " + parsed.error);
    if (!parsed.value->is_object() || !parsed.value->contains("items"))
        throw OVError("The items must be a JSON object with an \"items\" array, as orvane scan --json prints it.");
    // orvane scan --json writes its dates in ISO 8601.
    auto decoded = decodeSpaceItems((*parsed.value)["items"], JSONDateEncoding::iso8601);
    if (!decoded.items) throw OVError(decoded.error);
    return std::move(*decoded.items);
}

Result runStatus(const AutoMoveOptions& options, const Invocation& in) {
    const Facts& facts = in.facts;
    // Bad input is told before anything else, whatever the rule.
    std::optional<std::int64_t> typedFree;
    if (!options.free.empty()) typedFree = countOption(options.free, "--free", "bytes");
    std::optional<std::vector<SpaceItem>> items;
    if (!options.items.empty()) items = readItems(options.items);

    Result result;
    const StoredAutoMoveRule stored = storedRule(facts);
    if (!stored.rule) {
        result.status = kRefused;
        result.notes.push_back(stored.problem);
        result.json = {{"rule", nullptr}, {"problem", stored.problem}};
        return result;
    }
    const AutoMoveRule& rule = *stored.rule;
    // Unknown free space is -1 to the rule, which then never finds a move due.
    const std::int64_t free = typedFree ? *typedFree : facts.volume(facts.home("")).available.value_or(-1);
    const bool due = autoMoveDue(rule, free);
    const std::int64_t wanted = autoMoveWanted(rule, free);

    describe(result, rule, stored.present);
    result.line("Free space: " + sizeText(free));
    result.line(due ? "A move is due." : "No move is due.");
    result.line(wanted > 0 ? "Wanted: " + fmtBytes(wanted) + ", to reach ten per cent above the threshold."
                           : "Wanted: nothing, free space is already ten per cent above the threshold.");
    result.json = {{"rule", toJSON(rule)},
                   {"free", free < 0 ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(free)},
                   {"due", due},
                   {"wanted", wanted}};
    result.status = due ? kDone : kRefused;
    if (!items) return result;

    // What the user protected is never moved; an unreadable list protects everything.
    const StoredProtectList protections = storedProtections(facts);
    if (!protections.list)
        result.notes.push_back(protections.problem + " Nothing is chosen while it cannot be read.");
    const std::string home = facts.home("");
    const auto isProtected = [&](const std::string& path) {
        return protectionRefusal(path, protections, {}, {}, home).has_value();
    };
    const auto chosen = autoMoveCandidates(*items, rule, free, isProtected, facts.now());

    std::int64_t total = 0;
    Table table({Table::Align::right, Table::Align::left, Table::Align::left});
    nlohmann::ordered_json candidates = nlohmann::ordered_json::array();
    for (const auto& item : chosen) {
        const std::string kind(label(*autoMoveKind(item)));
        total += item.sizeBytes;  // at most autoMoveMaxBytes: the choice keeps to it
        table.row({fmtBytes(item.sizeBytes), kind, item.id});
        candidates.push_back({{"id", item.id}, {"title", item.title}, {"sizeBytes", item.sizeBytes}, {"kind", kind}});
    }
    result.line();
    if (chosen.empty()) {
        result.line("No item qualifies for a move.");
    } else {
        result.line(due ? "A run would move:" : "Once a move is due, a run would move:");
        result.add(table);
        result.line("Total: " + fmtBytes(total) + " in " + counted(static_cast<std::int64_t>(chosen.size()), "item") + ".");
    }
    result.json["candidates"] = std::move(candidates);
    result.json["totalBytes"] = total;
    return result;
}

Result runSet(const AutoMoveOptions& options, const Invocation& in) {
    if (options.enable && options.disable) throw OVError("Give --enable or --disable, not both.");
    if (options.withoutAsking && options.askFirst) throw OVError("Give --without-asking or --ask-first, not both.");
    const StoredAutoMoveRule stored = storedRule(in.facts);
    AutoMoveRule rule = stored.rule.value_or(AutoMoveRule{});
    if (options.enable || options.disable) rule.enabled = options.enable;
    if (!options.thresholdGB.empty()) rule.thresholdGB = countOption(options.thresholdGB, "--threshold-gb", "gigabytes");
    if (options.drive) {
        // JSON holds only UTF-8: a name in other bytes would be stored altered, and match no drive.
        if (!isValidUTF8(*options.drive)) throw OVError("The drive's name is not valid UTF-8, so the rule cannot hold it.");
        rule.driveName = *options.drive;
    }
    if (!options.kinds.empty()) rule.kinds = kindsOption(options.kinds);
    if (!options.unusedDays.empty()) rule.unusedDays = countOption(options.unusedDays, "--unused-days", "days");
    if (options.withoutAsking || options.askFirst) rule.moveWithoutAsking = options.withoutAsking;
    // The rule is written in this release's form.
    rule.version = AutoMoveRule::currentVersion;

    if (!stored.rule) {
        Result refused;
        refused.status = kRefused;
        refused.notes.push_back(stored.problem + " Remove it to set a new rule.");
        refused.json = {{"saved", false}, {"problem", stored.problem}};
        return refused;
    }
    if (in.facts.recorded) return nothingChangedOnARecording({"Would write " + stored.path + ": " + rule.encoded()});

    std::error_code ec;
    std::filesystem::create_directories(deletingLastPathComponent(stored.path), ec);
    if (!writeFileAtomically(stored.path, rule.encoded() + "\n", 0600))
        throw OVError("The automatic-move rule could not be written to " + stored.path + ".");
    Result result;
    result.line("Saved the automatic-move rule to " + stored.path + ".");
    describe(result, rule, true);
    result.json = {{"saved", true}, {"path", stored.path}, {"rule", toJSON(rule)}};
    return result;
}

}  // namespace

void addAutoMoveCommands(Registry& registry) {
    auto options = std::make_shared<AutoMoveOptions>();
    auto* automove = registry.add(
        "automove",
        "Show the rule for moving big unused data to another drive when free space runs low, and whether a move "
        "is due (free space of the home's volume, or --free). With --items, the items of orvane scan --json that "
        "a run would move, largest first. Exit 0 when a move is due, 1 when not or when the rule cannot be used, "
        "2 for bad input.",
        [options](const Invocation& in) { return runStatus(*options, in); });
    automove->add_option("--items", options->items, "A document of items as orvane scan --json prints it, or - for "
                                                    "standard input")
        ->type_name("FILE|-");
    automove->add_option("--free", options->free, "Take this many bytes as free instead of asking the disk")
        ->type_name("BYTES");

    auto* set = registry.add(
        *automove, "set",
        "Change the rule, starting from the one kept (or the default, which is off). A kept rule that cannot be "
        "read is never overwritten. Exit 2 for a bad value.",
        [options](const Invocation& in) { return runSet(*options, in); });
    set->add_flag("--enable", options->enable, "Turn automatic moves on");
    set->add_flag("--disable", options->disable, "Turn automatic moves off");
    set->add_option("--threshold-gb", options->thresholdGB, "Move when fewer than N decimal gigabytes are free")
        ->type_name("N");
    set->add_option("--drive", options->drive, "The name of the drive to move to")->type_name("NAME");
    set->add_option("--kinds", options->kinds, "What may be moved: aiModels, media, devFolders, comma-separated")
        ->type_name("K,...");
    set->add_option("--unused-days", options->unusedDays, "Only items unused for more than N days")->type_name("N");
    set->add_flag("--without-asking", options->withoutAsking, "Move without asking first");
    set->add_flag("--ask-first", options->askFirst, "Ask before each move (the default)");
}

}  // namespace orvane::cli
