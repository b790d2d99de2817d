// A fresh folder for one test, removed with everything in it when the test is over. Folders a test
// locked are opened again first, so nothing is left behind in /tmp.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace orvane::testing {

// Writes `text` to `path` exactly, making the folders above it first.
inline void writeFile(const std::string& path, std::string_view text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

// An app bundle's Info.plist that says only its identifier.
inline std::string infoPlistWithIdentifier(std::string_view id) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key>"
           "<string>" + std::string(id) + "</string></dict></plist>\n";
}

class TempDir {
public:
    // In `base` (a real disk for tests that need one: "/var/tmp"); the path is the resolved one,
    // as the kernel reports it for descriptors.
    explicit TempDir(const char* base = "/tmp") {
        std::string pattern = std::string(base) + "/orvane-test-XXXXXX";
        if (const char* made = ::mkdtemp(pattern.data())) path_ = std::filesystem::canonical(made).string();
    }
    ~TempDir() {
        namespace fs = std::filesystem;
        std::error_code ec;
        fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
        for (auto it = fs::recursive_directory_iterator(path_, fs::directory_options::skip_permission_denied, ec);
             !ec && it != fs::recursive_directory_iterator(); it.increment(ec))
            if (it->is_directory(ec) && !it->is_symlink(ec))
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(std::string_view relative) const { return path_ + "/" + std::string(relative); }
    // Both return the full path of what they made, with the folders above it.
    std::string write(std::string_view relative, std::string_view text = "x") const {
        writeFile(*this / relative, text);
        return *this / relative;
    }
    std::string mkdir(std::string_view relative) const {
        std::filesystem::create_directories(*this / relative);
        return *this / relative;
    }

private:
    std::string path_;
};

}  // namespace orvane::testing
