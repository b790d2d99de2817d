#include "core/relocation/logic_sound_library.hpp"

#include <charconv>

namespace orvane {
namespace {

constexpr std::string_view kLogic = "Logic Pro";
constexpr std::string_view kMainStage = "MainStage";

std::string openSentence(std::string_view product) {
    const std::string p(product);
    return "To move it, open " + p + " and choose " + p +
           " › Sound Library › Relocate Sound Library, then pick the external drive.";
}

std::string bundleSentence(std::string_view product, std::string_view version, bool libraryBundleInMusic) {
    const std::string p(product);
    const std::string lead = p + " " + std::string(version) +
                             " keeps its sounds in one file, “Logic Pro Library.bundle”, in your Music folder";
    if (libraryBundleInMusic) return lead + ". To move them, quit " + p + " and drag that file to the external drive.";
    return lead +
           ", and none was found there. Apple's steps for this version do not cover this older folder, so check "
           "Apple's guide before moving it.";
}

// The number before a version's first "." (empty pieces dropped first), read as a decimal integer:
// an optional sign, then digits and nothing else. None for no text, or a first piece that is not
// such a number or is too large to hold.
std::optional<int> majorVersion(std::optional<std::string_view> version) {
    if (!version) return std::nullopt;
    std::string_view text = *version;
    while (text.starts_with('.')) text.remove_prefix(1);
    std::string_view first = text.substr(0, text.find('.'));
    if (first.starts_with('+')) {
        first.remove_prefix(1);
        if (first.starts_with('-')) return std::nullopt;
    }
    int major = 0;
    const auto [end, error] = std::from_chars(first.data(), first.data() + first.size(), major);
    if (first.empty() || error != std::errc() || end != first.data() + first.size()) return std::nullopt;
    return major;
}

}  // namespace

std::string logicSoundLibraryRoute(std::optional<std::string_view> logicVersion,
                                   std::optional<std::string_view> mainStageVersion, bool libraryBundleInMusic) {
    const auto l = majorVersion(logicVersion);
    const auto m = majorVersion(mainStageVersion);
    if (l) {
        if (*l >= 12 || (m && *m >= 4)) return bundleSentence(kLogic, *logicVersion, libraryBundleInMusic);
        return openSentence(kLogic);
    }
    if (m) {
        if (*m >= 4) return bundleSentence(kMainStage, *mainStageVersion, libraryBundleInMusic);
        return openSentence(kMainStage);
    }
    return "Logic Pro or MainStage moves this. Version 11 and earlier: Logic Pro › Sound Library › Relocate Sound "
           "Library. Logic Pro 12 and later: drag “Logic Pro Library.bundle” out of the Music folder.";
}

bool logicSoundLibraryRouteKnown(std::optional<std::string_view> logicVersion,
                                 std::optional<std::string_view> mainStageVersion, bool libraryBundleInMusic) {
    if (const auto l = majorVersion(logicVersion); l && *l > 11) return libraryBundleInMusic;
    if (!mainStageVersion) return true;
    const auto m = majorVersion(mainStageVersion);
    return !m || *m < 4 || libraryBundleInMusic;
}

}  // namespace orvane
