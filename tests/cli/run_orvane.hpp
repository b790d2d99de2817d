// Runs the built orvane binary as a user would, capturing what it printed and its exit status.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "core/common/json_files.hpp"

namespace orvane::testing {

struct Outcome {
    int status = -1;
    std::string out;
    std::string err;
};

// `arguments` go to the shell as written, so quote anything with spaces.
inline Outcome runOrvane(const std::string& arguments, const std::string& scratchDir) {
    const std::string out = scratchDir + "/stdout", err = scratchDir + "/stderr";
    const std::string command = std::string(ORVANE_BINARY) + " " + arguments + " >" + out + " 2>" + err + " </dev/null";
    int raw = std::system(command.c_str());
    Outcome o;
    o.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    o.out = readFile(out).value_or("");
    o.err = readFile(err).value_or("");
    return o;
}

}  // namespace orvane::testing
