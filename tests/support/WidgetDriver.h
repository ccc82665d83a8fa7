#pragma once

#include <QApplication>

#include <functional>
#include <string>
#include <vector>

class QPoint;
class QTimer;
class QTreeWidget;
class QTreeWidgetItem;

/// Driving real widgets as a user does, for the widget tests.
namespace uitest {

/// Calls `act` once `ready` holds, polling from the event loop (nested loops
/// of modal dialogs and menus included). Deleting the timer calls it off.
QTimer *when(const std::function<bool()> &ready, const std::function<void()> &act);

/// Runs `work` on a thread of its own while this (the GUI) thread runs the
/// event loop, as the program runs its loaders. False, and a test failure,
/// when it has not ended within timeoutMs; the thread is then left running,
/// so `work` must own what it uses.
bool runOnWorker(const std::function<void()> &work, int timeoutMs = 60000);

/// A point of a row where a user clicks it: scrolled into view, inside the
/// viewport even when the row is wider.
QPoint rowPoint(QTreeWidget *list, QTreeWidgetItem *row);
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

/// Calls `act` with the visible top-level W once there is one (see when).
template <class W> QTimer *whenShown(const std::function<void(W &)> &act)
{
    return when([] { return visibleWindow<W>() != nullptr; }, [act] { act(*visibleWindow<W>()); });
}

/// Saves a picture of the widget as NAME.png in the folder named by
/// VX_SCREENSHOT_DIR; does nothing when that is not set.
void screenshot(QWidget *widget, const char *name);

} // namespace uitest
