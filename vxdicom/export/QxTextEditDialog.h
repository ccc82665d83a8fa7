#pragma once

#include <QDialog>
#include <QString>

class QTextEdit;

/// The modal dialog in which a long attribute value (LO, LT, OB, OW, ST, UT)
/// is edited as multi-line text. Help is left unconnected on purpose; the
/// help() slot opens the save dialog's help page.
class QxTextEditDialog : public QDialog
{
    Q_OBJECT
public:
    QxTextEditDialog(const QString &caption, const QString &text, QWidget *parent = nullptr,
                     const char *name = "QxTextEditDialog", bool modal = true,
                     Qt::WindowFlags flags = {});

    /// Runs the dialog; *ok (when given) tells whether it was accepted. The
    /// edited text when accepted, else an empty text.
    static QString getMultiText(const QString &caption, const QString &text, bool *ok = nullptr,
                                QWidget *parent = nullptr);

    QString getText() const;
    QTextEdit *editor() const { return edit; }

public slots:
    void help();

private:
    QTextEdit *edit;
};
