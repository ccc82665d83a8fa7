#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    const vxtest::IsolatedEnvironment environment; // private preferences, no user settings
    return RUN_ALL_TESTS();
}
