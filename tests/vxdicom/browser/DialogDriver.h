#pragma once

#include "platform/core/KcDArray.h"

#include <QApplication>

#include <functional>
#include <string>
#include <vector>

class DicomDialog;
class QPoint;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;
class VxField3;

namespace browsertest {

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

/// Calls `act` once `ready` holds, polling from the event loop (nested loops
/// of modal dialogs and menus included). Deleting the timer calls it off.
QTimer *when(const std::function<bool()> &ready, const std::function<void()> &act);

/// A point of a row where a user clicks it: scrolled into view, inside the
/// viewport even when the row is wider.
QPoint rowPoint(QTreeWidget *list, QTreeWidgetItem *row);
/// A double click as the window system delivers it (press, release, double click).
void doubleClick(QWidget *viewport, const QPoint &pos);
/// Right-clicks `pos` of `viewport`, triggers the popup item `item` (none
/// when null) and returns the popup's item texts, separators left out.
std::vector<std::string> popupChoose(QWidget *viewport, const QPoint &pos, const char *item);

/// The visible top-level widget of that class, or null.
template <class W> W *visibleWindow()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *match = qobject_cast<W *>(w); match && match->isVisible())
            return match;
    return nullptr;
}

/// Saves a picture of the widget as NAME.png in the folder named by
/// VX_SCREENSHOT_DIR; does nothing when that is not set.
void screenshot(QWidget *widget, const char *name);

/// The Philips CT (54 axial slices, patient name "HEAD") and the Siemens
/// sagittal T1 (35 slices, "HFS") of ../shared/data.
std::vector<std::string> twoSeries();

} // namespace browsertest
