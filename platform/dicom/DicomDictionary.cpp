// Dictionary names and VRs of public attributes, from DCMTK's data dictionary.
//
// The dictionary is read once, on first use, into our own tables: names are
// derived from DCMTK's keywords ("SOPInstanceUID" -> "sop instance uid") and
// kept for the life of the process, so lookups afterwards take no lock and
// hand out stable pointers.

#include "platform/dicom/DicomInternal.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcdicent.h"
#include "dcmtk/dcmdata/dcdict.h"
#include "dcmtk/dcmdata/dchashdi.h"

#include <cctype>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

namespace dicom {
namespace {

struct Entry
{
    std::string name;
    valRep vr = UN;
};

// A dictionary entry that covers a range of tags, e.g. (60xx,0010) Overlay
// Rows or (gggg,0000) group lengths.
struct RangeEntry
{
    uint16_t group = 0, upperGroup = 0, element = 0, upperElement = 0;
    DcmDictRangeRestriction groupRestriction = DcmDictRange_Unspecified;
    DcmDictRangeRestriction elementRestriction = DcmDictRange_Unspecified;
    Entry entry;

    bool contains(uint16_t g, uint16_t e) const
    {
        if (g < group || g > upperGroup || e < element || e > upperElement)
            return false;
        if (groupRestriction == DcmDictRange_Even && (g & 1))
            return false;
        if (groupRestriction == DcmDictRange_Odd && !(g & 1))
            return false;
        if (elementRestriction == DcmDictRange_Even && (e & 1))
            return false;
        if (elementRestriction == DcmDictRange_Odd && !(e & 1))
            return false;
        return true;
    }
};

struct Dictionary
{
    std::unordered_map<uint32_t, Entry> single;
    std::vector<RangeEntry> ranges; // DCMTK's search order
    std::unordered_map<std::string, uint32_t> byName;
};

constexpr uint32_t key(uint16_t group, uint16_t element)
{
    return (uint32_t(group) << 16) | element;
}

enum CharClass { Lower, Upper, Digit, Other };

CharClass classOf(char c)
{
    if (c >= 'a' && c <= 'z')
        return Lower;
    if (c >= 'A' && c <= 'Z')
        return Upper;
    if (c >= '0' && c <= '9')
        return Digit;
    return Other;
}

} // namespace

// Splits a CamelCase keyword into lower-case words. A run of capitals is one
// word (an acronym) up to the capital that starts the next capitalised word;
// digits stick to the letters that follow them ("XRay3DFrame" ->
// "x ray 3d frame", "SOPInstanceUID" -> "sop instance uid"). DCMTK marks
// retired attributes with a "RETIRED_" prefix that is not part of the keyword.
std::string keywordToDictionaryName(const char *keyword)
{
    std::string words;
    if (!keyword)
        return words;
    if (std::strncmp(keyword, "RETIRED_", 8) == 0)
        keyword += 8;
    const size_t n = std::strlen(keyword);
    for (size_t i = 0; i < n; ++i) {
        const char c = keyword[i];
        const CharClass cls = classOf(c);
        if (cls == Other) {
            if (!words.empty() && words.back() != ' ')
                words += ' ';
            continue;
        }
        if (i > 0 && !words.empty() && words.back() != ' ') {
            const CharClass prev = classOf(keyword[i - 1]);
            const CharClass next = i + 1 < n ? classOf(keyword[i + 1]) : Other;
            bool split = false;
            if (cls == Upper && prev == Lower)
                split = true; // "patientName"
            else if (cls == Upper && (prev == Upper || prev == Digit) && next == Lower)
                split = true; // "SOPInstance", "3DFrame"
            else if (cls == Digit && prev == Lower)
                split = true; // "Ray3D"
            if (split)
                words += ' ';
        }
        words += char(std::tolower(static_cast<unsigned char>(c)));
    }
    while (!words.empty() && words.back() == ' ')
        words.pop_back();
    return words;
}

valRep valRepOfDcmEVR(int evr)
{
    switch (static_cast<DcmEVR>(evr)) {
    case EVR_AE:
        return AE;
    case EVR_AS:
        return AS;
    case EVR_AT:
        return AT;
    case EVR_CS:
        return CS;
    case EVR_DA:
        return DA;
    case EVR_DS:
        return DS;
    case EVR_DT:
        return DT;
    case EVR_FL:
        return FL;
    case EVR_FD:
        return FD;
    case EVR_IS:
        return IS;
    case EVR_LO:
        return LO;
    case EVR_LT:
        return LT;
    case EVR_PN:
        return PN;
    case EVR_SH:
        return SH;
    case EVR_SL:
        return SL;
    case EVR_SS:
        return SS;
    case EVR_ST:
        return ST;
    case EVR_TM:
        return TM;
    case EVR_UI:
        return UI;
    case EVR_UL:
        return UL;
    case EVR_US:
        return US;
    case EVR_OB:
        return OB;
    case EVR_OW:
        return OW;
    case EVR_SQ:
        return SQ;
    case EVR_UT:
        return UT;
    // Dictionary pseudo-VRs: the first choice of the alternatives.
    case EVR_xs:
        return US; // US or SS
    case EVR_ox:
        return OW; // OB or OW
    case EVR_lt:
        return OW; // US, SS or OW
    case EVR_px:
        return OW; // pixel data, OB or OW
    case EVR_up:
        return UL; // UL used as a file offset
    case EVR_OverlayData:
        return OW;
    case EVR_PixelData:
        return OW;
    // VRs newer than the module's table, mapped to the row that keeps the
    // value intact: unlimited texts to UT (no length cut), other binary
    // arrays to OB (bytes as stored).
    case EVR_UC:
        return UT;
    case EVR_UR:
        return UT;
    case EVR_OD:
        return OB;
    case EVR_OF:
        return OB;
    case EVR_OL:
        return OB;
    case EVR_OV:
        return OB;
    default:
        return UN; // SV, UV, UN, items, unknown
    }
}

namespace {

Dictionary buildDictionary()
{
    dicomInitialize(); // a missing dictionary file is reported on the console
    Dictionary d;
    // DCMTK's iterators are not const, but walking the tables under the read
    // lock does not change them.
    DcmDataDictionary &dict = const_cast<DcmDataDictionary &>(dcmDataDict.rdlock());
    for (DcmHashDictIterator it = dict.normalBegin(); it != dict.normalEnd(); ++it) {
        const DcmDictEntry *e = *it;
        if (!e || e->getPrivateCreator() != nullptr)
            continue;
        Entry entry{keywordToDictionaryName(e->getTagName()), valRepOfDcmEVR(e->getEVR())};
        const uint32_t k = key(e->getGroup(), e->getElement());
        d.byName.emplace(entry.name, k);
        d.single.emplace(k, std::move(entry));
    }
    for (DcmDictEntryListIterator it = dict.repeatingBegin(); it != dict.repeatingEnd(); ++it) {
        const DcmDictEntry *e = *it;
        if (!e || e->getPrivateCreator() != nullptr)
            continue;
        RangeEntry r;
        r.group = e->getGroup();
        r.upperGroup = e->getUpperGroup();
        r.element = e->getElement();
        r.upperElement = e->getUpperElement();
        r.groupRestriction = e->getGroupRangeRestriction();
        r.elementRestriction = e->getElementRangeRestriction();
        r.entry = Entry{keywordToDictionaryName(e->getTagName()), valRepOfDcmEVR(e->getEVR())};
        d.byName.emplace(r.entry.name, key(r.group, r.element));
        d.ranges.push_back(std::move(r));
    }
    dcmDataDict.rdunlock();
    return d;
}

const Dictionary &dictionary()
{
    static const Dictionary d = buildDictionary();
    return d;
}

const Entry *findEntry(uint16_t group, uint16_t element)
{
    const Dictionary &d = dictionary();
    auto it = d.single.find(key(group, element));
    if (it != d.single.end())
        return &it->second;
    for (const RangeEntry &r : d.ranges)
        if (r.contains(group, element))
            return &r.entry;
    return nullptr;
}

} // namespace

const char *dicomDictionaryName(uint16_t group, uint16_t element)
{
    const Entry *e = findEntry(group, element);
    return e && !e->name.empty() ? e->name.c_str() : nullptr;
}

bool dicomDictionaryContains(uint16_t group, uint16_t element)
{
    return findEntry(group, element) != nullptr;
}

valRep dicomDictionaryType(uint16_t group, uint16_t element)
{
    const Entry *e = findEntry(group, element);
    return e ? e->vr : UN;
}

bool dicomDictionaryFind(const char *name, uint16_t *group, uint16_t *element)
{
    if (!name)
        return false;
    const Dictionary &d = dictionary();
    auto it = d.byName.find(name);
    if (it == d.byName.end())
        return false;
    if (group)
        *group = uint16_t(it->second >> 16);
    if (element)
        *element = uint16_t(it->second & 0xFFFF);
    return true;
}

} // namespace dicom
