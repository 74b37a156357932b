// SPDX-License-Identifier: MIT
// The main function of every test program.
#include <gtest/gtest.h>

#include "tests/support/ChildProcess.h"

int main(int argc, char** argv) {
    int exitCode = 0;
    if (support::PlayChildRole(argc, argv, &exitCode)) return exitCode;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
