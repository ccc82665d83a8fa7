#include "vxdicom/export/QxDicom3Table.h"

#include "platform/data/VxParamBundle.h"
#include "vxdicom/export/QxDicom3ValueEdit.h"
#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QComboBox>
#include <QHeaderView>
#include <QLineEdit>
#include <QRegularExpression>
#include <QStyledItemDelegate>

// Hands the editing of each cell to its QxDicom3TableItem.
class QxDicom3TableDelegate : public QStyledItemDelegate
{
public:
    explicit QxDicom3TableDelegate(QxDicom3Table *table) : QStyledItemDelegate(table), table(table)
    {
    }

    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &,
                          const QModelIndex &index) const override
    {
        auto *item = static_cast<QxDicom3TableItem *>(table->item(index.row(), index.column()));
        QWidget *editor = item ? item->createEditor(parent) : nullptr;
        table->openEditor = editor;
        return editor;
    }
    void setEditorData(QWidget *, const QModelIndex &) const override {}
    void setModelData(QWidget *editor, QAbstractItemModel *,
                      const QModelIndex &index) const override
    {
        if (auto *item = static_cast<QxDicom3TableItem *>(table->item(index.row(), index.column())))
            item->setContentFromEditor(editor);
    }
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override
    {
        QRect rect = option.rect;
        if (index.column() == QxDicom3Table::Group) // the whole tag: group and element
            rect.setWidth(table->columnWidth(QxDicom3Table::Group) +
                          table->columnWidth(QxDicom3Table::Element));
        editor->setGeometry(rect);
    }

private:
    QxDicom3Table *table;
};

QxDicom3TableItem::QxDicom3TableItem(const QString &text) : QTableWidgetItem(text, UserType + 3) {}

QWidget *QxDicom3TableItem::createEditor(QWidget *parent) const
{
    auto *table = static_cast<QxDicom3Table *>(tableWidget());
    if (!table)
        return nullptr;
    const int r = row();
    switch (column()) {
    case QxDicom3Table::Content: {
        const QTableWidgetItem *vr = table->item(r, QxDicom3Table::VR);
        auto *edit = new QxDicom3ValueEdit(text(), decodeVRString(vr ? vr->text() : QString()),
                                           parent, "QxDicom3ValueEdit");
        edit->lineEdit()->setFocus();
        return edit;
    }
    case QxDicom3Table::VR: {
        if (table->tableType() == QxDicom3Table::DescriptionAndContent)
            return nullptr;
        table->setColumnWidth(QxDicom3Table::VR, 55);
        auto *box = new QComboBox(parent);
        const QStringList vrs = getVRStringList();
        box->addItems(vrs);
        box->setCurrentIndex(std::max<int>(0, vrs.indexOf(text())));
        QObject::connect(box, &QComboBox::textActivated, table, &QxDicom3Table::VRChanged);
        return box;
    }
    case QxDicom3Table::Group: {
        if (table->tableType() == QxDicom3Table::DescriptionAndContent)
            return nullptr;
        const QTableWidgetItem *element = table->item(r, QxDicom3Table::Element);
        return new QxDicom3ValueEdit(text() + QLatin1Char('-') + (element ? element->text() : ""),
                                     dicom::UN, parent, "QxDicom3TagEdit");
    }
    default:
        return nullptr;
    }
}

void QxDicom3TableItem::setContentFromEditor(QWidget *editor)
{
    auto *table = static_cast<QxDicom3Table *>(tableWidget());
    if (!table)
        return;
    const int r = row();
    if (auto *box = qobject_cast<QComboBox *>(editor)) {
        table->renormalise(r, box->currentText());
        return;
    }
    auto *edit = qobject_cast<QxDicom3ValueEdit *>(editor);
    if (!edit)
        return;
    const QString value = edit->text();
    if (column() == QxDicom3Table::Group) {
        // "0010-0020", "00100020", "(0010,0020)": the last four digits are
        // the element, the first four the group. Anything else keeps the tag.
        QString digits = value;
        digits.remove(QRegularExpression(QStringLiteral("[\\s(),:-]")));
        if (!QRegularExpression(QStringLiteral("^[0-9A-Fa-f]{8}$")).match(digits).hasMatch())
            return;
        digits = digits.toUpper();
        setText(digits.left(4));
        if (QTableWidgetItem *element = table->item(r, QxDicom3Table::Element))
            element->setText(digits.right(4));
    } else if (column() == QxDicom3Table::Content) {
        setText(value);
        if (QTableWidgetItem *length = table->item(r, QxDicom3Table::Length))
            length->setText(QString::number(value.length()));
    }
}

QxDicom3Table::QxDicom3Table(QWidget *parent, const char *name, TableType tableType)
    : QTableWidget(0, 6, parent), type(tableType)
{
    if (name)
        setObjectName(QString::fromLatin1(name));
    setHorizontalHeaderLabels(
        {tr("Group"), tr("Elem"), tr("VR"), tr("Length"), tr("Description"), tr("Content")});
    setColumnWidth(Group, 4);
    setColumnWidth(Element, 4);
    setColumnWidth(Length, 10);
    setFocusPolicy(Qt::WheelFocus);
    verticalHeader()->hide();
    // One line per attribute; long values are cut off at the cell's edge.
    setWordWrap(false);
    verticalHeader()->setDefaultSectionSize(fontMetrics().height() + 8);
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    horizontalHeader()->setSectionsMovable(false);
    horizontalHeader()->setStretchLastSection(true);
    setShowGrid(true);
    setSortingEnabled(true);
    horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder); // rows stay as filled
    setSelectionMode(QAbstractItemView::NoSelection);
    setEditTriggers(QAbstractItemView::CurrentChanged | QAbstractItemView::DoubleClicked |
                    QAbstractItemView::SelectedClicked | QAbstractItemView::EditKeyPressed |
                    QAbstractItemView::AnyKeyPressed);
    setItemDelegate(new QxDicom3TableDelegate(this));
    connect(this, &QTableWidget::currentCellChanged, this,
            [this](int row, int column) { update(row, column); });
}

void QxDicom3Table::setRow(int row, const QString &group, const QString &element, const QString &vr,
                           const QString &description, const QString &content)
{
    const QString texts[6] = {group,       element, vr, QString::number(content.length()),
                              description, content};
    for (int c = 0; c < 6; ++c) {
        auto *item = new QxDicom3TableItem(texts[c]);
        const bool editable = c == Content || (type == Full && (c == Group || c == VR));
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable |
                       (editable ? Qt::ItemIsEditable : Qt::NoItemFlags));
        if (c == Length)
            item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        setItem(row, c, item);
    }
}

void QxDicom3Table::setRowReadOnly(int row, bool readOnly)
{
    for (int c = 0; c < columnCount(); ++c) {
        QTableWidgetItem *cell = item(row, c);
        if (!cell)
            continue;
        const bool editable = c == Content || (type == Full && (c == Group || c == VR));
        cell->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable |
                       (editable && !readOnly ? Qt::ItemIsEditable : Qt::NoItemFlags));
        cell->setForeground(readOnly ? palette().brush(QPalette::Disabled, QPalette::Text)
                                     : palette().brush(QPalette::Active, QPalette::Text));
        cell->setData(Qt::UserRole, readOnly);
    }
}

bool QxDicom3Table::isRowReadOnly(int row) const
{
    const QTableWidgetItem *cell = item(row, Content);
    return cell && cell->data(Qt::UserRole).toBool();
}

VxParamBundle *QxDicom3Table::getContentAsDicomParamBundle() const
{
    auto *dicomBundle = new VxParamBundle("DICOM");
    auto *all = new VxParamBundle("All");
    auto text = [this](int r, int c) { return item(r, c) ? item(r, c)->text() : QString(); };
    for (int r = 0; r < rowCount(); ++r) {
        const QByteArray name =
            QStringLiteral("G%1-%2").arg(text(r, Group), text(r, Element)).toLatin1();
        const QString value =
            encodeQString(text(r, Description) + " [" + text(r, VR) + "]:" + text(r, Content));
        all->insert(new VxParameter(name.constData(), value.toUtf8().constData()));
    }
    dicomBundle->insert(all);
    return dicomBundle;
}

void QxDicom3Table::replaceContentWithBundle(const VxParamBundle *bundle)
{
    const VxParamBundle *all = bundle ? bundle->bundle("All") : nullptr;
    if (!all)
        return;
    cancelEdit();
    const bool sorting = isSortingEnabled();
    setSortingEnabled(false);
    QList<const VxParameter *> params;
    for (int i = 0; i < all->size(); ++i)
        if (const VxParamBase *entry = all->entry(i); entry && !entry->isBundle())
            params << static_cast<const VxParameter *>(entry);
    setRowCount(static_cast<int>(params.size()));
    for (int i = 0; i < params.size(); ++i) {
        const VxParameter *p = params[i];
        setRow(i, decodeDicomParam(p, ContentGroup), decodeDicomParam(p, ContentElement),
               decodeDicomParam(p, ContentVR), decodeDicomParam(p, ContentName).trimmed(),
               decodeQString(decodeDicomParam(p, ContentValue).trimmed()));
    }
    setSortingEnabled(sorting);
    adjustAll();
}

void QxDicom3Table::cancelEdit()
{
    if (openEditor)
        closeEditor(openEditor, QAbstractItemDelegate::RevertModelCache);
}

void QxDicom3Table::commitEdit()
{
    if (!openEditor)
        return;
    commitData(openEditor);
    closeEditor(openEditor, QAbstractItemDelegate::NoHint);
}

void QxDicom3Table::adjustAll()
{
    const bool simple = type == DescriptionAndContent;
    for (int c = Group; c <= Length; ++c)
        setColumnHidden(c, simple);
    if (simple) {
        resizeColumnToContents(Description);
        resizeColumnToContents(Content);
        return;
    }
    resizeColumnsToContents();
    setColumnWidth(Group, 50);
    setColumnWidth(Element, 50);
    setColumnWidth(VR, 55);
}

void QxDicom3Table::setEnabled(bool on)
{
    if (!on)
        cancelEdit();
    QTableWidget::setEnabled(on);
}

void QxDicom3Table::sortColumn(int column, bool ascending, bool)
{
    cancelEdit();
    sortItems(column, ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void QxDicom3Table::addNewItem()
{
    cancelEdit();
    const bool sorting = isSortingEnabled();
    setSortingEnabled(false);
    const int r = rowCount();
    insertRow(r);
    setRow(
        r, QStringLiteral("F000"), QStringLiteral("F000"), QStringLiteral("DT"),
        tr("new Private Element"),
        parseSingleDicomDataString(getDicomDate() + QLatin1Char(' ') + getDicomTime(), dicom::DT));
    setSortingEnabled(sorting);
    scrollToItem(item(r, Content));
}

void QxDicom3Table::delCurrentItem()
{
    const int r = currentRow();
    if (r < 0 || r >= rowCount())
        return;
    cancelEdit();
    const bool sorting = isSortingEnabled();
    setSortingEnabled(false);
    // The rows below move up one by one; the last one is dropped.
    for (int below = r; below + 1 < rowCount(); ++below)
        for (int c = 0; c < columnCount(); ++c) {
            QTableWidgetItem *next = takeItem(below + 1, c);
            QTableWidgetItem *here = takeItem(below, c);
            setItem(below, c, next);
            setItem(below + 1, c, here);
        }
    removeRow(rowCount() - 1);
    setSortingEnabled(sorting);
}

void QxDicom3Table::VRChanged(const QString &vrText)
{
    renormalise(currentRow(), vrText);
}

void QxDicom3Table::renormalise(int r, const QString &vrText)
{
    QTableWidgetItem *content = item(r, Content);
    if (!content)
        return;
    const dicom::valRep vr = decodeVRString(vrText);
    if (QTableWidgetItem *vrCell = item(r, VR))
        vrCell->setText(encodeVRString(vr));
    content->setText(parseDicomDataString(content->text(), vr));
    if (QTableWidgetItem *length = item(r, Length))
        length->setText(QString::number(content->text().length()));
}

void QxDicom3Table::update(int row, int)
{
    for (const int r : {row, lastRow})
        if (r >= 0 && r < rowCount())
            for (int c = 0; c < columnCount(); ++c)
                viewport()->update(visualItemRect(item(r, c)));
    lastRow = row;
}
