#include "tests/support/WidgetDriver.h"

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

namespace uitest {

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

bool runOnWorker(const std::function<void()> &work, int timeoutMs)
{
    auto done = std::make_shared<std::atomic<bool>>(false);
    std::thread worker([work, done] {
        work();
        *done = true;
    });
    if (!QTest::qWaitFor([&] { return done->load(); }, timeoutMs)) {
        worker.detach();
        ADD_FAILURE() << "the work did not end within " << timeoutMs << " ms";
        return false;
    }
    worker.join();
    return true;
}

QPoint rowPoint(QTreeWidget *list, QTreeWidgetItem *row)
{
    list->scrollToItem(row);
    return list->visualItemRect(row).intersected(list->viewport()->rect()).center();
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

} // namespace uitest
