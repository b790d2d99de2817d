// Runs the built orvane binary as a user would, capturing what it printed and its exit status.
#pragma once

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <span>
#include <string>

#include "core/common/json_files.hpp"
#include "tests/support/temp_dir.hpp"

namespace orvane::testing {

// The arguments that make orvane read the recorded Mac of alex, built from real captures.
inline const std::string kAlexReplay = std::string("--replay ") + TEST_DATA_DIR + "/replay/alex ";

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

// `arguments` go to the shell as written, so quote anything with spaces (a "<" in them replaces
// the empty standard input); `prefix` is shell text
// before the binary, such as "cd DIR &&" or "HOME=DIR".
inline Outcome runOrvane(const std::string& arguments, const std::string& scratchDir, const std::string& prefix = "") {
    const std::string out = scratchDir + "/stdout", err = scratchDir + "/stderr";
    const std::string command =
        prefix + " " + std::string(ORVANE_BINARY) + " </dev/null " + arguments + " >" + out + " 2>" + err;
    int raw = std::system(command.c_str());
    Outcome o;
    o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    o.out = readFile(out).value_or("");
    o.err = readFile(err).value_or("");
    return o;
}

// One row of a command's table. In every text "{D}" stands for the row's own fresh folder.
struct CommandCase {
    std::string arguments;
    int status;
    enum Stream { out, err } stream;
    std::string text;
    enum Match { whole, contains } match = whole;
    std::function<void(const TempDir&)> setup = {};
    std::string prefix = {};
};

// The values of one key across the rows of a JSON list, to compare a column at once.
inline nlohmann::json column(const nlohmann::json& rows, const char* key) {
    nlohmann::json values = nlohmann::json::array();
    for (const auto& row : rows) values.push_back(row[key]);
    return values;
}

inline std::string withDir(std::string text, const std::string& dir) {
    for (std::size_t at = 0; (at = text.find("{D}", at)) != std::string::npos; at += dir.size())
        text.replace(at, 3, dir);
    return text;
}

inline void expectCommands(std::span<const CommandCase> cases) {
    for (const auto& c : cases) {
        TempDir dir;
        if (c.setup) c.setup(dir);
        const std::string arguments = withDir(c.arguments, dir.path());
        const auto o = runOrvane(arguments, dir.path(), withDir(c.prefix, dir.path()));
        const std::string& shown = c.stream == CommandCase::out ? o.out : o.err;
        const std::string expected = withDir(c.text, dir.path());
        EXPECT_EQ(o.status, c.status) << arguments << "\n" << o.out << o.err;
        if (c.match == CommandCase::whole)
            EXPECT_EQ(shown, expected) << arguments;
        else
            EXPECT_NE(shown.find(expected), std::string::npos) << arguments << "\n" << shown;
    }
}

}  // namespace orvane::testing
