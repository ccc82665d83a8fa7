#include "apps/vxdicom/GuiRuntime.h"

#include <QApplication>
#include <QMetaObject>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace vxdicom_cli {

void prepareQtEnvironment()
{
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY") &&
        !std::getenv("QT_QPA_PLATFORM"))
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (!std::getenv("XDG_RUNTIME_DIR")) {
        // Qt warns on every start without one and then uses this very folder;
        // naming it first keeps the console quiet.
        const std::string dir = "/tmp/runtime-" + std::to_string(getuid());
        mkdir(dir.c_str(), 0700);
        setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);
    }
}

int runWithGui(int argc, char **argv, const std::function<int()> &work)
{
    prepareQtEnvironment();
    QApplication app(argc, argv);
    // The worker decides when the program ends. Closing a dialog, its last
    // window, must not end the loop: the worker still has calls for it to run
    // (the dialog's result, its deletion) and would wait for them forever.
    app.setQuitOnLastWindowClosed(false);
    int result = 1;
    std::thread worker([&] {
        try {
            result = work();
        } catch (const std::exception &e) {
            std::fprintf(stderr, "vxdicom: %s\n", e.what());
            result = 1;
        } catch (const char *text) {
            std::fprintf(stderr, "vxdicom: %s\n", text);
            result = 1;
        }
        QMetaObject::invokeMethod(&app, "quit", Qt::QueuedConnection);
    });
    app.exec();
    worker.join();
    return result;
}

} // namespace vxdicom_cli
