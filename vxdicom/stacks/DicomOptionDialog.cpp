#include "vxdicom/stacks/DicomOptionDialog.h"

#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <QBoxLayout>
#include <QButtonGroup>
#include <QGroupBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QStackedWidget>
#include <QTreeWidget>

#include <cmath>

bool parseTolerancePercent(const QString &text, float *fraction, QString *why)
{
    bool number = false;
    const double percent = text.trimmed().toDouble(&number);
    if (!number || !std::isfinite(percent)) {
        *why = QStringLiteral("\"%1\" is not a number").arg(text.trimmed());
        return false;
    }
    if (percent < 0 || percent > 100) {
        *why = QStringLiteral("%1 % is outside 0 to 100 %").arg(text.trimmed());
        return false;
    }
    *fraction = static_cast<float>(percent / 100);
    return true;
}

DicomOptionDialog::DicomOptionDialog(KcDArray<DicomLoadOption *> &list, DicomListView *listView,
                                     QWidget *parent)
    : QxDialog(parent, "DicomOptionDialog", false), options(list), view(listView)
{
    setWindowTitle(tr("DICOM Stack Break Criteria"));
    setWindowIcon(VxSkin::instance()->windowIcon());
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(5, 5, 5, 5);

    // The elements on the left, the page of the selected one on the right.
    auto *top = new QHBoxLayout;
    top->setSpacing(10);
    elements = new QTreeWidget(this);
    elements->setColumnCount(1);
    elements->setHeaderLabels({tr("Dicom Data Element")});
    elements->setRootIsDecorated(false);
    elements->setSelectionMode(QAbstractItemView::SingleSelection);
    pageStack = new QStackedWidget(this);
    for (int k = 0; k < options.size(); ++k) {
        new QTreeWidgetItem(elements, {options[k]->name.toQString()});
        pageStack->addWidget(optionTab(*options[k], k));
    }
    elements->header()->setSectionResizeMode(QHeaderView::ResizeToContents);
    top->addWidget(elements, 1);
    top->addWidget(pageStack, 1);
    layout->addLayout(top, 1);

    auto *slice = new QGroupBox(tr("Slice Location"), this);
    auto *row = new QHBoxLayout(slice);
    row->addWidget(new QLabel(tr("Tolerance for uniformity:"), slice));
    tolerance = new QLineEdit(
        QString::number(static_cast<double>(view->getUniformTolerance()) * 100, 'f', 1), slice);
    tolerance->setFixedWidth(tolerance->fontMetrics().horizontalAdvance(QStringLiteral("0000")) +
                             12);
    row->addWidget(tolerance);
    row->addWidget(new QLabel(QStringLiteral("%"), slice));
    row->addStretch(1);
    layout->addWidget(slice);

    apply = new QPushButton(tr("Apply"), this);
    apply->setAutoDefault(false);
    apply->setEnabled(false);
    layout->addLayout(createButtons(ButtonsOkCancel, 5, 2, apply));

    connect(this, &DicomOptionDialog::optionsAreModified, apply, &QPushButton::setEnabled);
    connect(this, &DicomOptionDialog::newOptionTab, pageStack, &QStackedWidget::setCurrentIndex);
    connect(elements, &QTreeWidget::itemSelectionChanged, this,
            &DicomOptionDialog::selectOptionTab);
    connect(apply, &QPushButton::clicked, this, &DicomOptionDialog::applyLoadOptions);
    connect(tolerance, &QLineEdit::textEdited, this, &DicomOptionDialog::toleranceChanged);
    connect(tolerance, &QLineEdit::returnPressed, this, &DicomOptionDialog::toleranceChanged);
    if (elements->topLevelItemCount() > 0)
        elements->topLevelItem(0)->setSelected(true);
    resize(sizeHint().expandedTo(QSize(520, 360)));
}

QWidget *DicomOptionDialog::optionTab(const DicomLoadOption &option, int k)
{
    auto *box = new QGroupBox(option.name.toQString());
    auto *column = new QVBoxLayout(box);
    auto *group = new QButtonGroup(box);
    group->setExclusive(true);
    for (int n = 0; n < option.numAllowedOptions(); ++n) {
        const DicomLoadOption::Id id = option.getOption(n);
        auto *button = new QRadioButton(DicomLoadOption::description(id).toQString(), box);
        button->setChecked(id == option.value);
        group->addButton(button, id);
        column->addWidget(button);
    }
    column->addStretch(1);
    connect(group, &QButtonGroup::idClicked, this, &DicomOptionDialog::modifyOptions);
    groups.insert(k, group);
    return box;
}

bool DicomOptionDialog::differs() const
{
    for (int k = 0; k < options.size() && k < groups.size(); ++k)
        if (groups[k]->checkedId() != -1 && groups[k]->checkedId() != options[k]->value)
            return true;
    return modified;
}

void DicomOptionDialog::modifyOptions(int)
{
    emit optionsAreModified(differs());
}

void DicomOptionDialog::toleranceChanged()
{
    bool number = false;
    const float percent = tolerance->text().trimmed().toFloat(&number);
    // Anything that is not the list's tolerance is a change, a text that is
    // no valid tolerance included: Apply then says what is wrong with it.
    modified = !number || std::fabs(view->getUniformTolerance() - percent / 100) > 1e-7f;
    emit optionsAreModified(differs());
}

void DicomOptionDialog::applyLoadOptions()
{
    float fraction = 0;
    QString why;
    if (!parseTolerancePercent(tolerance->text(), &fraction, &why)) {
        VxWarningDialog::information(
            windowTitle(), tr("Tolerance for uniformity: %1. Nothing was changed.").arg(why));
        return;
    }
    for (int k = 0; k < options.size() && k < groups.size(); ++k)
        if (groups[k]->checkedId() != -1)
            options[k]->setValue(static_cast<DicomLoadOption::Id>(groups[k]->checkedId()));
    modified = false;
    view->setUniformTolerance(fraction);
    emit loadOptionsChanged();
    emit optionsAreModified(false);
}

void DicomOptionDialog::accept()
{
    if (differs())
        applyLoadOptions();
    if (!differs())
        QDialog::accept();
}

void DicomOptionDialog::selectOptionTab()
{
    const QList<QTreeWidgetItem *> selected = elements->selectedItems();
    if (!selected.isEmpty())
        raiseOptionTab(elements->indexOfTopLevelItem(selected.first()));
}

void DicomOptionDialog::raiseOptionTab(int page)
{
    if (page >= 0 && page < pageStack->count())
        emit newOptionTab(page);
}
