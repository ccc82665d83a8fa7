#pragma once

#include "platform/core/KcDArray.h"

#include <QString>
#include <QTreeWidgetItem>

class DicomListItem;
class DicomLoadOption;
class VxDicomImage;

/// The top-level row of one stack in the browser tree; its children are the
/// image rows. A newly inserted image row becomes the first child, so the
/// first child is the most recently added image until the children are
/// sorted by their keys (the load index).
class DicomStackItem : public QTreeWidgetItem
{
public:
    enum { Type = QTreeWidgetItem::UserType + 1 };

    /// A stack row not yet in a tree (the list view builds stacks this way).
    explicit DicomStackItem(VxDicomImage *image = nullptr);
    DicomStackItem(QTreeWidget *parent, VxDicomImage *image = nullptr);
    DicomStackItem(QTreeWidgetItem *parent, VxDicomImage *image = nullptr);

    /// Shows the row open and selectable, clears the info text and appends the
    /// image if one is given.
    void initialize(VxDicomImage *image);
    /// Inserts a new image row for the image as the first child.
    bool append(VxDicomImage *image);
    /// Inserts an existing row as the first child (taking it from its parent).
    void insertImageRow(DicomListItem *row);

    /// Geometry of the item's image against the first child's (printing the
    /// "stack break: ... is differing" line at the first difference), then
    /// loadOptionTest. A null item is refused; an empty stack accepts any.
    bool accept(DicomListItem *item, const KcDArray<DicomLoadOption *> &options);
    /// Every option in list order; the list index of the first failing one
    /// goes to breakOption of the stack and the item.
    bool loadOptionTest(DicomListItem *item, const KcDArray<DicomLoadOption *> &options);
    /// One criterion: the item's value against the values of the first two
    /// children. Image Orientation (Patient) is compared as geometry.
    bool testOnLoadOption(DicomListItem *item, DicomLoadOption &option);
    /// The policy rule with the shared uniformTolerance.
    static bool isOptionSatisfied(const QString &value, const KcDArray<QString> &stackValues,
                                  DicomLoadOption &option);

    bool isMonotonous() const;
    bool isUniform() const;
    /// 0 without image rows, otherwise the LARGEST slice location of the
    /// children: the renumber dialog starts from it.
    float getMinSliceLocation() const;
    /// Gives the children (in child order) the load indices n..1 and sorts
    /// them by key, which reverses their order.
    void revertChildren();
    /// Overwrites the children's slice locations, in child order, with start,
    /// start + increment, ... (single-precision accumulation).
    void relocateChildItems(float start, float increment);
    /// Sorts the image rows ascending by key (the load index).
    void sortChildItems();
    DicomListItem *firstChild() const;
    DicomListItem *lastChild() const;
    /// Slice locations of the image rows in child order.
    KcDArray<float> sliceLocations() const;

    /// Builds the rich-text summary: the facts of the stack (size, spacing,
    /// values, orientation, why the next stack broke off), then the first
    /// child's identifying attributes.
    void setStackInfo();
    /// The summary of the stack as it is now.
    QString info();
    /// The state icon of column 0 (single slice, uniform, non-uniform,
    /// non-monotonous), or none.
    void showIcon(bool show);
    /// Column 0 shows the first child's Patient's Name, or nothing.
    void showLabel(bool show);
    /// index printed with "%05d": stacks sort in build order.
    QString key(int column, bool ascending) const;
    bool operator<(const QTreeWidgetItem &other) const override;

    /// The tolerance for the distance between slices (the script variable
    /// "DicomMaxDistError", 0.05 when unset); shared with the reader.
    static float getMaxDistError();

    /// Relative tolerance of the linear rule on "slice location" and of the
    /// uniformity test, shared by all stacks.
    static float uniformTolerance;

    /// Sorted-list position of the last image added; the stack's sort key.
    int index = 0;
    /// List index of the criterion that refused the last refused candidate.
    int breakOption = -1;
    /// Why the last candidate was refused ("width is differing", "series
    /// instance uid breaks the \"constant\" rule (1.2.3)"); empty when none was.
    QString breakReason;
    /// For a volume of a series that repeats positions: which one, and what
    /// told it apart; empty otherwise.
    QString volumeNote;

private:
    QString stackInfo;
};
