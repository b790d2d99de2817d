// FileKind: what sort of file an item is, with the label, symbol and advice of each sort.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "core/scan/space_item.hpp"

namespace orvane {

// Cases in display order; the raw value of each is its name.
enum class FileKind { aiModel, video, audio, image, document, archive, code, app, folder, other };

// FileKind.Advice: what to do with a kind in general.
enum class FileKindAdvice { move, removeOnceInstalled, review };

inline constexpr std::array<FileKind, 10> allFileKinds = {
    FileKind::aiModel, FileKind::video, FileKind::audio, FileKind::image,  FileKind::document,
    FileKind::archive, FileKind::code,  FileKind::app,   FileKind::folder, FileKind::other};

std::string_view rawValue(FileKind kind);
template <>
std::optional<FileKind> fromRawValue<FileKind>(std::string_view raw);

// FileKind.of: "app" bundles first, then ollama's extensionless blobs, then folders without an
// extension, then the extension tables; anything left is `folder` or `other`.
FileKind fileKindOf(const SpaceItem& item);

// The position in allFileKinds; 99 for a value that is not a case.
int order(FileKind kind);
// The display label through L(), falling back to the English text.
std::string label(FileKind kind);
// A system symbol name.
std::string_view icon(FileKind kind);
FileKindAdvice advice(FileKind kind);

}  // namespace orvane
