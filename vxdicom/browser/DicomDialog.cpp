#include "vxdicom/browser/DicomDialog.h"

#include "platform/gui/VxSkin.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/browser/DicomMenuBar.h"
#include "vxdicom/stacks/DicomListView.h"

#include <QAction>
#include <QPushButton>
#include <QVBoxLayout>

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
    layout->addWidget(dialogView);
    auto *options = new QPushButton(tr("Stack Break Criteria..."), this);
    layout->addLayout(createButtons(ButtonsOkCancel, 5, 2, options));
    if (okButton())
        okButton()->setDefault(true);

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
    connect(dialogView, &DicomDialogView::stacksAreSelected, this,
            &DicomDialog::stackSelectionChanged);
    connect(options, &QPushButton::clicked, this, &DicomDialog::loadOptionsRequest);

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
}

void DicomDialog::putData()
{
    setWindowTitle(tr(caption.toUtf8().constData()));
    if (images)
        dialogView->loadImages(*images);
}

int DicomDialog::exec()
{
    dialogResult = QDialog::exec();
    return dialogResult;
}

void DicomDialog::accept()
{
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
