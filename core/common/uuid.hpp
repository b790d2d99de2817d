// Fresh identities for things that have no name of their own.
#pragma once

#include <string>

namespace orvane {

// A random (version 4) UUID in the platform's upper-case text form.
std::string freshUUID();

}  // namespace orvane
