#include "core/apps/homebrew_casks.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

using Json = nlohmann::json;

constexpr std::array<std::string_view, 3> kAdminCaskStanzas = {"pkg", "installer", "uninstall"};
constexpr std::size_t kMaxTokenLength = 128;
// Receipts and definitions are a few kilobytes; a bound keeps an odd file from filling memory.
constexpr std::uint64_t kMaxCaskFileBytes = 16 * 1024 * 1024;
constexpr auto kUninstallTimeout = std::chrono::minutes(10);
constexpr auto kPollInterval = std::chrono::milliseconds(50);

bool isAdminStanza(std::string_view key) {
    return std::find(kAdminCaskStanzas.begin(), kAdminCaskStanzas.end(), key) != kAdminCaskStanzas.end();
}

std::optional<CaskRecord> recordFromArtifactsKey(std::string_view data, const char* key, std::string_view token,
                                                 std::string_view caskroom) {
    const Json document = Json::parse(data, nullptr, false);
    if (!document.is_object()) return std::nullopt;
    const auto artifacts = document.find(key);
    if (artifacts == document.end() || !artifacts->is_array()) return std::nullopt;
    auto read = readArtifacts(*artifacts);
    return CaskRecord{std::string(token), std::string(caskroom), std::move(read.apps), read.needsAdmin,
                      std::move(read.zap)};
}

std::optional<std::string> readText(const Facts& facts, const std::string& path) {
    return facts.read(path, kMaxCaskFileBytes).bytes;
}

bool isExecutableFile(const Facts& facts, const std::string& path) {
    const auto resolved = facts.resolve(path);
    const auto entry = resolved ? facts.lstat(*resolved) : std::nullopt;
    return entry && entry->isRegularFile() && (entry->mode & 0111) != 0;
}

std::vector<std::string> sortedNames(const Facts& facts, const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : sortedEntries(folder, facts, [](std::string_view) { return true; }))
        names.push_back(entry.name);
    return names;
}

}  // namespace

std::string CaskRecord::brewPath() const {
    return appendingPathComponent(deletingLastPathComponent(caskroom), "bin/brew");
}

bool isCaskToken(std::string_view text) {
    if (text.empty() || text.size() > kMaxTokenLength) return false;
    if (text.front() == '-' || text.front() == '.') return false;
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               std::string_view("-_.@+").find(c) != std::string_view::npos;
    });
}

CaskArtifacts readArtifacts(const nlohmann::json& artifacts) {
    CaskArtifacts read;
    if (!artifacts.is_array()) return read;
    for (const auto& element : artifacts) {
        if (!element.is_object()) continue;
        for (const auto& [key, value] : element.items()) {
            if (key == "app") {
                if (!value.is_array()) continue;
                // A target dictionary may follow the source name; only the names are read.
                for (const auto& app : value)
                    if (app.is_string() && lowercased(app.get<std::string>()).ends_with(".app"))
                        read.apps.push_back(lastPathComponent(app.get<std::string>()));
            } else if (key == "zap") {
                if (!value.is_array()) continue;
                for (const auto& directive : value) {
                    if (!directive.is_object()) continue;
                    for (const char* kind : {"trash", "delete", "rmdir"}) {
                        const auto paths = directive.find(kind);
                        if (paths == directive.end()) continue;
                        if (paths->is_string())
                            read.zap.push_back(paths->get<std::string>());
                        else if (paths->is_array())
                            for (const auto& path : *paths)
                                if (path.is_string()) read.zap.push_back(path.get<std::string>());
                    }
                }
            } else if (isAdminStanza(key)) {
                read.needsAdmin = true;
            }
        }
    }
    return read;
}

std::optional<CaskRecord> caskRecordFromInstallReceipt(std::string_view data, std::string_view token,
                                                       std::string_view caskroom) {
    return recordFromArtifactsKey(data, "uninstall_artifacts", token, caskroom);
}

std::optional<CaskRecord> caskRecordFromCaskJSON(std::string_view data, std::string_view token,
                                                 std::string_view caskroom) {
    return recordFromArtifactsKey(data, "artifacts", token, caskroom);
}

CaskRecord caskRecordFromRubySource(std::string_view source, std::string_view token, std::string_view caskroom) {
    CaskRecord record{std::string(token), std::string(caskroom), {}, false, {}};
    std::size_t start = 0;
    while (start < source.size()) {
        auto end = source.find('\n', start);
        if (end == std::string_view::npos) end = source.size();
        const auto line = trimSpacesAndTabs(source.substr(start, end - start));
        start = end + 1;
        if (line.starts_with("app ") || line.starts_with("app\t")) {
            const auto open = line.find('"');
            const auto close = open == std::string_view::npos ? open : line.find('"', open + 1);
            if (close != std::string_view::npos) {
                const auto name = line.substr(open + 1, close - open - 1);
                if (lowercased(name).ends_with(".app")) record.apps.push_back(lastPathComponent(name));
            }
        }
        for (const auto stanza : kAdminCaskStanzas)
            if (line.starts_with(stanza) && line.size() > stanza.size() && line[stanza.size()] == ' ')
                record.needsAdmin = true;
    }
    return record;
}

std::optional<std::string> zapPath(std::string_view path, std::string_view home) {
    // Only what is named outright is taken: a pattern, or a way out of the home, is left alone.
    for (const std::string_view refused : {"*", "?", "[", ".."})
        if (path.find(refused) != std::string_view::npos) return std::nullopt;
    if (!path.starts_with("~/")) return std::nullopt;
    // The home itself, or a spelling of it, is never one of its app's files.
    const auto lexical = [](const std::string&) { return false; };
    const std::string inside = standardizePath(appendingPathComponent(home, path.substr(2)), lexical);
    const std::string root = standardizePath(home, lexical);
    if (!inside.starts_with(root + "/")) return std::nullopt;
    return inside;
}

std::optional<CaskRecord> caskForApp(std::string_view appPath, const std::vector<std::string>& applicationsRoots,
                                     const std::vector<CaskRecord>& casks) {
    const std::string parent = deletingLastPathComponent(appPath);
    const bool inRoot = std::any_of(applicationsRoots.begin(), applicationsRoots.end(), [&](std::string_view root) {
        if (root.ends_with('/')) root.remove_suffix(1);
        return root == parent;
    });
    if (!inRoot) return std::nullopt;
    const std::string name = lowercased(lastPathComponent(appPath));
    for (const auto& cask : casks) {
        if (!isCaskToken(cask.token)) continue;
        if (std::any_of(cask.apps.begin(), cask.apps.end(),
                        [&](const std::string& app) { return lowercased(app) == name; }))
            return cask;
    }
    return std::nullopt;
}

std::optional<BrewInvocation> brewUninstallInvocation(std::string_view brewPath, std::string_view token,
                                                      std::string_view home, std::string_view user) {
    if (!isCaskToken(token) || !brewPath.starts_with('/') || !brewPath.ends_with("/bin/brew")) return std::nullopt;
    const std::string prefix = deletingLastPathComponent(deletingLastPathComponent(brewPath));
    BrewInvocation invocation;
    invocation.executable = brewPath;
    invocation.arguments = {"uninstall", "--cask", std::string(token)};
    // Nothing inherited: brew reads many variables, and the caller's must not steer a removal.
    invocation.environment = {
        {"HOME", std::string(home)},
        {"USER", std::string(user)},
        {"LOGNAME", std::string(user)},
        {"PATH", prefix + "/bin:" + prefix + "/sbin:/usr/bin:/bin:/usr/sbin:/sbin"},
        {"LANG", "en_US.UTF-8"},
        {"HOMEBREW_NO_AUTO_UPDATE", "1"},
        {"HOMEBREW_NO_ANALYTICS", "1"},
        {"HOMEBREW_NO_ENV_HINTS", "1"},
        {"HOMEBREW_NO_INSTALL_CLEANUP", "1"},
        {"HOMEBREW_NO_COLOR", "1"},
    };
    return invocation;
}

std::string brewUninstallDisplay(std::string_view token) {
    return "brew uninstall --cask " + std::string(token);
}

InvocationResult runInvocation(const std::string& executable, const std::vector<std::string>& arguments,
                               const std::map<std::string, std::string>& environment,
                               std::chrono::milliseconds timeout) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return {-1, "Couldn't start " + executable + ": " + std::strerror(errno)};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDERR_FILENO);

    std::vector<std::string> argStrings{executable};
    argStrings.insert(argStrings.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envStrings;
    for (const auto& [key, value] : environment) envStrings.push_back(key + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& a : argStrings) argv.push_back(a.data());
    for (auto& e : envStrings) envp.push_back(e.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);

    pid_t pid = -1;
    const int spawned = ::posix_spawn(&pid, executable.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawned != 0) {
        ::close(fds[0]);
        return {-1, "Couldn't start " + executable + ": " + std::strerror(spawned)};
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;

    std::mutex lock;
    std::string buffer;
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        char chunk[16384];
        while (!stop.load()) {
            pollfd readable{fds[0], POLLIN, 0};
            if (::poll(&readable, 1, static_cast<int>(kPollInterval.count())) <= 0) continue;
            const ssize_t got = ::read(fds[0], chunk, sizeof chunk);
            if (got <= 0) break;  // every writer has closed the pipe
            std::lock_guard guard(lock);
            buffer.append(chunk, static_cast<std::size_t>(got));
        }
    });

    int status = 0;
    pid_t done = 0;
    while ((done = ::waitpid(pid, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(kPollInterval);
    if (done == 0) {
        ::kill(pid, SIGTERM);
        while ((done = ::waitpid(pid, &status, 0)) < 0 && errno == EINTR) {
        }
    }
    // Without a status from the system there is no honest one to give.
    const bool reaped = done == pid;

    // A grandchild may keep the pipe open: take what is there now and stop waiting for the end.
    stop = true;
    reader.join();
    ::fcntl(fds[0], F_SETFL, O_NONBLOCK);
    char chunk[16384];
    for (ssize_t got; (got = ::read(fds[0], chunk, sizeof chunk)) > 0;) {
        std::lock_guard guard(lock);
        buffer.append(chunk, static_cast<std::size_t>(got));
    }
    ::close(fds[0]);

    const std::int32_t code = !reaped               ? -1
                              : WIFEXITED(status)   ? WEXITSTATUS(status)
                              : WIFSIGNALED(status) ? WTERMSIG(status)
                                                    : -1;
    std::lock_guard guard(lock);
    return {code, repairedUTF8(buffer)};
}

std::optional<std::string> homebrewExecutable(const Facts& facts) {
    for (const char* brew : {"/opt/homebrew/bin/brew", "/usr/local/bin/brew"})
        if (isExecutableFile(facts, brew)) return std::string(brew);
    return std::nullopt;
}

std::optional<std::string> homebrewExecutable(std::string_view forCask, const std::vector<std::string>& prefixes,
                                              const Facts& facts) {
    for (const auto& prefix : prefixes) {
        const std::string brew = appendingPathComponent(prefix, "bin/brew");
        if (facts.exists(appendingPathComponent(appendingPathComponent(prefix, "Caskroom"), forCask)) &&
            isExecutableFile(facts, brew))
            return brew;
    }
    return std::nullopt;
}

std::optional<std::string> homebrewCask(std::string_view forAppNamed, const std::vector<std::string>& caskrooms,
                                        const Facts& facts) {
    for (const auto& caskroom : caskrooms) {
        for (const auto& name : sortedNames(facts, caskroom)) {
            if (name.starts_with('.')) continue;
            const auto text = readText(facts, caskroom + "/" + name + "/.metadata/INSTALL_RECEIPT.json");
            if (!text) continue;
            const Json receipt = Json::parse(*text, nullptr, false);
            if (!receipt.is_object()) continue;
            const auto artifacts = receipt.find("uninstall_artifacts");
            if (artifacts == receipt.end() || !artifacts->is_array()) continue;
            for (const auto& artifact : *artifacts) {
                if (!artifact.is_object()) continue;
                const auto apps = artifact.find("app");
                if (apps == artifact.end() || !apps->is_array()) continue;
                for (const auto& app : *apps)
                    if (app.is_string() && app.get<std::string>() == forAppNamed) return name;
            }
        }
    }
    return std::nullopt;
}

std::map<std::string, CaskEntry> parseCaskIndex(std::string_view data) {
    std::map<std::string, CaskEntry> index;
    const Json document = Json::parse(data, nullptr, false);
    // An index with anything but casks in it is not the index this reads.
    if (!document.is_array() ||
        !std::all_of(document.begin(), document.end(), [](const Json& cask) { return cask.is_object(); }))
        return index;
    const auto optionalString = [](const Json& object, const char* key) -> std::optional<std::string> {
        const auto value = object.find(key);
        if (value == object.end() || !value->is_string()) return std::nullopt;
        return value->get<std::string>();
    };
    for (const auto& cask : document) {
        const auto token = optionalString(cask, "token");
        const auto version = optionalString(cask, "version");
        if (!token || !version || *version == "latest") continue;
        const CaskEntry entry{*token, *version, optionalString(cask, "homepage"), optionalString(cask, "url")};
        const auto artifacts = cask.find("artifacts");
        if (artifacts == cask.end() || !artifacts->is_array()) continue;
        for (const auto& artifact : *artifacts) {
            if (!artifact.is_object()) continue;
            const auto apps = artifact.find("app");
            if (apps == artifact.end() || !apps->is_array()) continue;
            for (const auto& app : *apps)
                if (app.is_string() && app.get<std::string>().ends_with(".app"))
                    index.try_emplace(lowercased(lastPathComponent(app.get<std::string>())), entry);
        }
    }
    return index;
}

std::optional<std::map<std::string, CaskEntry>> acceptedCaskIndex(int status, const std::optional<std::string>& body) {
    if (status != 200 || !body) return std::nullopt;
    auto index = parseCaskIndex(*body);
    if (index.empty()) return std::nullopt;
    return index;
}

namespace HomebrewCasks {

std::vector<CaskRecord> installed(const std::vector<std::string>& caskrooms, const Facts& facts) {
    std::vector<CaskRecord> records;
    for (const auto& caskroom : caskrooms) {
        for (const auto& token : sortedNames(facts, caskroom)) {
            if (!isCaskToken(token)) continue;
            const std::string meta = caskroom + "/" + token + "/.metadata";
            if (const auto receipt = readText(facts, meta + "/INSTALL_RECEIPT.json")) {
                auto record = caskRecordFromInstallReceipt(*receipt, token, caskroom);
                if (record && !record->apps.empty()) {
                    records.push_back(std::move(*record));
                    continue;
                }
            }
            // Before receipts, the definition kept at install time is the only record; the walk is
            // sorted, so the newest stamp is read last and wins.
            std::optional<CaskRecord> candidate;
            for (const auto& version : sortedNames(facts, meta)) {
                for (const auto& stamp : sortedNames(facts, meta + "/" + version)) {
                    const std::string casks = meta + "/" + version + "/" + stamp + "/Casks/";
                    if (const auto json = readText(facts, casks + token + ".json")) {
                        auto record = caskRecordFromCaskJSON(*json, token, caskroom);
                        if (record && !record->apps.empty()) {
                            candidate = std::move(record);
                            continue;
                        }
                    }
                    if (const auto ruby = readText(facts, casks + token + ".rb")) {
                        auto record = caskRecordFromRubySource(repairedUTF8(*ruby), token, caskroom);
                        if (!record.apps.empty()) candidate = std::move(record);
                    }
                }
            }
            if (candidate) records.push_back(std::move(*candidate));
        }
    }
    return records;
}

std::optional<CaskRecord> cask(std::string_view forApp, std::string_view home,
                               const std::vector<std::string>& caskrooms, const Facts& facts) {
    return caskForApp(forApp, {"/Applications", appendingPathComponent(home, "Applications")},
                      installed(caskrooms, facts));
}

InvocationResult uninstall(const CaskRecord& cask, const std::optional<std::string>& brewPath, std::string_view home,
                           std::string_view user, const Facts& facts) {
    const std::string path = brewPath ? *brewPath : cask.brewPath();
    const auto invocation = brewUninstallInvocation(path, cask.token, home, user);
    if (!isExecutableFile(facts, path) || !invocation) return {-1, "Homebrew wasn't found at " + path + "."};
    if (facts.recorded) return {-1, "Nothing was changed: this is a recorded Mac."};
    return runInvocation(invocation->executable, invocation->arguments, invocation->environment,
                         std::chrono::duration_cast<std::chrono::milliseconds>(kUninstallTimeout));
}

}  // namespace HomebrewCasks

}  // namespace orvane
