#include "core/scan/file_kind.hpp"

#include <gtest/gtest.h>

#include "core/scan/space_item.hpp"

namespace orvane {
namespace {

TEST(FileKind, OrderAndRawValues) {
    for (std::size_t i = 0; i < allFileKinds.size(); ++i) {
        FileKind kind = allFileKinds[i];
        EXPECT_EQ(order(kind), static_cast<int>(i));
        EXPECT_EQ(fromRawValue<FileKind>(rawValue(kind)), kind);
    }
    EXPECT_EQ(order(static_cast<FileKind>(42)), 99);
    EXPECT_EQ(fromRawValue<FileKind>("AIModel"), std::nullopt);
    EXPECT_EQ(advice(FileKind::archive), FileKindAdvice::removeOnceInstalled);
    EXPECT_EQ(advice(FileKind::image), FileKindAdvice::move);
    EXPECT_EQ(advice(FileKind::app), FileKindAdvice::review);
}

TEST(FileKindOf, ExtensionsFoldersAndBlobs) {
    struct Case {
        const char* id;
        bool isDir;
        FileKind expected;
    };
    const std::vector<Case> cases = {
        {"/Applications/Tool.app", true, FileKind::app},
        {"/Users/a/Tool.APP", false, FileKind::app},  // a file named .app too
        {"/Users/a/bundle.zip", true, FileKind::archive}, {"/Users/a/Projects", true, FileKind::folder},
        {"/Users/a/README", false, FileKind::other},
        {"/Users/a/.ollama/models/blobs/sha256-1f2e", false, FileKind::aiModel},
        {"/Users/a/.ollama/models/blobs/sha256-1f2e", true, FileKind::folder},
        {"/Users/a/.ollama/models/blobs/x.json", false, FileKind::aiModel},  // blobs win over extensions
        {"/Users/a/.ollama/models/blobs.json", false, FileKind::code}, {"/Users/a/Clip.MP4", false, FileKind::video},
        {"/Users/a/a.tar.gz", false, FileKind::archive},
        {"/Users/a/.mp4", false, FileKind::other},  // a leading dot names the file, not its kind
        {"/Users/a/trailing.", false, FileKind::other}, {"/Users/a/x.unknown", true, FileKind::folder},
        {"/Users/a/weights.pt", false, FileKind::aiModel}, {"/Users/a/Model.mlpackage", true, FileKind::aiModel},
        {"/Users/a/logo.ai", false, FileKind::image}, {"/Users/a/Talk.key", false, FileKind::document},
        {"/Users/a/Sparkle.framework", true, FileKind::code}, {"/Users/a/libz.a", false, FileKind::code},
        {"/Users/a/dir.d/file", false, FileKind::other},  // only the last component's extension
    };
    for (const auto& c : cases) {
        SpaceItem item;
        item.id = c.id;
        item.isDir = c.isDir;
        EXPECT_EQ(fileKindOf(item), c.expected) << c.id << (c.isDir ? " (folder)" : " (file)");
    }
}

}  // namespace
}  // namespace orvane
