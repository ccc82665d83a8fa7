#pragma once

#include <functional>

namespace vxdicom_cli {

/// Runs `work` on a worker thread while the Qt event loop runs on this
/// (the GUI) thread, as the host runs its loaders, so that dialogs are
/// created through the thread negotiator. Without a display (no DISPLAY or
/// WAYLAND_DISPLAY) Qt's offscreen platform is used and questions take their
/// default answers. Returns work's result; an exception in work is reported
/// on stderr and gives 1.
int runWithGui(int argc, char **argv, const std::function<int()> &work);

} // namespace vxdicom_cli
