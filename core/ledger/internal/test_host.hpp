// Whether this process is a test program, so that it can be kept away from the user's things.
#pragma once

namespace orvane::ledger::internal {

// True when the test framework is linked into the process: its UnitTest class can be found by
// name.
bool isInsideTestHost();

}  // namespace orvane::ledger::internal
