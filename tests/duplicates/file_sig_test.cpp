#include "core/duplicates/file_sig.hpp"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(FileSig, JSONAndChangeDuringCopy) {
    const FileSig sig{1'700'000'000, -1};
    EXPECT_EQ(toJSON(sig).dump(), R"({"mtime":1700000000,"size":-1})");
    EXPECT_EQ(fileSigFromJSON(toJSON(sig)), sig);
    for (const char* bad : {R"({"mtime":1})", R"({"mtime":"1","size":2})", R"({"mtime":1.5,"size":2})", "[1,2]"})
        EXPECT_EQ(fileSigFromJSON(nlohmann::json::parse(bad)), std::nullopt) << bad;

    const std::map<std::string, FileSig> before = {{"/a", {1, 10}}, {"/b", {2, 20}}};
    EXPECT_FALSE(sourceChangedDuringCopy(before, before));
    for (const auto& after : std::vector<std::map<std::string, FileSig>>{
             {{"/a", {1, 10}}, {"/b", {3, 20}}}, {{"/a", {1, 10}}, {"/b", {2, 21}}}, {{"/a", {1, 10}}},
             {{"/a", {1, 10}}, {"/b", {2, 20}}, {"/c", {0, 0}}}, {{"/a", {1, 10}}, {"/c", {2, 20}}}})
        EXPECT_TRUE(sourceChangedDuringCopy(before, after)) << after.size();
}

}  // namespace
}  // namespace orvane
