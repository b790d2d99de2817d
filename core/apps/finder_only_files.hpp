// The files Finder drops into any folder it has shown. Their presence says nothing about who a
// folder belongs to, so ownership tests look past them.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

namespace orvane {

// "Icon\r" is a folder's custom icon: the four letters and a carriage return.
inline constexpr std::array<std::string_view, 3> finderOnlyFiles = {".DS_Store", "Icon\r", ".localized"};

// Compared exactly: Finder writes these names in one spelling only.
inline bool isFinderOnlyFile(std::string_view name) {
    return std::find(finderOnlyFiles.begin(), finderOnlyFiles.end(), name) != finderOnlyFiles.end();
}

}  // namespace orvane
