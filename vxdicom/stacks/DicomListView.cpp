#include "vxdicom/stacks/DicomListView.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxPreferences.h"
#include "platform/core/VxWorkArea.h"
#include "platform/dicom/dicom.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"
#include "vxdicom/stacks/DicomCriterion.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomOptionDialog.h"
#include "vxdicom/stacks/DicomStackDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QContextMenuEvent>
#include <QCoreApplication>
#include <QFontMetrics>
#include <QHeaderView>
#include <QMenu>
#include <QThread>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

namespace {

// From this many images a build shows its progress and lets the event loop
// run every 128 images; smaller lists are built in one go.
constexpr int kLongBuildFrom = 500;

// The view whose images qsort is ordering; compareImages has no other way to
// reach the columns and their directions.
DicomListView *theSortingView = nullptr;

bool isKeptColumn(const QString &label)
{
    return label == QLatin1String("file name") || label == QLatin1String("load index") ||
           label == QLatin1String("slice location");
}

QString columnLabel(int group, int element, const QString &label)
{
    QString text;
    if (group != -1 && element != -1 && group >= 0 && group <= 0xFFFF && element >= 0 &&
        element <= 0xFFFF)
        if (const char *name = dicom::dicomDictionaryName(static_cast<uint16_t>(group),
                                                          static_cast<uint16_t>(element)))
            text = QString::fromUtf8(name);
    // An element the dictionary does not know (a private one) is named by
    // its tag, so that each such column and option has a name of its own.
    if (text.isEmpty() && label.isEmpty() && group >= 0 && group <= 0xFFFF && element >= 0 &&
        element <= 0xFFFF)
        text = QString::asprintf("(%04X,%04X)", group, element);
    if (text.isEmpty())
        text = label.isEmpty() ? DicomListView::tr("unknown element") : label;
    return text;
}

} // namespace

DicomListView::DicomListView(QWidget *parent, const char *name) : QTreeWidget(parent)
{
    if (name)
        setObjectName(QString::fromUtf8(name));
    setSortingEnabled(false);
    setRootIsDecorated(true);
    setUniformRowHeights(true);
    header()->setSectionsClickable(true);
    header()->setSectionsMovable(true);
    // Its font-based default is measured on the first show (fitColumn).
    header()->setMinimumSectionSize(1);
    connect(header(), &QHeaderView::sectionClicked, this,
            [this](int section) { sortingOrderChanged(header()->visualIndex(section)); });

    header()->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header(), &QWidget::customContextMenuRequested, this,
            [this](const QPoint &pos) { popupColumnMenu(header()->mapToGlobal(pos)); });
    // Dragging a header section changes the sort priority: the stacks follow.
    connect(header(), &QHeaderView::sectionMoved, this, [this] {
        if (!movingSections)
            buildImageStacks();
    });
    connect(this, &QTreeWidget::itemDoubleClicked, this, [this](QTreeWidgetItem *item, int) {
        if (item && item->type() == DicomListItem::Type)
            emit imagePreviewRequest(static_cast<DicomListItem *>(item)->image());
    });
}

DicomListView::~DicomListView()
{
    for (DicomLoadOption *option : options)
        delete option;
}

void DicomListView::initialize(const KcDArray<VxDicomImage *> &list)
{
    if (list.isEmpty())
        return;
    loadImages(list);
    loadSettings();
}

void DicomListView::loadImages(const KcDArray<VxDicomImage *> &list)
{
    images = list;
}

void DicomListView::loadSettings()
{
    clearColumnsAndOptions();
    const KcString text = VxSettingsMgr::getInstance()->getPreferences().dicomLoadOptions;
    if (text.isEmpty()) {
        initializeColumns(true);
        return;
    }
    VxMessage::getTheMsg()->printf("Using non default DICOM load options!\n");
    for (DicomLoadOption *option : dicomLoadOptionsFromString(text))
        options.append(option);
    initializeColumns(false);
}

void DicomListView::saveSettings()
{
    KcString text;
    const QHeaderView *h = header();
    for (int position = 0; position < columnCount(); ++position) {
        const int section = h->logicalIndex(position);
        if (section < 1 || section - 1 >= options.size() || !options[section - 1])
            continue;
        text += options[section - 1]->toString();
    }
    VxSettingsMgr *manager = VxSettingsMgr::getInstance();
    VxPreferences prefs = manager->getPreferences();
    prefs.dicomLoadOptions = text;
    manager->setPreferences(prefs, false);
}

void DicomListView::resetSettings()
{
    VxSettingsMgr *manager = VxSettingsMgr::getInstance();
    VxPreferences prefs = manager->getPreferences();
    prefs.dicomLoadOptions = KcString();
    manager->setPreferences(prefs, false);
    clearColumnsAndOptions();
    initializeColumns(true);
}

void DicomListView::initializeColumns(bool withDefaults)
{
    if (withDefaults)
        setupLoadOptions();
    setupListColumns();
    cleanupListColumns();
    buildImageStacks();
    header()->setSortIndicator(1, Qt::AscendingOrder);
    scrollToTop();
}

void DicomListView::setupLoadOptions()
{
    for (DicomLoadOption *option : options)
        delete option;
    options = defaultDicomLoadOptions();
    optionListChanged();
}

void DicomListView::updateImageStacks()
{
    buildImageStacks();
}

void DicomListView::buildImageStacks()
{
    // The event loop runs inside a long build: what it delivers may ask for
    // another build, which follows this one instead of nesting in it.
    if (building) {
        rebuildAsked = true;
        return;
    }
    building = true;
    VxWorkArea &work = *VxWorkArea::instance();
    showsBuildProgress = images.size() >= kLongBuildFrom && !work.isShowingProgress();
    if (showsBuildProgress) {
        work.startProgress();
        work.setStatus("building stacks...");
    }
    do {
        rebuildAsked = false;
        cleanupAllStacks();
        volumes = splitVolumes ? dicomVolumesOf(images) : decltype(volumes)();
        sortItems();
        adoptChildItems();
        updateStackView();
    } while (rebuildAsked);
    if (showsBuildProgress) {
        work.setProgress(1.f);
        work.endProgress();
    }
    showsBuildProgress = false;
    building = false;
    updateDicomInfo();
}

void DicomListView::buildProgress(float fraction)
{
    if (!building || images.size() < kLongBuildFrom)
        return;
    if (showsBuildProgress)
        VxWorkArea::instance()->setProgress(fraction);
    // Painting, timers and posted events; clicks and keys wait for the end
    // of the build, since they could change the list being built.
    if (QCoreApplication *app = QCoreApplication::instance())
        if (app->thread() == QThread::currentThread())
            QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

void DicomListView::sortItems()
{
    // Every column text of every image is read once: a comparison then reads
    // cached texts instead of looking the elements up in both headers.
    const QHeaderView *h = header();
    sortColumns.clear();
    for (int position = 0; position < columnCount(); ++position) {
        const int section = h->logicalIndex(position);
        if (section < 1 || section - 1 >= options.size() || !options[section - 1])
            continue;
        const DicomLoadOption *option = options[section - 1];
        sortColumns.push_back(
            {section, option, option->group == 0x0020 && option->element == 0x0037});
    }
    const size_t nColumns = sortColumns.size();
    const int n = images.size();
    sortCells.assign(static_cast<size_t>(n) * nColumns, SortCell());
    std::vector<SortRow> rows;
    rows.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        for (size_t c = 0; c < nColumns; ++c) {
            const DicomLoadOption &option = *sortColumns[c].option;
            SortCell &cell = sortCells[static_cast<size_t>(i) * nColumns + c];
            cell.text = DicomListItem::getText(images[i], option.group, option.element,
                                               option.name.toQString())
                            .trimmed();
            cell.number = cell.text.toDouble(&cell.numeric);
        }
        rows.push_back({images[i], i});
        if ((i & 127) == 127)
            buildProgress(0.4f * static_cast<float>(i) / static_cast<float>(n));
    }
    // The same qsort with comparisons that give what compareImages gives on
    // the images, so the (unstable) order is the one compareImages makes.
    theSortingView = this;
    if (!rows.empty())
        std::qsort(rows.data(), rows.size(), sizeof(SortRow), &DicomListView::compareSortRows);
    theSortingView = nullptr;
    for (int i = 0; i < n; ++i)
        images[i] = rows[static_cast<size_t>(i)].image;
    sortColumns.clear();
    sortCells = std::vector<SortCell>();
    groupVolumes();
}

int DicomListView::compareSortRows(const void *a, const void *b)
{
    if (!theSortingView)
        return 0;
    return theSortingView->compareCached(*static_cast<const SortRow *>(a),
                                         *static_cast<const SortRow *>(b));
}

int DicomListView::compareCached(const SortRow &a, const SortRow &b) const
{
    const size_t nColumns = sortColumns.size();
    const SortCell *ca = sortCells.data() + static_cast<size_t>(a.row) * nColumns;
    const SortCell *cb = sortCells.data() + static_cast<size_t>(b.row) * nColumns;
    for (size_t c = 0; c < nColumns; ++c) {
        const SortCell &x = ca[c];
        const SortCell &y = cb[c];
        if (x.text == y.text)
            continue;
        int order;
        if (sortColumns[c].orientation)
            order = a.image->compareOrientation(*b.image, 0.001f);
        else if (x.numeric && y.numeric)
            order = x.number > y.number ? 1 : x.number < y.number ? -1 : 0;
        else
            order = compareColumnTexts(x.text, y.text);
        if (order != 0)
            return getSortOrder(sortColumns[c].section) * order;
    }
    return 0;
}

void DicomListView::groupVolumes()
{
    // The images of a split series keep the places the columns gave them as
    // a whole; among those places they are ordered volume by volume, each
    // volume in the columns' order.
    std::map<int, std::vector<int>> places;
    for (int i = 0; i < images.size(); ++i)
        if (const auto it = volumes.find(images[i]); it != volumes.end())
            places[it->second.series].push_back(i);
    for (const auto &entry : places) {
        std::vector<VxDicomImage *> members;
        for (int i : entry.second)
            members.push_back(images[i]);
        std::stable_sort(members.begin(), members.end(),
                         [this](const VxDicomImage *a, const VxDicomImage *b) {
                             return volumeIndex(a) < volumeIndex(b);
                         });
        for (size_t k = 0; k < members.size(); ++k)
            images[entry.second[k]] = members[k];
    }
}

int DicomListView::compareImages(const void *a, const void *b)
{
    if (!theSortingView)
        return 0;
    return theSortingView->compare(*static_cast<VxDicomImage *const *>(a),
                                   *static_cast<VxDicomImage *const *>(b));
}

bool DicomListView::otherVolumeOfSeries(const VxDicomImage *a, const VxDicomImage *b) const
{
    const auto x = volumes.find(a), y = volumes.find(b);
    return x != volumes.end() && y != volumes.end() && x->second.series == y->second.series &&
           x->second.index != y->second.index;
}

int DicomListView::volumeIndex(const VxDicomImage *image) const
{
    const auto it = volumes.find(image);
    return it == volumes.end() ? 0 : it->second.index;
}

int DicomListView::compare(const VxDicomImage *a, const VxDicomImage *b) const
{
    const QHeaderView *h = header();
    for (int position = 0; position < columnCount(); ++position) {
        const int section = h->logicalIndex(position);
        if (section < 1 || section - 1 >= options.size() || !options[section - 1])
            continue;
        const DicomLoadOption &option = *options[section - 1];
        const QString label = option.name.toQString();
        const QString ta = DicomListItem::getText(a, option.group, option.element, label).trimmed();
        const QString tb = DicomListItem::getText(b, option.group, option.element, label).trimmed();
        if (ta == tb)
            continue;
        int order;
        if (option.group == 0x0020 && option.element == 0x0037)
            order = a->compareOrientation(*b, 0.001f);
        else
            order = compareColumnTexts(ta, tb);
        if (order != 0)
            return getSortOrder(section) * order;
    }
    return 0;
}

void DicomListView::adoptChildItems()
{
    const KcDArray<DicomLoadOption *> geometryOnly;
    const VxDicomImage *previous = nullptr;
    for (int i = 0; i < images.size(); ++i) {
        if (stacks.isEmpty())
            stacks.append(new DicomStackItem());
        auto *row = new DicomListItem(images[i]);
        row->loadIndex = i;
        DicomStackItem *stack = stacks.last();
        bool accepted;
        if (previous && otherVolumeOfSeries(previous, images[i])) {
            accepted = false;
            stack->breakReason = tr("the next volume of the series begins");
        } else if (previous && previous->file == images[i]->file) {
            // Frames and tiles of one file share their instance number and
            // every other attribute but their place: only the geometry can
            // part them.
            accepted = stack->accept(row, geometryOnly);
        } else {
            accepted = stack->accept(row, options);
        }
        previous = images[i];
        if (!accepted) {
            stack->sortChildItems();
            stack = new DicomStackItem();
            stacks.append(stack);
        }
        stack->insertImageRow(row);
        stack->index = i;
        if (const auto it = volumes.find(images[i]); it != volumes.end())
            stack->volumeNote = tr("volume %1 of %2 of its series (told apart by %3)")
                                    .arg(it->second.index + 1)
                                    .arg(it->second.count)
                                    .arg(it->second.toldApartBy);
        if ((i & 127) == 127)
            buildProgress(0.45f +
                          0.45f * static_cast<float>(i) / static_cast<float>(images.size()));
    }
    if (!stacks.isEmpty())
        stacks.last()->sortChildItems();

    // The stacks were built outside the tree; they enter it at once, in
    // build order.
    QList<QTreeWidgetItem *> rows;
    for (DicomStackItem *stack : stacks)
        rows.append(stack);
    addTopLevelItems(rows);
    // Several stacks start folded so that all of them are seen at once; a
    // single stack shows its images.
    for (DicomStackItem *stack : stacks)
        stack->setExpanded(stacks.size() == 1);
}

void DicomListView::cleanupAllStacks()
{
    // Deleting a selected row changes the selection, and the slots that
    // follow it walk the stack list: it must hold no row being deleted.
    const KcDArray<DicomStackItem *> old = stacks;
    stacks.clear();
    for (int i = old.size() - 1; i >= 0; --i) {
        for (QTreeWidgetItem *row : old[i]->takeChildren())
            delete row;
        delete old[i];
    }
}

void DicomListView::updateStackView()
{
    for (int s = 0; s < stacks.size(); ++s) {
        stacks[s]->showIcon(true);
        stacks[s]->showLabel(true);
        if ((s & 127) == 127)
            buildProgress(0.9f + 0.1f * static_cast<float>(s) / static_cast<float>(stacks.size()));
    }
    // The stack labels (patient names) are shown whole.
    fitColumn(0);
}

void DicomListView::fitColumn(int column)
{
    if (!isVisible()) {
        columnsToFit = true;
        return;
    }
    if (column == 0)
        resizeColumnToContents(0);
    else
        setColumnWidth(column, fontMetrics().horizontalAdvance(headerItem()->text(column)) + 40);
}

void DicomListView::showEvent(QShowEvent *event)
{
    QTreeWidget::showEvent(event);
    header()->setMinimumSectionSize(-1);
    if (!columnsToFit)
        return;
    columnsToFit = false;
    for (int column = 0; column < columnCount(); ++column)
        fitColumn(column);
}

void DicomListView::updateDicomInfo()
{
    const int nStacks = stacks.size();
    const int nImages = images.size();
    emit listViewChanged(QString::asprintf("%d stack%s\n%d image%s", nStacks,
                                           nStacks == 1 ? "" : "s", nImages,
                                           nImages == 1 ? "" : "s"));
}

void DicomListView::addLoadOption(int group, int element, const QString &value)
{
    if (group == -1 || element == -1)
        return;
    for (const DicomLoadOption *option : options)
        if (option && option->group == group && option->element == element)
            return;
    const char *name = nullptr;
    if (group >= 0 && group <= 0xFFFF && element >= 0 && element <= 0xFFFF)
        name = dicom::dicomDictionaryName(static_cast<uint16_t>(group),
                                          static_cast<uint16_t>(element));
    bool numeric = false;
    value.trimmed().toDouble(&numeric);
    const QByteArray label = columnLabel(group, element, QString()).toUtf8();
    options.append(new DicomLoadOption(group, element, DicomLoadOption::Ignore,
                                       name ? name : label.constData(), numeric ? 31 : 3));
    optionListChanged();
}

void DicomListView::removeLoadOption(const QString &label)
{
    for (int k = 0; k < options.size(); ++k) {
        if (options[k] && options[k]->name.toQString() == label) {
            delete options[k];
            options.remove(k);
            optionListChanged();
            return;
        }
    }
}

void DicomListView::setupListColumns()
{
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    header()->setSortIndicatorShown(true);
    header()->setSortIndicator(1, Qt::AscendingOrder);
    if (columnCount() < 1)
        setColumnCount(1);
    headerItem()->setText(0, tr("image stack"));

    int first = 0;
    if (columnCount() > 1) {
        // clearColumnsAndOptions keeps the column at position 1; it serves
        // the first option again.
        if (options.isEmpty() || !options[0]) {
            setColumnCount(1);
        } else {
            const QString label =
                columnLabel(options[0]->group, options[0]->element, options[0]->name.toQString());
            headerItem()->setText(1, label);
            fitColumn(1);
            first = 1;
        }
    }
    sortOrder.resize(columnCount());
    for (int k = first; k < options.size(); ++k)
        if (options[k])
            appendColumn(options[k]->group, options[k]->element, options[k]->name.toQString());
}

int DicomListView::sectionOfLabel(const QString &label) const
{
    for (int section = 0; section < columnCount(); ++section)
        if (headerItem()->text(section) == label)
            return section;
    return -1;
}

void DicomListView::appendColumn(int group, int element, const QString &label)
{
    const QString text = columnLabel(group, element, label);
    if (sectionOfLabel(text) >= 0)
        return;
    const int column = columnCount();
    setColumnCount(column + 1);
    headerItem()->setText(column, text);
    fitColumn(column);
    while (sortOrder.size() < columnCount())
        sortOrder.append(1);
    for (DicomStackItem *stack : stacks)
        for (int i = 0; i < stack->childCount(); ++i)
            if (stack->child(i)->type() == DicomListItem::Type)
                static_cast<DicomListItem *>(stack->child(i))
                    ->setColumnText(group, element, column);
}

void DicomListView::removeColumnSection(int section)
{
    const int n = columnCount();
    if (section < 0 || section >= n)
        return;
    QHeaderView *h = header();
    QList<int> visualOrder;
    QStringList labels;
    QList<int> widths;
    for (int position = 0; position < n; ++position) {
        const int s = h->logicalIndex(position);
        if (s != section)
            visualOrder.append(s > section ? s - 1 : s);
    }
    for (int s = 0; s < n; ++s) {
        if (s == section)
            continue;
        labels.append(headerItem()->text(s));
        widths.append(columnWidth(s));
    }
    setColumnCount(n - 1);
    setHeaderLabels(labels);
    for (int s = 0; s < widths.size(); ++s)
        setColumnWidth(s, widths[s]);
    movingSections = true;
    for (int position = 0; position < visualOrder.size(); ++position) {
        const int current = h->visualIndex(visualOrder[position]);
        if (current != position)
            h->moveSection(current, position);
    }
    movingSections = false;
    if (section < sortOrder.size())
        sortOrder.remove(section);
}

void DicomListView::deleteColumn(int section)
{
    if (section < 1 || section >= columnCount())
        return;
    removeColumnSection(section);
    if (section - 1 < options.size()) {
        delete options[section - 1];
        options.remove(section - 1);
        optionListChanged();
    }
    buildImageStacks();
}

bool DicomListView::columnIsObsolete(int section) const
{
    if (section < 1 || section - 1 >= options.size() || !options[section - 1])
        return false;
    if (images.isEmpty())
        return true;
    const DicomLoadOption &option = *options[section - 1];
    const QString label = option.name.toQString();
    const QString reference =
        DicomListItem::getText(images[0], option.group, option.element, label);
    for (int i = 1; i < images.size(); ++i)
        if (DicomListItem::getText(images[i], option.group, option.element, label) != reference)
            return false;
    return true;
}

void DicomListView::cleanupListColumns()
{
    for (int section = columnCount() - 1; section >= 1; --section) {
        const QString label = headerItem()->text(section);
        if (isKeptColumn(label))
            continue;
        if (columnIsObsolete(section)) {
            removeColumnSection(section);
            removeLoadOption(label);
        }
    }
}

void DicomListView::clearColumnsAndOptions()
{
    // The columns at positions 0 and 1 stay: the tree column, and one that
    // setupListColumns gives to the first option again.
    for (int position = columnCount() - 1; position >= 2; --position)
        removeColumnSection(header()->logicalIndex(position));
    for (DicomLoadOption *option : options)
        delete option;
    options.clear();
    optionListChanged();
}

void DicomListView::sortingOrderChanged(int position)
{
    const int section = header()->logicalIndex(position);
    if (section < 0)
        return;
    while (sortOrder.size() <= section)
        sortOrder.append(1);
    sortOrder[section] = -sortOrder[section];
    header()->setSortIndicator(section,
                               sortOrder[section] == 1 ? Qt::AscendingOrder : Qt::DescendingOrder);
    buildImageStacks();
}

int DicomListView::getSortOrder(int section) const
{
    if (section < 0 || section >= sortOrder.size())
        return 1;
    return sortOrder[section];
}

bool DicomListView::stackConsistency()
{
    for (DicomStackItem *stack : stacks) {
        const DicomListItem *first = stack->firstChild();
        const DicomListItem *last = stack->lastChild();
        if (!first || !last || !first->image() || !last->image())
            continue;
        if (stack->isMonotonous()) {
            if (first->image()->sliceLocation > last->image()->sliceLocation) {
                // The notice is prepared but not shown: nothing to decide.
                DicomStackDialogNegotiator flip(stack, DicomStackDialog::FlipNotice);
                flip.createForkedObject();
                flip.putData();
                flip.deleteForkedObject();
                ThreadNegotiator::runOnGuiThread([stack] { stack->revertChildren(); });
            }
            continue;
        }
        if (std::getenv("ZENTA_ZIEHM_RECONSTRUCTION"))
            continue;
        DicomStackDialogNegotiator renumber(stack, DicomStackDialog::RenumberForm);
        renumber.createForkedObject();
        renumber.putData();
        const int result = renumber.exec();
        float start = 0;
        float increment = 0;
        ThreadNegotiator::runOnGuiThread([&] {
            if (DicomStackDialog *dialog = renumber.dialog()) {
                start = dialog->startLocation();
                increment = dialog->incrementValue();
            }
        });
        renumber.deleteForkedObject();
        if (result != 1)
            return false;
        ThreadNegotiator::runOnGuiThread(
            [stack, start, increment] { stack->relocateChildItems(start, increment); });
    }
    return true;
}

bool DicomListView::exportImageStacks(KcDArray<VxDicomImageStack *> &out, int mode)
{
    if (!stackConsistency())
        return false;
    for (DicomStackItem *stack : stacks) {
        if (!satisfies(stack, mode))
            continue;
        auto *imageStack = new VxDicomImageStack();
        out.append(imageStack);
        for (int i = 0; i < stack->childCount(); ++i)
            if (stack->child(i)->type() == DicomListItem::Type)
                imageStack->append(static_cast<DicomListItem *>(stack->child(i))->image());
        imageStack->setCoordType(stack->isUniform() ? 1 : 2);
        if (withDicomParameters)
            imageStack->setDicomParameters(anonymizeParameters);
    }
    return true;
}

bool DicomListView::satisfies(DicomStackItem *stack, int mode) const
{
    if (!stack)
        return false;
    if ((mode & 2) && !stack->isSelected())
        return false;
    if ((mode & 1) && !(stack->isUniform() && stack->childCount() > 1))
        return false;
    return true;
}

int DicomListView::countStacks(int mode) const
{
    int count = 0;
    for (DicomStackItem *stack : stacks)
        if (satisfies(stack, mode))
            ++count;
    return count;
}

int DicomListView::numImages() const
{
    int count = 0;
    for (const DicomStackItem *stack : stacks)
        count += stack->childCount();
    return count;
}

int DicomListView::numSelectedImages() const
{
    int count = 0;
    for (const DicomStackItem *stack : stacks) {
        if (stack->isSelected()) {
            count += stack->childCount();
            continue;
        }
        for (int i = 0; i < stack->childCount(); ++i)
            if (stack->child(i)->isSelected())
                ++count;
    }
    return count;
}

QList<QTreeWidgetItem *> DicomListView::getSelectedItems() const
{
    return selectedItems();
}

void DicomListView::removeSelectedItems()
{
    // The images of all selected rows leave the list in one pass: removing
    // them one by one costs the list's length for each.
    std::unordered_map<const VxDicomImage *, int> doomed; // image -> rows that name it
    auto mark = [&doomed](const QTreeWidgetItem *row) {
        if (row->type() == DicomListItem::Type)
            ++doomed[static_cast<const DicomListItem *>(row)->image()];
    };
    for (const QTreeWidgetItem *item : selectedItems()) {
        if (item->type() == DicomStackItem::Type)
            for (int i = 0; i < item->childCount(); ++i)
                mark(item->child(i));
        else
            mark(item);
    }
    // Each row that names an image takes one list entry of it, the first
    // ones, as removeSelectedItem does row by row.
    KcDArray<VxDicomImage *> kept;
    kept.reserve(images.size());
    for (VxDicomImage *image : images) {
        const auto it = doomed.find(image);
        if (it != doomed.end() && it->second > 0)
            --it->second;
        else
            kept.append(image);
    }
    images = kept;
    cleanupListColumns();
    buildImageStacks();
}

void DicomListView::removeSelectedItem(QTreeWidgetItem *item)
{
    if (!item)
        return;
    auto dropImage = [this](const QTreeWidgetItem *row) {
        if (row->type() != DicomListItem::Type)
            return;
        const int at = images.find(static_cast<const DicomListItem *>(row)->image());
        if (at >= 0)
            images.remove(at);
    };
    if (item->type() == DicomStackItem::Type) {
        for (int i = 0; i < item->childCount(); ++i)
            dropImage(item->child(i));
    } else {
        dropImage(item);
    }
}

void DicomListView::removeEmptyStacks()
{
    for (int i = stacks.size() - 1; i >= 0; --i) {
        if (stacks[i]->childCount() == 0) {
            DicomStackItem *empty = stacks[i];
            stacks.remove(i); // before the deletion's selection signals
            delete empty;
        }
    }
}

float DicomListView::getUniformTolerance() const
{
    return DicomStackItem::uniformTolerance;
}

void DicomListView::setUniformTolerance(float tolerance)
{
    if (tolerance == DicomStackItem::uniformTolerance)
        return;
    DicomStackItem::uniformTolerance = tolerance;
    buildImageStacks();
}

QList<DicomListItem *> DicomListView::chosenImageRows() const
{
    QList<DicomListItem *> rows;
    const QList<QTreeWidgetItem *> selected = selectedItems();
    for (QTreeWidgetItem *item : selected)
        if (item->type() == DicomListItem::Type)
            rows.append(static_cast<DicomListItem *>(item));
    if (rows.isEmpty())
        for (QTreeWidgetItem *item : selected)
            if (item->type() == DicomStackItem::Type)
                if (DicomListItem *first = static_cast<DicomStackItem *>(item)->firstChild())
                    rows.append(first);
    return rows;
}

void DicomListView::loadOptionDialog()
{
    if (!optionDialog) {
        optionDialog = new DicomOptionDialog(options, this, this);
        optionDialog->setWindowFlag(Qt::Window);
        optionDialog->setAttribute(Qt::WA_DeleteOnClose);
        connect(optionDialog, &DicomOptionDialog::loadOptionsChanged, this,
                &DicomListView::updateImageStacks);
    }
    optionDialog->show();
    optionDialog->raise();
    optionDialog->activateWindow();
}

void DicomListView::optionListChanged()
{
    // The dialog holds a page per option: an open one is made again over
    // the new list, where it was.
    if (!optionDialog)
        return;
    const bool wasVisible = optionDialog->isVisible();
    const QPoint where = optionDialog->pos();
    delete optionDialog.data();
    if (wasVisible) {
        loadOptionDialog();
        optionDialog->move(where);
    }
}

void DicomListView::imagePreview()
{
    const QList<DicomListItem *> rows = chosenImageRows();
    if (!rows.isEmpty() && rows.first()->image())
        emit imagePreviewRequest(rows.first()->image());
}

void DicomListView::parameterView()
{
    QList<DicomListItem *> rows = chosenImageRows();
    if (rows.isEmpty() && !stacks.isEmpty() && stacks[0]->firstChild())
        rows.append(stacks[0]->firstChild());
    if (rows.isEmpty())
        return;
    emit parameterViewRequest(rows[0], rows.size() > 1 ? rows[1] : nullptr);
}

QMenu *DicomListView::createItemMenu()
{
    const QList<QTreeWidgetItem *> selected = selectedItems();
    if (selected.isEmpty())
        return nullptr;
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("DicomListItemMenu"));
    QAction *parameters =
        menu->addAction(tr("DICOM Parameters"), this, &DicomListView::parameterView);
    if (selected.size() == 1) {
        menu->addAction(tr("Image Preview"), this, &DicomListView::imagePreview);
    } else {
        // Several rows: their attributes side by side needs exactly two images.
        int images = 0;
        for (const QTreeWidgetItem *item : selected)
            images += item->type() == DicomListItem::Type ? 1 : 0;
        parameters->setEnabled(images == 2);
    }
    menu->addSeparator();
    menu->addAction(tr("Remove Image"), this, &DicomListView::removeSelectedItems);
    return menu;
}

void DicomListView::popupItemMenu(QTreeWidgetItem *item, const QPoint &pos, int)
{
    // A right-click beside the selection chooses the row clicked.
    if (item && !item->isSelected()) {
        clearSelection();
        item->setSelected(true);
        setCurrentItem(item);
    }
    std::unique_ptr<QMenu> menu(createItemMenu());
    if (menu)
        menu->exec(pos);
}

void DicomListView::contextMenuEvent(QContextMenuEvent *event)
{
    // The mouse names the row under it; the keyboard's menu key the current row.
    QTreeWidgetItem *item = nullptr;
    QPoint global = event->globalPos();
    int column = 0;
    if (event->reason() == QContextMenuEvent::Keyboard) {
        item = currentItem();
        if (item) {
            const QRect rect = visualItemRect(item).intersected(viewport()->rect());
            global = viewport()->mapToGlobal(rect.center());
        }
    } else {
        item = itemAt(event->pos());
        column = columnAt(event->pos().x());
    }
    if (!item)
        return;
    event->accept();
    popupItemMenu(item, global, column);
}

QMenu *DicomListView::createColumnMenu(int section)
{
    if (section < 1 || section >= columnCount())
        return nullptr;
    auto *menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("DicomColumnMenu"));
    menu->addAction(tr("Remove Column"), this, [this, section] { deleteColumn(section); });
    return menu;
}

void DicomListView::popupColumnMenu(const QPoint &pos)
{
    const int section = header()->logicalIndexAt(header()->mapFromGlobal(pos));
    std::unique_ptr<QMenu> menu(createColumnMenu(section));
    if (menu)
        menu->exec(pos);
}
