#include "apps/vxdicom/view/ParameterPane.h"

#include "platform/data/VxParamBundle.h"

#include <QHeaderView>
#include <QLineEdit>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace vxview {

namespace {

// Sequences and vendor blobs are kilobytes of hexadecimal: the row shows the
// start, the tooltip a little more.
constexpr int kShownChars = 240;
constexpr int kTipChars = 2000;

QString shortened(const QString &text, int n)
{
    return text.size() > n ? text.left(n) + QStringLiteral("\u2026") : text;
}

} // namespace

ParameterPane::ParameterPane(QWidget *parent) : QWidget(parent)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(2, 2, 2, 2);
    filter = new QLineEdit(this);
    filter->setObjectName(QStringLiteral("ParameterFilter"));
    filter->setPlaceholderText(tr("Filter (name, tag, VR or value)"));
    filter->setClearButtonEnabled(true);
    rows = new QTreeWidget(this);
    rows->setObjectName(QStringLiteral("ParameterTree"));
    rows->setColumnCount(4);
    rows->setHeaderLabels({tr("Name / tag"), tr("Description"), tr("VR / type"), tr("Value")});
    rows->setUniformRowHeights(true);
    rows->setAlternatingRowColors(true);
    rows->header()->resizeSection(0, 150);
    rows->header()->resizeSection(1, 170);
    rows->header()->resizeSection(2, 60);
    layout->addWidget(filter);
    layout->addWidget(rows, 1);
    connect(filter, &QLineEdit::textChanged, this, &ParameterPane::applyFilter);
}

void ParameterPane::setBundle(const VxParamBundle *bundle)
{
    rows->clear();
    content = bundle ? parameterRows(*bundle) : std::vector<ParameterRow>();
    rows->setUpdatesEnabled(false);
    addRows(nullptr, content);
    rows->setUpdatesEnabled(true);
    // The attributes of the whole field are what one looks at first; the
    // slices' bundles before them stay folded.
    QTreeWidgetItem *all = nullptr;
    for (int i = 0; i < rows->topLevelItemCount(); ++i) {
        QTreeWidgetItem *top = rows->topLevelItem(i);
        if (top->text(0) != QLatin1String("DICOM"))
            continue;
        top->setExpanded(true);
        for (int c = 0; c < top->childCount(); ++c)
            if (top->child(c)->text(0) == QLatin1String("All"))
                all = top->child(c);
    }
    applyFilter();
    if (all) {
        all->setExpanded(true);
        rows->scrollToItem(all, QAbstractItemView::PositionAtTop);
    }
}

void ParameterPane::addRows(QTreeWidgetItem *parent, const std::vector<ParameterRow> &list)
{
    for (const ParameterRow &row : list) {
        auto *item = parent ? new QTreeWidgetItem(parent) : new QTreeWidgetItem(rows);
        item->setText(0, row.name);
        item->setText(1, row.bundle ? tr("%1 entries").arg(row.children.size()) : row.description);
        item->setText(2, row.vr);
        item->setText(3, shortened(row.value, kShownChars));
        if (row.value.size() > kShownChars)
            item->setToolTip(3, shortened(row.value, kTipChars));
        if (row.bundle)
            addRows(item, row.children);
    }
}

void ParameterPane::applyFilter()
{
    const QString text = filter->text().trimmed();
    rows->setUpdatesEnabled(false);
    for (size_t i = 0; i < content.size(); ++i)
        filterItem(rows->topLevelItem(static_cast<int>(i)), content[i], text, false);
    rows->setUpdatesEnabled(true);
}

bool ParameterPane::filterItem(QTreeWidgetItem *item, const ParameterRow &row, const QString &text,
                               bool ancestorMatches)
{
    if (!item)
        return false;
    const bool own = ancestorMatches || rowMatches(row, text);
    bool below = false;
    for (size_t c = 0; c < row.children.size(); ++c)
        below = filterItem(item->child(static_cast<int>(c)), row.children[c], text, own) || below;
    const bool shown = own || below;
    item->setHidden(!shown);
    // A filter opens the bundles that hold what it found.
    if (!text.isEmpty() && below)
        item->setExpanded(true);
    return shown;
}

} // namespace vxview
