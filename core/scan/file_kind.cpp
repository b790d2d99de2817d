#include "core/scan/file_kind.hpp"

#include <vector>

#include "core/common/path.hpp"
#include "core/common/text.hpp"

namespace orvane {
namespace {

struct KindInfo {
    std::string_view raw;
    std::string_view labelKey;
    std::string_view defaultLabel;
    std::string_view icon;
    FileKindAdvice advice;
};

// Indexed by the enumeration's value, which is also its display order.
constexpr std::array<KindInfo, 10> kKinds = {{
    {"aiModel", "kind.aimodel", "AI models", "brain", FileKindAdvice::move},
    {"video", "kind.video", "Videos", "film", FileKindAdvice::move},
    {"audio", "kind.audio", "Audio", "music.note", FileKindAdvice::move},
    {"image", "kind.image", "Images", "photo", FileKindAdvice::move},
    {"document", "kind.document", "Documents", "doc.text", FileKindAdvice::review},
    {"archive", "kind.archive", "Archives & disk images", "archivebox",
     FileKindAdvice::removeOnceInstalled},
    {"code", "kind.code", "Code & data", "chevron.left.forwardslash.chevron.right",
     FileKindAdvice::review},
    {"app", "kind.app", "Apps", "app.badge", FileKindAdvice::review},
    {"folder", "kind.folder", "Folders", "folder", FileKindAdvice::review},
    {"other", "kind.other", "Other", "questionmark.square.dashed", FileKindAdvice::review},
}};

struct ExtensionSet {
    FileKind kind;
    std::vector<std::string_view> extensions;
};

// Tested in this order; the first set holding the extension decides.
const std::array<ExtensionSet, 7> kExtensionSets = {{
    {FileKind::aiModel,
     {"safetensors", "gguf", "ggml", "ckpt", "pt", "pth", "onnx", "mlmodel", "mlpackage", "tflite",
      "npy", "npz"}},
    {FileKind::video,
     {"mp4", "mov", "m4v", "avi", "mkv", "webm", "mpg", "mpeg", "wmv", "flv", "prproj"}},
    {FileKind::audio,
     {"mp3", "m4a", "aac", "wav", "aiff", "aif", "opus", "ogg", "flac", "wma", "logicx", "als"}},
    {FileKind::image,
     {"jpg", "jpeg", "png", "gif", "heic", "heif", "webp", "bmp", "tiff", "tif",
      "raw", "cr2",  "cr3", "nef", "arw",  "dng",  "psd",  "ai",  "svg",  "sketch"}},
    {FileKind::document,
     {"pdf", "doc", "docx", "xls", "xlsx", "ppt", "pptx", "pages", "numbers", "key", "txt", "rtf",
      "md", "csv", "epub", "odt"}},
    {FileKind::archive,
     {"zip", "tar", "gz", "tgz", "bz2", "xz", "7z", "rar", "dmg", "iso", "pkg", "xip"}},
    {FileKind::code,
     {"swift", "py", "js", "ts", "json", "xml", "yml", "yaml", "sql", "db", "sqlite", "log", "bin",
      "dylib", "framework", "o", "a"}},
}};

const KindInfo* info(FileKind kind) {
    auto i = static_cast<std::size_t>(kind);
    return i < kKinds.size() ? &kKinds[i] : nullptr;
}

}  // namespace

std::string_view rawValue(FileKind kind) {
    const KindInfo* k = info(kind);
    return k ? k->raw : std::string_view{};
}

template <>
std::optional<FileKind> fromRawValue<FileKind>(std::string_view raw) {
    for (std::size_t i = 0; i < kKinds.size(); ++i)
        if (kKinds[i].raw == raw) return static_cast<FileKind>(i);
    return std::nullopt;
}

FileKind fileKindOf(const SpaceItem& item) {
    const std::string ext = lowercased(pathExtension(item.id));
    if (ext == "app") return FileKind::app;
    // Ollama keeps its weights as extensionless blobs named by digest.
    if (!item.isDir && item.id.find("/.ollama/models/blobs/") != std::string::npos)
        return FileKind::aiModel;
    if (item.isDir && ext.empty()) return FileKind::folder;
    for (const auto& set : kExtensionSets)
        for (auto candidate : set.extensions)
            if (candidate == ext) return set.kind;
    return item.isDir ? FileKind::folder : FileKind::other;
}

int order(FileKind kind) {
    for (std::size_t i = 0; i < allFileKinds.size(); ++i)
        if (allFileKinds[i] == kind) return static_cast<int>(i);
    return 99;
}

std::string label(FileKind kind) {
    const KindInfo* k = info(kind);
    return k ? L(k->labelKey, k->defaultLabel) : std::string{};
}

std::string_view icon(FileKind kind) {
    const KindInfo* k = info(kind);
    return k ? k->icon : std::string_view{};
}

FileKindAdvice advice(FileKind kind) {
    const KindInfo* k = info(kind);
    return k ? k->advice : FileKindAdvice::review;
}

}  // namespace orvane
