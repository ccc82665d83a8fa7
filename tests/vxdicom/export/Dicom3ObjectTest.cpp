#include "Dicom3TestUtil.h"

#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "platform/gui/VxSkin.h"
#include "vxdicom/params/DicomUid.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <Inventor/SbLinear.h>

#include <gtest/gtest.h>

#include <climits>

using namespace dicom3test;

namespace {

/// 5 x 3 x 2 unsigned bytes 0..29 in a box of 0..2, 0..1, 10..12.5: voxel
/// size 0.5 x 0.5 x 2.5.
std::unique_ptr<VxUniformScalarField3> smallByteVolume()
{
    std::vector<unsigned char> values(30);
    for (int i = 0; i < 30; ++i)
        values[static_cast<size_t>(i)] = static_cast<unsigned char>(i);
    const int dims[3] = {5, 3, 2};
    const float bbox[6] = {0.f, 2.f, 0.f, 1.f, 10.f, 12.5f};
    return uniformField(dims, KcPrimType::UInt8, values, bbox);
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

} // namespace

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
    auto moved = uniformField(cube, KcPrimType::UInt8, std::vector<unsigned char>(8, 1), unitBox);
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
        EXPECT_TRUE(has(left, static_cast<uint16_t>(g), static_cast<uint16_t>(e)))
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
