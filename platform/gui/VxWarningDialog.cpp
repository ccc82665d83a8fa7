#include "platform/gui/VxWarningDialog.h"

#include "platform/core/KcString.h"
#include "platform/core/VxMessage.h"
#include "platform/gui/ThreadNegotiator.h"

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPushButton>

#include <atomic>

namespace {

std::atomic<int> gDisplayOverride{-1};

QByteArray local(const QString &s)
{
    return s.toLocal8Bit();
}

} // namespace

bool VxWarningDialog::haveDisplay()
{
    const int forced = gDisplayOverride.load();
    if (forced >= 0)
        return forced != 0;
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
        return false;
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}

void VxWarningDialog::setDisplayOverride(int display)
{
    gDisplayOverride.store(display < 0 ? -1 : (display ? 1 : 0));
}

int VxWarningDialog::warning(const QString &title, const QString &text, const QString &button0,
                             const QString &button1, const QString &button2, int defaultButton,
                             int escapeButton)
{
    const QString texts[3] = {
        button0.isEmpty() && button1.isEmpty() && button2.isEmpty() ? QObject::tr("OK") : button0,
        button1, button2};
    const auto present = [&texts](int i) { return i >= 0 && i < 3 && !texts[i].isEmpty(); };
    // A default that names no button falls back to the first one there is.
    if (!present(defaultButton))
        for (int i = 0; i < 3; ++i)
            if (present(i)) {
                defaultButton = i;
                break;
            }
    if (!present(escapeButton))
        escapeButton = -1;

    // Message boxes need a QApplication even when a display is forced.
    if (!haveDisplay() || !qobject_cast<QApplication *>(QCoreApplication::instance())) {
        VxMessage::getTheMsg()->printf("%s: %s\n-> %s (no display; default answer)\n",
                                       local(title).constData(), local(text).constData(),
                                       local(texts[defaultButton]).constData());
        return defaultButton;
    }

    int answer = defaultButton;
    ThreadNegotiator::runOnGuiThread([&] {
        QMessageBox box(QMessageBox::Warning, title, text, QMessageBox::NoButton,
                        QApplication::activeWindow());
        QAbstractButton *buttons[3] = {nullptr, nullptr, nullptr};
        for (int i = 0; i < 3; ++i)
            if (present(i))
                buttons[i] = box.addButton(texts[i], i == escapeButton ? QMessageBox::RejectRole
                                                                       : QMessageBox::AcceptRole);
        box.setDefaultButton(qobject_cast<QPushButton *>(buttons[defaultButton]));
        box.setEscapeButton(escapeButton >= 0 ? buttons[escapeButton] : nullptr);
        box.exec();
        const QAbstractButton *clicked = box.clickedButton();
        answer = escapeButton >= 0 ? escapeButton : defaultButton;
        for (int i = 0; i < 3; ++i)
            if (clicked && clicked == buttons[i])
                answer = i;
    });
    return answer;
}

void VxWarningDialog::information(const QString &title, const QString &text)
{
    if (!haveDisplay() || !qobject_cast<QApplication *>(QCoreApplication::instance())) {
        VxMessage::getTheMsg()->printf("%s: %s\n", local(title).constData(),
                                       local(text).constData());
        return;
    }
    ThreadNegotiator::runOnGuiThread(
        [&] { QMessageBox::information(QApplication::activeWindow(), title, text); });
}
