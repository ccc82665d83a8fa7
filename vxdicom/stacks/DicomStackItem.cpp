#include "vxdicom/stacks/DicomStackItem.h"

#include "platform/core/VxMessage.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomCriterion.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackIcons.h"
#include "vxdicom/stacks/DicomStackInfo.h"

#include <algorithm>
#include <vector>

float DicomStackItem::uniformTolerance = 0.02f;

namespace {

const VxDicomImage *imageOf(const QTreeWidgetItem *row)
{
    if (!row || row->type() != DicomListItem::Type)
        return nullptr;
    return static_cast<const DicomListItem *>(row)->image();
}

bool isPseudo(const DicomLoadOption &option)
{
    return option.group == -1 || option.element == -1;
}

bool isSliceLocation(const DicomLoadOption &option)
{
    return option.group == 0x0020 && option.element == 0x1041;
}

bool isInstanceNumber(const DicomLoadOption &option)
{
    return option.group == 0x0020 && option.element == 0x0013;
}

QString headerValue(const VxDicomImage *image, int group, int element)
{
    if (!image || !image->file || !image->file->data || group < 0 || group > 0xFFFF ||
        element < 0 || element > 0xFFFF)
        return QString();
    return dicomHeaderText(dicom::dicomGetById(image->file->data, static_cast<uint16_t>(group),
                                               static_cast<uint16_t>(element)));
}

// The candidate's value as the criterion test reads it.
QString candidateText(const VxDicomImage *image, const DicomLoadOption &option)
{
    if (isSliceLocation(option))
        return dicomSliceLocationText(image->sliceLocation);
    if (isInstanceNumber(option))
        return dicomInstanceNumberText(image->imageNumber);
    if (isPseudo(option)) {
        if (option.name == "file name")
            return image->file ? QString::fromStdString(image->file->fileName) : QString();
        if (option.name == "load index")
            return dicomLoadIndexCriterionText(image->file ? image->file->index : 0);
        return QString();
    }
    return headerValue(image, option.group, option.element);
}

// The stack's values are read by header lookup for everything but the two
// image-record values, so the pseudo-elements give empty texts here while the
// candidate has a real one: "file name" and "load index" then compare a text
// with empty texts. Kept as it is; the stored criteria rely on it.
QString stackText(const VxDicomImage *image, const DicomLoadOption &option)
{
    if (isSliceLocation(option))
        return dicomSliceLocationText(image->sliceLocation);
    if (isInstanceNumber(option))
        return dicomInstanceNumberText(image->imageNumber);
    if (isPseudo(option))
        return QString();
    return headerValue(image, option.group, option.element);
}

bool refuse(const char *what, QString &reason)
{
    VxMessage::getTheMsg()->printf("stack break: %s is differing\n", what);
    reason = QStringLiteral("%1 is differing").arg(QString::fromLatin1(what));
    return false;
}

} // namespace

DicomStackItem::DicomStackItem(VxDicomImage *image) : QTreeWidgetItem(Type)
{
    initialize(image);
}

DicomStackItem::DicomStackItem(QTreeWidget *parent, VxDicomImage *image)
    : QTreeWidgetItem(parent, Type)
{
    initialize(image);
}

DicomStackItem::DicomStackItem(QTreeWidgetItem *parent, VxDicomImage *image)
    : QTreeWidgetItem(parent, Type)
{
    initialize(image);
}

void DicomStackItem::initialize(VxDicomImage *image)
{
    setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    setChildIndicatorPolicy(QTreeWidgetItem::DontShowIndicatorWhenChildless);
    setExpanded(true);
    stackInfo = QString();
    if (image)
        append(image);
}

bool DicomStackItem::append(VxDicomImage *image)
{
    if (!image)
        return false;
    insertImageRow(new DicomListItem(image));
    return true;
}

void DicomStackItem::insertImageRow(DicomListItem *row)
{
    if (!row)
        return;
    if (QTreeWidgetItem *parent = row->parent())
        parent->removeChild(row);
    else if (QTreeWidget *tree = row->treeWidget())
        tree->takeTopLevelItem(tree->indexOfTopLevelItem(row));
    insertChild(0, row);
}

bool DicomStackItem::accept(DicomListItem *item, const KcDArray<DicomLoadOption *> &options)
{
    if (!item)
        return false;
    const DicomListItem *first = firstChild();
    if (!first)
        return true;
    const VxDicomImage *a = item->image();
    const VxDicomImage *b = first->image();
    if (!a || !b)
        return false;
    if (a->width != b->width)
        return refuse("width", breakReason);
    if (a->height != b->height)
        return refuse("height", breakReason);
    if (a->dataSize != b->dataSize)
        return refuse("size", breakReason);
    if (a->primType() != b->primType())
        return refuse("primType", breakReason);
    if (a->samplesPerPixel != b->samplesPerPixel)
        return refuse("samplesPerPixel", breakReason);
    if (a->bytesPerSample != b->bytesPerSample)
        return refuse("allocatedBytes", breakReason);
    if (pixelSizesDiffer(a->pixelSpacing[0], b->pixelSpacing[0]))
        return refuse("xPixelSizeMM", breakReason);
    if (pixelSizesDiffer(a->pixelSpacing[1], b->pixelSpacing[1]))
        return refuse("yPixelSizeMM", breakReason);
    return loadOptionTest(item, options);
}

bool DicomStackItem::loadOptionTest(DicomListItem *item, const KcDArray<DicomLoadOption *> &options)
{
    for (int k = 0; k < options.size(); ++k) {
        if (!options[k])
            continue;
        if (!testOnLoadOption(item, *options[k])) {
            breakOption = k;
            item->breakOption = k;
            const DicomLoadOption &option = *options[k];
            const VxDicomImage *image = item->image();
            const QString value = image ? candidateText(image, option) : QString();
            breakReason = QStringLiteral("%1 breaks the \"%2\" rule (%3)")
                              .arg(option.name.toQString(), option.description(option.value).toQString(),
                                   option.group == 0x0020 && option.element == 0x0037
                                       ? dicomOrientationText(image)
                                       : value.isEmpty() ? QStringLiteral("no value") : value);
            return false;
        }
    }
    return true;
}

bool DicomStackItem::testOnLoadOption(DicomListItem *item, DicomLoadOption &option)
{
    if (option.value == DicomLoadOption::Ignore)
        return true;
    const VxDicomImage *image = item ? item->image() : nullptr;
    if (!image)
        return false;

    if (option.group == 0x0020 && option.element == 0x0037) {
        const VxDicomImage *first = imageOf(child(0));
        if (!first)
            return true;
        return first->compareOrientation(*image, 0.001f) == 0;
    }

    const QString value = candidateText(image, option);
    KcDArray<QString> stackValues;
    for (int i = 0; i < 2 && i < childCount(); ++i)
        if (const VxDicomImage *other = imageOf(child(i)))
            stackValues.append(stackText(other, option));
    return isOptionSatisfied(value, stackValues, option);
}

bool DicomStackItem::isOptionSatisfied(const QString &value, const KcDArray<QString> &stackValues,
                                       DicomLoadOption &option)
{
    return ::isOptionSatisfied(value, stackValues, option, uniformTolerance);
}

KcDArray<float> DicomStackItem::sliceLocations() const
{
    KcDArray<float> locations;
    for (int i = 0; i < childCount(); ++i)
        if (const VxDicomImage *image = imageOf(child(i)))
            locations.append(image->sliceLocation);
    return locations;
}

bool DicomStackItem::isMonotonous() const
{
    return slicesAreMonotonous(sliceLocations());
}

bool DicomStackItem::isUniform() const
{
    return slicesAreUniform(sliceLocations(), uniformTolerance);
}

float DicomStackItem::getMinSliceLocation() const
{
    const KcDArray<float> locations = sliceLocations();
    if (locations.isEmpty())
        return 0;
    return *std::max_element(locations.begin(), locations.end());
}

void DicomStackItem::revertChildren()
{
    const int n = childCount();
    for (int i = 0; i < n; ++i)
        if (child(i)->type() == DicomListItem::Type)
            static_cast<DicomListItem *>(child(i))->loadIndex = n - i;
    sortChildItems();
}

void DicomStackItem::relocateChildItems(float start, float increment)
{
    float location = start;
    for (int i = 0; i < childCount(); ++i) {
        if (child(i)->type() != DicomListItem::Type)
            continue;
        if (VxDicomImage *image = static_cast<DicomListItem *>(child(i))->image())
            image->sliceLocation = location;
        location += increment;
    }
}

void DicomStackItem::sortChildItems()
{
    QList<QTreeWidgetItem *> rows = takeChildren();
    auto keyOf = [](const QTreeWidgetItem *row) {
        return row->type() == DicomListItem::Type
                   ? static_cast<const DicomListItem *>(row)->key(0, true)
                   : QString();
    };
    std::vector<std::pair<QString, QTreeWidgetItem *>> keyed;
    keyed.reserve(static_cast<size_t>(rows.size()));
    for (QTreeWidgetItem *row : rows)
        keyed.emplace_back(keyOf(row), row);
    std::stable_sort(keyed.begin(), keyed.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    rows.clear();
    for (const auto &entry : keyed)
        rows.append(entry.second);
    addChildren(rows);
}

DicomListItem *DicomStackItem::firstChild() const
{
    QTreeWidgetItem *row = child(0);
    return row && row->type() == DicomListItem::Type ? static_cast<DicomListItem *>(row) : nullptr;
}

DicomListItem *DicomStackItem::lastChild() const
{
    QTreeWidgetItem *row = child(childCount() - 1);
    return row && row->type() == DicomListItem::Type ? static_cast<DicomListItem *>(row) : nullptr;
}

void DicomStackItem::setStackInfo()
{
    const VxDicomImage *first = imageOf(child(0));
    if (!first) {
        stackInfo = QString();
        return;
    }
    KcDArray<VxDicomImage *> images;
    for (int i = 0; i < childCount(); ++i)
        if (child(i)->type() == DicomListItem::Type)
            if (VxDicomImage *image = static_cast<DicomListItem *>(child(i))->image())
                images.append(image);
    stackInfo = dicomStackInfoText(images, isUniform(), isMonotonous(), breakReason);
    if (!volumeNote.isEmpty())
        stackInfo += QStringLiteral("<br>") + volumeNote.toHtmlEscaped();
    stackInfo += QStringLiteral("<br><br>");
    static const unsigned short tags[][2] = {
        {0x0010, 0x0010}, // Patient's Name
        {0x0010, 0x0020}, // Patient ID
        {0x0008, 0x0080}, // Institution Name
        {0x0008, 0x0021}, // Series Date
        {0x0008, 0x0060}, // Modality
        {0x0008, 0x103E}, // Series Description
        {0x0018, 0x0015}, // Body Part Examined
        {0x0018, 0x5100}, // Patient Position
        {0x0018, 0x1120}, // Gantry/Detector Tilt
    };
    for (const auto &tag : tags) {
        const char *name = dicom::dicomDictionaryName(tag[0], tag[1]);
        if (!name)
            continue;
        const QString value = headerValue(first, tag[0], tag[1]);
        if (value.isEmpty())
            continue;
        stackInfo += QStringLiteral("%1: ").arg(QString::fromUtf8(name));
        stackInfo += QStringLiteral("<b>%1</b><br>").arg(value.toHtmlEscaped());
    }
}

QString DicomStackItem::info()
{
    // Rebuilt every time: reverting or renumbering the stack changes it.
    setStackInfo();
    return stackInfo;
}

void DicomStackItem::showIcon(bool show)
{
    if (!show) {
        setIcon(0, QIcon());
        return;
    }
    DicomStackIcons::Kind kind;
    if (childCount() == 1)
        kind = DicomStackIcons::Slice;
    else if (isUniform())
        kind = DicomStackIcons::Uniform;
    else if (isMonotonous())
        kind = DicomStackIcons::NonUniform;
    else
        kind = DicomStackIcons::NonMonotonous;
    setIcon(0, DicomStackIcons::icon(kind));
}

void DicomStackItem::showLabel(bool show)
{
    const VxDicomImage *first = imageOf(child(0));
    if (show && first)
        setText(0, headerValue(first, 0x0010, 0x0010));
    else
        setText(0, QString());
}

QString DicomStackItem::key(int, bool) const
{
    return QString::asprintf("%05d", index);
}

bool DicomStackItem::operator<(const QTreeWidgetItem &other) const
{
    if (other.type() != Type)
        return QTreeWidgetItem::operator<(other);
    return key(0, true) < static_cast<const DicomStackItem &>(other).key(0, true);
}

float DicomStackItem::getMaxDistError()
{
    return dicomMaxDistError();
}
