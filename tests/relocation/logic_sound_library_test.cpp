// The sound library's route for every pairing of installed Logic Pro and MainStage versions.
#include "core/relocation/logic_sound_library.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

using V = std::optional<std::string_view>;

std::string open(const std::string& p) {
    return "To move it, open " + p + " and choose " + p +
           " › Sound Library › Relocate Sound Library, then pick the external drive.";
}
std::string bundle(const std::string& pv, const std::string& p) {
    return pv + " keeps its sounds in one file, “Logic Pro Library.bundle”, in your Music folder. To move them, quit " +
           p + " and drag that file to the external drive.";
}
std::string noBundle(const std::string& pv) {
    return pv + " keeps its sounds in one file, “Logic Pro Library.bundle”, in your Music folder, and none was found "
                "there. Apple's steps for this version do not cover this older folder, so check Apple's guide before "
                "moving it.";
}
const std::string generic =
    "Logic Pro or MainStage moves this. Version 11 and earlier: Logic Pro › Sound Library › Relocate Sound Library. "
    "Logic Pro 12 and later: drag “Logic Pro Library.bundle” out of the Music folder.";

TEST(LogicSoundLibrary, RouteByTheNewestInstalledApp) {
    const struct {
        V logic, mainStage;
        bool inMusic;
        std::string sentence;
        bool known;
    } cases[] = {
        {"12.0", std::nullopt, true, bundle("Logic Pro 12.0", "Logic Pro"), true},
        {"12.0", "3.6", false, noBundle("Logic Pro 12.0"), false},
        {"11.2", std::nullopt, false, open("Logic Pro"), true},
        {"11.2", "3.6", false, open("Logic Pro"), true},
        // A newer MainStage takes Logic's own version into the bundle sentence.
        {"11.2", "4.0", true, bundle("Logic Pro 11.2", "Logic Pro"), true},
        {"10.8.1", "beta", true, open("Logic Pro"), true},
        {std::nullopt, "3.6.4", false, open("MainStage"), true},
        {std::nullopt, "4.1", true, bundle("MainStage 4.1", "MainStage"), true},
        {std::nullopt, std::nullopt, true, generic, true},
        // A version that begins with no number is none; the text itself still names the app.
        {"v12", std::nullopt, false, generic, true},
        {"beta", "4.0", false, noBundle("MainStage 4.0"), false},
        // Empty pieces go before the first is read; a sign is part of a decimal number.
        {"..12.1", std::nullopt, true, bundle("Logic Pro ..12.1", "Logic Pro"), true},
        {"+12", std::nullopt, true, bundle("Logic Pro +12", "Logic Pro"), true},
        {"-12", std::nullopt, true, open("Logic Pro"), true},
        {"99999999999999999999", "3.0", true, open("MainStage"), true},  // too large to be a number
        {" 12", std::nullopt, true, generic, true},
    };
    for (const auto& c : cases) {
        const std::string label = std::string(c.logic.value_or("none")) + " / " +
                                  std::string(c.mainStage.value_or("none")) + (c.inMusic ? " / bundle" : "");
        EXPECT_EQ(logicSoundLibraryRoute(c.logic, c.mainStage, c.inMusic), c.sentence) << label;
        EXPECT_EQ(logicSoundLibraryRouteKnown(c.logic, c.mainStage, c.inMusic), c.known) << label;
    }
}

// Known is false exactly where the sentence says that no bundle was found, for every pairing.
TEST(LogicSoundLibrary, KnownMatchesTheSentence) {
    const V versions[] = {std::nullopt, "", "x", "3.9", "4.0", "10.7", "11.9", "12.0", "15"};
    for (const V logic : versions)
        for (const V mainStage : versions)
            for (const bool inMusic : {false, true}) {
                const bool saysNone =
                    logicSoundLibraryRoute(logic, mainStage, inMusic).find("none was found") != std::string::npos;
                EXPECT_EQ(logicSoundLibraryRouteKnown(logic, mainStage, inMusic), !saysNone)
                    << logic.value_or("none") << " / " << mainStage.value_or("none") << " / " << inMusic;
            }
}

}  // namespace
}  // namespace orvane
