#pragma once

#include "apps/vxdicom/view/DicomOpener.h"

#include <QMainWindow>

class QAction;
class QLabel;
class QProgressBar;
class QPushButton;
class QTreeWidget;
class VxField3;
class VxPoolObject;

namespace vxview {

class ConsolePane;
class OrthoViewer;
class ParameterPane;

/// The host window of `vxdicom view`: the list of loaded data objects (the
/// object pool's fields and time-series controls), the slice views of the
/// chosen one, its parameter tree and the message console; File opens DICOM
/// (files, a folder, or files dropped on the window), NIfTI and NRRD, and
/// saves the chosen data as NIfTI, NRRD or DICOM, or anonymises it. Errors
/// go to the console and the status bar.
class ViewerWindow : public QMainWindow
{
    Q_OBJECT
public:
    explicit ViewerWindow(QWidget *parent = nullptr);
    ~ViewerWindow() override;

    /// Opens what the names stand for: NIfTI and NRRD files at once, DICOM
    /// files and folders (walked as `vxdicom load` walks them) in one open on
    /// the worker thread. False, with a message, when nothing could be
    /// started (no names, an open running, an unreadable folder).
    bool openPaths(const QStringList &paths);
    /// Opens DICOM files (no folders) on the worker thread.
    bool openDicomFiles(const QStringList &files);
    /// Loads a NIfTI or NRRD file into the pool and shows it.
    bool openFieldFile(const QString &path);

    /// Saves the data on show by the name's ending (.nii, .nii.gz, .nrrd); a
    /// time-series control goes into one 4D NIfTI file when its steps share
    /// their geometry, its current step otherwise.
    bool saveCurrent(const QString &path);
    /// "Save as DICOM" for the field on show, into a folder; the number of
    /// files written (0 when cancelled, -1 without a field).
    int saveCurrentAsDicom(const QString &folder);
    /// Runs the anonymizer module on the data on show (each step of a
    /// time-series control); false without data.
    bool anonymizeCurrent();
    /// Removes the data on show from the pool.
    bool closeCurrent();

    /// Shows an object of the pool (null: none).
    void showObject(VxPoolObject *object);
    VxPoolObject *currentObject() const;
    /// Fills the data list again from the pool.
    void refreshDataList();

    /// Whether DICOM opens show the import dialog (when there is a display).
    void setShowImportDialog(bool on) { importDialog = on; }
    QAction *asTimeSeriesAction() const { return asTimeSeries; }

    OrthoViewer *viewer() const { return views; }
    ParameterPane *parameters() const { return params; }
    ConsolePane *console() const { return messages; }
    QTreeWidget *dataList() const { return list; }
    DicomOpener *opener() const { return dicom; }
    QProgressBar *progressBar() const { return progress; }
    QPushButton *cancelButton() const { return cancel; }

signals:
    /// A DICOM open ended (after the list was refreshed).
    void openFinished(const vxview::OpenOutcome &outcome);

protected:
    void closeEvent(QCloseEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void buildMenus();
    void chooseDicomFiles();
    void chooseDicomFolder();
    void chooseFieldFile();
    void chooseSaveFile();
    void chooseDicomFolderToSave();
    void showHelp();
    void openEnded(const OpenOutcome &outcome);
    void selectionChanged();
    void updateActions();
    void showProblem(const QString &text);

    OrthoViewer *views = nullptr;
    ParameterPane *params = nullptr;
    ConsolePane *messages = nullptr;
    QTreeWidget *list = nullptr;
    DicomOpener *dicom = nullptr;
    QProgressBar *progress = nullptr;
    QPushButton *cancel = nullptr;
    QAction *asTimeSeries = nullptr;
    QList<QAction *> needData;
    QList<QAction *> needIdle;
    bool importDialog = true;
    bool closeWhenDone = false;
};

} // namespace vxview
