#include "core/common/replay.hpp"

#include <unistd.h>

#include <charconv>
#include <climits>
#include <memory>

#include "core/common/base64.hpp"
#include "core/common/json_files.hpp"
#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

constexpr std::uint64_t kMaxToolsList = 16ull << 20;
constexpr std::uint64_t kMaxCapture = 256ull << 20;
constexpr std::uint64_t kMaxSmallFile = 64ull << 10;
constexpr int kMaxLinkHops = 40;  // as the kernel's own limit on links in one path

std::string joined(const std::vector<std::string>& parts) {
    std::string out;
    for (const auto& part : parts) out += "/" + part;
    return out.empty() ? "/" : out;
}

// A file of the recording named by tools.json: relative, and never climbing out of the folder.
bool staysInside(const std::string& relative) {
    if (relative.empty() || relative.front() == '/') return false;
    for (const auto& part : pathComponents(relative))
        if (part == "..") return false;
    return true;
}

std::optional<std::int32_t> int32Of(const nlohmann::json& value) {
    auto whole = jsonWholeNumber(value);
    if (!whole || *whole < INT32_MIN || *whole > INT32_MAX) return std::nullopt;
    return static_cast<std::int32_t>(*whole);
}

std::string failed(const std::string& path, ReadFailure failure) {
    return path + " " + std::string(readFailureClause(failure)) + ".";
}

// A JSON file of the recording that may be left out: absent, it is nothing recorded (no value and
// no error); `what` names it in the sentence when it is there but cannot be read.
struct RecordedJSON {
    std::optional<nlohmann::json> value;
    std::optional<std::string> error;
};
RecordedJSON readRecordedJSON(const std::string& path, std::string_view what) {
    const FileRead file = readFile(path, kMaxToolsList);
    if (!file.bytes) {
        if (file.failure == ReadFailure::missing) return {};
        return {std::nullopt, "The recorded " + std::string(what) + " cannot be read: " + failed(path, file.failure)};
    }
    StrictJSON parsed = parseJSONStrictly(*file.bytes);
    if (!parsed.value) return {std::nullopt, path + " does not decode: " + parsed.error};
    return {std::move(parsed.value), std::nullopt};
}

std::optional<std::string> loadRuns(const std::string& dir, Recording& recording) {
    const std::string listPath = dir + "/tools.json";
    const RecordedJSON parsed = readRecordedJSON(listPath, "tool runs");
    if (parsed.error) return parsed.error;
    if (!parsed.value) return std::nullopt;  // no tool was recorded
    if (!parsed.value->is_array()) return listPath + " does not decode: it must be a JSON array of runs.";
    std::size_t number = 0;
    for (const auto& entry : *parsed.value) {
        ++number;
        const std::string where = "Run " + std::to_string(number) + " of " + listPath;
        if (!entry.is_object()) return where + " is not a JSON object.";
        auto argv = entry.find("argv");
        if (argv == entry.end() || !argv->is_array() || argv->empty())
            return where + " has no \"argv\": a list of the program and its arguments.";
        std::vector<std::string> words;
        for (const auto& word : *argv) {
            if (!word.is_string()) return where + " has an \"argv\" word that is not a string.";
            words.push_back(word.get<std::string>());
        }
        RecordedRun run;
        auto status = entry.find("status");
        auto code = status == entry.end() ? std::nullopt : int32Of(*status);
        if (!code) return where + " has no \"status\" that is a whole number.";
        run.status = *code;
        if (auto timedOut = entry.find("timedOut"); timedOut != entry.end() && !timedOut->is_null()) {
            if (!timedOut->is_boolean()) return where + " has a \"timedOut\" that is neither true nor false.";
            run.timedOut = timedOut->get<bool>();
        }
        for (const auto& [key, text] : {std::pair{"stdout", &run.stdoutText}, std::pair{"stderr", &run.stderrText}}) {
            auto file = entry.find(key);
            if (file == entry.end() || file->is_null()) continue;
            if (!file->is_string()) return where + " has a \"" + key + "\" that is not a file name.";
            const std::string relative = file->get<std::string>();
            if (!staysInside(relative))
                return where + " names \"" + escapeControlCharacters(relative) +
                       "\", which is not a file inside the recording.";
            const FileRead captured = readFile(dir + "/" + relative, kMaxCapture);
            if (!captured.bytes) return where + " names a file that cannot be read: " + failed(dir + "/" + relative, captured.failure);
            *text = *captured.bytes;
        }
        recording.runs.insert_or_assign(std::move(words), std::move(run));
    }
    return std::nullopt;
}

std::optional<std::string> loadSystem(const std::string& dir, Recording& recording) {
    const std::string path = dir + "/system.json";
    const RecordedJSON parsed = readRecordedJSON(path, "system facts");
    if (parsed.error) return parsed.error;
    if (!parsed.value) return std::nullopt;  // every such fact unknown
    if (!parsed.value->is_object()) return path + " does not decode: it must be a JSON object.";
    recording.system = *parsed.value;
    if (auto refused = recording.system.find("refused"); refused != recording.system.end()) {
        if (!refused->is_array()) return path + " does not decode: \"refused\" must be a list of paths.";
        for (const auto& item : *refused) {
            if (!item.is_string()) return path + " does not decode: \"refused\" must be a list of paths.";
            recording.refused.insert(joined(pathComponents(item.get<std::string>())));
        }
    }
    if (auto now = recording.system.find("now"); now != recording.system.end()) {
        auto date = now->is_string() ? parseISO8601(now->get<std::string>()) : std::nullopt;
        if (!date) return path + " does not decode: \"now\" must be a date such as 2026-01-31T12:00:00Z.";
        recording.now = date;
    }
    if (auto volume = recording.system.find("homeVolume"); volume != recording.system.end()) {
        if (!volume->is_object()) return path + " does not decode: \"homeVolume\" must be a JSON object.";
        for (const char* key : {"totalCapacity", "availableCapacity", "availableCapacityForImportantUsage"}) {
            auto value = volume->find(key);
            if (value == volume->end() || value->is_null()) continue;
            auto bytes = jsonByteCount(*value);
            if (!bytes) return path + " does not decode: \"homeVolume." + key + "\" must be a byte count.";
            std::string_view name = key;
            (name == "totalCapacity"       ? recording.homeVolume.total
             : name == "availableCapacity" ? recording.homeVolume.available
                                           : recording.homeVolume.availableForImportantUsage) = *bytes;
        }
    }
    if (auto volumes = recording.system.find("volumes"); volumes != recording.system.end()) {
        const std::string wrong = path + " does not decode: \"volumes\" must be a list of {\"path\", \"name\", \"isLocal\"}.";
        if (!volumes->is_array()) return wrong;
        for (const auto& volume : *volumes) {
            if (!volume.is_object()) return wrong;
            auto at = volume.find("path");
            auto name = volume.find("name");
            auto local = volume.find("isLocal");
            if (at == volume.end() || !at->is_string() || (name != volume.end() && !name->is_string()) ||
                (local != volume.end() && !local->is_boolean()))
                return wrong;
            recording.volumes.push_back({at->get<std::string>(), name == volume.end() ? "" : name->get<std::string>(),
                                         local == volume.end() || local->get<bool>()});
        }
    }
    if (auto files = recording.system.find("files"); files != recording.system.end()) {
        const std::string wrong = path + " does not decode: \"files\" must map paths to {\"size\", \"allocated\", "
                                         "\"modified\", \"accessed\", \"dataless\"}.";
        if (!files->is_object()) return wrong;
        for (const auto& [place, said] : files->items()) {
            if (!said.is_object()) return wrong;
            RecordedFile file;
            for (const auto& [key, value] : said.items()) {
                if (key == "size" || key == "allocated") {
                    auto bytes = jsonByteCount(value);
                    if (!bytes) return wrong;
                    (key == "size" ? file.size : file.allocated) = *bytes;
                } else if (key == "modified" || key == "accessed") {
                    auto& date = key == "modified" ? file.modified : file.accessed;
                    date = value.is_string() ? parseISO8601(value.get<std::string>()) : std::nullopt;
                    if (!date) return wrong;
                } else if (key == "dataless" && value.is_boolean()) {
                    file.dataless = value.get<bool>();
                } else {
                    return wrong;
                }
            }
            recording.files[joined(pathComponents(place))] = file;
        }
    }
    for (const char* key : {"rootDevice", "fileSystemType", "temporaryFolder"}) {
        auto value = recording.system.find(key);
        if (value != recording.system.end() && !value->is_null() && !value->is_string())
            return path + " does not decode: \"" + key + "\" must be a string.";
    }
    return std::nullopt;
}

std::optional<std::string> loadExtendedAttributes(const std::string& dir, Recording& recording) {
    const std::string path = dir + "/xattrs.json";
    const RecordedJSON parsed = readRecordedJSON(path, "extended attributes");
    if (parsed.error) return parsed.error;
    if (!parsed.value) return std::nullopt;  // none recorded
    const std::string wrong = path + " does not decode: it maps paths to {name: text or {\"base64\": bytes}}.";
    if (!parsed.value->is_object()) return wrong;
    for (const auto& [place, names] : parsed.value->items()) {
        if (!place.starts_with('/') || !names.is_object()) return wrong;
        auto& attributes = recording.extendedAttributes[joined(pathComponents(place))];
        for (const auto& [name, value] : names.items()) {
            if (value.is_string()) {
                attributes[name] = value.get<std::string>();
                continue;
            }
            auto encoded = value.is_object() ? value.find("base64") : value.end();
            auto bytes = encoded != value.end() && encoded->is_string() ? base64Decoded(encoded->get<std::string>())
                                                                       : std::nullopt;
            if (!bytes) return wrong;
            attributes[name] = *bytes;
        }
    }
    return std::nullopt;
}

}  // namespace

RecordingLoad loadRecording(const std::string& dir) {
    auto folder = platform::statFacts(dir);
    if (!folder || !folder->isDirectory()) return {std::nullopt, "There is no recorded Mac at " + dir + "."};
    Recording recording;
    recording.dir = dir;
    if (auto error = loadRuns(dir, recording)) return {std::nullopt, *error};

    const FileRead home = readFile(dir + "/home", kMaxSmallFile);
    if (!home.bytes)
        return {std::nullopt, "The recording names no home: " + failed(dir + "/home", home.failure) +
                                  " It holds one line, such as /Users/alex."};
    recording.home = trimWhitespace(*home.bytes);
    if (!recording.home.starts_with('/') || recording.home.find('\n') != std::string::npos)
        return {std::nullopt, dir + "/home must hold one absolute path, such as /Users/alex."};

    const FileRead uid = readFile(dir + "/uid", kMaxSmallFile);
    if (uid.bytes) {
        const std::string text = trimWhitespace(*uid.bytes);
        std::uint32_t value = 0;
        auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (text.empty() || ec != std::errc{} || end != text.data() + text.size())
            return {std::nullopt, dir + "/uid must hold a user id, such as 501."};
        recording.uid = value;
    } else if (uid.failure != ReadFailure::missing) {
        return {std::nullopt, "The recorded user id cannot be read: " + failed(dir + "/uid", uid.failure)};
    }
    if (auto error = loadSystem(dir, recording)) return {std::nullopt, *error};
    if (auto error = loadExtendedAttributes(dir, recording)) return {std::nullopt, *error};
    return {std::move(recording), {}};
}

std::optional<std::string> recordedPlace(const Recording& recording, const std::string& path, bool followLast) {
    if (!path.starts_with('/') || path.find('\0') != std::string::npos) return std::nullopt;
    const std::string root = recording.dir + "/root";
    std::vector<std::string> pending = pathComponents(path);
    std::vector<std::string> done;
    int hops = 0;
    std::size_t next = 0;
    while (next < pending.size()) {
        const std::string name = pending[next++];
        if (name == ".") continue;
        if (name == "..") {
            if (!done.empty()) done.pop_back();  // never above the recorded "/"
            continue;
        }
        const std::string host = root + (done.empty() ? "" : joined(done)) + "/" + name;
        auto entry = platform::lstatFacts(host);
        if (!entry) return std::nullopt;
        const bool last = next == pending.size();
        if (entry->isSymlink() && (!last || followLast)) {
            if (++hops > kMaxLinkHops) return std::nullopt;
            char target[PATH_MAX + 1];
            const ssize_t n = ::readlink(host.c_str(), target, PATH_MAX);
            if (n <= 0) return std::nullopt;
            const std::string text(target, static_cast<std::size_t>(n));
            // An absolute target is a place of the recorded Mac: it starts again at DIR/root.
            if (text.starts_with('/')) done.clear();
            std::vector<std::string> rest = pathComponents(text);
            rest.insert(rest.end(), pending.begin() + static_cast<std::ptrdiff_t>(next), pending.end());
            pending = std::move(rest);
            next = 0;
            continue;
        }
        done.push_back(name);
    }
    return joined(done);
}

Facts recordedFacts(std::shared_ptr<const Recording> recording) {
    const Recording& r = *recording;
    const std::string root = r.dir + "/root";
    auto host = [root](const std::string& place) { return place == "/" ? root : root + place; };
    Facts f;
    f.recorded = true;
    f.rules = RuleSet::macOS;
    f.namesAreNormalized = true;
    f.uid = r.uid;
    f.run = [recording](const std::string& tool, const std::vector<std::string>& args, double, bool nulDelimited,
                        ToolErrors errors) {
        std::vector<std::string> argv = {tool};
        argv.insert(argv.end(), args.begin(), args.end());
        auto found = recording->runs.find(argv);
        if (found == recording->runs.end()) return ToolResult{};  // as an absent tool
        const RecordedRun& run = found->second;
        std::string out = run.stdoutText.value_or("");
        std::string err = run.stderrText.value_or("");
        if (errors == ToolErrors::merged) out += err;
        if (errors != ToolErrors::separate) err.clear();
        return toolResultFromOutput(out, err, nulDelimited, run.status, run.timedOut);
    };
    f.exists = [recording](const std::string& path) { return recordedPlace(*recording, path, true).has_value(); };
    f.resolve = [recording](const std::string& path) { return recordedPlace(*recording, path, true); };
    f.lstat = [recording, host](const std::string& path) -> std::optional<platform::FileFacts> {
        auto place = recordedPlace(*recording, path, false);
        if (!place) return std::nullopt;
        auto facts = platform::lstatFacts(host(*place));
        auto said = recording->files.find(*place);
        if (!facts || said == recording->files.end()) return facts;
        const RecordedFile& file = said->second;
        if (file.size) facts->size = *file.size;
        if (file.allocated) facts->allocatedBytes = *file.allocated;
        if (file.modified) {
            const auto since1970 = file.modified->time_since_epoch();
            const auto seconds = std::chrono::floor<std::chrono::seconds>(since1970);
            facts->modifiedSeconds = seconds.count();
            facts->modifiedNanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(since1970 - seconds).count();
        }
        if (file.accessed) facts->accessedSeconds = Clock::to_time_t(*file.accessed);
        if (file.dataless) facts->flags = *file.dataless ? facts->flags | platform::kFlagDataless
                                                         : facts->flags & ~platform::kFlagDataless;
        return facts;
    };
    f.list = [recording, host](const std::string& path) -> std::optional<std::vector<FolderEntry>> {
        auto place = recordedPlace(*recording, path, true);
        if (!place || recording->refused.contains(*place)) return std::nullopt;
        return listFolder(host(*place));
    };
    f.read = [recording, host](const std::string& path, std::uint64_t maxBytes) {
        auto place = recordedPlace(*recording, path, false);
        if (!place) return FileRead{std::nullopt, ReadFailure::missing};
        return readFile(host(*place), maxBytes);
    };
    f.readHead = [recording, host](const std::string& path, std::uint64_t maxBytes) {
        auto place = recordedPlace(*recording, path, false);
        if (!place) return FileRead{std::nullopt, ReadFailure::missing};
        return readFileHead(host(*place), maxBytes);
    };
    // Attributes are recorded by the path they were read at; a link to a recorded bundle is
    // followed first, as getxattr follows it.
    f.extendedAttribute = [recording](const std::string& path, const std::string& name,
                                      std::size_t maxBytes) -> std::optional<std::string> {
        auto place = recordedPlace(*recording, path, true);
        if (!place) return std::nullopt;
        auto attributes = recording->extendedAttributes.find(*place);
        if (attributes == recording->extendedAttributes.end()) return std::nullopt;
        auto value = attributes->second.find(name);
        if (value == attributes->second.end() || value->second.empty() || value->second.size() > maxBytes)
            return std::nullopt;
        return value->second;
    };
    f.localPath = [recording, host](const std::string& path) -> std::optional<std::string> {
        auto place = recordedPlace(*recording, path, true);
        if (!place) return std::nullopt;
        return host(*place);
    };
    f.home = [recording](std::string_view component) {
        return component.empty() ? recording->home : appendingPathComponent(recording->home, component);
    };
    f.mount = [recording](const std::string& path) -> std::optional<platform::MountFacts> {
        if (!recordedPlace(*recording, path, true)) return std::nullopt;
        auto text = [&](const char* key, const char* fallback) {
            auto value = recording->system.find(key);
            return value != recording->system.end() && value->is_string() ? value->get<std::string>()
                                                                          : std::string(fallback);
        };
        // A drive under /Volumes is a file system of its own, of a type the recording does not know.
        if (path.starts_with("/Volumes/")) {
            const std::string rest = path.substr(9);
            return platform::MountFacts{"/Volumes/" + rest.substr(0, rest.find('/')), "", ""};
        }
        return platform::MountFacts{"/", text("fileSystemType", "apfs"), text("rootDevice", "")};
    };
    // Only the home's volume was recorded; the Mac's disk is one volume group, so it answers for
    // every path on the recorded disk.
    f.volume = [recording](const std::string&) { return recording->homeVolume; };
    if (auto tmp = r.system.find("temporaryFolder"); tmp != r.system.end() && tmp->is_string())
        f.temporaryFolder = tmp->get<std::string>();
    f.lsofTool = kMacLsofTool;
    f.volumes = [recording] { return recording->volumes; };
    f.walkable = [](std::string_view path) { return std::string(path); };  // a Mac has /private
    f.isAdministrator = [](std::uint32_t) { return false; };
    f.now = [recording] { return recording->now.value_or(Clock::now()); };
    f.processPath = [](std::int32_t) { return std::optional<std::string>(); };
    return f;
}

}  // namespace orvane
