// Test main of the umockdev tier: the process must run under umockdev's
// preload library, which redirects /sys and /dev to the testbed and forwards
// ioctls on emulated nodes. Started without it, the program starts itself
// again with it; the tests skip when it still is not there.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "umock_bus.h"

namespace {

constexpr const char* kRestartedMark = "UMOCKBUS_RESTARTED";

void restart_under_preload(char** argv) {
    const bool restarted = std::getenv(kRestartedMark) != nullptr;
    unsetenv(kRestartedMark);
    if (restarted || umockbus::preload_loaded()) return;
    std::string preload = umockbus::kPreloadLibrary;
    if (const char* old = std::getenv("LD_PRELOAD"); old && *old) preload += std::string(":") + old;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    setenv(kRestartedMark, "1", 1);
    execv("/proc/self/exe", argv);
    // Could not start again: the tests report the skip.
}

}  // namespace

int main(int argc, char** argv) {
    restart_under_preload(argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
