// The victim of the ledger's reliability test: appends moves and log lines as fast as it can and
// reports on standard output each append that has returned, until it is killed.
//   ledger_crash_child LEDGER_DIR PREFIX
#include <unistd.h>

#include <cstdio>
#include <string>

#include "core/ledger/action_log.hpp"
#include "core/ledger/journals.hpp"
#include "core/ledger/ledger.hpp"

namespace {

void report(const std::string& line) {
    // Straight to the descriptor: nothing may wait in a buffer when the kill comes.
    const std::string text = line + "\n";
    if (::write(STDOUT_FILENO, text.data(), text.size()) != static_cast<ssize_t>(text.size())) _exit(3);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: ledger_crash_child LEDGER_DIR PREFIX\n", stderr);
        return 2;
    }
    using namespace orvane;
    Ledger::setTestDirOverride(std::string(argv[1]));
    const std::string prefix = argv[2];
    for (long i = 0;; ++i) {
        const std::string name = prefix + "-" + std::to_string(i);
        const MoveRecord record{Clock::now(), "Item " + name, "/Users/a/" + name, "/Volumes/Drive/" + name, i, true, std::nullopt};
        Ledger::beginMove(record);
        Ledger::appendMove(record);
        report("m " + name);
        Ledger::endMove(record.dst);
        Ledger::log("MOVED " + name);
        Ledger::flush();
        report("l " + name);
    }
}
