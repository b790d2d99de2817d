// Which kind of place a path names: the protected system, relocatable content under /Library,
// a Trash, an app's or a tool's internals, a standard home folder, or a way to the user's data.
// Text tests on the path as given; the home is read at each call.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace orvane {

// Content under /Library that may be moved or removed although the rest of /Library is the system's.
inline constexpr std::array<std::string_view, 11> relocatableSystemContent = {
    "/Library/Audio/Sounds",
    "/Library/Audio/Presets",
    "/Library/Audio/Apple Loops",
    "/Library/Audio/Impulse Responses",
    "/Library/Arturia",
    "/Library/Application Support/Native Instruments",
    "/Library/Application Support/Spectrasonics/STEAM",
    "/Library/Application Support/Spectrasonics/SAGE",
    "/Library/Application Support/Toontrack",
    "/Library/Application Support/GarageBand",
    "/Library/Application Support/Logic"};

// Names relative to the home.
inline constexpr std::array<std::string_view, 9> standardHomeContainers = {
    "Downloads", "Desktop", "Documents", "Pictures", "Movies", "Music", "Public", "Library", "Applications"};

// The user's folder of temporary items (platform::userTempRoot), worked out once.
const std::string& userTempRoot();

bool isRelocatableSystemContent(std::string_view path);

// Everything absolute outside the home, /Volumes, the user's temporary items and the
// relocatable content.
bool isProtectedSystemPath(std::string_view path);

// Holds "/.Trash" anywhere, which a volume's ".Trashes" satisfies too.
bool isInTrash(std::string_view path);

// Under the home's Application Support, Containers or Group Containers.
bool isAppInternalPath(std::string_view path);

// An app's internals, or a hidden item at the top of the home; never something in a Trash.
bool isToolInternalPath(std::string_view path);

// The home with exactly one of the standard names appended.
bool isStandardHomeContainer(std::string_view path);

// The home, anything on the way to it (also a mere text prefix of it), and the Applications folders.
bool leadsToUserContent(std::string_view path);

}  // namespace orvane
