#pragma once

#include "platform/core/KcDArray.h"

#include <QString>
#include <QWidget>

class DicomListItem;
class DicomListView;
class QCheckBox;
class QShowEvent;
class QSplitter;
class QTextEdit;
class VxDicomImage;
class VxDicomImageStack;

/// The body of the import dialog: the browser list of stacks and images and
/// two text areas (the current image's DICOM information and the current
/// stack's), with the choices that change how stacks are exported. Selecting
/// stacks makes OK load only those; "Only uniform stacks of two images or
/// more" leaves out single images and unevenly spaced stacks.
class DicomDialogView : public QWidget
{
    Q_OBJECT
public:
    explicit DicomDialogView(QWidget *parent = nullptr);

    DicomListView *listView() const { return list; }
    QTextEdit *dicomInfoArea()
    {
        makeTextAreas();
        return dicomInfo;
    }
    QTextEdit *stackInfoArea()
    {
        makeTextAreas();
        return stackInfo;
    }
    QCheckBox *onlyUniformBox() const { return uniformBox; }
    /// The text areas are made before the view is first shown: a dialog that
    /// only builds and exports stacks (no display, -nodialog) lays out no
    /// text, which would cost more time and memory than the rest of it.
    void makeTextAreas();

    /// Hands the images to the list, which sorts them and builds the stacks.
    void loadImages(const KcDArray<VxDicomImage *> &images);
    /// Exports the loadable stacks for the export mode; false keeps the dialog open.
    bool accept(KcDArray<VxDicomImageStack *> &stacks);
    int numLoadableStacksSelected() const;
    /// Stacks that OK would load now.
    int numStacksToLoad() const;
    /// What OK loads, in words ("OK loads 1 of 2 stacks: the selected one").
    QString loadSummary() const;
    /// 2 when only selected stacks are loaded, plus 1 when only uniform stacks
    /// of more than one image are.
    int exportMode() const { return (onlySelected ? 2 : 0) + (onlyUniform ? 1 : 0); }
    bool getAsTimeSeries() const { return asTimeSeries; }

    /// The first export flag: only uniform stacks of more than one image.
    bool onlyUniform = false;
    /// The second export flag: only selected stacks. It follows the selection
    /// (on while a stack row is selected).
    bool onlySelected = false;

public slots:
    void asTimeSeriesRequest(bool on) { asTimeSeries = on; }
    void asDynamicRequest(bool on) { asTimeSeries = on; }
    /// Splits series that repeat positions into volumes (or not) and builds
    /// the stacks again.
    void splitVolumesRequest(bool on);
    void forceUniformRequest();
    void saveSettings();
    void resetSettings();
    void attachDicomParameters(bool on);
    void anonymizeDicomParameters(bool on);
    void updateDicomInfo(const QString &text);
    void updateStackInfo(const QString &text);
    void updateStackInfo();
    void updateStackInfo(int stack);
    /// Reads the pixels of the image when they are not in memory and opens
    /// its preview window.
    void imagePreview(VxDicomImage *image);
    /// The attributes of one image or two images side by side.
    void parameterView(DicomListItem *first, DicomListItem *second);

signals:
    void stacksAreSelected(int selected);

protected:
    void showEvent(QShowEvent *event) override;

private:

    /// Panes and export flag after a change of the selection or the stacks.
    void selectionChanged();

    QSplitter *texts = nullptr;
    QTextEdit *dicomInfo = nullptr;
    QTextEdit *stackInfo = nullptr;
    QString dicomText, stackText; // shown in the areas once they exist
    bool stackTextIsHtml = false;
    DicomListView *list = nullptr;
    bool asTimeSeries = false;
    QCheckBox *uniformBox = nullptr;
    QString summary;
};
