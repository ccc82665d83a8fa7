#include "tests/support/TestSupport.h"

#include <QApplication>

#include <gtest/gtest.h>

// Widget tests: an isolated environment (offscreen, private preferences) and
// the application object. As in the program, a dialog that closes, its last
// window, does not end the event loop.
int main(int argc, char **argv)
{
    const vxtest::IsolatedEnvironment environment;
    QApplication app(argc, argv);
    app.setQuitOnLastWindowClosed(false);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
