#pragma once

#include "platform/gui/QxDialog.h"

#include <QString>
#include <QTreeWidgetItem>

class DicomListItem;
class QTreeWidget;

/// A row of the parameter view; `difference` marks an element whose two
/// values differ (drawn bold on a tinted background).
class QxParameterListItem : public QTreeWidgetItem
{
public:
    explicit QxParameterListItem(QTreeWidget *parent) : QTreeWidgetItem(parent) {}
    QVariant data(int column, int role) const override;

    bool difference = false;
};

/// "DICOM Parameters": every data element of one image of the browser, or of
/// two images side by side (a merge of the two tag-ordered element lists;
/// pixel data is never listed). "Add" turns the selected element into a new
/// column and load option of the browser list (newColumn, newOption).
class DicomParameterView : public QxDialog
{
    Q_OBJECT
public:
    /// `second` may be null; a null `first` leaves the dialog empty.
    DicomParameterView(DicomListItem *first, DicomListItem *second, QWidget *parent = nullptr);

    QTreeWidget *list() const { return elements; }
    QPushButton *addButton() const { return add; }

public slots:
    /// From "Add" and a double click: emits newColumn and newOption for the
    /// selected row, then closes (only closes without one).
    void exportColumn();
    void changeButtonState(QTreeWidgetItem *current);

signals:
    void newColumn(int group, int element, QString description);
    void newOption(int group, int element, QString content);
    void newButtonState(bool enabled);

private:
    void createMyButtons();

    QTreeWidget *elements = nullptr;
    QPushButton *add = nullptr;
};
