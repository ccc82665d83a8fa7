#pragma once

#include "platform/core/KcDArray.h"

#include <QList>
#include <QPointer>
#include <QString>
#include <QTreeWidget>

#include "vxdicom/stacks/DicomVolumeSplit.h"

#include <unordered_map>
#include <vector>

class DicomListItem;
class DicomLoadOption;
class DicomOptionDialog;
class QMenu;
class DicomStackItem;
class VxDicomImage;
class VxDicomImageStack;

/// The tree list of the import browser: one top-level row per stack, the
/// stack's images as its children, one column per load option (column k shows
/// options[k-1]; column 0 is the tree column). It owns the options and the
/// stack rows, sorts the images it is given by its columns, splits the sorted
/// sequence into stacks, checks each stack's slice order and hands the chosen
/// stacks to the reader. The criteria are kept in the preferences
/// (VxPreferences::dicomLoadOptions).
///
/// Sorting goes through a module-wide pointer to the view being sorted (the
/// comparison has the plain form qsort needs), so only one view sorts at a
/// time.
class DicomListView : public QTreeWidget
{
    Q_OBJECT
public:
    explicit DicomListView(QWidget *parent = nullptr, const char *name = nullptr);
    ~DicomListView() override;

    /// Nothing for an empty array; otherwise loadImages and loadSettings.
    void initialize(const KcDArray<VxDicomImage *> &images);
    /// Copies the image pointers (not owned).
    void loadImages(const KcDArray<VxDicomImage *> &images);

    void loadSettings();
    void saveSettings();
    void resetSettings();

    /// With defaults: setupLoadOptions first. Then columns, cleanup, stacks.
    void initializeColumns(bool withDefaults);
    /// Replaces the option list with the default criteria.
    void setupLoadOptions();
    /// cleanupAllStacks, sortItems, adoptChildItems, updateStackView,
    /// updateDicomInfo. On a large list the work area shows the progress
    /// ("building stacks...") and the event loop runs between steps (user
    /// input excepted), so that the window keeps painting; a rebuild asked
    /// for meanwhile follows the running one.
    void buildImageStacks();
    /// Whether buildImageStacks is running.
    bool isBuildingStacks() const { return building; }
    /// Sorts the images as compareImages orders them (qsort, not stable),
    /// then puts the volumes of each split series one after the other. The
    /// column texts are read once per image, not once per comparison.
    void sortItems();
    using QTreeWidget::sortItems;
    /// The qsort comparison of two VxDicomImage* through the sorting view.
    static int compareImages(const void *a, const void *b);
    /// Splits the sorted images into stacks, in build order.
    void adoptChildItems();
    void cleanupAllStacks();
    void updateStackView();
    void updateDicomInfo();

    void addLoadOption(int group, int element, const QString &value);
    void removeLoadOption(const QString &label);
    void setupListColumns();
    void appendColumn(int group, int element, const QString &label);
    /// Removes the column of that section with its option and rebuilds.
    void deleteColumn(int section);
    bool columnIsObsolete(int section) const;
    void cleanupListColumns();
    void clearColumnsAndOptions();

    /// 1 ascending, -1 descending; 1 for a section beyond the array.
    int getSortOrder(int section) const;

    bool stackConsistency();
    /// After stackConsistency, one new VxDicomImageStack per stack that
    /// satisfies mode is appended to out (the caller owns them). False, and
    /// nothing exported, when the user cancelled a renumbering.
    bool exportImageStacks(KcDArray<VxDicomImageStack *> &out, int mode);
    /// Mode bit 2: the stack row is selected; bit 1: uniform with more than
    /// one image.
    bool satisfies(DicomStackItem *stack, int mode) const;
    int countStacks(int mode) const;
    /// Image rows in all stacks.
    int numImages() const;
    /// Images of the selected rows: all images of a selected stack, plus
    /// selected image rows of stacks that are not selected.
    int numSelectedImages() const;
    QList<QTreeWidgetItem *> getSelectedItems() const;

    void removeSelectedItems();
    void removeSelectedItem(QTreeWidgetItem *item);
    void removeEmptyStacks();

    /// The criteria dialog over the option list ("DICOM Stack Break
    /// Criteria", not modal); raised when it is open.
    void loadOptionDialog();
    /// Asks for the preview of the selected image (a selected stack: its
    /// first image) through imagePreviewRequest.
    void imagePreview();
    /// Asks for the parameter view of the selected image, or of the two
    /// selected images side by side, through parameterViewRequest (a selected
    /// stack: its first image; nothing selected: the first image of the list).
    void parameterView();
    /// The menu of the rows chosen by the selection (one image row, one stack
    /// row, several rows), at `pos` (global). `item` is the row clicked.
    void popupItemMenu(QTreeWidgetItem *item, const QPoint &pos, int column);
    /// The header's menu ("Remove Column") for the section under `pos` (global).
    void popupColumnMenu(const QPoint &pos);
    /// The row menu for the current selection (null without one); the caller
    /// owns it. Entries: "DICOM Parameters", "Image Preview", "Remove Image".
    QMenu *createItemMenu();
    /// The header menu of a section (null for the tree column); caller owns it.
    QMenu *createColumnMenu(int section);

    float getUniformTolerance() const;
    /// Nothing when unchanged; otherwise sets it and rebuilds the stacks.
    void setUniformTolerance(float tolerance);

    const KcDArray<DicomLoadOption *> &loadOptions() const { return options; }
    KcDArray<DicomLoadOption *> &loadOptions() { return options; }
    const KcDArray<VxDicomImage *> &imageList() const { return images; }
    const KcDArray<DicomStackItem *> &stackList() const { return stacks; }

    /// Whether a series that repeats slice positions is split into its
    /// volumes before the criteria are tested (on at start).
    bool splitVolumes = true;

    /// Whether exported stacks get their DICOM parameters, and whether those
    /// are anonymised (true and false at start).
    bool withDicomParameters = true;
    bool anonymizeParameters = false;

public slots:
    void updateImageStacks();
    /// A header click at visual position `position`: flips that section's
    /// sort direction and rebuilds.
    void sortingOrderChanged(int position);

signals:
    /// "%d stack%s\n%d image%s" after every rebuild.
    void listViewChanged(const QString &summary);
    /// The preview of this image is asked for.
    void imagePreviewRequest(VxDicomImage *image);
    /// The attributes of one image (second null) or two images side by side.
    void parameterViewRequest(DicomListItem *first, DicomListItem *second);

protected:
    /// The row menu: the row under the mouse, or the current row when the
    /// keyboard's menu key asked for it.
    void contextMenuEvent(QContextMenuEvent *event) override;
    void showEvent(QShowEvent *event) override;

private:
    /// Column widths follow the header texts (column 0 its contents); a view
    /// never shown measures no text, so that exporting stacks without a
    /// display loads no fonts. The widths are set when it is first shown.
    void fitColumn(int column);
    /// The image rows chosen for an action: the selected image rows, else the
    /// first image of each selected stack.
    QList<DicomListItem *> chosenImageRows() const;
    int compare(const VxDicomImage *a, const VxDicomImage *b) const;
    /// One image's texts in the sorted columns, read once for the sort.
    struct SortCell
    {
        QString text; ///< trimmed, as compare reads it
        bool numeric = false;
        double number = 0;
    };
    struct SortRow
    {
        VxDicomImage *image;
        int row; ///< the image's cells start at sortCells[row * columns]
    };
    /// The qsort comparison of two SortRows: compare on the cached texts.
    static int compareSortRows(const void *a, const void *b);
    int compareCached(const SortRow &a, const SortRow &b) const;
    /// Every 128 images of a long build: progress, and the event loop.
    void buildProgress(float fraction);
    /// The volume of a series that repeats positions the image belongs to; 0
    /// for every other image.
    int volumeIndex(const VxDicomImage *image) const;
    void groupVolumes();
    /// Whether a and b are different volumes of one split series.
    bool otherVolumeOfSeries(const VxDicomImage *a, const VxDicomImage *b) const;
    /// Removes one header section, keeping the others' visual order and sort
    /// directions.
    void removeColumnSection(int section);
    int sectionOfLabel(const QString &label) const;
    /// After options were added, removed or replaced: an open criteria
    /// dialog is made again over the new list.
    void optionListChanged();

    KcDArray<DicomLoadOption *> options;
    KcDArray<VxDicomImage *> images;
    KcDArray<int> sortOrder;
    KcDArray<DicomStackItem *> stacks;
    QPointer<DicomOptionDialog> optionDialog;
    std::unordered_map<const VxDicomImage *, DicomVolume> volumes;
    /// Set while sections are moved by the view itself, not by the user.
    bool movingSections = false;
    /// buildImageStacks is running; another was asked for meanwhile.
    bool building = false;
    bool columnsToFit = false;
    bool rebuildAsked = false;
    /// The sort's columns in visual order (section, option, whether it is
    /// Image Orientation, which compares by geometry) and one cell per image
    /// and column; empty outside sortItems.
    struct SortColumn
    {
        int section;
        const DicomLoadOption *option;
        bool orientation;
    };
    std::vector<SortColumn> sortColumns;
    std::vector<SortCell> sortCells;
    bool showsBuildProgress = false;
};
