#pragma once

#include "platform/core/VxMessage.h"

#include <QPlainTextEdit>

namespace vxview {

/// The host's message console as a pane: every message of VxMessage (from
/// any thread) is appended in order, warnings in orange and errors and
/// failures in red. The console keeps printing where it printed before
/// (standard output and error, or a test's sink).
class ConsolePane : public QPlainTextEdit
{
    Q_OBJECT
public:
    explicit ConsolePane(QWidget *parent = nullptr);
    /// Puts the previous observer back first, so no message arrives
    /// half-destroyed.
    ~ConsolePane() override;

signals:
    /// A message reached the pane (level as VxMessage::Level).
    void messageLogged(int level, const QString &text);

private:
    void append(int level, const QString &text);

    VxMessage::Observer previous;
};

} // namespace vxview
