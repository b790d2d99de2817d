#include "core/ledger/internal/test_host.hpp"

#if defined(__ELF__)
// A weak reference to GoogleTest's testing::UnitTest::GetInstance(), by its mangled name: the
// static linker fills it in when the framework is part of the program and leaves it null
// otherwise. Test programs link GoogleTest statically, so it is not in the dynamic symbol table
// where dlsym would look.
extern "C" void orvaneGoogleTestInstance() __asm__("_ZN7testing8UnitTest11GetInstanceEv") __attribute__((weak));
#else
#include <dlfcn.h>
#endif

namespace orvane::ledger::internal {

bool isInsideTestHost() {
#if defined(__ELF__)
    return orvaneGoogleTestInstance != nullptr;
#else
    // Mach-O executables export their symbols, so the framework is found by name at run time.
    return dlsym(RTLD_DEFAULT, "_ZN7testing8UnitTest11GetInstanceEv") != nullptr;
#endif
}

}  // namespace orvane::ledger::internal
