#include "vxdicom/browser/DicomDialog.h"

#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/stacks/DicomListView.h"

#include <QAction>
#include <QBoxLayout>
#include <QCheckBox>
#include <QGuiApplication>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

#include <atomic>
#include <memory>

namespace {
std::atomic<bool> gLoaderLite{false};
DicomLoadChoices theChoices;
} // namespace

void DicomDialog::setLoaderLite(bool on)
{
    gLoaderLite = on;
}

void setDicomLoadChoices(const DicomLoadChoices &choices)
{
    theChoices = choices;
}

DicomDialog::DicomDialog(QWidget *parent) : QxDialog(parent, "FileDialog", true)
{
    setWindowModality(Qt::WindowModal);
    setWindowIcon(VxSkin::instance()->windowIcon());

    auto *layout = new QVBoxLayout(this);
    menu = new DicomMenuBar(this, "DicomMenuBar", gLoaderLite);
    layout->setMenuBar(menu);
    dialogView = new DicomDialogView(this);
    layout->addWidget(dialogView, 1);
    criteria = new QPushButton(tr("Stack Break Criteria..."), this);
    criteria->setAutoDefault(false);
    QBoxLayout *buttons = createButtons(ButtonsOkCancel, 5, 2, criteria);
    loadLabel = new QLabel(this);
    loadLabel->setObjectName(QStringLiteral("LoadSummary"));
    buttons->insertWidget(0, loadLabel);
    layout->addLayout(buttons);
    if (okButton())
        okButton()->setDefault(true);

    // Big enough for the stacks and their columns on a workstation screen,
    // never larger than the screen.
    QSize size(1100, 760);
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        size = size.boundedTo(screen->availableGeometry().size() * 0.9);
    resize(size);

    connect(menu, &DicomMenuBar::stackOptionsRequest, this, &DicomDialog::stackOptionsRequest);
    connect(menu, &DicomMenuBar::attachDicomParameters, this, &DicomDialog::attachDicomParameters);
    connect(menu, &DicomMenuBar::attachDicomParameters, dialogView,
            &DicomDialogView::attachDicomParameters);
    connect(menu, &DicomMenuBar::anonymizeDicomParameters, dialogView,
            &DicomDialogView::anonymizeDicomParameters);
    connect(menu, &DicomMenuBar::forceUniformRequest, dialogView,
            &DicomDialogView::forceUniformRequest);
    connect(menu, &DicomMenuBar::saveSettings, dialogView, &DicomDialogView::saveSettings);
    connect(menu, &DicomMenuBar::resetSettings, dialogView, &DicomDialogView::resetSettings);
    connect(menu, &DicomMenuBar::asTimeSeriesRequest, dialogView,
            &DicomDialogView::asTimeSeriesRequest);
    connect(menu, &DicomMenuBar::splitVolumesRequest, dialogView,
            &DicomDialogView::splitVolumesRequest);
    connect(dialogView, &DicomDialogView::stacksAreSelected, this,
            &DicomDialog::stackSelectionChanged);
    connect(criteria, &QPushButton::clicked, this, &DicomDialog::loadOptionsRequest);

    // The criteria dialog and the parameter view belong to the list.
    DicomListView *list = dialogView->listView();
    connect(this, &DicomDialog::stackOptionsRequest, list, &DicomListView::loadOptionDialog);
    connect(this, &DicomDialog::loadOptionsRequest, list, &DicomListView::loadOptionDialog);
    connect(menu, &DicomMenuBar::parameterViewRequest, list, &DicomListView::parameterView);

    // The list starts with the menu's state; the command line's choices
    // check the items without storing them.
    QAction *anonymize = menu->optionsItem(4);
    if (anonymize && theChoices.anonymize)
        anonymize->setChecked(true);
    dialogView->anonymizeDicomParameters(anonymize && anonymize->isChecked());
    QAction *series = menu->optionsItem(5);
    if (series && theChoices.asTimeSeries)
        series->setChecked(true);
    dialogView->asTimeSeriesRequest(series && series->isChecked());
    QAction *split = menu->optionsItem(8);
    if (split && !theChoices.splitVolumes)
        split->setChecked(false);
    dialogView->listView()->splitVolumes = theChoices.splitVolumes;
}

void DicomDialog::putData()
{
    setWindowTitle(tr(caption.toUtf8().constData()));
    if (images)
        dialogView->loadImages(*images);
    stackSelectionChanged(0);
}

void DicomDialog::setVisible(bool visible)
{
    // Before the first layout, so that the panes get their share of it.
    if (visible)
        dialogView->makeTextAreas();
    QxDialog::setVisible(visible);
}

int DicomDialog::exec()
{
    dialogResult = QDialog::exec();
    return dialogResult;
}

void DicomDialog::accept()
{
    if (dialogView->numStacksToLoad() == 0) {
        VxWarningDialog::information(
            tr("DICOM Loader"),
            tr("No stack would be loaded. Select the stacks to load, or clear \"%1\".")
                .arg(dialogView->onlyUniformBox()->text()));
        return;
    }
    if (stacks && dialogView->accept(*stacks))
        QDialog::accept();
}

bool DicomDialog::exportImageStacks()
{
    return stacks && dialogView->accept(*stacks);
}

bool DicomDialog::getAsTimeSeries() const
{
    return dialogView->getAsTimeSeries();
}

void DicomDialog::stackSelectionChanged(int)
{
    loadLabel->setText(dialogView->loadSummary());
    if (gLoaderLite && okButton())
        okButton()->setEnabled(dialogView->numLoadableStacksSelected() == 1);
}

ForkedObject *QxDicomDialogNegotiator::create()
{
    return new DicomDialog;
}

namespace {
std::unique_ptr<ThreadNegotiator> makeNegotiator()
{
    return std::make_unique<QxDicomDialogNegotiator>();
}
} // namespace

void registerDicomImportDialog()
{
    setDicomDialogNegotiatorFactory(&makeNegotiator);
}
