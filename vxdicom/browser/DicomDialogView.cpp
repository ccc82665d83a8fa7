#include "vxdicom/browser/DicomDialogView.h"

#include "platform/core/VxMessage.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomParameterView.h"
#include "vxdicom/browser/QxDicomImageView.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackInfo.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QCheckBox>
#include <QGroupBox>
#include <QSplitter>
#include <QTextEdit>
#include <QVBoxLayout>

#include <exception>

namespace {

QTextEdit *infoArea(const QString &title, const char *name, QSplitter *parent)
{
    auto *box = new QGroupBox(title, parent);
    auto *layout = new QVBoxLayout(box);
    layout->setContentsMargins(4, 4, 4, 4);
    auto *area = new QTextEdit(box);
    area->setObjectName(QString::fromLatin1(name));
    area->setReadOnly(true);
    layout->addWidget(area);
    box->show(); // made after the view may have been shown
    return area;
}

} // namespace

DicomDialogView::DicomDialogView(QWidget *parent) : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto *splitter = new QSplitter(Qt::Vertical, this);
    list = new DicomListView(splitter, "DicomListView");
    texts = new QSplitter(Qt::Horizontal, splitter);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    layout->addWidget(splitter, 1);
    uniformBox = new QCheckBox(tr("Only uniform stacks of two images or more"), this);
    uniformBox->setToolTip(tr("Leaves out single images and stacks whose slices are not evenly "
                              "spaced"));
    layout->addWidget(uniformBox);

    connect(list, &DicomListView::listViewChanged, this, &DicomDialogView::updateDicomInfo);
    connect(list, &QTreeWidget::itemSelectionChanged, this, &DicomDialogView::selectionChanged);
    connect(list, &QTreeWidget::currentItemChanged, this, &DicomDialogView::selectionChanged);
    connect(list, &DicomListView::imagePreviewRequest, this, &DicomDialogView::imagePreview);
    connect(list, &DicomListView::parameterViewRequest, this, &DicomDialogView::parameterView);
    connect(uniformBox, &QCheckBox::toggled, this, [this](bool on) {
        onlyUniform = on;
        selectionChanged();
    });
}

void DicomDialogView::makeTextAreas()
{
    if (dicomInfo)
        return;
    dicomInfo = infoArea(tr("DICOM information"), "DicomInfo", texts);
    stackInfo = infoArea(tr("Stack information"), "StackInfo", texts);
    dicomInfo->setPlainText(dicomText);
    if (stackTextIsHtml)
        stackInfo->setHtml(stackText);
    else
        stackInfo->setPlainText(stackText);
}

void DicomDialogView::showEvent(QShowEvent *event)
{
    makeTextAreas();
    QWidget::showEvent(event);
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

int DicomDialogView::numStacksToLoad() const
{
    return list->countStacks(exportMode());
}

QString DicomDialogView::loadSummary() const
{
    const int total = list->stackList().size();
    const int load = numStacksToLoad();
    if (onlySelected)
        return load == 1 ? tr("OK loads 1 of %1 stacks: the selected one").arg(total)
                         : tr("OK loads %1 of %2 stacks: the selected ones").arg(load).arg(total);
    if (load == total)
        return total == 1 ? tr("OK loads the stack") : tr("OK loads all %1 stacks").arg(total);
    return tr("OK loads %1 of %2 stacks").arg(load).arg(total);
}

void DicomDialogView::selectionChanged()
{
    onlySelected = list->countStacks(2) > 0;
    QTreeWidgetItem *current = list->currentItem();
    if (current && !current->isSelected()) {
        const QList<QTreeWidgetItem *> selected = list->selectedItems();
        current = selected.isEmpty() ? nullptr : selected.first();
    }
    DicomStackItem *stack = nullptr;
    QString text = summary;
    if (current && current->type() == DicomListItem::Type) {
        text += QStringLiteral("\n\n") +
                dicomImageInfoText(static_cast<DicomListItem *>(current)->image());
        if (current->parent() && current->parent()->type() == DicomStackItem::Type)
            stack = static_cast<DicomStackItem *>(current->parent());
    } else if (current && current->type() == DicomStackItem::Type) {
        stack = static_cast<DicomStackItem *>(current);
    }
    dicomText = text;
    if (dicomInfo)
        dicomInfo->setPlainText(text);
    const int index = stack ? list->stackList().find(stack) : -1;
    if (index >= 0)
        updateStackInfo(index);
    else
        updateStackInfo();
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

void DicomDialogView::splitVolumesRequest(bool on)
{
    if (list->splitVolumes == on)
        return;
    list->splitVolumes = on;
    list->updateImageStacks();
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
    summary = text;
    // A rebuild replaces every row; the panes follow what is selected now.
    selectionChanged();
}

void DicomDialogView::updateStackInfo(const QString &text)
{
    stackText = text;
    stackTextIsHtml = true;
    if (stackInfo)
        stackInfo->setHtml(text);
    emit stacksAreSelected(1);
}

void DicomDialogView::updateStackInfo()
{
    stackText = QStringLiteral(" ");
    stackTextIsHtml = false;
    if (stackInfo)
        stackInfo->setPlainText(stackText);
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

void DicomDialogView::imagePreview(VxDicomImage *image)
{
    if (!image)
        return;
    QString why;
    try {
        image->pixelData();
    } catch (const char *text) {
        why = QString::fromUtf8(text);
    } catch (const std::exception &e) {
        why = QString::fromUtf8(e.what());
    }
    if (!why.isNull()) {
        const QString name =
            image->file ? QString::fromStdString(image->file->fileName) : QString();
        VxMessage::getTheMsg()->failure("reading %s failed: %s\n", name.toLocal8Bit().constData(),
                                       why.toLocal8Bit().constData());
        VxWarningDialog::information(tr("Image Preview"),
                                     tr("reading %1 failed: %2").arg(name, why));
        return;
    }
    auto *view = new QxDicomImageView(image, this);
    view->setWindowFlag(Qt::Window);
    view->setAttribute(Qt::WA_DeleteOnClose);
    view->show();
    view->raise();
}

void DicomDialogView::parameterView(DicomListItem *first, DicomListItem *second)
{
    DicomParameterView view(first, second, this);
    // The chosen element becomes a column and a criterion (policy ignore
    // until the user picks another); the stacks are built again with it.
    connect(&view, &DicomParameterView::newColumn, list, &DicomListView::appendColumn);
    connect(&view, &DicomParameterView::newOption, list,
            [this](int group, int element, const QString &content) {
                list->addLoadOption(group, element, content);
                list->updateImageStacks();
            });
    view.exec();
}
