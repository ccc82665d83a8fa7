#include "vxdicom/stacks/DicomListItem.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomCriterion.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <QBrush>
#include <QHeaderView>

#include <cstdio>

DicomListItem::DicomListItem(VxDicomImage *image) : QTreeWidgetItem(Type), img(image) {}

DicomListItem::DicomListItem(QTreeWidget *parent, VxDicomImage *image)
    : QTreeWidgetItem(parent, Type), img(image)
{
}

DicomListItem::DicomListItem(QTreeWidgetItem *parent, VxDicomImage *image)
    : QTreeWidgetItem(parent, Type), img(image)
{
}

QString DicomListItem::getText(const VxDicomImage *image, int group, int element,
                               const QString &label)
{
    if (group == -1 || element == -1) {
        if (!image || !image->file)
            return QString();
        if (label == QLatin1String("file name"))
            return QString::fromStdString(image->file->fileName);
        if (label == QLatin1String("load index"))
            return QStringLiteral("%1").arg(image->file->index);
        return QString();
    }
    if (!image)
        return QString();
    if (group == 0x0020 && element == 0x1041)
        return dicomSliceLocationText(image->sliceLocation);
    if (group == 0x0020 && element == 0x0013)
        return dicomInstanceNumberText(image->imageNumber);
    if (!image->file || !image->file->data || group < 0 || group > 0xFFFF || element < 0 ||
        element > 0xFFFF)
        return QString();
    return dicomHeaderText(dicom::dicomGetById(image->file->data, static_cast<uint16_t>(group),
                                               static_cast<uint16_t>(element)));
}

DicomListView *DicomListItem::listView() const
{
    return qobject_cast<DicomListView *>(treeWidget());
}

QString DicomListItem::columnText(int column) const
{
    if (column == 0)
        return QString();
    const DicomListView *view = listView();
    if (!view)
        return QString();
    const KcDArray<DicomLoadOption *> &options = view->loadOptions();
    const int k = column - 1;
    if (k < 0 || k >= options.size() || !options[k]) {
        std::fputs("Error: more columns than LoadOptions\n", stdout);
        return getText(img, -1, -1, QString());
    }
    const DicomLoadOption &option = *options[k];
    return getText(img, option.group, option.element, option.name.toQString());
}

void DicomListItem::setColumnText(int group, int element, int column)
{
    QString label;
    if (QTreeWidget *tree = treeWidget())
        if (QTreeWidgetItem *header = tree->headerItem())
            label = header->text(column);
    QTreeWidgetItem::setData(column, Qt::DisplayRole, getText(img, group, element, label));
}

QString DicomListItem::key(int, bool) const
{
    return QString::asprintf("%05d", loadIndex);
}

QString DicomListItem::columnKey(int column, bool) const
{
    int section = column;
    if (QTreeWidget *tree = treeWidget())
        section = tree->header()->logicalIndex(column);
    if (section < 0)
        return QString();
    return dicomColumnKey(text(section));
}

QVariant DicomListItem::data(int column, int role) const
{
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::ToolTipRole: // the whole text where the column is too narrow
        return columnText(column);
    case Qt::ForegroundRole:
        if (breakOption >= 0 && column == breakOption + 1)
            return QBrush(Qt::red);
        return QTreeWidgetItem::data(column, role);
    default:
        return QTreeWidgetItem::data(column, role);
    }
}

bool DicomListItem::operator<(const QTreeWidgetItem &other) const
{
    if (other.type() != Type)
        return QTreeWidgetItem::operator<(other);
    const int column = treeWidget() ? treeWidget()->sortColumn() : 0;
    return key(column, true) < static_cast<const DicomListItem &>(other).key(column, true);
}
