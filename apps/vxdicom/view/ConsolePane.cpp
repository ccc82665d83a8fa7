#include "apps/vxdicom/view/ConsolePane.h"

#include <QFontDatabase>
#include <QMetaObject>
#include <QTextCharFormat>

namespace vxview {

ConsolePane::ConsolePane(QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("Console"));
    setReadOnly(true);
    setMaximumBlockCount(20000);
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    // The observer runs on the printing thread with the console locked: it
    // only queues the text for the GUI thread.
    previous = VxMessage::getTheMsg()->setObserver(
        [this](VxMessage::Level level, const std::string &text) {
            QString line = QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
            if (line.endsWith(QLatin1Char('\n')))
                line.chop(1);
            QMetaObject::invokeMethod(
                this, [this, level, line] { append(level, line); }, Qt::QueuedConnection);
        });
}

ConsolePane::~ConsolePane()
{
    VxMessage::getTheMsg()->setObserver(std::move(previous));
}

void ConsolePane::append(int level, const QString &text)
{
    QTextCharFormat format;
    if (level == VxMessage::Warning)
        format.setForeground(QColor(200, 120, 0));
    else if (level == VxMessage::Error || level == VxMessage::Failure)
        format.setForeground(QColor(200, 30, 30));
    QTextCursor end(document());
    end.movePosition(QTextCursor::End);
    if (!document()->isEmpty())
        end.insertBlock();
    end.insertText(text, format);
    ensureCursorVisible();
    emit messageLogged(level, text);
}

} // namespace vxview
