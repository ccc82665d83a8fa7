#pragma once

#include "apps/vxdicom/view/ParameterRows.h"

#include <QWidget>

class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class VxParamBundle;

namespace vxview {

/// The parameter tree of the data on show: its bundle ("DICOM", "All", the
/// decoded attributes, the slices' bundles and CSA headers, "DataWindow",
/// ...) with a filter box that keeps the rows holding the text and the
/// bundles above them.
class ParameterPane : public QWidget
{
    Q_OBJECT
public:
    explicit ParameterPane(QWidget *parent = nullptr);

    /// Shows a copy of the bundle's rows (null clears the tree).
    void setBundle(const VxParamBundle *bundle);
    QLineEdit *filterEdit() const { return filter; }
    QTreeWidget *tree() const { return rows; }

private:
    void applyFilter();
    void addRows(QTreeWidgetItem *parent, const std::vector<ParameterRow> &list);
    bool filterItem(QTreeWidgetItem *item, const ParameterRow &row, const QString &text,
                    bool ancestorMatches);

    QLineEdit *filter = nullptr;
    QTreeWidget *rows = nullptr;
    std::vector<ParameterRow> content;
};

} // namespace vxview
