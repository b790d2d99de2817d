// orvane media end to end: on the recorded Mac of alex, and on a small recording made here with a
// newer Logic Pro, no Music folder and no measurements.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/cli/run_orvane.hpp"

namespace orvane {
namespace {

using testing::CommandCase;
using C = CommandCase;
using Json = nlohmann::json;

using testing::column;

TEST(MediaCommand, TheRecordedMac) {
    testing::TempDir scratch;
    const auto o = testing::runOrvane(testing::kAlexReplay + "media --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const Json json = Json::parse(o.out);

    // The Finder's ".localized" is not a child worth showing.
    EXPECT_EQ(column(json["music"], "name"), Json({"Logic", "Mixes", "Music", "Vital"}));
    EXPECT_EQ(column(json["music"], "kind"), Json({"dawProjects", nullptr, "appManaged", "vendorReferenced"}));
    EXPECT_EQ(column(json["music"], "bytes"), Json({98304, 4096, 2097152, 12288}));
    EXPECT_EQ(json["music"][1]["note"], nullptr);
    EXPECT_EQ(column(json["movies"], "name"), Json({"Camtasia Projects.localized", "Holiday 2019.mov", "TV.localized"}));
    EXPECT_EQ(column(json["movies"], "kind"), Json({"thirdPartyApp", nullptr, "appManaged"}));

    EXPECT_EQ(column(json["stores"], "path"), Json({"/Users/Shared/Native Instruments", "/Users/alex/Music/Vital"}));
    EXPECT_EQ(column(json["stores"], "lane"), Json({"officialRepoint", "symlinkFriendly"}));
    EXPECT_EQ(json["stores"][1]["steps"].size(), 2u);
    EXPECT_EQ(json["picturesFolderHasLibrary"], false);
    EXPECT_EQ(json["moviesFolderHasManagedContent"], true);
    // Logic Pro 11 and MainStage 3 both still relocate through Logic's menu.
    EXPECT_EQ(json["logicRoute"]["known"], true);
    EXPECT_EQ(json["logicRoute"]["mainStageVersion"], "3.6.4");

    const C cases[] = {
        {testing::kAlexReplay + "media", 0, C::out,
         "Music  /Users/alex/Music\n"
         "   98 KB  Logic  dawProjects\n"
         "          Active Logic project work — keep internal, or archive consciously; a moved project needs the "
         "drive connected to open.\n"
         "    4 KB  Mixes  none\n",
         C::contains},
        {testing::kAlexReplay + "media", 0, C::out,
         "Logic Pro sound library (Logic Pro 11.1, MainStage 3.6.4, library bundle in Music: no)\n"
         "  To move it, open Logic Pro and choose Logic Pro › Sound Library › Relocate Sound Library, then pick the "
         "external drive.\n",
         C::contains},
    };
    testing::expectCommands(cases);
}

// A recording of its own: Logic Pro 12 without its bundle, a Movies folder du was not asked about,
// and no Music folder at all.
TEST(MediaCommand, UnknownSizesAndAnUnknownRoute) {
    testing::TempDir mac;
    mac.write("home", "/Users/sam\n");
    mac.write("tools.json", "[]");
    mac.write("root/Users/sam/Movies/Final Cut Backups/Trip/Backup.fcpbundle", "b");
    mac.write("root/Users/sam/Movies/Clip.mov", "c");
    mac.write("root/Applications/Logic Pro X.app/Contents/Info.plist",
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>CFBundleShortVersionString"
              "</key><string>12.0.1</string></dict></plist>\n");
    const std::string replay = "--replay " + mac.path() + " media";

    testing::TempDir scratch;
    const auto o = testing::runOrvane(replay + " --json", scratch.path());
    ASSERT_EQ(o.status, 0) << o.err;
    const Json json = Json::parse(o.out);
    EXPECT_EQ(json["music"], Json::array());
    EXPECT_EQ(column(json["movies"], "name"), Json({"Clip.mov", "Final Cut Backups"}));
    EXPECT_EQ(column(json["movies"], "bytes"), Json({nullptr, nullptr}));
    EXPECT_EQ(json["logicRoute"]["known"], false);

    const C cases[] = {
        {replay, 0, C::out,
         "Music  /Users/sam/Music\n"
         "  It cannot be listed.\n"
         "\n"
         "Movies  /Users/sam/Movies\n"
         "  ?  Clip.mov           none\n"
         "  ?  Final Cut Backups  vendorReferenced\n",
         C::contains},
        {replay, 0, C::out,
         "Movies holds what apps manage there: yes\n"
         "\n"
         "Logic Pro sound library (Logic Pro 12.0.1, MainStage not installed, library bundle in Music: no)\n"
         "  Logic Pro 12.0.1 keeps its sounds in one file, “Logic Pro Library.bundle”, in your Music folder, and "
         "none was found there. Apple's steps for this version do not cover this older folder, so check Apple's "
         "guide before moving it.\n"
         "  The route is not known.\n",
         C::contains},
    };
    testing::expectCommands(cases);
}

}  // namespace
}  // namespace orvane
