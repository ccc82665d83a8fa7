#pragma once

#include "platform/core/KcDArray.h"

#include <functional>
#include <string>
#include <vector>

class DicomDialog;
class QMenu;
class QPoint;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;
class VxField3;

namespace browsertest {

/// What a load through the dialog gave.
struct LoadOutcome
{
    bool returned = false; ///< vxReadDicom returned within the time limit
    int result = -1;       ///< its result
    bool cancelled = false;
    KcDArray<VxField3 *> fields; ///< owned by the object pool
};

/// Runs vxReadDicom on a worker thread with the dialog shown, as the program
/// does, while this (the GUI) thread runs the event loop. Once the dialog is
/// visible, `drive` is called with it on the GUI thread; it ends the dialog
/// (OK, Cancel, ...). A load that does not return within `timeoutMs` fails
/// the test instead of hanging it.
LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
                              const std::function<void(DicomDialog &)> &drive,
                              int timeoutMs = 60000);

/// Calls `act` once `ready` holds, polling from the event loop (nested
/// loops of modal dialogs and menus included).
void when(const std::function<bool()> &ready, const std::function<void()> &act);
/// Calls `act` with the popup menu once one is open.
void whenPopupOpens(const std::function<void(QMenu &)> &act);

/// Right-clicks a row of the list (or a header section) as a user does: the
/// press, then the context-menu event. Returns when the menu has closed.
void rightClick(QWidget *viewport, const QPoint &pos);

/// A point on a row of a tree list where a user clicks it: the row is
/// scrolled into view, and the point lies inside the viewport even when the
/// row is wider than it.
QPoint rowPoint(QTreeWidget *list, QTreeWidgetItem *row);

/// A double click as the window system delivers it: press, release, then
/// the double-click event and its release.
void doubleClick(QWidget *viewport, const QPoint &pos);

/// Visible top-level widgets of that class.
template <class W> W *visibleWindow();

/// Texts of a menu's actions, separators left out.
std::vector<std::string> menuTexts(const QMenu &menu);
/// The action of a menu with that text; fails the test when missing.
void triggerMenuItem(QMenu &menu, const char *text);

/// The two series of ../shared/data that the dialog tests load: the Philips CT
/// (54 axial slices, patient name "HEAD") and the Siemens sagittal T1
/// (35 slices, "HFS").
std::vector<std::string> twoSeries();

} // namespace browsertest

#include <QApplication>

template <class W> W *browsertest::visibleWindow()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (auto *match = qobject_cast<W *>(w); match && match->isVisible())
            return match;
    return nullptr;
}
