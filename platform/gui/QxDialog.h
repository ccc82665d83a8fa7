#pragma once

#include <QDialog>

class QBoxLayout;
class QPushButton;

/// The host's dialog base: a QDialog with the standard button rows.
class QxDialog : public QDialog
{
    Q_OBJECT
public:
    /// Button sets: 1 a single confirming button ("OK"); 9 a confirming and a
    /// cancelling button ("OK", "Cancel").
    enum ButtonSet { ButtonsOk = 1, ButtonsOkCancel = 9 };

    explicit QxDialog(QWidget *parent = nullptr, const char *name = nullptr, bool modal = true,
                      Qt::WindowFlags flags = {});

    /// Builds the button row of `set` with `spacing` pixels between buttons
    /// and returns the layout that holds it (layout 1: buttons left-aligned,
    /// 2: right-aligned, anything else: centred). OK is the default button
    /// and accepts; Cancel rejects. `extra` buttons (may be null) come first.
    /// The set is read as a bit mask (1: OK, 8: Cancel), so other values give
    /// the buttons of their bits. The caller adds the returned layout to its
    /// own layout, which then owns it; the buttons are children of the dialog.
    /// Texts are translated in the context "QxDialog".
    QBoxLayout *createButtons(int set, int spacing = 5, int layout = 2,
                              QPushButton *extra = nullptr);
    QPushButton *okButton() const { return ok; }
    QPushButton *cancelButton() const { return cancel; }

private:
    QPushButton *ok = nullptr;
    QPushButton *cancel = nullptr;
};
