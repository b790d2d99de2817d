// A made-up disk for validation: what lstat, exists and statfs would say, without a real
// /Library or another user's files.
#pragma once

#include <sys/stat.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "core/common/facts.hpp"

namespace orvane::testing {

class FakeDisk {
public:
    FakeDisk& file(const std::string& path, std::uint32_t uid = 0) { return add(path, S_IFREG | 0644, uid); }
    FakeDisk& folder(const std::string& path, std::uint32_t uid = 0) { return add(path, S_IFDIR | 0755, uid); }
    FakeDisk& link(const std::string& path, const std::string& target, std::uint32_t uid = 0) {
        targets_[path] = target;
        return add(path, S_IFLNK | 0777, uid);
    }
    FakeDisk& mount(const std::string& point) {
        mounts_.insert(point);
        return *this;
    }
    // Laid out like Linux instead: no /private, names are bytes, the Linux additions apply, and
    // `administrators` are the users in the sudo group.
    FakeDisk& laidOutLikeLinux(std::set<std::uint32_t> administrators) {
        linux_ = true;
        administrators_ = std::move(administrators);
        return *this;
    }

    // Only what validation asks; everything else of the world is absent.
    Facts facts() const {
        Facts facts;
        facts.lstat = [this](const std::string& p) -> std::optional<platform::FileFacts> {
            auto it = entries_.find(resolveParents(p));
            if (it == entries_.end()) return std::nullopt;
            return it->second;
        };
        facts.exists = [this](const std::string& p) { return exists(resolveParents(p), 0); };
        facts.mount = [this](const std::string& p) -> std::optional<platform::MountFacts> {
            if (!exists(resolveParents(p), 0)) return std::nullopt;
            std::string best = "/";
            for (const auto& m : mounts_)
                if ((p == m || p.starts_with(m + "/")) && m.size() > best.size()) best = m;
            return platform::MountFacts{best, "apfs", ""};
        };
        // Laid out like macOS, this disk has /private, so paths are walked as they are.
        facts.walkable = [](std::string_view p) { return std::string(p); };
        facts.isAdministrator = [](std::uint32_t) { return false; };
        facts.rules = RuleSet::macOS;
        if (linux_) {
            facts.rules = RuleSet::withLinuxAdditions;
            facts.walkable = [](std::string_view p) {
                for (std::string_view added : {"/private/tmp", "/private/var", "/private/etc"})
                    if (p == added || p.starts_with(std::string(added) + "/")) return std::string(p.substr(8));
                return std::string(p);
            };
            facts.isAdministrator = [this](std::uint32_t uid) { return administrators_.contains(uid); };
            facts.namesAreNormalized = false;
        }
        return facts;
    }

private:
    FakeDisk& add(const std::string& path, std::uint32_t mode, std::uint32_t uid) {
        platform::FileFacts facts;
        facts.mode = mode;
        facts.uid = uid;
        entries_[path] = facts;
        return *this;
    }
    bool exists(const std::string& p, int hops) const {
        auto it = entries_.find(p);
        if (it == entries_.end() || hops > 8) return false;
        if (!it->second.isSymlink()) return true;
        return exists(resolveParents(targets_.at(p)), hops + 1);
    }

    // The path as the kernel reaches its last component: "." and "//" dropped, ".." taken
    // lexically, and links among the parents followed.
    std::string resolveParents(const std::string& p, int hops = 0) const {
        std::vector<std::string> parts;
        std::size_t i = 0;
        while (i <= p.size()) {
            auto next = p.find('/', i);
            if (next == std::string::npos) next = p.size();
            std::string part = p.substr(i, next - i);
            if (part == "..") {
                if (!parts.empty()) parts.pop_back();
            } else if (!part.empty() && part != ".") {
                parts.push_back(part);
            }
            i = next + 1;
        }
        std::string built;
        for (std::size_t k = 0; k < parts.size(); ++k) {
            built += "/" + parts[k];
            auto it = entries_.find(built);
            if (k + 1 < parts.size() && it != entries_.end() && it->second.isSymlink() && hops < 8) {
                std::string rest;
                for (std::size_t r = k + 1; r < parts.size(); ++r) rest += "/" + parts[r];
                return resolveParents(targets_.at(built) + rest, hops + 1);
            }
        }
        return built.empty() ? "/" : built;
    }

    std::map<std::string, platform::FileFacts> entries_;
    std::map<std::string, std::string> targets_;
    std::set<std::string> mounts_;
    bool linux_ = false;
    std::set<std::uint32_t> administrators_;
};

}  // namespace orvane::testing
