#pragma once

#include <QPointer>
#include <QTableWidget>
#include <QTableWidgetItem>

class VxParamBundle;

/// A cell of the element table. Content cells are edited with a
/// QxDicom3ValueEdit for the row's VR, VR cells with a box of the VR list,
/// and the group cell with one editor over the whole tag (group-element);
/// element, length and description cells are not edited.
class QxDicom3TableItem : public QTableWidgetItem
{
public:
    explicit QxDicom3TableItem(const QString &text = QString());

    /// The editor of this cell (null for cells without one).
    QWidget *createEditor(QWidget *parent) const;
    /// Takes the editor's value: a VR re-normalises the row's content, a tag
    /// "gggg-eeee" fills the group and element cells, a content sets the
    /// length cell too.
    void setContentFromEditor(QWidget *editor);
};

/// The editable table of DICOM attributes shown when a field is saved as
/// DICOM: one row per attribute (group, element, VR, length, description,
/// content). It gives its rows as the "DICOM"/"All" bundle that the writer
/// inserts, and is refilled from such a bundle.
class QxDicom3Table : public QTableWidget
{
    Q_OBJECT
public:
    enum TableType { Full = 0, DescriptionAndContent = 1 };
    enum Column { Group = 0, Element = 1, VR = 2, Length = 3, Description = 4, Content = 5 };

    explicit QxDicom3Table(QWidget *parent = nullptr, const char *name = nullptr,
                           TableType type = Full);

    /// A new bundle "DICOM" holding "All" with one parameter "G<group>-<element>"
    /// per row, in row order: encodeQString of "description [VR]:content".
    VxParamBundle *getContentAsDicomParamBundle() const;
    /// Replaces every row by the parameters of the bundle's "All"; a null
    /// bundle, or one without "All", leaves the table as it is.
    void replaceContentWithBundle(const VxParamBundle *bundle);

    /// A row the user may look at but not change (no editor opens on it).
    void setRowReadOnly(int row, bool readOnly);
    bool isRowReadOnly(int row) const;

    TableType tableType() const { return type; }
    /// Ends an edit of the current row without taking its value.
    void cancelEdit();
    /// Ends an edit of the current row, taking its value (what leaving the
    /// cell does).
    void commitEdit();
    /// Hides columns 0..3 for table type 1; otherwise fits every column and
    /// sets group and element to 50 pixels and the VR to 55.
    void adjustAll();
    /// Ends an edit without taking it, before disabling.
    void setEnabled(bool on);
    void sortColumn(int column, bool ascending, bool wholeRows);

public slots:
    /// A new private element: F000, F000, DT, "new Private Element", now.
    void addNewItem();
    /// Removes the current row; the rows below move up.
    void delCurrentItem();
    /// The VR box of the current row chose vr: the content is re-normalised.
    void VRChanged(const QString &vr);
    /// Repaints the new and the previously current row.
    void update(int row, int column);

private:
    friend class QxDicom3TableItem;
    friend class QxDicom3TableDelegate;
    /// Sets the VR of row r and re-normalises its content for it.
    void renormalise(int r, const QString &vr);
    /// Fills one row (sorting is off while rows are filled).
    void setRow(int row, const QString &group, const QString &element, const QString &vr,
                const QString &description, const QString &content);

    TableType type;
    int lastRow = 0;
    QPointer<QWidget> openEditor;
};
