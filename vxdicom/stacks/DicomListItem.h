#pragma once

#include <QString>
#include <QTreeWidgetItem>

class DicomListView;
class VxDicomImage;

/// The row of one image in the browser tree, a child of a stack row. Its
/// column texts are computed from the image for the option of the column
/// (column k shows option k-1 of the owning DicomListView; column 0 is empty),
/// and the cell of the criterion that refused the row is drawn in red.
class DicomListItem : public QTreeWidgetItem
{
public:
    enum { Type = QTreeWidgetItem::UserType + 2 };

    /// A row that is not yet in a tree (the list view builds stacks this way).
    explicit DicomListItem(VxDicomImage *image);
    DicomListItem(QTreeWidget *parent, VxDicomImage *image);
    /// Appended as the parent's last child.
    DicomListItem(QTreeWidgetItem *parent, VxDicomImage *image);

    /// The text of one option for one image. Pseudo-elements (group or
    /// element -1): the file's name for the label "file name", its load
    /// index as a decimal number for "load index", else empty. Slice Location
    /// (0020,1041) and Instance Number (0020,0013) come from the image record;
    /// any other element is its value text in the file's header, empty when
    /// absent.
    static QString getText(const VxDicomImage *image, int group, int element, const QString &label);

    /// Stores getText of the element under the column's header label as the
    /// column's own text (the display still follows the options).
    void setColumnText(int group, int element, int column);

    /// loadIndex printed with "%05d" for every column: the children of a
    /// stack sort by load index.
    QString key(int column, bool ascending) const;
    /// The text of the column at visual position `column`: a number x gives
    /// x + 100000 printed with "%+015g", any other text is its own key.
    QString columnKey(int column, bool ascending) const;

    /// Display text as described above; the foreground of column
    /// breakOption + 1 is red when breakOption is not negative.
    QVariant data(int column, int role) const override;
    bool operator<(const QTreeWidgetItem &other) const override;

    VxDicomImage *image() const { return img; }
    DicomListView *listView() const;

    /// Position of the image in the sorted image list when the stacks were
    /// built; renumbered when a stack is reverted.
    int loadIndex = 0;
    /// List index of the load option that refused this row; -1 for none.
    int breakOption = -1;

private:
    QString columnText(int column) const;

    VxDicomImage *img;
};
