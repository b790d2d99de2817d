#include "core/privileged/protocol.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

struct WireCase {
    PrivilegedOperation operation;
    const char* json;
    bool destructive;
    const char* description;
};

const std::vector<WireCase>& wireCases() {
    static const std::vector<WireCase> cases = {
        {op::RemovePath{"/path"}, R"({"removePath":{"_0":"/path"}})", true, R"(removePath("/path"))"},
        {op::SwapToSymlink{"/path", "/other"}, R"({"swapToSymlink":{"original":"/path","target":"/other"}})",
         true, R"(swapToSymlink(original: "/path", target: "/other"))"},
        {op::RestoreFromStaging{"/path", "/other"},
         R"({"restoreFromStaging":{"staging":"/path","destination":"/other"}})", false,
         R"(restoreFromStaging(staging: "/path", destination: "/other"))"},
        {op::DeleteSnapshots{{"2026-01-31-120000", "2026-02-01-120000"}},
         R"({"deleteSnapshots":{"_0":["2026-01-31-120000","2026-02-01-120000"]}})", true,
         R"(deleteSnapshots(["2026-01-31-120000", "2026-02-01-120000"]))"},
        {op::ThinSnapshots{}, R"({"thinSnapshots":{}})", false, "thinSnapshots"},
        {op::PurgeInactiveMemory{}, R"({"purgeInactiveMemory":{}})", false, "purgeInactiveMemory"},
        {op::ResetBackgroundItems{}, R"({"resetBackgroundItems":{}})", false, "resetBackgroundItems"},
        {op::MoveAside{"/path", "/other", 501}, R"({"moveAside":{"path":"/path","to":"/other","chownTo":501}})",
         true, R"(moveAside(path: "/path", to: "/other", chownTo: 501))"},
        {op::PrivilegedScan{"folder", "/path", "Name", "/other"},
         R"({"privilegedScan":{"kind":"folder","root":"/path","label":"Name","outPath":"/other"}})", false,
         R"(privilegedScan(kind: "folder", root: "/path", label: "Name", outPath: "/other"))"},
        {op::SetLaunchItemEnabled{"/path", true}, R"({"setLaunchItemEnabled":{"path":"/path","enabled":true}})",
         false, R"(setLaunchItemEnabled(path: "/path", enabled: true))"},
        {op::TrashLaunchItem{"/path", "/other", 501},
         R"({"trashLaunchItem":{"path":"/path","to":"/other","chownTo":501}})", true,
         R"(trashLaunchItem(path: "/path", to: "/other", chownTo: 501))"},
        {op::DeleteTrashedApp{"Some.app"}, R"({"deleteTrashedApp":{"name":"Some.app"}})", true,
         R"(deleteTrashedApp(name: "Some.app"))"},
    };
    return cases;
}

TEST(Protocol, EveryCaseOnTheWire) {
    ASSERT_EQ(wireCases().size(), 12u);
    for (std::size_t i = 0; i < wireCases().size(); ++i) {
        const auto& c = wireCases()[i];
        EXPECT_EQ(c.operation.value.index(), i) << "declared order";
        EXPECT_EQ(encodeRequest(c.operation), c.json);
        auto decoded = decodeRequest(c.json);
        ASSERT_TRUE(decoded.operation) << c.json << ": " << decoded.error;
        EXPECT_EQ(*decoded.operation, c.operation);
        EXPECT_EQ(c.operation.isDestructive(), c.destructive) << c.json;
        EXPECT_EQ(c.operation.description(), c.description);
    }
}

TEST(Protocol, DecodingIsLenientOnlyWhereTheFormIs) {
    struct Case {
        const char* json;
        std::optional<PrivilegedOperation> expected;
    } accepted[] = {
        {R"({"removePath":{"_0":"/a","extra":1}})", op::RemovePath{"/a"}},
        {R"({"removePath":{"_0":"/a"},"unknownKey":5})", op::RemovePath{"/a"}},  // only known keys count
        {R"({"moveAside":{"chownTo":4294967295,"to":"/b","path":"/a"}})", op::MoveAside{"/a", "/b", 4294967295u}},
        {R"({"moveAside":{"path":"/a","to":"/b","chownTo":501.0}})", op::MoveAside{"/a", "/b", 501}},
        {R"({"deleteSnapshots":{"_0":[]}})", op::DeleteSnapshots{}},
        {R"({"thinSnapshots":{"ignored":true}})", op::ThinSnapshots{}},
        {"{\"removePath\":{\"_0\":\"/a\\u0000b\"}}", op::RemovePath{std::string("/a\0b", 4)}},
        {R"( {"privilegedScan":{"kind":"disk","root":"","label":"","outPath":""}} )",
         op::PrivilegedScan{"disk", "", "", ""}},  // refused later by validation, not here
    };
    for (const auto& c : accepted) {
        auto decoded = decodeRequest(c.json);
        ASSERT_TRUE(decoded.operation) << c.json << ": " << decoded.error;
        EXPECT_EQ(decoded.operation, c.expected) << c.json;
    }

    struct Bad {
        const char* json;
        const char* error;  // exact, where the form fixes it
    } refused[] = {
        {R"({"thinSnapshots":{},"purgeInactiveMemory":{}})", "Invalid number of keys found, expected one."},
        {R"({"nothingKnown":{}})", "Invalid number of keys found, expected one."},
        {R"({})", "Invalid number of keys found, expected one."},
        {R"({"RemovePath":{"_0":"/a"}})", "Invalid number of keys found, expected one."},
        {R"({"moveAside":{"path":"/a","to":"/b","chownTo":-1}})",
         "\"chownTo\" in \"moveAside\" must be a whole number from 0 to 4294967295."},
        {R"({"moveAside":{"path":"/a","to":"/b","chownTo":4294967296}})", nullptr},
        {R"({"moveAside":{"path":"/a","to":"/b","chownTo":501.5}})", nullptr},
        {R"({"moveAside":{"path":"/a","to":"/b","chownTo":"501"}})", nullptr},
        {R"({"moveAside":{"path":"/a","to":"/b"}})", "No value for \"chownTo\" in \"moveAside\"."},
        {R"({"setLaunchItemEnabled":{"path":"/a","enabled":1}})",
         "\"enabled\" in \"setLaunchItemEnabled\" must be true or false."},
        {R"({"removePath":{"_0":7}})", "\"_0\" in \"removePath\" must be a string."},
        {R"({"removePath":{"path":"/a"}})", "No value for \"_0\" in \"removePath\"."},
        {R"({"removePath":"/a"})", "The value of \"removePath\" must be an object."},
        {R"({"thinSnapshots":null})", nullptr}, {R"({"deleteSnapshots":{"_0":["2026-01-31-120000",5]}})", nullptr},
        {R"({"deleteSnapshots":{"_0":"2026-01-31-120000"}})", nullptr},
        {R"({"removePath":{"_0":"/a"},"removePath":{"_0":"/b"}})", nullptr},  // one key, given twice
        {R"({"removePath":{"_0":"/a","_0":"/b"}})", nullptr}, {R"(["removePath"])", nullptr},
        {R"("removePath")", nullptr},
        {"", nullptr},
        {"{\"removePath\":{\"_0\":\"/\xff\"}}", nullptr},  // not UTF-8
        {R"({"removePath":{"_0":"/a"}} trailing)", nullptr},
    };
    for (const auto& c : refused) {
        auto decoded = decodeRequest(c.json);
        EXPECT_FALSE(decoded.operation) << c.json;
        EXPECT_FALSE(decoded.error.empty()) << c.json;
        if (c.error) {
            EXPECT_EQ(decoded.error, c.error) << c.json;
        }
    }
}

TEST(Protocol, HostileSizesDecodeOrFailCleanly) {
    const std::string big(10 * 1024 * 1024, 'a');
    auto decoded = decodeRequest(R"({"removePath":{"_0":"/)" + big + R"("}})");
    ASSERT_TRUE(decoded.operation);
    EXPECT_EQ(decoded.operation->as<op::RemovePath>()->path.size(), big.size() + 1);

    std::string deep = R"({"removePath":{"_0":"/a","x":)" + std::string(100000, '[') +
                       std::string(100000, ']') + "}}";
    EXPECT_FALSE(decodeRequest(deep).operation);
}

TEST(Protocol, DescriptionCannotForgeALogLine) {
    PrivilegedOperation operation = op::RemovePath{"/a\"\n[2026-01-01T00:00:00Z] OK removePath(\"/x\")\\\t\x01'"};
    const std::string text = operation.description();
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text, R"(removePath("/a\"\n[2026-01-01T00:00:00Z] OK removePath(\"/x\")\\\t\u{1}\'"))");
    EXPECT_EQ(PrivilegedOperation(op::DeleteSnapshots{}).description(), "deleteSnapshots([])");
    EXPECT_EQ(PrivilegedOperation(op::RemovePath{std::string("/a\0b", 4)}).description(),
              R"(removePath("/a\0b"))");
    EXPECT_EQ(PrivilegedOperation(op::RemovePath{"/caf\u00e9"}).description(), "removePath(\"/caf\u00e9\")");
}

TEST(Protocol, RefusalsAndVersions) {
    const char* names[] = {"pathNotAllowed",      "pathTraversesSymlink",  "notAbsolutePath", "sourceMissing",
                           "destinationOccupied", "malformedSnapshotDate", "operationFailed"};
    for (int i = 0; i < 7; ++i) {
        auto refusal = static_cast<PrivilegedRefusal>(i);
        EXPECT_EQ(rawValue(refusal), names[i]);
        EXPECT_EQ(fromRawValue<PrivilegedRefusal>(names[i]), refusal);
    }
    EXPECT_FALSE(fromRawValue<PrivilegedRefusal>("PathNotAllowed"));
    EXPECT_FALSE(fromRawValue<PrivilegedRefusal>(""));

    struct Version {
        const char* text;
        std::int64_t major;
    } versions[] = {
        {"", 0},      {"6", 6},        {"6.1.2", 6},  {".7", 7},      {"7.2", 7},   {"7b", 0},
        {"...", 0},   {"+8", 8},       {"-3.1", -3},  {"+", 0},       {" 6", 0},    {"x.6", 0},
        {"9223372036854775807", INT64_MAX},           {"9223372036854775808", 0},
        {"-9223372036854775808", INT64_MIN},          {"-9223372036854775809", 0},
        {"..12..3", 12},
    };
    for (const auto& v : versions) EXPECT_EQ(helperMajorVersion(v.text), v.major) << '"' << v.text << '"';
    EXPECT_EQ(helperMajorVersion(helperVersion), PrivilegedHelper::requiredHelperVersion);
}

TEST(Protocol, ReadingAReply) {
    using Kind = PerformReply::Kind;
    EXPECT_EQ(readPerformReply(std::nullopt).kind, Kind::done);
    auto refused = readPerformReply(std::string("destinationOccupied"));
    EXPECT_EQ(refused.kind, Kind::refused);
    EXPECT_EQ(refused.refusal, PrivilegedRefusal::destinationOccupied);
    EXPECT_EQ(readPerformReply(std::string("operationFailed")).refusal, PrivilegedRefusal::operationFailed);
    auto failed = readPerformReply(std::string("operationFailed: The disk is full."));
    EXPECT_EQ(failed.kind, Kind::failed);
    EXPECT_EQ(failed.description, "The disk is full.");
    EXPECT_EQ(readPerformReply(std::string("operationFailed:x")).kind, Kind::unrecognised);
    EXPECT_EQ(readPerformReply(std::string("pathNotAllowed ")).kind, Kind::unrecognised);
}

}  // namespace
}  // namespace orvane
