#pragma once

#include <functional>

namespace vxdicom_cli {

/// Before the QApplication is made: Qt's offscreen platform when there is no
/// display (no DISPLAY, WAYLAND_DISPLAY or QT_QPA_PLATFORM), and a private
/// runtime folder when XDG_RUNTIME_DIR is not set.
void prepareQtEnvironment();

/// Runs `work` on a worker thread while the Qt event loop runs on this
/// (the GUI) thread, as the host runs its loaders, so that dialogs are
/// created through the thread negotiator. Without a display (no DISPLAY or
/// WAYLAND_DISPLAY) Qt's offscreen platform is used and questions take their
/// default answers. Returns work's result; an exception in work is reported
/// on stderr and gives 1.
int runWithGui(int argc, char **argv, const std::function<int()> &work);

} // namespace vxdicom_cli
