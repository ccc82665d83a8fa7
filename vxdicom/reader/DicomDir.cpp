#include "vxdicom/reader/DicomDir.h"

#include "platform/core/KcFilename.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"

#include <strings.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kUndefinedLength = 0xFFFFFFFFu;
constexpr uint16_t kDelimiterGroup = 0xFFFE;
constexpr uint16_t kItem = 0xE000;
constexpr uint16_t kItemDelimiter = 0xE00D;
constexpr uint16_t kSequenceDelimiter = 0xE0DD;

// The value of a Referenced File ID without its padding. CS values are padded
// with a blank; some writers pad with NUL, and nothing after a NUL is text.
KcString trimmedId(const unsigned char *value, size_t length)
{
    size_t end = 0;
    while (end < length && value[end] != '\0')
        ++end;
    size_t begin = 0;
    while (begin < end && value[begin] == ' ')
        ++begin;
    while (end > begin && value[end - 1] == ' ')
        --end;
    return KcString(reinterpret_cast<const char *>(value + begin), end - begin);
}

class RecordWalker
{
public:
    RecordWalker(bool bigEndian, bool explicitVR, KcDArray<KcString> &ids)
        : big(bigEndian), explicitVr(explicitVR), ids(ids)
    {
    }

    // Walks the elements of one directory record starting at pos. A record of
    // defined length ends exactly at recordEnd; one of undefined length at its
    // item delimiter, before recordEnd (the end of the whole value). Returns
    // the first byte after the record, or null when the record is malformed.
    const unsigned char *walk(const unsigned char *pos, const unsigned char *recordEnd,
                              bool undefinedLength)
    {
        while (pos < recordEnd) {
            dicom::dicomElementHeader h;
            if (!dicom::dicomReadElementHeader(pos, recordEnd, big, explicitVr, &h))
                return nullptr;
            const unsigned char *value = pos + h.headerSize;
            if (h.group == kDelimiterGroup) {
                if (undefinedLength && h.element == kItemDelimiter)
                    return value;
                return nullptr; // an item or a sequence end among the record's elements
            }
            size_t valueLength;
            if (h.length == kUndefinedLength) {
                // A nested sequence (such as an icon image sequence); UN of
                // undefined length holds implicit VR items (CP-246).
                const bool innerExplicit = explicitVr && !(h.vr[0] == 'U' && h.vr[1] == 'N');
                const long n =
                    dicom::dicomAdjustLength(value, recordEnd, big, innerExplicit, false);
                if (n < 0)
                    return nullptr;
                valueLength = static_cast<size_t>(n);
            } else {
                if (h.length > static_cast<size_t>(recordEnd - value))
                    return nullptr;
                valueLength = h.length;
                if (h.group == 0x0004 && h.element == 0x1500)
                    ids.append(trimmedId(value, valueLength));
            }
            pos = value + valueLength;
        }
        return undefinedLength ? nullptr : pos; // no item delimiter before the end
    }

private:
    bool big;
    bool explicitVr;
    KcDArray<KcString> &ids;
};

// The components of a file ID, split at the DICOM separator (and at '/').
std::vector<std::string> components(const KcString &id)
{
    std::vector<std::string> parts;
    std::string part;
    for (char c : id) {
        if (c == '\\' || c == '/') {
            if (!part.empty())
                parts.push_back(part);
            part.clear();
        } else {
            part += c;
        }
    }
    if (!part.empty())
        parts.push_back(part);
    return parts;
}

// File IDs are relative to the file set's root (PS3.10 8.2); one that steps
// out of it is not a file of the set.
bool leavesFileSet(const std::vector<std::string> &parts)
{
    for (const std::string &p : parts)
        if (p == "..")
            return true;
    return false;
}

// Finds a file whose path below base matches the components except for
// letter case: ISO 9660 media mounted on Linux often show "images/im0001"
// where the DICOMDIR says "IMAGES\IM0001". Folder listings are kept for the
// whole DICOMDIR, so a CD of thousands of files is listed once per folder.
class CaseResolver
{
public:
    KcString resolve(const KcString &base, const std::vector<std::string> &parts)
    {
        fs::path path(base.empty() ? "." : base.c_str());
        for (const std::string &part : parts) {
            std::error_code ec;
            fs::path exact = path / part;
            if (fs::exists(exact, ec)) {
                path = exact;
                continue;
            }
            const std::vector<std::string> &entries = listing(path);
            const std::string *match = nullptr;
            for (const std::string &e : entries)
                if (e.size() == part.size() && strcasecmp(e.c_str(), part.c_str()) == 0) {
                    match = &e;
                    break;
                }
            if (!match)
                return KcString();
            path /= *match;
        }
        return KcString(path.string());
    }

private:
    const std::vector<std::string> &listing(const fs::path &dir)
    {
        auto found = listings.find(dir.string());
        if (found != listings.end())
            return found->second;
        std::vector<std::string> &entries = listings[dir.string()];
        std::error_code ec;
        for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
            entries.push_back(it->path().filename().string());
        return entries;
    }

    std::map<std::string, std::vector<std::string>> listings;
};

} // namespace

bool dicomDirFileIds(const unsigned char *value, size_t length, bool bigEndian, bool explicitVR,
                     KcDArray<KcString> &ids)
{
    if (!value || length < 8)
        return false;
    const unsigned char *pos = value;
    const unsigned char *const end = value + length;
    if (dicom::dicomRead16bit(pos, bigEndian) != kDelimiterGroup ||
        dicom::dicomRead16bit(pos + 2, bigEndian) != kItem)
        return false;

    RecordWalker records(bigEndian, explicitVR, ids);
    while (pos < end) {
        dicom::dicomElementHeader h;
        if (!dicom::dicomReadElementHeader(pos, end, bigEndian, explicitVR, &h))
            return false; // fewer than 8 bytes left
        if (h.group != kDelimiterGroup)
            return false;
        if (h.element == kSequenceDelimiter)
            return true;
        if (h.element != kItem)
            return false;
        const unsigned char *content = pos + h.headerSize;
        const unsigned char *next;
        if (h.length == kUndefinedLength) {
            next = records.walk(content, end, true);
        } else {
            if (h.length > static_cast<size_t>(end - content))
                return false;
            next = records.walk(content, content + h.length, false);
        }
        if (!next)
            return false;
        pos = next;
    }
    return true;
}

int extractDicomDir(VxDicomFile *dicomDir, KcDArray<KcString> &names)
{
    if (!dicomDir || !dicomDir->data)
        return names.size();
    const dicom::dicomStruct *d = dicomDir->data;

    if (const char *flag = dicom::dicomGetById(d, 0x0004, 0x1212))
        if (std::atoi(flag) == 1)
            return names.size();

    const dicom::dicomDataElement *records = dicom::dicomFindElement(d, 0x0004, 0x1220);
    if (!records || !records->data || records->length <= 0)
        return names.size();

    KcDArray<KcString> ids;
    dicomDirFileIds(records->data, static_cast<size_t>(records->length), d->bigEndian,
                    d->explicitVR, ids);

    // Deliberately the last name of the list, not the DICOMDIR's own name:
    // with a single DICOMDIR argument they are the same.
    const KcString base =
        KcFilename(names.isEmpty() ? dicomDir->fileName : names.last()).directory();
    CaseResolver resolver;
    for (const KcString &id : ids) {
        const std::vector<std::string> parts = components(id);
        if (parts.empty() || leavesFileSet(parts))
            continue;
        KcFilename name = KcFilename::join(base, id);
        name.fixSlashes();
        std::error_code ec;
        if (!fs::exists(name.c_str(), ec)) {
            const KcString onDisk = resolver.resolve(base, parts);
            if (!onDisk.empty())
                name = KcFilename(onDisk);
        }
        names.append(name);
    }
    return names.size();
}
