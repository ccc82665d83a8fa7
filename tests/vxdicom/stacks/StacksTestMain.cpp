#include "tests/support/TestSupport.h"

#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    const vxtest::IsolatedEnvironment environment;
    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
