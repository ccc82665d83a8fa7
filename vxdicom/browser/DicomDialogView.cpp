#include "vxdicom/browser/DicomDialogView.h"

#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QSplitter>
#include <QTextEdit>
#include <QVBoxLayout>

DicomDialogView::DicomDialogView(QWidget *parent) : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    auto *splitter = new QSplitter(Qt::Vertical, this);
    list = new DicomListView(splitter, "DicomListView");
    auto *texts = new QSplitter(Qt::Horizontal, splitter);
    dicomInfo = new QTextEdit(texts);
    dicomInfo->setReadOnly(true);
    stackInfo = new QTextEdit(texts);
    stackInfo->setReadOnly(true);
    layout->addWidget(splitter);
    connect(list, &DicomListView::listViewChanged, this, &DicomDialogView::updateDicomInfo);
}

void DicomDialogView::loadImages(const KcDArray<VxDicomImage *> &images)
{
    if (images.isEmpty())
        return;
    list->initialize(images);
}

bool DicomDialogView::accept(KcDArray<VxDicomImageStack *> &stacks)
{
    return list->exportImageStacks(stacks, exportMode());
}

int DicomDialogView::numLoadableStacksSelected() const
{
    return list->countStacks(exportMode() | 2);
}

void DicomDialogView::forceUniformRequest()
{
    for (DicomLoadOption *option : list->loadOptions())
        if (option && option->name == "slice location")
            option->setValue(DicomLoadOption::Linear);
    list->updateImageStacks();
    VxWarningDialog::information(tr("DICOM Loader"),
                                 tr("The option \"slice location\" in the \n\"stack break "
                                    "criteria\" has been set\nto \"linear\"."));
}

void DicomDialogView::saveSettings()
{
    list->saveSettings();
}

void DicomDialogView::resetSettings()
{
    list->resetSettings();
}

void DicomDialogView::attachDicomParameters(bool on)
{
    list->withDicomParameters = on;
}

void DicomDialogView::anonymizeDicomParameters(bool on)
{
    list->anonymizeParameters = on;
}

void DicomDialogView::updateDicomInfo(const QString &text)
{
    dicomInfo->setPlainText(text);
}

void DicomDialogView::updateStackInfo(const QString &text)
{
    stackInfo->setHtml(text);
    emit stacksAreSelected(1);
}

void DicomDialogView::updateStackInfo()
{
    stackInfo->setPlainText(QStringLiteral(" "));
    emit stacksAreSelected(0);
}

void DicomDialogView::updateStackInfo(int stack)
{
    const auto &stacks = list->stackList();
    if (stack < 0 || stack >= stacks.size() || !stacks[stack]) {
        updateStackInfo();
        return;
    }
    updateStackInfo(stacks[stack]->info());
}
