// Apps installed twice, Mach-O headers as the linker writes them, kernel extensions on a real
// folder, and privacy resets run through a stand-in tccutil.
#include "core/apps/app_copies.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

#include "core/apps/app_bundle_inventory.hpp"
#include "core/apps/tcc_permissions.hpp"
#include "core/common/property_list.hpp"
#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

std::string be32(std::uint32_t v) {
    return {char(v >> 24), char(v >> 16 & 0xFF), char(v >> 8 & 0xFF), char(v & 0xFF)};
}
std::string le32(std::uint32_t v) {
    return {char(v & 0xFF), char(v >> 8 & 0xFF), char(v >> 16 & 0xFF), char(v >> 24)};
}
// A universal header: magic, count, then one entry per type (the type first, the rest zero).
std::string universal(std::uint32_t magic, const std::vector<std::uint32_t>& types,
                      std::uint32_t count) {
    const std::size_t entrySize = magic == 0xCAFEBABF ? 32 : 20;
    std::string bytes = be32(magic) + be32(count);
    for (const auto type : types) bytes += be32(type) + std::string(entrySize - 4, '\0');
    return bytes;
}
std::string universal(std::uint32_t magic, const std::vector<std::uint32_t>& types) {
    return universal(magic, types, static_cast<std::uint32_t>(types.size()));
}

std::string plist(const nlohmann::json& value,
                  PropertyListFormat format = PropertyListFormat::xml) {
    return propertyListData(value, format).value();
}

TEST(MachOHeaders, NameTheProcessorsOfEverySlice) {
    std::vector<std::uint32_t> nineteen;
    Names nineteenNames;
    for (std::uint32_t type = 100; type < 119; ++type) {
        nineteen.push_back(type);
        nineteenNames.insert("cpu" + std::to_string(type));
    }
    const std::string fat32 = universal(0xCAFEBABE, {0x1000007, 0x100000C});
    const struct {
        std::string bytes;
        Names names;
    } cases[] = {
        {"", {}},
        {be32(0xFEEDFACF) + "abc", {}},  // seven bytes
        {fat32, {"x86_64", "arm64"}},
        {universal(0xCAFEBABF, {0x100000C, 0x200000C, 12}), {"arm64", "arm64_32", "arm"}},
        {le32(0xFEEDFACF) + le32(0x100000C), {"arm64"}},
        {le32(0xFEEDFACE) + le32(7), {"i386"}},
        {be32(0xFEEDFACE) + be32(18), {"ppc"}},
        {be32(0xFEEDFACF) + be32(0x1000012), {"ppc"}},
        {le32(0xFEEDFACF) + le32(99), {"cpu99"}},
        {universal(0xCAFEBABE, {}, 0) + std::string(40, '\0'), {}},
        {universal(0xCAFEBABF, nineteen), nineteenNames},
        {universal(0xCAFEBABF, nineteen, 20) + std::string(32, '\0'), {}},
        {be32(0xCAFEBABE) + be32(52) + std::string(2000, '\x07'), {}},  // a Java class file
        {fat32.substr(0, 31), {"x86_64"}},  // cut inside the second entry's processor type
        {fat32.substr(0, 32), {"x86_64", "arm64"}},
        {"#!/bin/sh\necho hi\n", {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(machOArchitectures(c.bytes), c.names) << ::testing::PrintToString(c.bytes);
}

TEST(MachOHeaders, AppExecutableNamedByItsInfoPlist) {
    orvane::testing::TempDir temp;
    // Far larger than the header read: only its beginning may be asked for.
    temp.write("Both.app/Contents/Info.plist", plist({{"CFBundleExecutable", "Both"}}));
    temp.write("Both.app/Contents/MacOS/Both",
               universal(0xCAFEBABE, {0x1000007, 0x100000C}) + std::string(100000, 'x'));
    temp.write("Intel.app/Contents/Info.plist",
               plist({{"CFBundleExecutable", "Intel"}}, PropertyListFormat::binary));
    temp.write("Intel.app/Contents/MacOS/Intel",
               le32(0xFEEDFACF) + le32(0x1000007) + std::string(5000, '\0'));
    // A readable executable where the slashed name would lead, so that opening it would show.
    temp.write("Slash.app/Contents/Info.plist", plist({{"CFBundleExecutable", "sub/Slash"}}));
    temp.write("Slash.app/Contents/MacOS/sub/Slash", le32(0xFEEDFACF) + le32(0x100000C));
    temp.write("Empty.app/Contents/Info.plist", plist({{"CFBundleExecutable", ""}}));
    temp.write("Gone.app/Contents/Info.plist", plist({{"CFBundleExecutable", "Gone"}}));

    EXPECT_EQ(appArchitectures(temp / "Both.app"), (Names{"arm64", "x86_64"}));
    EXPECT_EQ(appArchitectures(temp / "Intel.app"), Names{"x86_64"});
    for (const char* app : {"Slash.app", "Empty.app", "Gone.app", "Nothing.app"})
        EXPECT_EQ(appArchitectures(temp / app), Names{}) << app;

    // A recorded Mac answers the header read too.
    temp.write("mac/home", "/Users/alex\n");
    temp.write("mac/tools.json", "[]");
    fs::create_directories(temp / "mac/root/Applications");
    fs::rename(temp / "Both.app", temp / "mac/root/Applications/Both.app");
    auto load = loadRecording(temp / "mac");
    ASSERT_TRUE(load.recording) << load.error;
    const Facts mac = recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));
    EXPECT_EQ(appArchitectures("/Applications/Both.app", mac), (Names{"arm64", "x86_64"}));
}

TEST(Macos27, VerdictByStrongestArchitecture) {
    const struct {
        Names architectures;
        Macos27Verdict verdict;
    } cases[] = {
        {{}, Macos27Verdict::unknown},
        {{"arm64", "x86_64"}, Macos27Verdict::fine},
        {{"arm64", "i386"}, Macos27Verdict::fine},
        {{"x86_64", "i386"}, Macos27Verdict::intelOnly},
        {{"ppc"}, Macos27Verdict::thirtyTwoBit},
        {{"arm", "cpu99"}, Macos27Verdict::thirtyTwoBit},
        {{"arm64_32"}, Macos27Verdict::unknown},
        {{"cpu99"}, Macos27Verdict::unknown},
    };
    for (const auto& c : cases)
        EXPECT_EQ(macos27Verdict(c.architectures), c.verdict)
            << ::testing::PrintToString(c.architectures);
    EXPECT_EQ(rawValue(Macos27Verdict::thirtyTwoBit), "thirtyTwoBit");
    EXPECT_FALSE(isAppleSiliconMac());  // built and tested on Linux
}

TEST(DuplicateApps, GroupedByExactIDLeavingNestedCopiesOut) {
    const auto at = [](const char* path, const char* id) {
        return AppCopy{path, id, std::nullopt, std::nullopt};
    };
    const std::vector<AppCopy> copies = {
        at("/Users/me/Applications/Zed.app", "dev.zed"),
        at("/Applications/Zed.app", "dev.zed"),
        at("/Applications/Big.app/Contents/Apps/Small.app", "dev.zed"),
        at("/Applications/Zed Preview.app", "DEV.ZED"),
        at("/Applications/Other/Big.app", "com.big"),
        at("/Applications/Big.app", "com.big"),
        at("/Applications/Solo.app", "solo.only"),
        at("/Applications/X.app", ""),
        at("/Applications/Y.app", ""),
    };
    EXPECT_EQ(duplicateAppGroups(copies), (std::vector<std::vector<AppCopy>>{
                                              {copies[5], copies[4]},
                                              {copies[1], copies[0]},
                                          }));
}

TEST(KernelExtensions, ThirdPartyOnesByName) {
    orvane::testing::TempDir temp;
    temp.write("Zeta.kext/Contents/Info.plist", plist({{"CFBundleIdentifier", "com.zeta.driver"}}));
    temp.write("Apple.kext/Contents/Info.plist",
               plist({{"CFBundleIdentifier", "com.apple.driver.X"}}));
    temp.write("Shout.kext/Contents/Info.plist",
               plist({{"CFBundleIdentifier", "COM.APPLE.Shout"}}));
    temp.write("Applesauce.kext/Contents/Info.plist",
               plist({{"CFBundleIdentifier", "com.applesauce.kext"}}));
    temp.write("Numbered.kext/Contents/Info.plist", plist({{"CFBundleIdentifier", 5}}));
    temp.mkdir("Broken.kext/Contents");
    temp.write("notes.txt/Contents/Info.plist", plist({{"CFBundleIdentifier", "com.notes"}}));

    EXPECT_EQ(thirdPartyKernelExtensions(temp.path()), (std::vector<KernelExtension>{
                                                           {"Applesauce", "com.applesauce.kext"},
                                                           {"Broken", ""},
                                                           {"Numbered", ""},
                                                           {"Zeta", "com.zeta.driver"},
                                                       }));
    EXPECT_EQ(thirdPartyKernelExtensions(temp / "missing"), std::vector<KernelExtension>{});
}

TEST(TCCReset, OnlyWellFormedIDsThatAreNeitherApplesNorOurs) {
    const std::vector<std::string> own = {"a.b"};
    for (const auto& good : std::vector<std::string>{
             "com.applesauce.tool", "a.bc", "com.example.App-1_x", "x." + std::string(253, 'y')})
        EXPECT_TRUE(isTCCResettableBundleID(good, own)) << good;
    for (const auto& bad :
         std::vector<std::string>{"", "com.apple", "COM.APPLE.Safari", "a.b", "A.B.helper",
                                  ".com.x", "com.x.", "-com.x", "com..x", "nodot", "com.exam ple",
                                  "com.caf\xC3\xA9", "com/x.y", "x." + std::string(254, 'y')})
        EXPECT_FALSE(isTCCResettableBundleID(bad, own)) << bad;

    EXPECT_EQ(tccResetArguments("com.example.gone", own),
              (std::vector<std::string>{"reset", "All", "com.example.gone"}));
    EXPECT_EQ(tccResetArguments("a.b.c", own), std::nullopt);
    EXPECT_EQ(tccResetArguments("com.velloran.orvane.helper", velloranOwnBundleIDs), std::nullopt);
}

TEST(TCCReset, ToolOutputRead) {
    using S = TCCResetStatus;
    const std::string done = "Successfully reset All approval status for com.x.y";
    const std::string missing =
        "tccutil: No such bundle identifier \"com.x.y\": The operation couldn't be completed.";
    const struct {
        std::int32_t status;
        std::string output;
        TCCResetOutcome outcome;
    } cases[] = {
        {0, "\n" + done + "\n", {"com.x.y", S::reset, done}},
        {1, done, {"com.x.y", S::failed, done}},
        {1, done + "\n" + missing, {"com.x.y", S::notFound, done + "\n" + missing}},
        {0, missing, {"com.x.y", S::notFound, missing}},
        {70, "OSStatus error -10814", {"com.x.y", S::notFound, "OSStatus error -10814"}},
        {70, " \n\t", {"com.x.y", S::failed, "exit 70"}},
        {-1, "", {"com.x.y", S::failed, "exit -1"}},
        {0, "Usage: tccutil reset", {"com.x.y", S::failed, "Usage: tccutil reset"}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parseTCCReset("com.x.y", c.status, c.output), c.outcome) << c.output;
    EXPECT_EQ(toJSON(TCCResetOutcome{"com.x.y", S::otherCopyInstalled, "/A.app"}).dump(),
              R"({"bundleID":"com.x.y","status":"otherCopyInstalled","detail":"/A.app"})");
}

TEST(TCCReset, RunsTheToolOnlyWhenNoOtherCopyLives) {
    orvane::testing::TempDir temp;
    const std::string marker = temp / "ran";
    const auto tool = [&](const std::string& name, const std::string& body) {
        const std::string path =
            temp.write("bin/" + name, "#!/bin/sh\necho \"$*\" >> '" + marker + "'\n" + body);
        fs::permissions(path, fs::perms::owner_all);
        return path;
    };
    const std::string tccutil =
        tool("tccutil", "echo \"Successfully reset All approval status for $3\"\nexit 0\n");
    const std::string unknown = tool("unknown", "echo 'No such bundle identifier' >&2\nexit 1\n");
    const std::string home = temp / "home";
    const std::vector<std::string> own = velloranOwnBundleIDs;
    using S = TCCResetStatus;

    EXPECT_EQ(TCCPermissions::reset("com.apple.Safari", own, tccutil, home, std::nullopt),
              (TCCResetOutcome{"com.apple.Safari", S::refused, "not an allowed bundle id"}));

    temp.write("home/Applications/Tools/Gone.app/Contents/Info.plist",
               plist({{"CFBundleIdentifier", "COM.Example.Gone"}}));
    const std::string copy = temp / "home/Applications/Tools/Gone.app";
    EXPECT_EQ(installedCopies("com.example.gone", home), std::vector<std::string>{copy});
    EXPECT_EQ(installedCopies("", home), std::vector<std::string>{});
    EXPECT_EQ(TCCPermissions::reset("com.example.gone", own, tccutil, home, std::nullopt),
              (TCCResetOutcome{"com.example.gone", S::otherCopyInstalled, copy}));
    EXPECT_EQ(
        TCCPermissions::reset("com.example.gone", own, tccutil, home, copy + "/"),
        (TCCResetOutcome{"com.example.gone", S::otherCopyInstalled, copy}));  // compared exactly
    EXPECT_FALSE(fs::exists(marker));

    Facts recorded = Facts::real();
    recorded.recorded = true;
    EXPECT_EQ(TCCPermissions::reset("com.example.gone", own, tccutil, home, copy, recorded).status,
              S::failed);
    EXPECT_FALSE(fs::exists(marker));

    EXPECT_EQ(TCCPermissions::reset("com.example.gone", own, tccutil, home, copy),
              (TCCResetOutcome{"com.example.gone", S::reset,
                               "Successfully reset All approval status for com.example.gone"}));
    EXPECT_EQ(TCCPermissions::reset("com.example.other", own, unknown, home, std::nullopt),
              (TCCResetOutcome{"com.example.other", S::notFound, "No such bundle identifier"}));
    EXPECT_EQ(orvane::readFile(marker),
              "reset All com.example.gone\nreset All com.example.other\n");
}

}  // namespace
}  // namespace orvane
