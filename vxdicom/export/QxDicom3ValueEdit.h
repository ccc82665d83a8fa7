#pragma once

#include "platform/dicom/dicom.h"

#include <QString>
#include <QWidget>

class QComboBox;
class QLineEdit;
class QPushButton;

/// The content editor of one value representation: a line edit; "..." for
/// the long-text VRs (LO, LT, OB, OW, ST, UT), which opens the multi-line
/// text dialog; a unit box for ages (AS: Years, Months, Weeks, Days).
/// Return shows the normalised text; Escape brings back the text the editor
/// was given.
class QxDicom3ValueEdit : public QWidget
{
    Q_OBJECT
public:
    QxDicom3ValueEdit(dicom::valRep vr, QWidget *parent = nullptr, const char *name = nullptr);
    QxDicom3ValueEdit(const QString &text, dicom::valRep vr, QWidget *parent = nullptr,
                      const char *name = nullptr);

    /// Shows text (an age as its number and unit, anything else normalised
    /// for the VR); unless keepSaved, it also becomes the text Escape restores.
    void setText(const QString &text, bool keepSaved = false);
    /// The value: an age as "%03d" and its unit's letter, anything else the
    /// line edit's text normalised for the VR.
    QString text() const;

    QLineEdit *lineEdit() const { return edit; }
    QPushButton *dialogButton() const { return more; }
    QComboBox *unitBox() const { return unit; }
    dicom::valRep vr() const { return valueRep; }

public slots:
    /// Return: shows the normalised text, keeping the saved one.
    void parseText();
    /// "...": the value in the multi-line text dialog; its result when
    /// accepted and not empty.
    void createDialog();

protected:
    void keyReleaseEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    /// Escape released in the line edit, which has the focus, is this
    /// editor's Escape.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void init();

    dicom::valRep valueRep;
    QString saved;
    QLineEdit *edit = nullptr;
    QPushButton *more = nullptr;
    QComboBox *unit = nullptr;
};
