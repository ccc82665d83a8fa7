#include "vxdicom/reader/DicomDir.h"

#include "platform/core/KcFilename.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr unsigned kUndefinedLength = 0xFFFFFFFFu;

struct Walker
{
    const unsigned char *p;
    long size;
    bool big;
    bool explicitVr;

    unsigned short u16(long at) const { return dicom::dicomRead16bit(p + at, big); }
    unsigned u32(long at) const { return dicom::dicomRead32bit(p + at, big); }
};

bool hasLongLength(const unsigned char *vr)
{
    static const char *const longVrs[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                          "SV", "UC", "UN", "UR", "UT", "UV"};
    for (const char *v : longVrs)
        if (vr[0] == v[0] && vr[1] == v[1])
            return true;
    return false;
}

KcString trimmedId(const unsigned char *value, long length)
{
    long begin = 0;
    long end = length;
    while (begin < end && (value[begin] == ' ' || value[begin] == '\0'))
        ++begin;
    while (end > begin && (value[end - 1] == ' ' || value[end - 1] == '\0'))
        --end;
    return KcString(reinterpret_cast<const char *>(value + begin), static_cast<size_t>(end - begin));
}

// Walks the elements of one item's content [begin, end); false when malformed.
bool walkItem(const Walker &w, long begin, long end, const KcString &base,
              KcDArray<KcString> &names)
{
    long pos = begin;
    while (pos < end) {
        if (pos + 8 > end)
            return false;
        const unsigned short group = w.u16(pos);
        const unsigned short element = w.u16(pos + 2);
        long header = 8;
        unsigned length;
        if (w.explicitVr) {
            const unsigned char *vr = w.p + pos + 4;
            if (hasLongLength(vr)) {
                if (pos + 12 > end)
                    return false;
                length = w.u32(pos + 8);
                header = 12;
            } else {
                length = w.u16(pos + 6);
            }
        } else {
            length = w.u32(pos + 4);
        }
        const long valueStart = pos + header;
        long valueLength;
        if (length == kUndefinedLength) {
            const long adjusted = dicom::dicomAdjustLength(w.p + valueStart, w.p + end, w.big,
                                                           w.explicitVr, false);
            if (adjusted < 0)
                return false;
            valueLength = adjusted;
        } else {
            valueLength = static_cast<long>(length);
        }
        if (valueLength > end - valueStart)
            return false;
        if (group == 0x0004 && element == 0x1500) {
            KcFilename name = KcFilename::join(base, trimmedId(w.p + valueStart, valueLength));
            name.fixSlashes();
            names.append(name);
        }
        pos = valueStart + valueLength;
    }
    return true;
}

} // namespace

int extractDicomDir(VxDicomFile *dicomDir, KcDArray<KcString> &names)
{
    if (!dicomDir || !dicomDir->data || names.isEmpty())
        return names.size();
    dicom::dicomStruct *d = dicomDir->data;
    const KcString base = KcFilename(names.last()).directory();

    if (const char *flag = dicom::dicomGetById(d, 0x0004, 0x1212))
        if (std::atoi(flag) == 1)
            return names.size();

    const dicom::dicomDataElement *records = nullptr;
    for (int i = 0; i < d->numElements; ++i)
        if (d->elements[i].group == 0x0004 && d->elements[i].element == 0x1220)
            records = &d->elements[i];
    if (!records || !records->data || records->length < 8)
        return names.size();

    const Walker w{records->data, records->length, d->bigEndian, d->explicitVR};
    if (w.u16(0) != 0xFFFE || w.u16(2) != 0xE000)
        return names.size();

    long pos = 0;
    while (pos + 8 <= w.size) {
        const unsigned short group = w.u16(pos);
        const unsigned short element = w.u16(pos + 2);
        if (group != 0xFFFE || element != 0xE000)
            break; // sequence delimiter, or garbage: the walk ends here
        const unsigned length = w.u32(pos + 4);
        const long begin = pos + 8;
        long end;
        long next;
        if (length == kUndefinedLength) {
            const long adjusted = dicom::dicomAdjustLength(w.p + begin, w.p + w.size, w.big,
                                                           w.explicitVr, true);
            if (adjusted < 8)
                break;
            end = begin + adjusted - 8; // content stops before the item delimiter
            next = begin + adjusted;
        } else {
            if (static_cast<long>(length) > w.size - begin)
                break;
            end = begin + static_cast<long>(length);
            next = end;
        }
        if (!walkItem(w, begin, end, base, names))
            break;
        pos = next;
    }
    return names.size();
}
