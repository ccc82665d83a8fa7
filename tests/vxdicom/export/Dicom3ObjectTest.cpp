// The DICOM writer: elements, the data set of a slice and the files of a
// volume, checked byte by byte against layouts worked out by hand from the
// standard. Dicom3ToolsTest.cpp has other tools read the files.

#include "vxdicom/export/Dicom3Object.h"
#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxSkin.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/Dicom3Writer.h"
#include "vxdicom/params/DicomUid.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <Inventor/SbLinear.h>

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;
const dicom::enCoding LE = dicom::EXPLICIT_LITTLE_ENDIAN, BE = dicom::EXPLICIT_BIG_ENDIAN;

Bytes text(const std::string &s)
{
    return Bytes(s.begin(), s.end());
}

Bytes cat(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A text value as written: padded with one 0x00 to an even length.
std::string padded(std::string s)
{
    return s.size() % 2 ? s + '\0' : s;
}

template <typename T>
std::unique_ptr<VxUniformScalarField3> uniformField(const int dims[3], const std::vector<T> &values,
                                                    const float bbox[6])
{
    void *data = std::malloc(values.size() * sizeof(T));
    std::memcpy(data, values.data(), values.size() * sizeof(T));
    auto field = std::make_unique<VxUniformScalarField3>(dims, KcPrimType::UInt8, data);
    field->setBoundingBox(bbox);
    return field;
}

/// Everything `write` puts into a fresh temporary file; `result` gets what it returns.
Bytes writtenBytes(const std::function<int(FILE *)> &write, int *result = nullptr)
{
    FILE *f = std::tmpfile();
    const int r = write(f);
    if (result)
        *result = r;
    std::fflush(f);
    Bytes bytes(static_cast<size_t>(std::max(0L, std::ftell(f))));
    std::rewind(f);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
    return bytes;
}

Bytes writeCurrentSlice(Dicom3Object &object)
{
    return writtenBytes([&](FILE *f) { return writeDicom3File(object, f); });
}

struct Element
{
    uint16_t group = 0, element = 0;
    std::string vr;
    uint32_t length = 0;
    size_t offset = 0; ///< of the tag
    Bytes value;

    std::string text() const { return std::string(value.begin(), value.end()); }
    uint32_t number() const
    {
        uint32_t n = 0;
        for (size_t i = value.size(); i-- > 0;)
            n = n << 8 | value[i];
        return n;
    }
};

/// The elements of a file written in explicit VR little endian, in file
/// order; fails the test when the framing is broken.
std::vector<Element> walk(const Bytes &bytes)
{
    std::vector<Element> out;
    auto le = [&](size_t p, int n) {
        uint32_t v = 0;
        for (int i = n; i-- > 0;)
            v = v << 8 | bytes[p + static_cast<size_t>(i)];
        return v;
    };
    for (size_t p = 132; p < bytes.size();) {
        Element e;
        e.offset = p;
        e.vr = p + 8 <= bytes.size() ? std::string(bytes.begin() + static_cast<long>(p) + 4,
                                                   bytes.begin() + static_cast<long>(p) + 6)
                                     : "";
        const bool longLength = e.vr == "OB" || e.vr == "OW" || e.vr == "UN" || e.vr == "UT";
        if (e.vr.empty() || (longLength && p + 12 > bytes.size())) {
            ADD_FAILURE() << "element header cut at " << p;
            return out;
        }
        e.group = static_cast<uint16_t>(le(p, 2));
        e.element = static_cast<uint16_t>(le(p + 2, 2));
        e.length = longLength ? le(p + 8, 4) : le(p + 6, 2);
        p += longLength ? 12 : 8;
        if (p + e.length > bytes.size()) {
            ADD_FAILURE() << "value at " << p << " runs past the end";
            return out;
        }
        e.value.assign(bytes.begin() + static_cast<long>(p),
                       bytes.begin() + static_cast<long>(p + e.length));
        p += e.length;
        out.push_back(e);
    }
    return out;
}

/// The element of that tag; an empty one when absent.
Element find(const std::vector<Element> &elements, uint16_t group, uint16_t element)
{
    for (const Element &e : elements)
        if (e.group == group && e.element == element)
            return e;
    return Element();
}

Bytes encode(Dicom3Element &e, dicom::enCoding enc, int *result = nullptr)
{
    return writtenBytes([&](FILE *f) { return e.write(f, enc, 0); }, result);
}

/// The explicit VR header of (0009,1020), worked out from the standard's
/// rules: OB, OW, UN and UT have two reserved bytes and a 32-bit length.
Bytes header(dicom::valRep vr, size_t length, dicom::enCoding enc)
{
    const char *name = &"AEASATCSDADSDTFLFDISLOLTPNSHSLSSSTTMUIULUSOBOWSQUNUT"[2 * vr];
    const bool big = enc == BE;
    const bool longLength =
        vr == dicom::OB || vr == dicom::OW || vr == dicom::UN || vr == dicom::UT;
    Bytes h = big ? Bytes{0x00, 0x09, 0x10, 0x20} : Bytes{0x09, 0x00, 0x20, 0x10};
    h.push_back(static_cast<unsigned char>(name[0]));
    h.push_back(static_cast<unsigned char>(name[1]));
    const int n = longLength ? 4 : 2;
    if (longLength)
        h.insert(h.end(), {0, 0});
    for (int i = 0; i < n; ++i)
        h.push_back(static_cast<unsigned char>(length >> (8 * (big ? n - 1 - i : i))));
    return h;
}

/// 5 x 3 x 2 unsigned bytes 0..29 in a box of 0..2, 0..1, 10..12.5: voxel
/// size 0.5 x 0.5 x 2.5.
std::unique_ptr<VxUniformScalarField3> smallByteVolume()
{
    std::vector<unsigned char> values(30);
    for (int i = 0; i < 30; ++i)
        values[static_cast<size_t>(i)] = static_cast<unsigned char>(i);
    const int dims[3] = {5, 3, 2};
    const float bbox[6] = {0.f, 2.f, 0.f, 1.f, 10.f, 12.5f};
    return uniformField(dims, values, bbox);
}

std::string elementText(const Dicom3Object &object, uint16_t g, uint16_t e)
{
    const Dicom3Element *element = object.findElement(g, e);
    if (!element || !element->getData())
        return std::string();
    return std::string(reinterpret_cast<const char *>(element->getData()),
                       static_cast<size_t>(element->getValueLength()));
}

/// Every group length must equal the bytes of the group that follow it.
void expectGroupLengthsMatchTheLayout(const std::vector<Element> &elements)
{
    for (size_t i = 0; i < elements.size(); ++i) {
        if (elements[i].element != 0)
            continue;
        size_t end = i + 1;
        while (end < elements.size() && elements[end].group == elements[i].group)
            ++end;
        const size_t groupEnd = end < elements.size()
                                    ? elements[end].offset
                                    : elements.back().offset + 12 + elements.back().length;
        EXPECT_EQ(elements[i].vr, "UL");
        EXPECT_EQ(elements[i].number(), groupEnd - elements[i].offset - 12)
            << "group length of group " << std::hex << elements[i].group;
    }
}

/// 4 x 3 x n2 unsigned bytes, value = slice index + 1 everywhere in a slice.
std::unique_ptr<VxUniformScalarField3> slicesOfOnes(int n2)
{
    const int dims[3] = {4, 3, n2};
    std::vector<unsigned char> values(static_cast<size_t>(12 * n2));
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<unsigned char>(i / 12 + 1);
    const float bbox[6] = {0.f, 3.f, 0.f, 2.f, 0.f, static_cast<float>(n2 - 1)};
    return uniformField(dims, values, bbox);
}

/// Clears the work area's observer on every path.
struct ObserverScope
{
    explicit ObserverScope(VxWorkArea::Observer o) { VxWorkArea::instance()->setObserver(o); }
    ~ObserverScope() { VxWorkArea::instance()->setObserver({}); }
};

} // namespace

TEST(Dicom3ElementEncoding, EveryKindOfValueIsFramedInEitherByteOrderAndPaddedWithZero)
{
    using Set = std::function<void(Dicom3Element &)>;
    auto chars = [](const char *s) -> Set {
        return [s](Dicom3Element &e) { e.setCharStringData(s, -2); };
    };
    auto cell = [](const char *s) -> Set {
        return [s](Dicom3Element &e) { e.setTableDataString(s); };
    };
    const unsigned char version[2] = {0x00, 0x01};
    struct Row
    {
        dicom::valRep vr;
        dicom::enCoding enc;
        Set set;
        Bytes value;
        const char *reason;
        bool hostOrder = false; ///< expected bytes worked out for a little-endian host
    };
    const Row rows[] = {
        {dicom::US,
         LE,
         [](Dicom3Element &e) { e.setU16bitData(0x0102); },
         {0x02, 0x01},
         "US little"},
        {dicom::US, BE, [](Dicom3Element &e) { e.setU16bitData(0x0102); }, {0x01, 0x02}, "US big"},
        {dicom::UL,
         BE,
         [](Dicom3Element &e) { e.setU32bitData(0x01020304); },
         {1, 2, 3, 4},
         "UL big"},
        {dicom::OB, LE, [&](Dicom3Element &e) { e.setU8bitStringData(version, 2); }, {0, 1}, "OB"},
        {dicom::UN,
         LE,
         [](Dicom3Element &e) { e.setU8bitData(7); },
         {7, 0},
         "one byte padded to two"},
        {dicom::UT, BE, chars("abc"), cat(text("abc"), {0}), "UT big, padded"},
        {dicom::IS, LE, [](Dicom3Element &e) { e.setISData(-12345); }, text("-12345"), "IS even"},
        {dicom::IS, LE, [](Dicom3Element &e) { e.setISData(123); }, cat(text("123"), {0}),
         "IS odd"},
        {dicom::AT,
         BE,
         [](Dicom3Element &e) { e.setAttributeData(0x0018, 0x1063); },
         {0x00, 0x18, 0x10, 0x63},
         "AT: group then element"},
        // The pad of text VRs is 0x00, not the blank DICOM asks for: files
        // written before depend on it.
        {dicom::CS, LE, chars("MR"), text("MR"), "even: no pad"},
        {dicom::CS, LE, chars("CT1"), cat(text("CT1"), {0}), "odd CS"},
        {dicom::PN, BE, chars("Unknown"), cat(text("Unknown"), {0}), "odd PN"},
        {dicom::UI, LE, chars("1.2.3"), cat(text("1.2.3"), {0}), "odd UI"},
        {dicom::DS, LE, chars("12.250000 "), text("12.250000 "), "a trailing blank stays"},
        {dicom::ST, LE,
         [](Dicom3Element &e) { e.setCharStringData(std::string(2000, 'x').c_str(), 2000); },
         text(std::string(1024, 'x')), "ST holds at most 1024 characters"},
        {dicom::LO, LE,
         [](Dicom3Element &e) { e.setCharStringData(std::string(70, 'x').c_str(), 70); },
         text(std::string(70, 'x')), "LO may hold several values: never clamped"},
        {dicom::AE, LE, chars(""), {}, "empty value"},
        // Cell texts of the element table, each VR read its own way.
        {dicom::LO, LE, cell("  Head   First "), text("Head First"), "white space normalised"},
        {dicom::DA, LE, cell("2024.06.07"), text("20240607"), "dots removed"},
        {dicom::TM, LE, cell("12:34:56.50"), cat(text("123456.50"), {0}), "colons removed"},
        {dicom::DT, LE, cell("240607 12:34:56"), text("240607123456"), "blank at 6 dropped"},
        {dicom::AT, LE, cell("0010,0020"), {10, 0, 20, 0}, "pairs read as decimal"},
        {dicom::AT, LE, cell("0102,0304"), {2, 1, 4, 3}, "1*256+2 and 3*256+4"},
        {dicom::FL, LE, cell("1.5"), {0x00, 0x00, 0xC0, 0x3F}, "IEEE single 0x3FC00000"},
        {dicom::SL, LE, cell("-1"), {0xFF, 0xFF, 0xFF, 0xFF}, "two's complement"},
        {dicom::UL, LE, cell("70000"), {0x70, 0x11, 0x01, 0x00}, "0x00011170"},
        {dicom::SS, LE, cell("-2"), {0xFE, 0xFF}, "two's complement"},
        {dicom::US, LE, cell("513"), {0x01, 0x02}, "0x0201"},
        {dicom::FD, LE, cell("2.5"), cat(text("2.5"), {0}), "FD keeps the bytes of its text"},
        {dicom::OW, LE, cell("ABC"), text(std::string("ABC\0", 4)), "OW: host words", true},
        {dicom::OW, BE, cell("ABC"), text(std::string("BA\0C", 4)), "OW: swapped words", true},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.reason);
        const unsigned short one = 1;
        if (row.hostOrder && *reinterpret_cast<const unsigned char *>(&one) != 1)
            continue;
        Dicom3Element e(0x0009, 0x1020, row.vr);
        row.set(e);
        int result = 0;
        const Bytes expected = cat(header(row.vr, row.value.size(), row.enc), row.value);
        EXPECT_EQ(encode(e, row.enc, &result), expected);
        EXPECT_EQ(result, 2 * static_cast<int>(expected.size())) << "twice the bytes written";
        EXPECT_EQ(e.write(nullptr, row.enc, 1), static_cast<int>(expected.size()))
            << "sizeOnly gives the true size and needs no file";
    }
}
TEST(Dicom3ObjectLayout, TwoSlicesOfASmallByteVolumeMatchTheLayoutWorkedOutByHand)
{
    auto field = smallByteVolume();
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    const Bytes bytes = writeCurrentSlice(object);
    ASSERT_GT(bytes.size(), 132u);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 132), cat(Bytes(128, 0), text("DICM")));

    const std::vector<Element> first = walk(bytes);
    std::vector<std::pair<uint16_t, uint16_t>> tags;
    for (const Element &e : first)
        tags.emplace_back(e.group, e.element);
    const std::vector<std::pair<uint16_t, uint16_t>> expectedTags = {
        {0x0002, 0x0000}, {0x0002, 0x0001}, {0x0002, 0x0002}, {0x0002, 0x0003}, {0x0002, 0x0010},
        {0x0002, 0x0012}, {0x0002, 0x0013}, {0x0008, 0x0000}, {0x0008, 0x0014}, {0x0008, 0x0016},
        {0x0008, 0x0018}, {0x0008, 0x0020}, {0x0008, 0x0030}, {0x0008, 0x0050}, {0x0008, 0x0060},
        {0x0008, 0x0070}, {0x0008, 0x0090}, {0x0010, 0x0000}, {0x0010, 0x0010}, {0x0010, 0x0020},
        {0x0010, 0x0030}, {0x0010, 0x0040}, {0x0018, 0x0000}, {0x0018, 0x0050}, {0x0020, 0x0000},
        {0x0020, 0x000D}, {0x0020, 0x000E}, {0x0020, 0x0010}, {0x0020, 0x0011}, {0x0020, 0x0012},
        {0x0020, 0x0013}, {0x0020, 0x0032}, {0x0020, 0x0037}, {0x0020, 0x1041}, {0x0028, 0x0000},
        {0x0028, 0x0002}, {0x0028, 0x0004}, {0x0028, 0x0010}, {0x0028, 0x0011}, {0x0028, 0x0030},
        {0x0028, 0x0100}, {0x0028, 0x0101}, {0x0028, 0x0102}, {0x0028, 0x0103}, {0x0028, 0x1052},
        {0x0028, 0x1053}, {0x7FE0, 0x0010}};
    ASSERT_EQ(tags, expectedTags);
    expectGroupLengthsMatchTheLayout(first);
    EXPECT_EQ(Bytes(bytes.begin() + 132, bytes.begin() + 140),
              (Bytes{0x02, 0x00, 0x00, 0x00, 'U', 'L', 0x04, 0x00}));
    EXPECT_EQ(Bytes(bytes.begin() + 144, bytes.begin() + 192),
              cat({0x02, 0x00, 0x01, 0x00, 'O',  'B',  0,    0,   0x02, 0,    0,
                   0,    0x00, 0x01, 0x02, 0x00, 0x02, 0x00, 'U', 'I',  0x1A, 0x00},
                  text(padded("1.2.840.10008.5.1.4.1.1.4"))));
    const Element instance = find(first, 0x0002, 0x0003);
    EXPECT_EQ(instance.value, find(first, 0x0008, 0x0018).value) << "one UID for both";
    EXPECT_EQ(instance.text().rfind(std::string(creatorUID) + ".", 0), 0u);
    EXPECT_LE(instance.length, 64u);

    // Text values, padded with 0x00 to even lengths.
    const std::string today = getDicomDate().toStdString();
    const std::pair<std::pair<uint16_t, uint16_t>, std::string> values[] = {
        {{0x0002, 0x0010}, padded("1.2.840.10008.1.2.1")},
        {{0x0002, 0x0012}, padded(creatorUID)},
        {{0x0002, 0x0013}, padded(VxSkin::instance()->versionText().toStdString())},
        {{0x0008, 0x0016}, padded("1.2.840.10008.5.1.4.1.1.4")},
        {{0x0008, 0x0020}, today},
        {{0x0010, 0x0030}, today}, // birth date is today on purpose
        {{0x0020, 0x0011}, padded(std::to_string(object.getSeed()))},
        {{0x0018, 0x0050}, "2.500000"},
        {{0x0020, 0x0012}, padded("0")},
        {{0x0020, 0x0013}, padded("0")}, // instances count from 0
        {{0x0020, 0x0032}, padded("0.000000\\0.000000\\10.000000")},
        {{0x0020, 0x0037}, padded("1.000000\\0.000000\\0.000000\\0.000000\\1.000000\\0.000000")},
        {{0x0020, 0x1041}, "10.000000 "},
        {{0x0028, 0x0004}, padded("MONOCHROME2")},
        {{0x0028, 0x0030}, padded("0.500000\\0.500000")},
        {{0x0028, 0x1052}, "0.000000"},
        {{0x0028, 0x1053}, "1.000000"},
    };
    for (const auto &[tag, value] : values)
        EXPECT_EQ(find(first, tag.first, tag.second).text(), value)
            << std::hex << tag.first << "," << tag.second;
    // Group 0028 as the image module of 3 rows of 5 unsigned bytes asks.
    const std::pair<uint16_t, uint32_t> numbers[] = {{0x0000, 148}, {0x0002, 1}, {0x0010, 3},
                                                     {0x0011, 5},   {0x0100, 8}, {0x0101, 8},
                                                     {0x0102, 7},   {0x0103, 0}};
    for (const auto &[element, value] : numbers)
        EXPECT_EQ(find(first, 0x0028, element).number(), value) << std::hex << element;
    const std::string studyId = find(first, 0x0020, 0x0010).text();
    EXPECT_EQ(studyId.size(), 16u);
    EXPECT_EQ(studyId.substr(0, 8), today);
    Bytes pixels = {0xE0, 0x7F, 0x10, 0x00, 'O', 'B', 0, 0, 0x10, 0, 0, 0};
    for (int i = 0; i < 16; ++i)
        pixels.push_back(static_cast<unsigned char>(i < 15 ? i : 0));
    EXPECT_EQ(Bytes(bytes.end() - static_cast<long>(pixels.size()), bytes.end()), pixels)
        << "pixel data last, without group length, padded";

    // The second slice changes only what belongs to the slice.
    EXPECT_EQ(object.setSlice(1), 15);
    const std::vector<Element> second = walk(writeCurrentSlice(object));
    expectGroupLengthsMatchTheLayout(second);
    EXPECT_NE(find(first, 0x0008, 0x0018).value, find(second, 0x0008, 0x0018).value);
    EXPECT_EQ(find(second, 0x0002, 0x0003).value, find(second, 0x0008, 0x0018).value);
    EXPECT_EQ(find(first, 0x0020, 0x000E).value, find(second, 0x0020, 0x000E).value);
    EXPECT_EQ(find(first, 0x0020, 0x000D).value, find(second, 0x0020, 0x000D).value);
    EXPECT_EQ(find(second, 0x0020, 0x0012).text(), padded("1"));
    EXPECT_EQ(find(second, 0x0020, 0x0013).text(), padded("1"));
    EXPECT_EQ(find(second, 0x0020, 0x0032).text(), padded("0.000000\\0.000000\\12.500000"));
    EXPECT_EQ(find(second, 0x0020, 0x1041).text(), "12.500000 ");
    Bytes samples;
    for (int i = 15; i < 31; ++i)
        samples.push_back(static_cast<unsigned char>(i < 30 ? i : 0));
    EXPECT_EQ(find(second, 0x7FE0, 0x0010).value, samples);
    EXPECT_EQ(find(walk(writeCurrentSlice(object)), 0x0008, 0x0018).value,
              find(second, 0x0008, 0x0018).value)
        << "writing twice without setSlice writes the same file";
}

TEST(Dicom3ObjectModules, StackedSlicesAndUnitFactorsGiveTheImagePlaneTexts)
{
    // A stacked field whose second slice sits at z = 12.25.
    const int dims[3] = {5, 3, 2};
    VxStackedScalarField3 stacked(dims, KcPrimType::UInt8, std::calloc(30, 1));
    const float box[6] = {0.f, 2.f, 0.f, 1.f, 0.f, 0.f};
    stacked.lattice()->setBoundingBox(box);
    const float z[2] = {12.0f, 12.25f};
    ASSERT_TRUE(stacked.lattice()->setSliceCoords(z, 2));
    Dicom3Object object(&stacked);
    ASSERT_EQ(object.generate(), 1);
    EXPECT_EQ(elementText(object, 0x0018, 0x0050), "0.250000");
    ASSERT_EQ(object.setSlice(1), 15);
    EXPECT_EQ(elementText(object, 0x0020, 0x1041), "12.250000 ");

    // A unit factor of 10 (centimetres to millimetres) and a translated field.
    const int cube[3] = {2, 2, 2};
    const float unitBox[6] = {0.f, 0.25f, 0.f, 0.25f, 0.f, 0.25f};
    auto moved = uniformField(cube, std::vector<unsigned char>(8, 1), unitBox);
    SbMatrix shift;
    shift.setTranslate(SbVec3f(1.f, 2.f, 3.f));
    moved->setTransform(shift);
    Dicom3Object scaled(moved.get());
    scaled.setLengthUnitFactor(10.f);
    ASSERT_EQ(scaled.generate(), 1);
    EXPECT_EQ(elementText(scaled, 0x0028, 0x0030), "2.500000\\2.500000");
    ASSERT_EQ(scaled.setSlice(1), 4);
    EXPECT_EQ(elementText(scaled, 0x0020, 0x0032), "10.000000\\20.000000\\32.500000");

    // The Ziehm reconstruction leaves out identity, UIDs and group lengths.
    vxtest::ScopedEnv ziehm("ZENTA_ZIEHM_RECONSTRUCTION", "1");
    Dicom3Object reconstruction(moved.get());
    ASSERT_EQ(reconstruction.generate(), 1);
    const std::vector<Element> left = walk(writeCurrentSlice(reconstruction));
    for (const Element &e : left)
        EXPECT_TRUE(e.element != 0 && e.group != 0x0010 &&
                    !(e.group == 0x0002 && e.element >= 0x0003 && e.element != 0x0010) &&
                    !(e.group == 0x0008 && e.element != 0x0016) &&
                    !(e.group == 0x0020 && e.element <= 0x0012))
            << std::hex << e.group << "," << e.element;
    for (const auto &[g, e] : {std::pair{0x0002, 0x0010},
                               {0x0008, 0x0016},
                               {0x0020, 0x0013},
                               {0x0020, 0x0032},
                               {0x0028, 0x0010},
                               {0x7FE0, 0x0010}})
        EXPECT_EQ(find(left, static_cast<uint16_t>(g), static_cast<uint16_t>(e)).group, g)
            << std::hex << g << "," << e;
}

TEST(Dicom3ObjectLifecycle, RefusedCallsAreReportedAndChangeNothing)
{
    auto field = smallByteVolume();
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    const Bytes before = writeCurrentSlice(object);
    VxMessageCapture capture;
    EXPECT_EQ(object.generate(), -1);
    EXPECT_EQ(object.setSlice(2), -1);
    EXPECT_EQ(writeCurrentSlice(object), before);
    Dicom3Object none(static_cast<VxUniformScalarField3 *>(nullptr));
    EXPECT_EQ(none.generate(), -1);
    Dicom3Object multiFrame(field.get());
    multiFrame.setSOPClassIndex(5); // 5..8 are the multi-frame Secondary Capture classes
    EXPECT_EQ(multiFrame.generate(), -1);
    EXPECT_EQ(multiFrame.findElement(0x0008, 0x0016), nullptr);
    // A slice of more than 2 GiB cannot be given a 32-bit size; the view has
    // no samples, nothing is ever read from it.
    const int hugeDims[3] = {INT_MAX - 7, 1, 1};
    KcRawData3D huge(nullptr, hugeDims, KcPrimType::UInt8);
    auto *pixels = new Dicom3Element(0x7FE0, 0x0010, dicom::OB);
    ASSERT_GT(pixels->setRawDataPtr(&huge, KcPrimType::UInt8, 1, 2, 0), 0);
    EXPECT_EQ(none.insertElement(pixels, -2), -1);
    EXPECT_EQ(none.numGroups(), 0) << "no empty group is left behind";
    EXPECT_EQ(capture.text(), "Dicom3Object: You can call generate() only once.\n"
                              "Dicom3Object: Invalid input field.\n"
                              "Dicom3Object:: unsupported SOP Class.\n"
                              "Element not inserted 7FE0-10\n");

    Dicom3Group group(0x0008);
    auto *ct = new Dicom3Element(0x0008, 0x0060, dicom::CS);
    EXPECT_EQ(group.insertElement(ct), 1);
    EXPECT_EQ(group.insertElement(ct), 1) << "the same element again is not destroyed";
    ASSERT_EQ(group.numElements(), 1);
    EXPECT_EQ(group.element(0), ct);
}
TEST(Dicom3Writer, WritesOneFilePerSliceInSortedNamesWithProgress)
{
    EXPECT_EQ(dicom3SliceFileName("CT", 0, 100000), "CT000001.dcm") << "more digits when needed";
    vxtest::TempDir dir;
    auto field = slicesOfOnes(3);
    Dicom3Object object(field.get());
    ASSERT_EQ(object.generate(), 1);
    std::vector<float> fractions;
    std::string status;
    ObserverScope observe([&](const std::string &s, float f) {
        status = s;
        fractions.push_back(f);
    });
    QStringList written;
    const std::string out = dir.file("nested/out");
    EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(out), "IM", &written), 3);
    EXPECT_EQ(written.size(), 3);
    EXPECT_EQ(status, "Writing DICOM files");
    ASSERT_FALSE(fractions.empty());
    EXPECT_FLOAT_EQ(fractions.back(), 1.0f);
    EXPECT_FALSE(VxWorkArea::instance()->isShowingProgress()) << "progress ends with the write";
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(out))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names, (std::vector<std::string>{"IM00001.dcm", "IM00002.dcm", "IM00003.dcm"}));
    for (int k = 0; k < 3; ++k) {
        const std::vector<Element> elements = walk(vxtest::readFileBytes(out + "/" + names[k]));
        EXPECT_EQ(find(elements, 0x0020, 0x0013).text(), padded(std::to_string(k)));
        EXPECT_EQ(find(elements, 0x7FE0, 0x0010).value,
                  Bytes(12, static_cast<unsigned char>(k + 1)));
    }
}

TEST(Dicom3Writer, EveryFailureNamesTheFileAndTheCountWrittenAndKeepsWhatWasWritten)
{
    auto interrupt = [](const fs::path &) { // Ctrl-C after the first file
        VxWorkArea::instance()->setObserver([](const std::string &, float f) {
            if (f > 0.f)
                VxWorkArea::instance()->interrupt();
        });
    };
    // Each row: what goes wrong, the file named (@), the message, the first
    // file not written.
    const std::tuple<const char *, std::function<void(const fs::path &)>, const char *,
                     const char *, const char *>
        rows[] = {
            {"a folder in the way of slice 1",
             [](const fs::path &d) { fs::create_directory(d / "IM00002.dcm"); }, "IM00002.dcm",
             "cannot open @ for writing: Is a directory; 1 of 3 files written", "IM00003.dcm"},
            {"a full disk",
             [](const fs::path &d) { fs::create_symlink("/dev/full", d / "IM00001.dcm"); },
             "IM00001.dcm",
             "writing @ failed: No space left on device; 0 of 3 files written, the incomplete file "
             "is left in place",
             "IM00002.dcm"},
            {"an interrupt", interrupt, "IM00002.dcm", "interrupted before @; 1 of 3 files written",
             "IM00002.dcm"},
            {"generate() not called", nullptr, "", "nothing to write", "IM00001.dcm"},
        };
    for (const auto &[why, prepare, file, message, absent] : rows) {
        SCOPED_TRACE(why);
        vxtest::TempDir dir;
        ObserverScope reset({});
        if (prepare)
            prepare(dir.path());
        auto field = slicesOfOnes(3);
        Dicom3Object object(field.get());
        EXPECT_EQ(prepare ? object.generate() : 1, 1);
        VxMessageCapture capture;
        EXPECT_EQ(writeDicom3Slices(object, QString::fromStdString(dir.path().string())), -1);
        std::string expected = std::string("Dicom export: ") + message;
        if (expected.find('@') != std::string::npos)
            expected.replace(expected.find('@'), 1, dir.file(file));
        EXPECT_TRUE(capture.contains(expected)) << capture.text();
        EXPECT_TRUE(!prepare || fs::exists(dir.path() / "IM00001.dcm")) << "written files are kept";
        EXPECT_FALSE(fs::exists(dir.path() / absent));
    }
}
