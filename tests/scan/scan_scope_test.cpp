#include "core/scan/scan_scope.hpp"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace orvane {
namespace {

TEST(ScanScopes, KeysLabelsAndForms) {
    setenv("HOME", "/Users/ann", 1);
    EXPECT_EQ(ScanScope(scope::StartupDisk{}).key(), "startup");
    EXPECT_EQ(ScanScope(scope::Folder{""}).key(), "45h");  // the start value alone
    EXPECT_EQ(ScanScope(scope::Volume{"/Volumes/Drive", "Drive"}).key(), "2f5nyihd5ezxk");
    EXPECT_EQ(ScanScope(scope::NetworkShare{"/Volumes/Drive", "Other"}).key(), "2f5nyihd5ezxk");

    const ScanScope folder = scope::Folder{"/Users/ann/Projects/Users/ann/x"};
    EXPECT_EQ(folder.label(), "x");
    EXPECT_EQ(folder.subtitle(), "~/Projects~/x");  // every occurrence of the home's text
    EXPECT_EQ(ScanScope(scope::StartupDisk{}).root(), "/Users/ann");
    EXPECT_EQ(ScanScope(scope::StartupDisk{}).label(), "Startup disk");
    EXPECT_TRUE(ScanScope(scope::StartupDisk{}).isHome());
    EXPECT_TRUE(ScanScope(scope::NetworkShare{"/n", "N"}).isNetwork());
    EXPECT_FALSE(ScanScope(scope::NetworkShare{"/n", "N"}).canScanAsAdministrator());
    EXPECT_TRUE(folder.canScanAsAdministrator());

    for (const ScanScope& s : {ScanScope(scope::StartupDisk{}), ScanScope(scope::Volume{"/v", "V"}),
                               ScanScope(scope::NetworkShare{"/n", "N"}), folder})
        EXPECT_EQ(scanScopeFromJSON(nlohmann::json::parse(toJSON(s).dump())), s);
    EXPECT_EQ(toJSON(ScanScope(scope::StartupDisk{})).dump(), R"({"startupDisk":{}})");
    EXPECT_EQ(toJSON(ScanScope(scope::Volume{"/v", "V"})).dump(), R"({"volume":{"path":"/v","name":"V"}})");
    for (const char* bad : {R"({})", R"({"folder":{}})", R"({"volume":{"path":"/v"}})",
                            R"({"folder":{"path":"/a"},"startupDisk":{}})", R"([])", R"({"startupDisk":1})"})
        EXPECT_FALSE(scanScopeFromJSON(nlohmann::json::parse(bad))) << bad;
}

}  // namespace
}  // namespace orvane
