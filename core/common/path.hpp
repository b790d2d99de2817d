// Lexical path services: the user's home, the standardised form of a path, and the
// component operations every path rule is written in.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// The running user's home ($HOME when it is absolute, else the password database), with
// `component` appended the way appendingPathComponent does. Empty component: the home itself.
std::string home(std::string_view component = {});

// The home folder of a user id from the password database; none when the user has no record or
// the record no folder.
std::optional<std::string> homeOfUser(std::uint32_t uid);

// Whether something exists at a path, following links (a dangling link is absent).
bool fileExists(const std::string& path);

// Lexical clean-up with the results of stringByStandardizingPath: expands "~" and "~user",
// drops empty and "." components, resolves ".." in absolute paths (never above "/"), drops a
// trailing "/", and removes a leading "/private" when the path without it exists.
std::string standardizePath(std::string_view path,
                            const std::function<bool(const std::string&)>& exists = fileExists);

// Components split at "/" with empty pieces dropped: "/a//b/" gives {"a", "b"}.
std::vector<std::string> pathComponents(std::string_view path);

// stringByDeletingLastPathComponent: "/a/b" gives "/a", "/a" gives "/", "a" gives "".
std::string deletingLastPathComponent(std::string_view path);

// stringByAppendingPathComponent: joins with one "/" and tidies doubled and trailing slashes.
std::string appendingPathComponent(std::string_view base, std::string_view component);

// The last component, trailing slashes ignored: "/a/b/" gives "b", "/" gives "/".
std::string lastPathComponent(std::string_view path);

// pathExtension: the text after the last "." of the last component; none when that "." opens
// the name (".zshrc" has no extension).
std::string pathExtension(std::string_view path);
// The path without that extension and its "."; unchanged when there is none.
std::string deletingPathExtension(std::string_view path);

// Whether `path` is `dir` or lies beneath it, compared as text.
bool isAtOrBelow(std::string_view path, std::string_view dir);

}  // namespace orvane
