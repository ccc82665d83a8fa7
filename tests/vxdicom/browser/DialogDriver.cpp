#include "tests/vxdicom/browser/DialogDriver.h"

#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <QAction>
#include <QContextMenuEvent>
#include <QMenu>
#include <QPointer>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>

namespace browsertest {

QTimer *when(const std::function<bool()> &ready, const std::function<void()> &act)
{
    auto *timer = new QTimer(qApp);
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, ready, act] {
        if (!ready())
            return;
        timer->deleteLater();
        timer->stop();
        act();
    });
    timer->start();
    return timer;
}

namespace {

// Shared with the worker, which may outlive a test that gave up on it.
struct WorkerState
{
    std::vector<std::string> names;
    std::atomic<bool> done{false};
    int result = -1;
    bool cancelled = false;
    KcDArray<VxField3 *> fields;
};

} // namespace

LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
                              const std::function<void(DicomDialog &)> &drive)
{
    auto state = std::make_shared<WorkerState>();
    state->names = files;
    auto driven = std::make_shared<bool>(false);
    const QPointer<QTimer> waiting =
        when([driven] { return !*driven && visibleWindow<DicomDialog>(); },
             [driven, drive] {
                 *driven = true;
                 drive(*visibleWindow<DicomDialog>());
             });
    std::thread worker([state] {
        std::vector<const char *> names;
        for (const std::string &n : state->names)
            names.push_back(n.c_str());
        state->result =
            vxReadDicom(static_cast<int>(names.size()), names.data(), state->fields, 1, false);
        state->cancelled = dicomImportCancelled;
        state->done = true;
    });
    LoadOutcome outcome;
    outcome.returned = QTest::qWaitFor([&] { return state->done.load(); }, 60000);
    delete waiting.data();
    EXPECT_TRUE(*driven) << "the dialog was not shown";
    if (!outcome.returned) {
        worker.detach();
        ADD_FAILURE() << "vxReadDicom did not return within a minute";
        return outcome;
    }
    worker.join();
    outcome.result = state->result;
    outcome.cancelled = state->cancelled;
    outcome.fields = state->fields;
    return outcome;
}

QPoint rowPoint(QTreeWidget *list, QTreeWidgetItem *row)
{
    list->scrollToItem(row);
    return list->visualItemRect(row).intersected(list->viewport()->rect()).center();
}

void doubleClick(QWidget *viewport, const QPoint &pos)
{
    QTest::mouseClick(viewport, Qt::LeftButton, {}, pos);
    QTest::mouseDClick(viewport, Qt::LeftButton, {}, pos);
    QTest::mouseRelease(viewport, Qt::LeftButton, {}, pos);
}

std::vector<std::string> popupChoose(QWidget *viewport, const QPoint &pos, const char *item)
{
    std::vector<std::string> texts;
    const QPointer<QTimer> waiting =
        when([] { return qobject_cast<QMenu *>(QApplication::activePopupWidget()) != nullptr; },
             [&texts, item] {
                 auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
                 QAction *chosen = nullptr;
                 for (QAction *a : menu->actions()) {
                     if (!a->isSeparator())
                         texts.push_back(a->text().toStdString());
                     if (item && a->text() == QLatin1String(item))
                         chosen = a;
                 }
                 menu->close(); // what a click on an item does: close, then act
                 if (chosen)
                     chosen->trigger();
                 else if (item)
                     ADD_FAILURE() << "no menu item \"" << item << "\"";
             });
    QTest::mouseClick(viewport, Qt::RightButton, {}, pos);
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, viewport->mapToGlobal(pos));
    QApplication::sendEvent(viewport, &event); // returns when the menu has closed
    delete waiting.data();                     // no menu opened: stop waiting for one
    return texts;
}

void screenshot(QWidget *widget, const char *name)
{
    if (const char *dir = std::getenv("VX_SCREENSHOT_DIR")) {
        EXPECT_TRUE(widget->grab().save(QString::fromLocal8Bit(dir) + "/" + name + ".png"));
    }
}

std::vector<std::string> twoSeries()
{
    // The CT folder's DICOMDIR (DIRFILE) is left out: it lists the same images.
    std::vector<std::string> files;
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_ct/In"))
        if (f.find("DIRFILE") == std::string::npos)
            files.push_back(f);
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_decubitus/In"))
        files.push_back(f);
    return files;
}

} // namespace browsertest
