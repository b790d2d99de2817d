// Installer receipts: pkgutil's text as real Macs printed it, and which of a receipt's files may
// go with an app, decided on real folders.
#include "core/apps/installer_receipts.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "core/common/json_files.hpp"
#include "core/common/replay.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane {

void PrintTo(const ReceiptLeftover& row, std::ostream* os) {
    *os << row.path << " (" << row.packageID << ")";
}

namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

std::string capture(const std::string& name) {
    return readFile(std::string(TEST_DATA_DIR) + "/pkgutil/" + name).value_or("");
}

TEST(PkgutilText, PackagesAndPlacesFromCaptures) {
    EXPECT_EQ(
        parsePkgFileInfo(capture("file-info-leopard-10.5-multiple-pkgids-puredarwin.txt")),
        (Paths{"com.apple.pkg.BaseSystem", "com.apple.pkg.update.os.10.5.1", "com.apple.pkg.update.os.10.5.3.combo"}));
    EXPECT_EQ(parsePkgFileInfo(capture("file-info-unowned-usr-bin-cc-ANNOTATION-REMOVED.txt")), Paths{});
    EXPECT_EQ(parsePkgFileInfo(" \tpackage-id:  com.x.y \n\npkgid: \nPKGID: up\n"), Paths{"com.x.y"});

    EXPECT_EQ(parsePkgInfo(capture("pkg-info-2014-chefdk-infra174.txt")), (PkgInstallPlace{"/", "opt/chefdk"}));
    EXPECT_EQ(parsePkgInfo(capture("pkg-info-2020-adoptopenjdk8-in-brew-cask-log.txt")),
              (PkgInstallPlace{"/", "Library/Java/JavaVirtualMachines/adoptopenjdk-8.jdk"}));
    EXPECT_EQ(parsePkgInfo(capture("pkg-info-2025-qupath-version0-qupath1961-USER-TRIMMED.txt")),
              (PkgInstallPlace{"/", "Applications"}));
    EXPECT_EQ(parsePkgInfo("volume: /Volumes/A\nlocation: x\nvolume: /Volumes/B\n"),
              (PkgInstallPlace{"/Volumes/B", "x"}));
    EXPECT_EQ(parsePkgInfo(""), (PkgInstallPlace{"/", ""}));
}

TEST(PkgutilText, ReceiptPathsAreAbsoluteAndTidy) {
    struct Case {
        const char* volume;
        const char* location;
        const char* file;
        const char* path;
    } cases[] = {
        {"/", "Applications", "./Foo.app/Contents/Info.plist", "/Applications/Foo.app/Contents/Info.plist"},
        {"/", "", "./usr/local/bin/x", "/usr/local/bin/x"},
        {"/Volumes/Data/", "/opt//chefdk/", "bin/./chef/", "/Volumes/Data/opt/chefdk/bin/chef"},
        {"/", "", ".", "/"},
    };
    for (const auto& c : cases) EXPECT_EQ(receiptAbsolutePath(c.volume, c.location, c.file), c.path) << c.file;

    EXPECT_TRUE(isInstallerReceiptPath("/private/var/db/receipts/"));
    EXPECT_TRUE(isInstallerReceiptPath("/Library/receipts/Foo.pkg"));
    EXPECT_FALSE(isInstallerReceiptPath("/Library/ReceiptsOld"));
    EXPECT_FALSE(isInstallerReceiptPath("/var/db"));
}

class ReceiptTree : public ::testing::Test {
  protected:
    void make(const std::string& relative, bool folder = false) {
        if (folder)
            fs::create_directories(root_ + relative);
        else
            orvane::testing::writeFile(root_ + relative, "x");
    }
    Paths leftovers(const Paths& relative, std::size_t limit = 50) const {
        Paths named;
        for (const auto& r : relative) named.push_back(root_ + r);
        const auto isDirectory = [](const std::string& p) { return fs::is_directory(p); };
        const auto list = [](const std::string& p) -> std::optional<Paths> {
            std::error_code ec;
            Paths names;
            for (auto it = fs::directory_iterator(p, ec); !ec && it != fs::directory_iterator(); it.increment(ec))
                names.push_back(it->path().filename());
            if (ec) return std::nullopt;
            return names;
        };
        Paths found = receiptLeftovers(
            named, root_ + "/Applications/Foo.app/", root_ + "/Users/me",
            [](const std::string& p) { return fs::exists(p); }, isDirectory, list, limit);
        for (auto& f : found) f.erase(0, root_.size());
        return found;
    }
    orvane::testing::TempDir temp_;
    std::string root_ = temp_.path();
};

TEST_F(ReceiptTree, TopmostOwnedPathsOnly) {
    make("/Library/Foo/a");
    make("/Library/Foo/.DS_Store");
    make("/Library/Foo/Icon\r");
    EXPECT_EQ(leftovers({"/Library/Foo", "/Library/Foo/a"}), Paths{"/Library/Foo"});

    make("/Library/Foo/foreign");
    EXPECT_EQ(leftovers({"/Library/Foo", "/Library/Foo/a"}), Paths{"/Library/Foo/a"});

    make("/Library/Bar/Sub", true);  // an empty folder is the package's
    make("/Library/Application Support/Foo/x");
    EXPECT_EQ(leftovers({"/Library/Bar", "/Library/Bar/Sub", "/Library/Application Support",
                         "/Library/Application Support/Foo", "/Library/Application Support/Foo/x"}),
              (Paths{"/Library/Application Support/Foo", "/Library/Bar"}));

    make("/Applications/Foo.app/Contents/Info.plist");
    make("/Applications/Other.app/Contents/Plugin");
    make("/Users/me/Library/Foo.plist");
    EXPECT_EQ(
        leftovers({"/Applications/Foo.app", "/Applications/Foo.app/Contents/Info.plist",
                   "/Applications/Other.app/Contents/Plugin", "/Users/me/Library/Foo.plist", "/Library/Gone.plist"}),
        Paths{});
}

TEST_F(ReceiptTree, StopsAtTheLimit) {
    Paths named;
    for (const char* name : {"c", "a", "b"}) {
        make(std::string("/Library/Fonts/") + name);
        named.push_back(std::string("/Library/Fonts/") + name);
    }
    EXPECT_EQ(leftovers(named, 2), (Paths{"/Library/Fonts/a", "/Library/Fonts/b"}));
}

TEST(InstallerReceipts, FirstFivePackagesAndFirstClaimWins) {
    orvane::testing::TempDir temp;
    const std::string root = temp.path();
    orvane::testing::writeFile(root + "/opt/shared/tool", "x");
    orvane::testing::writeFile(root + "/opt/p2/only", "x");

    std::map<std::vector<std::string>, std::vector<std::string>> tool = {
        {{"--file-info", "/Applications/Foo.app"},
         {"volume: /", "path: Applications/Foo.app", "pkgid: p1", "pkgid: p2", "pkgid: p3", "pkgid: p4", "pkgid: p5",
          "pkgid: p6"}},
        {{"--pkg-info", "p1"}, {"volume: " + root, "location: opt"}},
        {{"--files", "p1"}, {"shared", "shared/tool"}},
        {{"--pkg-info", "p2"}, {"volume: " + root, "location: opt"}},
        {{"--files", "p2"}, {"shared", "shared/tool", "p2", "p2/only"}},
    };
    std::vector<std::vector<std::string>> asked;
    Facts facts = Facts::real();
    facts.run = [&](const std::string& name, const std::vector<std::string>& args, double, bool, ToolErrors) {
        EXPECT_EQ(name, kPkgutilTool);
        asked.push_back(args);
        ToolResult result;
        if (const auto it = tool.find(args); it != tool.end()) result = {it->second, {}, false, 0, 0};
        return result;
    };
    EXPECT_EQ(InstallerReceipts::leftovers("/Applications/Foo.app", "/Users/me", facts),
              (std::vector<ReceiptLeftover>{{root + "/opt/shared", "p1"}, {root + "/opt/p2", "p2"}}));
    EXPECT_EQ(asked.size(), 11u);
    EXPECT_EQ(asked.back(), (std::vector<std::string>{"--files", "p5"}));
}

TEST(InstallerReceipts, ReadFromARecordedMac) {
    orvane::testing::TempDir temp;
    const std::string dir = temp.path();
    using orvane::testing::writeFile;
    writeFile(dir + "/home", "/Users/alex\n");
    writeFile(dir + "/file-info.txt", "volume: /\npath: Applications/Chef.app\npkgid: com.getchef.pkg.chefdk\n");
    writeFile(dir + "/pkg-info.txt", capture("pkg-info-2014-chefdk-infra174.txt"));
    writeFile(dir + "/files.txt", "bin\nbin/chef\nembedded\nembedded/gems\nembedded/gems/x.rb\n");
    writeFile(dir + "/tools.json", R"([
        {"argv": ["/usr/sbin/pkgutil", "--file-info", "/Applications/Chef.app"], "stdout": "file-info.txt", "status": 0},
        {"argv": ["/usr/sbin/pkgutil", "--pkg-info", "com.getchef.pkg.chefdk"], "stdout": "pkg-info.txt", "status": 0},
        {"argv": ["/usr/sbin/pkgutil", "--files", "com.getchef.pkg.chefdk"], "stdout": "files.txt", "status": 0}])");
    writeFile(dir + "/root/opt/chefdk/bin/chef", "x");
    writeFile(dir + "/root/opt/chefdk/embedded/gems/x.rb", "x");
    auto load = loadRecording(dir);
    ASSERT_TRUE(load.recording) << load.error;
    const Facts facts = recordedFacts(std::make_shared<const Recording>(std::move(*load.recording)));

    EXPECT_EQ(InstallerReceipts::leftovers("/Applications/Chef.app", "/Users/alex", facts),
              (std::vector<ReceiptLeftover>{{"/opt/chefdk/bin/chef", "com.getchef.pkg.chefdk"},
                                            {"/opt/chefdk/embedded", "com.getchef.pkg.chefdk"}}));
}

}  // namespace
}  // namespace orvane
