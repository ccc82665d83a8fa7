#pragma once

#include "platform/core/KcDArray.h"
#include "platform/gui/QxDialog.h"

#include <QList>
#include <QString>

class DicomListView;
class DicomLoadOption;
class QButtonGroup;
class QLineEdit;
class QStackedWidget;
class QTreeWidget;

/// Reads the text of the uniformity tolerance in percent. True with the
/// fraction (2.5 -> 0.025) for a number from 0 to 100; false with the reason
/// for anything else (not a number, negative, above 100).
bool parseTolerancePercent(const QString &text, float *fraction, QString *why);

/// The criteria dialog "DICOM Stack Break Criteria": for every load option of
/// the list view, its policy among the allowed ones (one page of radio
/// buttons per option), and the uniformity tolerance in percent. Apply is
/// enabled while something on the dialog differs from the list's state. The
/// dialog works on the list's own option objects; the list view rebuilds it
/// when its option list changes.
class DicomOptionDialog : public QxDialog
{
    Q_OBJECT
public:
    DicomOptionDialog(KcDArray<DicomLoadOption *> &options, DicomListView *view,
                      QWidget *parent = nullptr);

    QTreeWidget *elementList() const { return elements; }
    QStackedWidget *pages() const { return pageStack; }
    /// The radio buttons of option k, identified by their policy values.
    QButtonGroup *policyButtons(int k) const { return groups.value(k); }
    QLineEdit *toleranceEdit() const { return tolerance; }
    QPushButton *applyButton() const { return apply; }

public slots:
    /// Enables Apply when a checked policy or the tolerance differs.
    void modifyOptions(int);
    void toleranceChanged();
    /// Sets every option's policy to its checked button and the list's
    /// tolerance to the edit's, then rebuilds the stacks. A tolerance that is
    /// not a number from 0 to 100 is refused with a message and nothing
    /// changes.
    void applyLoadOptions();
    /// Applies; closes unless the tolerance was refused.
    void accept() override;
    /// Shows the page of the element selected in the list.
    void selectOptionTab();
    void raiseOptionTab(int page);

signals:
    void loadOptionsChanged();
    void optionsAreModified(bool modified);
    void newOptionTab(int page);

private:
    QWidget *optionTab(const DicomLoadOption &option, int k);
    /// True when a checked policy or the tolerance text differs from the list.
    bool differs() const;

    KcDArray<DicomLoadOption *> &options;
    DicomListView *view;
    QLineEdit *tolerance = nullptr;
    QTreeWidget *elements = nullptr;
    QStackedWidget *pageStack = nullptr;
    QList<QButtonGroup *> groups;
    QPushButton *apply = nullptr;
    bool modified = false;
};
