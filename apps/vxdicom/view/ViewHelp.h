#pragma once

namespace vxview {

/// The text of `vxdicom view --help`, also shown by the window's Help menu.
const char *viewHelpText();

} // namespace vxview
