#include "core/startup/launchd_inventory.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "core/common/text.hpp"

namespace orvane {

namespace {

constexpr double kListDomainTimeout = 15;
constexpr double kOneJobTimeout = 5;
constexpr double kIsLoadedTimeout = 5;
constexpr double kStopTimeout = 10;

constexpr std::string_view kSpacesAndTabs = " \t";

// Every line, empty ones kept, each trimmed of spaces and tabs.
std::vector<std::string_view> trimmedLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    while (true) {
        const auto end = text.find('\n', start);
        lines.push_back(trimSpacesAndTabs(text.substr(start, end == std::string_view::npos ? end : end - start)));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return lines;
}

std::vector<std::string_view> tokens(std::string_view line) {
    std::vector<std::string_view> pieces;
    std::size_t i = 0;
    while ((i = line.find_first_not_of(kSpacesAndTabs, i)) != std::string_view::npos) {
        auto end = line.find_first_of(kSpacesAndTabs, i);
        if (end == std::string_view::npos) end = line.size();
        pieces.push_back(line.substr(i, end - i));
        i = end;
    }
    return pieces;
}

// Digits after an optional sign, nothing else; a value a pid cannot hold is unreadable.
std::optional<std::int32_t> integer(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    std::int64_t magnitude = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    const std::int64_t value = negative ? -magnitude : magnitude;
    if (value < INT32_MIN || value > INT32_MAX) return std::nullopt;
    return static_cast<std::int32_t>(value);
}

std::string domainTarget(RegisteredBackgroundItem::Domain domain, std::uint32_t uid) {
    return domain == RegisteredBackgroundItem::Domain::user ? "gui/" + std::to_string(uid) : "system";
}

bool isAlphanumeric(utf8proc_int32_t scalar) {
    switch (utf8proc_category(scalar)) {
        case UTF8PROC_CATEGORY_LU:
        case UTF8PROC_CATEGORY_LL:
        case UTF8PROC_CATEGORY_LT:
        case UTF8PROC_CATEGORY_LM:
        case UTF8PROC_CATEGORY_LO:
        case UTF8PROC_CATEGORY_MN:
        case UTF8PROC_CATEGORY_MC:
        case UTF8PROC_CATEGORY_ME:
        case UTF8PROC_CATEGORY_ND:
        case UTF8PROC_CATEGORY_NL:
        case UTF8PROC_CATEGORY_NO: return true;
        default: return false;
    }
}

}  // namespace

bool LaunchdJob::registeredByApp() const {
    return managedBy == "com.apple.xpc.ServiceManagement" || type == "Submitted";
}

nlohmann::ordered_json toJSON(const LaunchdJob& job) {
    nlohmann::ordered_json out;
    out["label"] = job.label;
    auto optional = [&](const char* key, const auto& value) {
        if (value) out[key] = *value;
    };
    optional("path", job.path);
    optional("type", job.type);
    optional("managedBy", job.managedBy);
    out["running"] = job.running;
    optional("pid", job.pid);
    optional("program", job.program);
    optional("parentBundleID", job.parentBundleID);
    optional("teamID", job.teamID);
    return out;
}

std::string RegisteredBackgroundItem::id() const { return std::string(rawValue(domain)) + "/" + job.label; }

bool RegisteredBackgroundItem::running() const { return job.running || job.pid.has_value(); }

bool RegisteredBackgroundItem::runsFromTrash() const {
    return std::holds_alternative<startup_owner::AppInTrash>(owner.value);
}

bool RegisteredBackgroundItem::stoppableAsUser() const { return domain == Domain::user; }

bool RegisteredBackgroundItem::isStale() const {
    return std::holds_alternative<startup_owner::AppGone>(owner.value) ||
           std::holds_alternative<startup_owner::AppInTrash>(owner.value) ||
           std::holds_alternative<startup_owner::RegisteredAppMissing>(owner.value);
}

nlohmann::ordered_json toJSON(const RegisteredBackgroundItem& item) {
    nlohmann::ordered_json out;
    out["id"] = item.id();
    out["domain"] = std::string(rawValue(item.domain));
    out["job"] = toJSON(item.job);
    if (item.program) out["program"] = *item.program;
    out["owner"] = toJSON(item.owner);
    out["running"] = item.running();
    out["isStale"] = item.isStale();
    out["runsFromTrash"] = item.runsFromTrash();
    out["stoppableAsUser"] = item.stoppableAsUser();
    return out;
}

std::vector<LaunchdServiceRow> parseLaunchctlServiceList(std::string_view text) {
    const auto lines = trimmedLines(text);
    auto line = std::find(lines.begin(), lines.end(), "services = {");
    std::vector<LaunchdServiceRow> rows;
    if (line == lines.end()) return rows;
    // Only the first block counts: the domain prints other blocks (endpoints) in the same shape.
    for (++line; line != lines.end() && *line != "}"; ++line) {
        const auto pieces = tokens(*line);
        if (pieces.size() < 3) continue;
        std::string label(pieces[2]);
        for (std::size_t i = 3; i < pieces.size(); ++i) label += " " + std::string(pieces[i]);
        if (!isLaunchdLabel(label)) continue;
        auto pid = integer(pieces[0]);
        // launchd writes 0 for a service that is not running.
        if (pid && *pid <= 0) pid.reset();
        rows.push_back({pid, std::move(label)});
    }
    return rows;
}

LaunchdJob parseLaunchctlPrint(std::string_view text, std::string label) {
    LaunchdJob job;
    job.label = std::move(label);
    constexpr std::string_view kTeamPrefix = "\"team-identifier\" => ";
    int depth = 0;
    for (auto line : trimmedLines(text)) {
        if (line.ends_with("= {")) {
            ++depth;
            continue;
        }
        if (line == "}") {
            depth = std::max(depth - 1, 0);
            continue;
        }
        const auto equals = line.find(" = ");
        if (equals == std::string_view::npos) {
            // The team identifier is printed inside a nested block, so it is read at any depth.
            if (!line.starts_with(kTeamPrefix)) continue;
            auto value = line.substr(kTeamPrefix.size());
            const auto begin = value.find_first_not_of("\" ");
            value = begin == std::string_view::npos ? std::string_view()
                                                    : value.substr(begin, value.find_last_not_of("\" ") - begin + 1);
            if (isTeamID(value)) job.teamID = std::string(value);
            continue;
        }
        // Nested blocks (endpoints, environments) have path, program and state keys of their own.
        if (depth != 1) continue;
        const auto key = line.substr(0, equals);
        const std::string value(line.substr(equals + 3));
        // A submitted job prints "(submitted by …)" where a plist's path would be.
        auto absolute = [&]() -> std::optional<std::string> {
            if (value.starts_with('/')) return value;
            return std::nullopt;
        };
        if (key == "path") job.path = absolute();
        else if (key == "type") job.type = value;
        else if (key == "managed_by") job.managedBy = value;
        else if (key == "state") job.running = value == "running";
        else if (key == "pid") job.pid = integer(value);
        else if (key == "program") job.program = absolute();
        else if (key == "parent bundle identifier") job.parentBundleID = value;
    }
    return job;
}

bool isTeamID(std::string_view text) {
    return text.size() == 10 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
           });
}

bool isLaunchdLabel(std::string_view label) {
    // Only ASCII passes, so bytes count as characters.
    if (label.empty() || label.size() > 255) return false;
    if (label.find('.') == std::string_view::npos) return false;
    if (label.front() == '.' || label.back() == '.') return false;
    return std::all_of(label.begin(), label.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
               c == '_';
    });
}

bool isPlausibleLaunchdLabel(std::string_view label) {
    if (label.empty() || characterCount(label) > 255) return false;
    if (label.front() == '-' || label.front() == '.') return false;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(label.data());
    for (std::size_t i = 0; i < label.size();) {
        utf8proc_int32_t scalar = 0;
        const auto length =
            utf8proc_iterate(bytes + i, static_cast<utf8proc_ssize_t>(label.size() - i), &scalar);
        if (length <= 0) return false;
        if (!isAlphanumeric(scalar) && scalar != '.' && scalar != '-' && scalar != '_') return false;
        i += static_cast<std::size_t>(length);
    }
    return true;
}

bool isThirdPartyLabel(std::string_view label, const std::vector<std::string>& own) {
    const std::string lower = lowercased(label);
    for (std::string_view apple : {"com.apple.", "application.com.apple.", "application."})
        if (lower.starts_with(apple)) return false;
    return std::find(own.begin(), own.end(), label) == own.end();
}

namespace LaunchdInventory {

std::vector<RegisteredBackgroundItem> registeredItems(const std::vector<AppRef>& installedApps,
                                                      const std::vector<std::string>& own, const std::string& home,
                                                      std::uint32_t uid, bool includeSystem, const Facts& facts) {
    using Domain = RegisteredBackgroundItem::Domain;
    std::vector<Domain> domains = {Domain::user};
    if (includeSystem) domains.push_back(Domain::system);

    std::vector<RegisteredBackgroundItem> items;
    for (const auto domain : domains) {
        const std::string target = domainTarget(domain, uid);
        const auto listed =
            facts.run(kLaunchctlTool, {"print", target}, kListDomainTimeout, false, ToolErrors::discarded);
        for (const auto& row : parseLaunchctlServiceList(joinedLines(listed.lines))) {
            if (!isThirdPartyLabel(row.label, own)) continue;
            const auto printed = facts.run(kLaunchctlTool, {"print", target + "/" + row.label}, kOneJobTimeout, false,
                                           ToolErrors::discarded);
            RegisteredBackgroundItem item;
            item.domain = domain;
            item.job = parseLaunchctlPrint(joinedLines(printed.lines), row.label);
            if (!item.job.pid) item.job.pid = row.pid;
            if (item.job.program) item.program = item.job.program;
            else if (item.job.pid) item.program = processPath(*item.job.pid, facts);
            item.owner = startupOwner(item.program, {}, item.job.label, installedApps, facts.exists, home,
                                      item.job.parentBundleID);
            // A job from a plist on disk is the launch folders' business, unless it still runs out
            // of the Trash: that is how a trashed app's job stays in sight.
            if (item.job.registeredByApp() || item.runsFromTrash()) items.push_back(std::move(item));
        }
    }
    std::stable_sort(items.begin(), items.end(), [](const auto& a, const auto& b) {
        if (a.runsFromTrash() != b.runsFromTrash()) return a.runsFromTrash();
        return lowercased(a.job.label) < lowercased(b.job.label);
    });
    return items;
}

bool stop(std::string_view label, std::uint32_t uid, const Facts& facts) {
    if (!isLaunchdLabel(label)) return false;
    const auto run = facts.run(kLaunchctlTool, {"bootout", domainTarget(RegisteredBackgroundItem::Domain::user, uid) +
                                                              "/" + std::string(label)},
                               kStopTimeout, false, ToolErrors::discarded);
    return run.status == 0;
}

bool isLoaded(std::string_view label, RegisteredBackgroundItem::Domain domain, std::uint32_t uid, const Facts& facts) {
    if (!isLaunchdLabel(label)) return false;
    const auto run = facts.run(kLaunchctlTool, {"print", domainTarget(domain, uid) + "/" + std::string(label)},
                               kIsLoadedTimeout, false, ToolErrors::discarded);
    return run.status == 0;
}

std::optional<std::string> processPath(std::int32_t pid, const Facts& facts) {
    if (!facts.processPath) return std::nullopt;
    return facts.processPath(pid);
}

}  // namespace LaunchdInventory
}  // namespace orvane
