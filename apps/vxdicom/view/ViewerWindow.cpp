#include "apps/vxdicom/view/ViewerWindow.h"

#include "apps/vxdicom/InputFiles.h"
#include "apps/vxdicom/view/ConsolePane.h"
#include "apps/vxdicom/view/DataSummary.h"
#include "apps/vxdicom/view/OrthoViewer.h"
#include "apps/vxdicom/view/ParameterPane.h"
#include "apps/vxdicom/view/SliceView.h"
#include "apps/vxdicom/view/ViewHelp.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxFieldFile.h"
#include "platform/gui/VxSkin.h"
#include "vxdicom/export/QxDicom3SaveDialog.h"
#include "vxdicom/params/VxAnonymizeImageStack.h"

#include <QAction>
#include <QCloseEvent>
#include <QDockWidget>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTreeWidget>

#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace vxview {

namespace {

constexpr int kObjectRole = Qt::UserRole + 1;

bool isFieldFile(const QString &path)
{
    return VxFieldFile::formatOf(path.toLocal8Bit().constData()) != VxFieldFile::Unknown;
}

// Every field of a time-series control's steps (the first of each step).
std::vector<VxField3 *> stepFields(VxDynamicSeriesCtrl &series)
{
    std::vector<VxField3 *> fields;
    for (int s = 0; s < series.nSteps(); ++s)
        if (auto *f =
                dynamic_cast<VxField3 *>(series.step(s).isEmpty() ? nullptr : series.step(s)[0]))
            fields.push_back(f);
    return fields;
}

} // namespace

ViewerWindow::ViewerWindow(QWidget *parent) : QMainWindow(parent)
{
    setObjectName(QStringLiteral("ViewerWindow"));
    setWindowTitle(tr("vxdicom view"));
    setWindowIcon(VxSkin::instance()->windowIcon());
    setAcceptDrops(true);
    setDockNestingEnabled(true);

    views = new OrthoViewer(this);
    setCentralWidget(views);

    list = new QTreeWidget(this);
    list->setObjectName(QStringLiteral("DataList"));
    list->setHeaderLabels(
        {tr("Label"), tr("Dimensions"), tr("Type"), tr("Voxel size"), tr("Modality")});
    list->setRootIsDecorated(false);
    list->setSelectionMode(QAbstractItemView::SingleSelection);
    list->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    auto *dataDock = new QDockWidget(tr("Data"), this);
    dataDock->setObjectName(QStringLiteral("DataDock"));
    dataDock->setWidget(list);
    addDockWidget(Qt::LeftDockWidgetArea, dataDock);

    params = new ParameterPane(this);
    auto *paramDock = new QDockWidget(tr("Parameters"), this);
    paramDock->setObjectName(QStringLiteral("ParameterDock"));
    paramDock->setWidget(params);
    addDockWidget(Qt::LeftDockWidgetArea, paramDock);
    splitDockWidget(dataDock, paramDock, Qt::Vertical);

    messages = new ConsolePane(this);
    auto *consoleDock = new QDockWidget(tr("Console"), this);
    consoleDock->setObjectName(QStringLiteral("ConsoleDock"));
    consoleDock->setWidget(messages);
    addDockWidget(Qt::BottomDockWidgetArea, consoleDock);
    resizeDocks({dataDock, consoleDock}, {470, 150}, Qt::Horizontal);
    resizeDocks({dataDock, paramDock}, {220, 520}, Qt::Vertical);
    resizeDocks({consoleDock}, {150}, Qt::Vertical);

    progress = new QProgressBar(this);
    progress->setObjectName(QStringLiteral("OpenProgress"));
    progress->setRange(0, 1000);
    progress->setMaximumWidth(260);
    progress->setTextVisible(true);
    progress->hide();
    cancel = new QPushButton(tr("Cancel"), this);
    cancel->setObjectName(QStringLiteral("CancelOpen"));
    cancel->hide();
    statusBar()->addPermanentWidget(progress);
    statusBar()->addPermanentWidget(cancel);

    dicom = new DicomOpener(this);
    connect(dicom, &DicomOpener::progress, this, [this](const QString &status, double fraction) {
        progress->setValue(static_cast<int>(fraction * 1000));
        progress->setFormat(status.isEmpty() ? QStringLiteral("%p%")
                                             : status + QStringLiteral("  %p%"));
    });
    connect(dicom, &DicomOpener::finished, this, &ViewerWindow::openEnded);
    connect(cancel, &QPushButton::clicked, dicom, &DicomOpener::cancel);
    connect(messages, &ConsolePane::messageLogged, this, [this](int level, const QString &text) {
        if (level != VxMessage::Info)
            statusBar()->showMessage(text, 15000);
    });
    connect(views, &OrthoViewer::problem, this, &ViewerWindow::showProblem);
    connect(views, &OrthoViewer::timeStepChanged, this, [this] {
        const VxField3 *f = views->field();
        params->setBundle(f ? &f->parameters() : nullptr);
    });
    connect(list, &QTreeWidget::itemSelectionChanged, this, &ViewerWindow::selectionChanged);

    buildMenus();
    updateActions();
    resize(1500, 950);
}

ViewerWindow::~ViewerWindow()
{
    // An open still running ends before the widgets its signals reach go.
    dicom->cancelAndWait();
    // The views borrow the shown object; nothing of theirs may outlive it.
    views->setData(nullptr);
}

void ViewerWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    QAction *openFiles = file->addAction(tr("Open &DICOM files..."), QKeySequence::Open, this,
                                         &ViewerWindow::chooseDicomFiles);
    QAction *openFolder =
        file->addAction(tr("Open DICOM &folder..."), this, &ViewerWindow::chooseDicomFolder);
    QAction *openField =
        file->addAction(tr("Open &NIfTI/NRRD..."), this, &ViewerWindow::chooseFieldFile);
    asTimeSeries = file->addAction(tr("Open DICOM as &time series"));
    asTimeSeries->setCheckable(true);
    file->addSeparator();
    QAction *save = file->addAction(tr("&Save as NIfTI/NRRD..."), QKeySequence::Save, this,
                                    &ViewerWindow::chooseSaveFile);
    QAction *saveDicom =
        file->addAction(tr("Save as DI&COM..."), this, &ViewerWindow::chooseDicomFolderToSave);
    QAction *anonymize = file->addAction(tr("&Anonymize"), this, [this] { anonymizeCurrent(); });
    QAction *close = file->addAction(tr("C&lose data"), this, [this] { closeCurrent(); });
    file->addSeparator();
    file->addAction(tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    QAction *fit = view->addAction(tr("&Fit slices"), this, [this] {
        for (View v : {View::Axial, View::Coronal, View::Sagittal})
            views->sliceView(v)->fitToView();
    });
    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&Using the viewer"), this, &ViewerWindow::showHelp);

    needIdle = {openFiles, openFolder, openField, asTimeSeries, save, saveDicom, anonymize, close};
    needData = {save, saveDicom, anonymize, close, fit};
}

void ViewerWindow::updateActions()
{
    const bool busy = dicom->isRunning();
    const bool haveData = views->field() != nullptr;
    for (QAction *a : needIdle)
        a->setEnabled(!busy);
    for (QAction *a : needData)
        if (!busy || !needIdle.contains(a))
            a->setEnabled(haveData && !busy);
    progress->setVisible(busy);
    cancel->setVisible(busy);
    cancel->setEnabled(busy);
    list->setEnabled(!busy);
}

bool ViewerWindow::openPaths(const QStringList &paths)
{
    if (dicom->isRunning()) {
        showProblem(tr("an open is still running; wait for it or cancel it"));
        return false;
    }
    std::vector<std::string> dicomInputs;
    bool any = false;
    for (const QString &p : paths) {
        if (isFieldFile(p))
            any = openFieldFile(p) || any;
        else
            dicomInputs.push_back(p.toStdString());
    }
    if (dicomInputs.empty())
        return any;
    std::vector<std::string> names;
    if (!vxdicom_cli::expandInputs(dicomInputs, names)) {
        showProblem(tr("a folder could not be read (see the console)"));
        return any;
    }
    if (names.empty()) {
        showProblem(tr("no files found in %1").arg(QString::fromStdString(dicomInputs.front())));
        return any;
    }
    QStringList files;
    for (const std::string &n : names)
        files << QString::fromStdString(n);
    return openDicomFiles(files) || any;
}

bool ViewerWindow::openDicomFiles(const QStringList &files)
{
    if (!dicom->open(files, importDialog, asTimeSeries->isChecked()))
        return false;
    statusBar()->showMessage(tr("opening %n file(s)...", nullptr, static_cast<int>(files.size())));
    progress->setValue(0);
    progress->setFormat(QStringLiteral("%p%"));
    updateActions();
    return true;
}

bool ViewerWindow::openFieldFile(const QString &path)
{
    KcString error;
    std::unique_ptr<VxRegScalarField3> field;
    try {
        field = VxFieldFile::load(path.toLocal8Bit().constData(), &error);
    } catch (const std::exception &e) {
        error = KcString::format("loading %s failed: %s", path.toLocal8Bit().constData(), e.what());
    }
    if (!field) {
        VxMessage::getTheMsg()->error("%s\n", error.c_str());
        return false;
    }
    VxField3 *shown = field.get();
    VxObjectPool::instance()->add(field.release());
    VxMessage::getTheMsg()->printf("loaded %s as \"%s\"\n", path.toLocal8Bit().constData(),
                                   shown->label().c_str());
    refreshDataList();
    showObject(shown);
    return true;
}

void ViewerWindow::openEnded(const OpenOutcome &outcome)
{
    refreshDataList();
    if (!outcome.added.empty()) {
        // A time series shows as its control; otherwise the first new field.
        VxPoolObject *first = outcome.added.front();
        for (VxPoolObject *o : outcome.added)
            if (dynamic_cast<VxDynamicSeriesCtrl *>(o))
                first = o;
        showObject(first);
    }
    QString text;
    if (outcome.cancelled)
        text = tr("opening cancelled; nothing was loaded");
    else if (outcome.dialogCancelled)
        text = tr("import dialog cancelled; nothing was loaded");
    else
        text = tr("loaded %n data object(s)", nullptr, static_cast<int>(outcome.added.size()));
    if (!outcome.cancelled && outcome.failures > 0)
        text += tr("; %n file(s) or stack(s) could not be read (see the console)", nullptr,
                   outcome.failures);
    statusBar()->showMessage(text, 30000);
    updateActions();
    emit openFinished(outcome);
    if (closeWhenDone)
        close();
}

void ViewerWindow::refreshDataList()
{
    VxPoolObject *keep = currentObject();
    list->blockSignals(true);
    list->clear();
    QTreeWidgetItem *selected = nullptr;
    for (VxPoolObject *o : VxObjectPool::instance()->objects()) {
        if (!displayedField(o))
            continue;
        const DataSummary s = summarize(*o);
        auto *item = new QTreeWidgetItem(list, {s.label, s.dims, s.type, s.voxelSize, s.modality});
        item->setData(0, kObjectRole, QVariant::fromValue(reinterpret_cast<quintptr>(o)));
        if (o == keep)
            selected = item;
    }
    if (selected)
        selected->setSelected(true);
    list->blockSignals(false);
    if (!selected && keep)
        showObject(nullptr);
}

VxPoolObject *ViewerWindow::currentObject() const
{
    return views->data();
}

void ViewerWindow::showObject(VxPoolObject *object)
{
    list->blockSignals(true);
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        QTreeWidgetItem *item = list->topLevelItem(i);
        item->setSelected(reinterpret_cast<VxPoolObject *>(
                              item->data(0, kObjectRole).value<quintptr>()) == object);
    }
    list->blockSignals(false);
    views->setData(object);
    const VxField3 *f = views->field();
    params->setBundle(f ? &f->parameters() : nullptr);
    setWindowTitle(object ? tr("vxdicom view - %1").arg(object->label().toQString())
                          : tr("vxdicom view"));
    updateActions();
}

void ViewerWindow::selectionChanged()
{
    const QList<QTreeWidgetItem *> items = list->selectedItems();
    VxPoolObject *object = items.isEmpty()
                               ? nullptr
                               : reinterpret_cast<VxPoolObject *>(
                                     items.front()->data(0, kObjectRole).value<quintptr>());
    if (object != currentObject())
        showObject(object);
}

bool ViewerWindow::saveCurrent(const QString &path)
{
    VxPoolObject *object = currentObject();
    VxField3 *field = views->field();
    if (!field) {
        showProblem(tr("nothing to save: no data is shown"));
        return false;
    }
    const QByteArray name = path.toLocal8Bit();
    KcString error;
    bool ok = false;
    auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(object);
    const bool nifti = VxFieldFile::formatOf(name.constData()) == VxFieldFile::Nifti;
    if (series && nifti && series->nSteps() > 1) {
        KcDArray<const VxField3 *> steps;
        for (VxField3 *f : stepFields(*series))
            steps.append(f);
        ok = VxFieldFile::saveNiftiSeries(steps, name.constData(), &error);
        if (!ok) {
            VxMessage::getTheMsg()->warning("%s; the current step is saved alone\n", error.c_str());
            ok = VxFieldFile::save(*field, name.constData(), &error);
        }
    } else {
        ok = VxFieldFile::save(*field, name.constData(), &error);
    }
    if (!ok) {
        VxMessage::getTheMsg()->error("%s\n", error.c_str());
        return false;
    }
    VxMessage::getTheMsg()->printf("saved %s\n", name.constData());
    return true;
}

int ViewerWindow::saveCurrentAsDicom(const QString &folder)
{
    VxField3 *field = views->field();
    if (!field) {
        showProblem(tr("nothing to save: no data is shown"));
        return -1;
    }
    const int written = saveFieldThroughDialog(*field, folder, Dicom3SaveOptions());
    if (written == 0)
        statusBar()->showMessage(tr("Save as DICOM cancelled; nothing was written"), 15000);
    return written;
}

bool ViewerWindow::anonymizeCurrent()
{
    VxPoolObject *object = currentObject();
    if (!views->field())
        return false;
    std::vector<VxField3 *> fields;
    if (auto *series = dynamic_cast<VxDynamicSeriesCtrl *>(object))
        fields = stepFields(*series);
    else
        fields.push_back(views->field());
    // The module relabels what it anonymises; a control keeps its own label
    // (its steps are not in the pool and need none).
    for (VxField3 *field : fields) {
        VxAnonymizeImageStack anonymizer;
        anonymizer.portData.connect(field);
        anonymizer.portAction.hit(0);
        anonymizer.fire();
    }
    // Labels in the pool are unique: a second "Anonymized" gets a number,
    // as the pool numbers the labels it is given.
    if (object && !dynamic_cast<VxDynamicSeriesCtrl *>(object)) {
        const KcDArray<VxPoolObject *> pool = VxObjectPool::instance()->objects();
        auto taken = [&](const KcString &label) {
            for (const VxPoolObject *o : pool)
                if (o != object && o->label() == label)
                    return true;
            return false;
        };
        const KcString base = object->label();
        KcString label = base;
        for (int n = 2; taken(label); ++n)
            label = KcString::format("%s<%d>", base.c_str(), n);
        object->setLabel(label);
    }
    refreshDataList();
    showObject(object);
    return true;
}

bool ViewerWindow::closeCurrent()
{
    VxPoolObject *object = currentObject();
    if (!object)
        return false;
    showObject(nullptr);
    VxObjectPool::instance()->remove(object);
    refreshDataList();
    return true;
}

void ViewerWindow::chooseDicomFiles()
{
    const QStringList files = QFileDialog::getOpenFileNames(this, tr("Open DICOM files"));
    if (!files.isEmpty())
        openPaths(files);
}

void ViewerWindow::chooseDicomFolder()
{
    const QString dir = QFileDialog::getExistingDirectory(this, tr("Open DICOM folder"));
    if (!dir.isEmpty())
        openPaths({dir});
}

void ViewerWindow::chooseFieldFile()
{
    const QStringList files =
        QFileDialog::getOpenFileNames(this, tr("Open NIfTI/NRRD"), QString(),
                                      tr("Volumes (*.nii *.nii.gz *.nrrd *.nhdr);;All files (*)"));
    for (const QString &f : files)
        openFieldFile(f);
}

void ViewerWindow::chooseSaveFile()
{
    const VxPoolObject *object = currentObject();
    if (!object)
        return;
    QString name = object->label().toQString();
    name.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9._-]")), QStringLiteral("_"));
    const QString path = QFileDialog::getSaveFileName(this, tr("Save as NIfTI/NRRD"),
                                                      name + QStringLiteral(".nii.gz"),
                                                      tr("NIfTI (*.nii.gz *.nii);;NRRD (*.nrrd)"));
    if (!path.isEmpty())
        saveCurrent(path);
}

void ViewerWindow::chooseDicomFolderToSave()
{
    const QString dir = QFileDialog::getExistingDirectory(this, tr("Save as DICOM into folder"));
    if (!dir.isEmpty())
        saveCurrentAsDicom(dir);
}

void ViewerWindow::showHelp()
{
    QMessageBox box(QMessageBox::Information, tr("Using the viewer"),
                    QString::fromUtf8(viewHelpText()), QMessageBox::Ok, this);
    QFont mono(QStringLiteral("monospace"));
    mono.setStyleHint(QFont::Monospace);
    box.setFont(mono);
    box.exec();
}

void ViewerWindow::showProblem(const QString &text)
{
    VxMessage::getTheMsg()->error("%s\n", text.toUtf8().constData());
}

void ViewerWindow::closeEvent(QCloseEvent *event)
{
    // The worker may be waiting for this thread (a dialog step): the window
    // closes once the cancelled open has ended.
    if (dicom->isRunning()) {
        closeWhenDone = true;
        dicom->cancel();
        event->ignore();
        return;
    }
    event->accept();
}

void ViewerWindow::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasUrls() && !dicom->isRunning())
        event->acceptProposedAction();
}

void ViewerWindow::dropEvent(QDropEvent *event)
{
    QStringList paths;
    for (const QUrl &url : event->mimeData()->urls())
        if (url.isLocalFile())
            paths << url.toLocalFile();
    if (paths.isEmpty())
        return;
    event->acceptProposedAction();
    openPaths(paths);
}

} // namespace vxview
