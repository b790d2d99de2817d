#include "core/duplicates/keeper.hpp"

#include <algorithm>
#include <regex>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {

namespace {

const char* const kCopySuffix = "the others carry copy-suffix names";
const char* const kTransit = "the others sit in transit locations";

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

std::vector<KeeperSignal> keeperSignals(const std::string& path, const std::string& home) {
    static const std::regex numberedCopy(" copy \\d+$");
    static const std::regex numberedInParentheses(" ?\\(\\d+\\)$");
    const std::string stem = lowercased(deletingPathExtension(lastPathComponent(path)));
    const std::string parent = deletingLastPathComponent(path);
    std::vector<KeeperSignal> signals;
    auto drop = [&](int score, const char* phrase) { signals.push_back({score, std::nullopt, phrase}); };

    if (stem.ends_with(" copy") || std::regex_search(stem, numberedCopy)) drop(-40, kCopySuffix);
    if (std::regex_search(stem, numberedInParentheses)) drop(-30, kCopySuffix);
    const std::string downloads = home + "/Downloads";
    if (parent == downloads || parent.starts_with(downloads + "/")) drop(-20, kTransit);
    // Only the Desktop itself is a landing place; a folder made on it is the user's filing.
    if (parent == home + "/Desktop") drop(-10, kTransit);
    if (contains(parent, "/.Trash")) drop(-60, "the others are already in a Trash");
    if (parent.starts_with("/private/tmp") || parent.starts_with(home + "/Library/Caches"))
        drop(-50, "the others sit in temporary locations");
    // The parent has no trailing separator, so a file lying loose in ~/Documents earns nothing:
    // only one filed in a subfolder was put there on purpose.
    for (const char* folder : {"/Documents/", "/Pictures/", "/Music/", "/Movies/"})
        if (contains(parent, home + folder)) signals.push_back({15, "filed in your own folders", std::nullopt});
    return signals;
}

int keeperScore(const std::string& path, const std::string& home) {
    int score = 0;
    for (const KeeperSignal& signal : keeperSignals(path, home)) score += signal.score;
    return score;
}

std::vector<std::string> orderByKeeper(std::vector<std::string> paths, const std::map<std::string, TimePoint>& modified,
                                       const std::string& home) {
    struct Ranked {
        std::string path;
        int score;
        std::size_t characters;
    };
    std::vector<Ranked> ranked;
    ranked.reserve(paths.size());
    for (std::string& path : paths) {
        const int score = keeperScore(path, home);
        const std::size_t characters = characterCount(path);
        ranked.push_back({std::move(path), score, characters});
    }
    std::stable_sort(ranked.begin(), ranked.end(), [&](const Ranked& a, const Ranked& b) {
        if (a.score != b.score) return a.score > b.score;
        auto dateA = modified.find(a.path);
        auto dateB = modified.find(b.path);
        if (dateA != modified.end() && dateB != modified.end() && dateA->second != dateB->second)
            return dateA->second < dateB->second;
        if (a.characters != b.characters) return a.characters < b.characters;
        return a.path < b.path;
    });
    std::vector<std::string> ordered;
    ordered.reserve(ranked.size());
    for (Ranked& entry : ranked) ordered.push_back(std::move(entry.path));
    return ordered;
}

std::string keeperReason(const std::string& path, const std::vector<std::string>& over, const std::string& home) {
    const int keeper = keeperScore(path, home);
    std::optional<int> lowest;
    for (const std::string& other : over) {
        const int score = keeperScore(other, home);
        if (!lowest || score < *lowest) lowest = score;
    }
    // Against the weakest of the others: when even it is no worse, location says nothing.
    if (!lowest || *lowest == keeper) return "Kept: the oldest copy \u2014 the others appeared later.";

    std::vector<std::string> phrases;
    auto add = [&](const std::optional<std::string>& phrase) {
        if (phrase && std::find(phrases.begin(), phrases.end(), *phrase) == phrases.end()) phrases.push_back(*phrase);
    };
    for (const KeeperSignal& signal : keeperSignals(path, home)) add(signal.keepPhrase);
    for (const std::string& other : over)
        for (const KeeperSignal& signal : keeperSignals(other, home)) add(signal.dropPhrase);
    if (phrases.empty()) return "Kept: best location and name.";
    std::string reason = "Kept: ";
    for (std::size_t i = 0; i < phrases.size(); ++i) reason += (i ? "; " : "") + phrases[i];
    return reason + ".";
}

}  // namespace orvane
