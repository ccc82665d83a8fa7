#include "vxdicom/stacks/DicomVolumeSplit.h"

#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <vector>

namespace {

// The candidates, in the order they are tried. A pair joins two elements
// (b-value and direction): volumes of one b-value differ by direction.
struct Candidate
{
    unsigned short group, element;
    unsigned short group2 = 0, element2 = 0;
};
const Candidate kCandidates[] = {
    {0x0020, 0x0100},                 // Temporal Position Identifier
    {0x0020, 0x9128},                 // Temporal Position Index (per frame)
    {0x0020, 0x0012},                 // Acquisition Number
    {0x0018, 0x9087, 0x0018, 0x9089}, // Diffusion b-value, Diffusion Gradient Orientation
    {0x0019, 0x100C, 0x0019, 0x100E}, // the same in Siemens' private group
    {0x0043, 0x1039, 0x0019, 0x10BB}, // GE: b-value and gradient x
    {0x0018, 0x9089},                 // Diffusion Gradient Orientation
    {0x0018, 0x0086},                 // Echo Number(s)
    {0x0018, 0x1060},                 // Trigger Time
};

QString valueOf(const VxDicomImage *image, unsigned short group, unsigned short element)
{
    const char *v = image->headerText(group, element);
    return v ? QString::fromLatin1(v).trimmed() : QString();
}

QString keyOf(const VxDicomImage *image, const Candidate &c)
{
    QString key = valueOf(image, c.group, c.element);
    if (c.group2)
        key += QLatin1Char('|') + valueOf(image, c.group2, c.element2);
    return key;
}

QString nameOf(const Candidate &c)
{
    const char *name = dicom::dicomDictionaryName(c.group, c.element);
    QString text =
        name ? QString::fromUtf8(name) : QString::asprintf("(%04X,%04X)", c.group, c.element);
    if (c.group2) {
        const char *second = dicom::dicomDictionaryName(c.group2, c.element2);
        text += QStringLiteral(" and ") +
                (second ? QString::fromUtf8(second)
                        : QString::asprintf("(%04X,%04X)", c.group2, c.element2));
    }
    return text;
}

long long locationKey(const VxDicomImage *image)
{
    return std::llround(static_cast<double>(image->sliceLocation) * 100.0);
}

// Acquisition order as far as the images tell it: instance number, then
// the order of the files and of the frames and tiles in them.
bool comesBefore(const VxDicomImage *a, const VxDicomImage *b)
{
    if (a->imageNumber != b->imageNumber)
        return a->imageNumber < b->imageNumber;
    if (a->file->index != b->file->index)
        return a->file->index < b->file->index;
    if (a->frame != b->frame)
        return a->frame < b->frame;
    return a->tile < b->tile;
}

void splitSeries(const std::vector<VxDicomImage *> &series, int seriesIndex,
                 std::unordered_map<const VxDicomImage *, DicomVolume> &out)
{
    std::map<long long, int> atLocation;
    for (const VxDicomImage *image : series)
        ++atLocation[locationKey(image)];
    int repeats = 0;
    for (const auto &entry : atLocation)
        repeats = std::max(repeats, entry.second);
    if (repeats < 2)
        return;

    for (const Candidate &c : kCandidates) {
        std::map<QString, std::set<long long>> groups;
        bool clean = true;
        for (const VxDicomImage *image : series)
            if (!groups[keyOf(image, c)].insert(locationKey(image)).second) {
                clean = false;
                break;
            }
        if (!clean || static_cast<int>(groups.size()) != repeats)
            continue;
        // The volumes in acquisition order: by the first image of each.
        std::map<QString, const VxDicomImage *> first;
        for (const VxDicomImage *image : series) {
            const VxDicomImage *&f = first[keyOf(image, c)];
            if (!f || comesBefore(image, f))
                f = image;
        }
        std::vector<std::pair<const VxDicomImage *, QString>> order;
        for (const auto &f : first)
            order.emplace_back(f.second, f.first);
        std::sort(order.begin(), order.end(),
                  [](const auto &a, const auto &b) { return comesBefore(a.first, b.first); });
        std::map<QString, int> rank;
        for (size_t k = 0; k < order.size(); ++k)
            rank[order[k].second] = static_cast<int>(k);
        for (const VxDicomImage *image : series)
            out[image] = {seriesIndex, rank[keyOf(image, c)], repeats, nameOf(c)};
        return;
    }

    // Nothing tells them apart: the order in which the images come.
    std::vector<VxDicomImage *> ordered = series;
    std::stable_sort(ordered.begin(), ordered.end(), comesBefore);
    std::map<long long, int> seen;
    for (const VxDicomImage *image : ordered)
        out[image] = {seriesIndex, seen[locationKey(image)]++, repeats,
                      QStringLiteral("order of appearance")};
}

} // namespace

std::unordered_map<const VxDicomImage *, DicomVolume>
dicomVolumesOf(const KcDArray<VxDicomImage *> &images)
{
    // Series: one UID, one orientation, one image size.
    std::map<QString, std::vector<VxDicomImage *>> series;
    for (VxDicomImage *image : images) {
        if (!image)
            continue;
        const QString key = QStringLiteral("%1|%2 %3 %4|%5x%6")
                                .arg(valueOf(image, 0x0020, 0x000E))
                                .arg(std::lround(image->normal[0] * 1000))
                                .arg(std::lround(image->normal[1] * 1000))
                                .arg(std::lround(image->normal[2] * 1000))
                                .arg(image->width)
                                .arg(image->height);
        series[key].push_back(image);
    }
    std::unordered_map<const VxDicomImage *, DicomVolume> volumes;
    int index = 0;
    for (const auto &entry : series)
        splitSeries(entry.second, index++, volumes);
    return volumes;
}
