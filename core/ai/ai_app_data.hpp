// Paths that an AI app's own settings name: how a pointer file is read, and the judgement every
// such path passes before it may be offered for removal. A path read from another program's file
// is untrusted data; the judgement refuses anything that could be a personal or system folder.
// Pure logic: the disk is asked only through the `resolve` handed in.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

namespace orvane {

// What a path read from a pointer may be offered as.
struct AIDataTarget {
    enum class Kind {
        allowed,               // in bounds, and where it leads is in bounds too
        externalNotConnected,  // a folder on a drive under /Volumes that isn't mounted
    };
    Kind kind = Kind::allowed;
    std::string path;

    static AIDataTarget allowed(std::string path) { return {Kind::allowed, std::move(path)}; }
    static AIDataTarget externalNotConnected(std::string path) {
        return {Kind::externalNotConnected, std::move(path)};
    }
    bool operator==(const AIDataTarget&) const = default;
};

// A file in which an app keeps the path of its data.
struct AIDataPointer {
    // The file is a JSON object and the path is the string at `key`.
    struct JSONKey {
        std::string key;
        bool operator==(const JSONKey&) const = default;
    };
    // The file's text is the path, on one line.
    struct PlainPath {
        bool operator==(const PlainPath&) const = default;
    };
    using Format = std::variant<JSONKey, PlainPath>;

    std::string file;  // "~/", "{home}" or absolute, as the rule tables write paths
    Format format;
    std::string note;
    bool replacesHome = false;  // the path read is the product's home from then on

    bool operator==(const AIDataPointer&) const = default;
};

// The home itself, the personal folders and the hidden folders of credentials and settings
// directly in it, and everything outside the home except folders on a drive under /Volumes (a
// drive's root is protected). A folder inside a protected folder of the home is not protected.
// The names in the home compare without regard to ASCII case, as a Mac's disk compares them. An
// empty or relative `home` protects everything outside /Volumes.
bool isProtectedPersonalOrSystemFolder(std::string_view path, std::string_view home);

// The judgement of a path read from a pointer (value as read, "~/" allowed): none when refused.
// A refused target is never shown: an app cannot learn from this that a value of its was refused.
// `resolve` gives the path with links resolved, none when nothing is there; a link that leads out
// of bounds refuses the whole answer. Lengths count bytes: 1,024 or more is refused.
std::optional<AIDataTarget> judgeAIDataTarget(std::string_view value, std::string_view home,
                                              const std::set<std::string>& mountedVolumes,
                                              const std::function<std::optional<std::string>(const std::string&)>& resolve);

// The path a pointer file's bytes hold in `format`, not yet judged; none when the bytes hold
// none (not JSON, no such key, an empty value, more than one line, more than 4,096 bytes).
std::optional<std::string> readAIDataPointer(const AIDataPointer::Format& format, std::string_view contents);

}  // namespace orvane
