#include "core/safety/removal_blocker.hpp"

#include <deque>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::size_t kFailureDetailCharacters = 200;

bool restricted(std::uint32_t flags) { return (flags & platform::kFlagRestricted) != 0; }
bool noUnlink(std::uint32_t flags) { return (flags & platform::kFlagNoUnlink) != 0; }

}  // namespace

std::string RemovalBlocker::reason() const {
    const std::string name = lastPathComponent(path);
    switch (kind) {
        case Kind::systemIntegrityProtection:
            return "System Integrity Protection owns " + name +
                   ", so macOS refuses to delete it — from an administrator and from root alike. Your password was "
                   "never the problem, and no app can get past this one.";
        case Kind::unlinkProhibited:
            return "macOS has locked " + name +
                   " against removal (the system 'no-unlink' flag), which overrides an administrator password.";
    }
    return {};
}

std::string_view rawValue(RemovalBlocker::Kind kind) {
    return kind == RemovalBlocker::Kind::systemIntegrityProtection ? "systemIntegrityProtection" : "unlinkProhibited";
}

std::string describe(const RemovalBlocker& blocker) {
    return std::string(rawValue(blocker.kind)) + "(" + blocker.path + ")";
}

std::optional<RemovalBlocker> removalBlocker(const PathFlags& item, const std::vector<PathFlags>& descendants) {
    if (restricted(item.flags)) return RemovalBlocker::systemIntegrityProtection(item.path);
    for (const auto& d : descendants)
        if (restricted(d.flags)) return RemovalBlocker::systemIntegrityProtection(d.path);
    if (noUnlink(item.flags)) return RemovalBlocker::unlinkProhibited(item.path);
    for (const auto& d : descendants)
        if (noUnlink(d.flags)) return RemovalBlocker::unlinkProhibited(d.path);
    return std::nullopt;
}

std::optional<RemovalBlocker> removalBlocker(const std::string& path, int maxDepth, int maxEntries,
                                             const Facts& facts) {
    auto top = facts.lstat(path);
    if (!top) return std::nullopt;
    const PathFlags item{path, top->flags};
    std::vector<PathFlags> descendants;
    std::deque<std::pair<std::string, int>> queue;
    // Removing a link never reaches its target, so a link given as the item is not looked into.
    if (!top->isSymlink()) queue.emplace_back(path, 1);
    std::int64_t entries = 0;
    while (!queue.empty()) {
        auto [dir, depth] = std::move(queue.front());
        queue.pop_front();
        if (depth > maxDepth || entries >= maxEntries) break;
        const auto listing = facts.list(dir).value_or(std::vector<FolderEntry>{});
        entries += static_cast<std::int64_t>(listing.size());
        for (const auto& entry : listing) {
            std::string child = appendingPathComponent(dir, entry.name);
            auto childFacts = facts.lstat(child);
            if (!childFacts) continue;
            if (restricted(childFacts->flags)) return RemovalBlocker::systemIntegrityProtection(std::move(child));
            descendants.push_back({child, childFacts->flags});
            if (childFacts->isDirectory()) queue.emplace_back(std::move(child), depth + 1);
        }
    }
    return removalBlocker(item, descendants);
}

std::string SystemDeleteResult::message() const {
    struct Wording {
        std::string operator()(const Deleted& d) const { return "Deleted " + lastPathComponent(d.path) + "."; }
        std::string operator()(const Blocked& b) const { return b.blocker.reason(); }
        std::string operator()(const Refused& r) const { return "Nothing was deleted — " + r.reason; }
        std::string operator()(const Failed& f) const {
            return "Nothing was deleted. macOS said: " +
                   (f.toolOutput.empty() ? std::string("no detail") : clipCharacters(f.toolOutput, kFailureDetailCharacters));
        }
        std::string operator()(const Cancelled&) const {
            return "Cancelled at the password prompt — nothing was deleted.";
        }
    };
    return std::visit(Wording{}, value);
}

}  // namespace orvane
