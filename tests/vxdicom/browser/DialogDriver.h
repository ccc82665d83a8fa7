#pragma once

#include "platform/core/KcDArray.h"
#include "tests/support/WidgetDriver.h"

#include <functional>
#include <string>
#include <vector>

class DicomDialog;
class VxField3;

namespace browsertest {

using namespace uitest;

/// What a load through the dialog gave.
struct LoadOutcome
{
    bool returned = false; ///< vxReadDicom returned within the time limit
    int result = -1;
    bool cancelled = false;
    KcDArray<VxField3 *> fields; ///< owned by the object pool
};

/// Runs vxReadDicom on a worker thread with the dialog shown, as the program
/// does, while this (the GUI) thread runs the event loop; `drive` gets the
/// dialog once it is visible and ends it. A load that does not return within
/// a minute fails the test instead of hanging it.
LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
                              const std::function<void(DicomDialog &)> &drive);

/// The Philips CT (54 axial slices, patient name "HEAD") and the Siemens
/// sagittal T1 (35 slices, "HFS") of ../shared/data.
std::vector<std::string> twoSeries();

} // namespace browsertest
