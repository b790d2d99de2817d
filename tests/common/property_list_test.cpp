#include "core/common/property_list.hpp"

#include <gtest/gtest.h>

#include <string>

#include "core/common/json_files.hpp"

namespace orvane {
namespace {

constexpr const char* kXML = R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict><key>name</key><string>Macintosh HD</string>
<key>roles</key><array><string>Data</string></array><key>sealed</key><true/><key>empty</key><false/>
<key>bytes</key><integer>461308219392</integer><key>negative</key><integer>-5</integer>
<key>ratio</key><real>0.25</real><key>made</key><date>2024-05-10T11:32:26Z</date>
<key>blob</key><data>
	AAFoaQ==
	</data><key>nested</key><dict><key>list</key><array/></dict></dict></plist>
)";

// The same property list as Python's plistlib writes it in binary form.
constexpr const char* kBinaryHex =
    "62706c6973743030da0102030405060708090a0b0c0e0f101112131415546e616d6555726f6c6573567365616c656455656d70747955"
    "6279746573586e6567617469766555726174696f546d61646554626c6f62566e65737465645c4d6163696e746f7368204844a10d5444"
    "6174610908130000006b681cd00013fffffffffffffffb233fd00000000000003341c5f71ea50000004400016869d11617546c697374"
    "a0081d22282f353b444a4f545b686a6f70717a838c959a9da2000000000000010100000000000000180000000000000000000000000000"
    "00a3";

std::string fromHex(std::string_view hex) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return bytes;
}

TEST(PropertyList, XMLAndBinaryReadAsTheSameJSON) {
    const auto expected = nlohmann::json::parse(R"({
        "name": "Macintosh HD", "roles": ["Data"], "sealed": true, "empty": false,
        "bytes": 461308219392, "negative": -5, "ratio": 0.25,
        "made": "2024-05-10T11:32:26Z", "blob": "AAFoaQ==", "nested": {"list": []}})");
    EXPECT_EQ(parsePropertyList(kXML), expected);
    EXPECT_EQ(parsePropertyList(fromHex(kBinaryHex)), expected);
}

TEST(PropertyList, AnythingUnreadableIsNone) {
    const auto edited =
        readFile(std::string(TEST_DATA_DIR) + "/diskutil/apfs-list-plist-applesilicon-iSC-fleet-edited.plist");
    ASSERT_TRUE(edited);
    std::string deep;
    for (int i = 0; i < 600; ++i) deep += "<array>";
    for (int i = 0; i < 600; ++i) deep += "</array>";
    const std::string binary = fromHex(kBinaryHex);
    const std::string cases[] = {
        "",
        "not a property list",
        *edited,  // cut before </plist>
        std::string(kXML).substr(0, 300),
        binary.substr(0, binary.size() - 40),  // the trailer gone
        "bplist00" + std::string(40, '\xff'),
        "<plist version=\"1.0\">" + deep + "</plist>",
    };
    for (const auto& bytes : cases) EXPECT_EQ(parsePropertyList(bytes), std::nullopt) << bytes.substr(0, 60);
}

}  // namespace
}  // namespace orvane
