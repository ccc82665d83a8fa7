#include "vxdicom/browser/DicomParameterView.h"

#include "platform/dicom/dicom.h"
#include "platform/gui/VxSkin.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomCriterion.h"
#include "vxdicom/stacks/DicomListItem.h"

#include <QBrush>
#include <QFileInfo>
#include <QFont>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cstdio>

namespace {

const dicom::dicomStruct *headerOf(const DicomListItem *row)
{
    const VxDicomImage *image = row ? row->image() : nullptr;
    return image && image->file ? image->file->data : nullptr;
}

QString fileNameOf(const DicomListItem *row)
{
    const VxDicomImage *image = row ? row->image() : nullptr;
    return image && image->file ? QString::fromStdString(image->file->fileName) : QString();
}

// The value text of an element of the header, or a single blank without one.
QString content(const dicom::dicomStruct *header, const dicom::dicomDataElement *e)
{
    if (!e)
        return QStringLiteral(" ");
    return dicomHeaderText(dicom::dicomGetById(header, e->group, e->element));
}

bool isPixelData(const dicom::dicomDataElement &e)
{
    return e.group == 0x7FE0 && e.element == 0x0010;
}

} // namespace

QVariant QxParameterListItem::data(int column, int role) const
{
    if (difference && role == Qt::FontRole) {
        QFont font = treeWidget() ? treeWidget()->font() : QFont();
        font.setBold(true);
        return font;
    }
    if (difference && role == Qt::BackgroundRole)
        return QBrush(QColor(255, 228, 196));
    return QTreeWidgetItem::data(column, role);
}

DicomParameterView::DicomParameterView(DicomListItem *first, DicomListItem *second, QWidget *parent)
    : QxDialog(parent, "DICOM Parameters", true)
{
    setWindowIcon(VxSkin::instance()->windowIcon());
    auto *layout = new QVBoxLayout(this);
    elements = new QTreeWidget(this);
    elements->setRootIsDecorated(false);
    elements->setUniformRowHeights(true);
    elements->setAlternatingRowColors(true);
    elements->setSelectionMode(QAbstractItemView::SingleSelection);
    layout->addWidget(elements, 1);
    createMyButtons();
    resize(900, 640);

    const dicom::dicomStruct *a = headerOf(first);
    if (!a)
        return;
    const dicom::dicomStruct *b = headerOf(second);
    QString title = fileNameOf(first);
    QStringList labels = {tr("Element"), tr("Description")};
    if (b) {
        title += QStringLiteral("  :  ") + fileNameOf(second);
        labels << tr("Content of %1").arg(QFileInfo(fileNameOf(first)).fileName())
               << tr("Content of %1").arg(QFileInfo(fileNameOf(second)).fileName());
    } else {
        labels << tr("Content");
    }
    setWindowTitle(title);
    elements->setHeaderLabels(labels);
    elements->headerItem()->setToolTip(labels.size() - 1, fileNameOf(b ? second : first));
    if (b)
        elements->headerItem()->setToolTip(2, fileNameOf(first));

    // Both lists are in ascending tag order: one pass merges them.
    const int na = a->numElements, nb = b ? b->numElements : 0;
    int i = 0, j = 0;
    while (i < na || j < nb) {
        const dicom::dicomDataElement *ea = i < na ? &a->elements[i] : nullptr;
        const dicom::dicomDataElement *eb = j < nb ? &b->elements[j] : nullptr;
        if (ea && eb) {
            const uint32_t ta = (uint32_t(ea->group) << 16) | ea->element;
            const uint32_t tb = (uint32_t(eb->group) << 16) | eb->element;
            if (ta < tb)
                eb = nullptr;
            else if (tb < ta)
                ea = nullptr;
        }
        i += ea ? 1 : 0;
        j += eb ? 1 : 0;
        const dicom::dicomDataElement &e = ea ? *ea : *eb;
        if (isPixelData(e))
            continue;
        auto *row = new QxParameterListItem(elements);
        row->setText(0, QString::asprintf("%04X:%04X", e.group, e.element));
        const char *name = dicom::dicomDictionaryName(e.group, e.element);
        row->setText(1, name ? QString::fromUtf8(name) : QString());
        row->setText(2, content(a, ea));
        if (b) {
            row->setText(3, content(b, eb));
            row->difference = row->text(2) != row->text(3);
        }
        for (int c = 2; c < elements->columnCount(); ++c)
            row->setToolTip(c, row->text(c));
    }
    elements->header()->resizeSection(0, 90);
    elements->header()->resizeSection(1, 220);
    if (b) // the two contents side by side at the same width
        elements->header()->resizeSection(2, 280);
}

void DicomParameterView::createMyButtons()
{
    add = new QPushButton(tr("Add"), this);
    add->setEnabled(false);
    add->setToolTip(tr("Makes the selected element a column and a stack break criterion"));
    auto *close = new QPushButton(tr("Close"), this);
    close->setDefault(true);
    auto *row = new QHBoxLayout;
    row->setSpacing(5);
    row->addStretch(1);
    row->addWidget(add);
    row->addWidget(close);
    static_cast<QVBoxLayout *>(layout())->addLayout(row);

    connect(add, &QPushButton::clicked, this, &DicomParameterView::exportColumn);
    connect(close, &QPushButton::clicked, this, &QDialog::reject);
    connect(elements, &QTreeWidget::itemDoubleClicked, this, &DicomParameterView::exportColumn);
    connect(elements, &QTreeWidget::currentItemChanged, this,
            &DicomParameterView::changeButtonState);
    connect(elements, &QTreeWidget::itemSelectionChanged, this,
            [this] { changeButtonState(elements->currentItem()); });
    connect(this, &DicomParameterView::newButtonState, add, &QPushButton::setEnabled);
}

void DicomParameterView::changeButtonState(QTreeWidgetItem *current)
{
    emit newButtonState(current && current->isSelected());
}

void DicomParameterView::exportColumn()
{
    QTreeWidgetItem *row = elements->currentItem();
    if (row && row->isSelected()) {
        unsigned group = 0, element = 0;
        if (std::sscanf(row->text(0).toLatin1().constData(), "%04X:%04X", &group, &element) == 2) {
            emit newColumn(static_cast<int>(group), static_cast<int>(element), row->text(1));
            emit newOption(static_cast<int>(group), static_cast<int>(element), row->text(2));
        }
        row->setSelected(false);
        emit newButtonState(false);
    }
    accept();
}
