#include "core/startup/btm_audit.hpp"

#include <curl/curl.h>
#include <utf8proc.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

// The keys are ASCII, and no other character lower-cases to the letters they are made of, so
// comparing the key's length of the line in ASCII case is the same as lower-casing it whole.
bool startsWithKey(std::string_view line, std::string_view lowerKey) {
    if (line.size() < lowerKey.size()) return false;
    for (std::size_t i = 0; i < lowerKey.size(); ++i) {
        char c = line[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != lowerKey[i]) return false;
    }
    return true;
}

// sfltool prints "(null)" for a field the database holds no value for.
bool isAbsent(std::string_view value) {
    return value.empty() || value == "(null)";
}

bool isASCIIDigits(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

struct CurlURLFree {
    void operator()(CURLU* handle) const { curl_url_cleanup(handle); }
};
struct CurlFree {
    void operator()(char* text) const { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlFree>;

// The decoded path of a file URL, as the platform's URL gives it: without a trailing "/", and
// with dot segments left alone. None when the text isn't a URL, isn't a file URL, or decodes to
// a control character.
std::optional<std::string> fileURLPath(const std::string& value) {
    std::unique_ptr<CURLU, CurlURLFree> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, value.c_str(), CURLU_PATH_AS_IS) != CURLUE_OK)
        return std::nullopt;
    char* raw = nullptr;
    if (curl_url_get(url.get(), CURLUPART_SCHEME, &raw, 0) != CURLUE_OK) return std::nullopt;
    const CurlText scheme(raw);
    if (!scheme || !curl_strequal(scheme.get(), "file")) return std::nullopt;
    raw = nullptr;
    if (curl_url_get(url.get(), CURLUPART_PATH, &raw, CURLU_URLDECODE) != CURLUE_OK) return std::nullopt;
    const CurlText decoded(raw);
    if (!decoded) return std::nullopt;
    std::string path = decoded.get();
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

enum class Field { name, identifier, parentIdentifier, url, executablePath };

// Tried in this order; the first key a line begins with decides.
constexpr std::pair<std::string_view, Field> kFields[] = {
    {"name:", Field::name},
    {"identifier:", Field::identifier},
    {"parent identifier:", Field::parentIdentifier},
    {"url:", Field::url},
    {"executable path:", Field::executablePath},
};

void takeField(BTMRecord& record, std::string_view line) {
    for (const auto& [key, field] : kFields) {
        if (!startsWithKey(line, key)) continue;
        const std::string value(trimSpacesAndTabs(line.substr(key.size())));
        switch (field) {
            case Field::name: record.name = value; break;
            case Field::identifier: record.identifier = value; break;
            case Field::parentIdentifier: record.parentIdentifier = value; break;
            case Field::url:
                if (value.starts_with("file://")) {
                    if (auto path = fileURLPath(value)) {
                        record.paths.push_back(std::move(*path));
                        break;
                    }
                }
                if (!isAbsent(value)) record.paths.push_back(value);
                break;
            case Field::executablePath:
                if (!isAbsent(value)) record.paths.push_back(value);
                break;
        }
        return;
    }
}

// Identifiers are compared lower-cased, as every identifier of the system is.
using RecordIndex = std::unordered_map<std::string, const BTMRecord*>;

struct Anchors {
    std::vector<std::string> paths;
    std::optional<BTMUnjudged> reason;
};

// A child of an app (a helper, an agent) records its place relative to the app's bundle, so
// where it lives is found by walking up its parents.
constexpr int kDeepestParentFollowed = 8;

class AnchorSearch {
public:
    AnchorSearch(const RecordIndex& index, std::uint32_t uid, std::string_view home)
        : index_(index), uid_(uid), home_(home) {}

    Anchors anchors(const BTMRecord& record, int depth) {
        Anchors found;
        bool relative = false;
        bool otherUser = false;
        for (const std::string& path : record.paths) {
            if (!path.starts_with('/')) {
                relative = true;
                continue;
            }
            BTMPath resolved = resolveBTMPath(path, uid_, home_);
            if (auto* checkable = std::get_if<btm_path::Checkable>(&resolved.value))
                found.paths.push_back(std::move(checkable->path));
            else
                otherUser = true;
        }
        if (!found.paths.empty()) return found;
        if (otherUser) return {{}, BTMUnjudged::otherUser};

        if (const BTMRecord* parent = followableParent(record, depth)) {
            seen_.push_back(lowercased(record.identifier));
            Anchors above = anchors(*parent, depth + 1);
            seen_.pop_back();
            // The app is the place that tells whether the child is still installed; a path deeper
            // in it (its executable) would do only when the parent names no bundle.
            const auto app = std::find_if(above.paths.begin(), above.paths.end(),
                                          [](const std::string& p) { return p.ends_with(".app"); });
            if (app != above.paths.end()) return {{*app}, std::nullopt};
            if (!above.paths.empty()) return {{above.paths.front()}, std::nullopt};
            return {{}, above.reason.value_or(BTMUnjudged::parentHasNoLocation)};
        }
        return {{}, relative ? BTMUnjudged::parentMissingFromDump : BTMUnjudged::noPath};
    }

private:
    const BTMRecord* followableParent(const BTMRecord& record, int depth) const {
        if (depth >= kDeepestParentFollowed || record.parentIdentifier.empty()) return nullptr;
        const std::string key = lowercased(record.parentIdentifier);
        // Parents that name each other would otherwise be walked until the depth runs out.
        if (std::find(seen_.begin(), seen_.end(), key) != seen_.end()) return nullptr;
        const auto it = index_.find(key);
        return it == index_.end() ? nullptr : it->second;
    }

    const RecordIndex& index_;
    std::uint32_t uid_;
    std::string_view home_;
    std::vector<std::string> seen_;  // the chain walked so far; one parent each, so a stack
};

// The order a person expects of a list of names: case makes no difference, nor does the Unicode
// form a name was stored in. Text that isn't UTF-8 sorts by its bytes.
std::string sortKey(const std::string& name) {
    utf8proc_uint8_t* out = nullptr;
    const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(name.data()),
                                     static_cast<utf8proc_ssize_t>(name.size()), &out,
                                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
    const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owned(out, &std::free);
    if (length < 0) return name;
    return std::string(reinterpret_cast<const char*>(out), static_cast<std::size_t>(length));
}

void sortNames(std::vector<std::string>& names) {
    std::vector<std::pair<std::string, std::string>> keyed;
    keyed.reserve(names.size());
    for (std::string& name : names) keyed.emplace_back(sortKey(name), std::move(name));
    // Names that fold alike still get one order, by their bytes, so the list never depends on
    // the order of the dump.
    std::sort(keyed.begin(), keyed.end());
    names.clear();
    for (auto& [key, name] : keyed) names.push_back(std::move(name));
}

std::string_view unjudgedText(BTMUnjudged reason) {
    switch (reason) {
        case BTMUnjudged::noPath: return "record no location and belong to no app";
        case BTMUnjudged::otherUser: return "belong to another user account on this Mac";
        case BTMUnjudged::parentMissingFromDump: return "point inside an app macOS didn't list";
        case BTMUnjudged::parentHasNoLocation: return "belong to an app that records no location";
    }
    return {};
}

}  // namespace

std::vector<BTMRecord> parseBTMDump(const std::vector<std::string>& lines) {
    std::vector<BTMRecord> records;
    std::optional<BTMRecord> current;
    for (const std::string& raw : lines) {
        const std::string_view line = trimSpacesAndTabs(raw);
        // "Embedded Item Identifiers:" lists its members as "#1: 16.com.x.helper"; only a line
        // that ends at the colon opens a record.
        if (line.starts_with('#') && line.ends_with(':')) {
            if (current) records.push_back(std::move(*current));
            current.emplace();
            continue;
        }
        if (current) takeField(*current, line);
    }
    if (current) records.push_back(std::move(*current));
    return records;
}

bool isDeveloperGroupHeader(const BTMRecord& record) {
    if (!record.paths.empty() || !record.parentIdentifier.empty() || record.identifier.empty()) return false;
    const std::string_view identifier = record.identifier;
    const auto dot = identifier.find('.');
    if (dot == std::string_view::npos || dot == 0) return true;
    // An item's identifier is its type number, a dot and the rest ("16.com.vendor.helper"); a
    // developer's row is named after the developer ("Unknown Developer", "Some Vendor Inc.").
    return !isASCIIDigits(identifier.substr(0, dot));
}

BTMPath resolveBTMPath(std::string_view path, std::uint32_t uid, std::string_view home) {
    const BTMPath asItStands{btm_path::Checkable{std::string(path)}};
    if (!path.starts_with('/')) return asItStands;
    const auto secondSlash = path.find('/', 1);
    if (secondSlash == std::string_view::npos || path.substr(1, secondSlash - 1) != "Users") return asItStands;
    const std::string_view afterUsers = path.substr(secondSlash + 1);
    const std::string_view digits = afterUsers.substr(0, afterUsers.find('/'));
    // from_chars takes no sign or space for an unsigned number, so reading every byte is the
    // same as all digits that fit. A real user name ("/Users/amy/...") is a path that can be
    // checked as it stands.
    std::uint32_t owner = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), owner);
    if (digits.empty() || error != std::errc{} || end != digits.data() + digits.size()) return asItStands;
    if (owner != uid) return {btm_path::OtherUser{std::string(path)}};
    return {btm_path::Checkable{std::string(home) + std::string(afterUsers.substr(digits.size()))}};
}

BTMAssessment assessBTMDump(const std::vector<BTMRecord>& records, std::uint32_t uid, std::string_view home,
                            const std::function<bool(const std::string&)>& exists) {
    RecordIndex index;
    for (const BTMRecord& record : records)
        if (!record.identifier.empty()) index[lowercased(record.identifier)] = &record;

    BTMAssessment assessment;
    AnchorSearch search(index, uid, home);
    std::unordered_set<std::string> ghostNames;
    for (const BTMRecord& record : records) {
        if (isDeveloperGroupHeader(record)) continue;
        ++assessment.records;
        Anchors found = search.anchors(record, 0);
        if (found.paths.empty()) {
            ++assessment.unjudged;
            ++assessment.unjudgedReasons[found.reason.value_or(BTMUnjudged::noPath)];
            continue;
        }
        if (std::any_of(found.paths.begin(), found.paths.end(), [&](const std::string& p) { return exists(p); }))
            continue;
        std::string name = isAbsent(record.name) ? lastPathComponent(found.paths.front()) : record.name;
        if (ghostNames.insert(name).second) assessment.ghosts.push_back(std::move(name));
    }
    sortNames(assessment.ghosts);
    return assessment;
}

std::string describeBTMUnjudged(const std::map<BTMUnjudged, int>& reasons) {
    // The map holds the reasons in their own order, which a stable sort keeps among equal counts.
    std::vector<std::pair<BTMUnjudged, int>> entries(reasons.begin(), reasons.end());
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    std::string text;
    for (const auto& [reason, count] : entries) {
        if (!text.empty()) text += ", ";
        text += std::to_string(count);
        text += ' ';
        text += unjudgedText(reason);
    }
    return text;
}

}  // namespace orvane
