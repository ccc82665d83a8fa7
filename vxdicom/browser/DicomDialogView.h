#pragma once

#include "platform/core/KcDArray.h"

#include <QWidget>

class DicomListView;
class QTextEdit;
class VxDicomImage;
class VxDicomImageStack;

/// The body of the import dialog: the browser list of stacks and images and
/// two text areas (the current image's DICOM information and the current
/// stack's), with the choices that change how stacks are exported.
class DicomDialogView : public QWidget
{
    Q_OBJECT
public:
    explicit DicomDialogView(QWidget *parent = nullptr);

    DicomListView *listView() const { return list; }

    /// Hands the images to the list, which sorts them and builds the stacks.
    void loadImages(const KcDArray<VxDicomImage *> &images);
    /// Exports the loadable stacks for the export mode; false keeps the dialog open.
    bool accept(KcDArray<VxDicomImageStack *> &stacks);
    int numLoadableStacksSelected() const;
    /// 2 when only selected stacks are loaded, plus 1 when only uniform stacks
    /// of more than one image are.
    int exportMode() const { return (onlySelected ? 2 : 0) + (onlyUniform ? 1 : 0); }
    bool getAsTimeSeries() const { return asTimeSeries; }

    bool onlyUniform = false;
    bool onlySelected = false;

public slots:
    void asTimeSeriesRequest(bool on) { asTimeSeries = on; }
    void asDynamicRequest(bool on) { asTimeSeries = on; }
    void forceUniformRequest();
    void saveSettings();
    void resetSettings();
    void attachDicomParameters(bool on);
    void anonymizeDicomParameters(bool on);
    void updateDicomInfo(const QString &text);
    void updateStackInfo(const QString &text);
    void updateStackInfo();
    void updateStackInfo(int stack);

signals:
    void stacksAreSelected(int selected);

private:
    QTextEdit *dicomInfo = nullptr;
    QTextEdit *stackInfo = nullptr;
    DicomListView *list = nullptr;
    bool asTimeSeries = false;
};
