// Every real scanner file in ../shared/data against pydicom and GDCM.

#include "tests/platform/dicom/DicomTestSupport.h"
#include "tests/support/TestSupport.h"

#include "platform/core/VxMessage.h"

#include <QJsonArray>

#include <algorithm>

#include <cstdio>
#include <cstdlib>

#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

namespace {

using dicomtest::DicomPtr;

// pydicom's view of every shared file, computed once for the suite.
class SharedFiles : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        files = vxtest::sharedDicomFiles();
        if (files.empty() || !dicomtest::havePydicom())
            return;
        reference = dicomtest::runReference("info", files, &referenceError);
    }
    void SetUp() override
    {
        VX_REQUIRE_SHARED_DATA();
        if (!dicomtest::havePydicom())
            GTEST_SKIP() << "pydicom and numpy are needed for " VX_PYTHON;
        ASSERT_FALSE(reference.isEmpty()) << referenceError;
    }
    static QJsonObject ref(const std::string &path)
    {
        return reference.value(QString::fromStdString(path)).toObject();
    }

    static std::vector<std::string> files;
    static QJsonObject reference;
    static std::string referenceError;
};

std::vector<std::string> SharedFiles::files;
QJsonObject SharedFiles::reference;
std::string SharedFiles::referenceError;

TEST_F(SharedFiles, EveryFileParsesAsPydicomReadsIt)
{
    ASSERT_GT(files.size(), 300u);
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const QJsonObject r = ref(path);
        ASSERT_FALSE(r.contains("error")) << r.value("error").toString().toStdString();
        std::string why;
        DicomPtr d = dicomtest::read(path, true, &why);
        ASSERT_TRUE(d) << why;
        EXPECT_EQ(d->transferSyntaxUID, r.value("transferSyntax").toString().toStdString());
        EXPECT_FALSE(d->transferSyntaxName.empty());
        EXPECT_EQ(d->rows, r.value("rows").toInt());
        EXPECT_EQ(d->columns, r.value("columns").toInt());
        EXPECT_EQ(d->bitsAllocated, r.value("bitsAllocated").toInt());
        EXPECT_EQ(d->samplesPerPixel, r.value("samplesPerPixel").toInt());
        EXPECT_EQ(d->frames, r.value("frames").toInt());
        EXPECT_EQ(d->pixelsInFile, r.value("hasPixels").toBool());
        EXPECT_EQ(d->isDicomDir, r.value("isDicomDir").toBool());
        EXPECT_EQ(d->numElements, r.value("elements").toInt());
        EXPECT_EQ(d->pixelData, nullptr) << "a delayed read holds no pixels";
        if (d->pixelsInFile) {
            EXPECT_EQ(d->frameSize, d->rows * d->columns * d->samplesPerPixel * d->bytesPerSample);
            EXPECT_NE(d->compression, dicom::COMPRESSION_UNSUPPORTED);
        }
    }
}

// Native and RLE files: pydicom's pixel bytes. JPEG, JPEG-LS and JPEG 2000:
// GDCM's decode (gdcmconv --raw), read back by pydicom.
TEST_F(SharedFiles, EveryFileDecodesAsPydicomOrGdcmDoes)
{
    std::vector<std::string> needGdcm;
    int compared = 0;
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const QJsonObject r = ref(path);
        if (!r.value("hasPixels").toBool())
            continue;
        std::string why;
        DicomPtr full = dicomtest::read(path, false, &why);
        ASSERT_TRUE(full) << why;
        ASSERT_NE(full->pixelData, nullptr);
        EXPECT_FALSE(full->pixelsInFile);
        const std::vector<unsigned char> pixels = dicomtest::fullPixels(*full);

        DicomPtr delayed = dicomtest::read(path, true, &why);
        ASSERT_TRUE(delayed) << why;
        const std::vector<unsigned char> frames = dicomtest::decodeFrames(*delayed, &why);
        ASSERT_FALSE(frames.empty()) << why;
        EXPECT_TRUE(frames == pixels) << "delayed and full reads differ";

        if (r.value("pixelSha256").isString()) {
            EXPECT_EQ(dicomtest::sha256(pixels), r.value("pixelSha256").toString().toStdString());
            ++compared;
        } else {
            needGdcm.push_back(path);
        }
    }
    EXPECT_GT(compared, 300);
    if (needGdcm.empty())
        return;
    if (!vxtest::haveProgram("gdcmconv"))
        GTEST_SKIP() << needGdcm.size() << " compressed files not compared: gdcmconv is missing";
    vxtest::TempDir dir;
    std::vector<std::string> raws;
    for (size_t i = 0; i < needGdcm.size(); ++i) {
        const std::string out = dir.file("raw" + std::to_string(i) + ".dcm");
        ASSERT_EQ(vxtest::runCommand("gdcmconv --raw " + vxtest::shellQuote(needGdcm[i]) + " " +
                                     vxtest::shellQuote(out)),
                  0)
            << needGdcm[i];
        raws.push_back(out);
    }
    std::string error;
    const QJsonObject gdcm = dicomtest::runReference("info", raws, &error);
    ASSERT_FALSE(gdcm.isEmpty()) << error;
    for (size_t i = 0; i < needGdcm.size(); ++i) {
        SCOPED_TRACE(needGdcm[i]);
        DicomPtr full = dicomtest::read(needGdcm[i], false);
        ASSERT_TRUE(full);
        const QJsonObject g = gdcm.value(QString::fromStdString(raws[i])).toObject();
        ASSERT_TRUE(g.value("pixelSha256").isString());
        EXPECT_EQ(dicomtest::sha256(dicomtest::fullPixels(*full)),
                  g.value("pixelSha256").toString().toStdString());
    }
}

bool isPrivateCreator(uint16_t g, uint16_t e)
{
    return (g & 1) && e >= 0x0010 && e <= 0x00FF;
}

// Element bytes as the file holds them, compared with the bytes pydicom finds
// at the same place. DCMTK rewrites the padding of private creators while
// parsing, so only their length is compared.
TEST_F(SharedFiles, ElementBytesAreTheFileBytes)
{
    std::string error;
    const QJsonObject raw = dicomtest::runReference("elements", files, &error);
    ASSERT_FALSE(raw.isEmpty()) << error;
    int elements = 0, sequences = 0, bigEndian = 0, implicit = 0;
    std::vector<std::string> sequenceDiffs;
    for (const std::string &path : files) {
        SCOPED_TRACE(path);
        const QJsonValue v = raw.value(QString::fromStdString(path));
        ASSERT_TRUE(v.isArray()) << v.toObject().value("error").toString().toStdString();
        const QJsonArray expected = v.toArray();
        DicomPtr d = dicomtest::read(path, true);
        ASSERT_TRUE(d);
        // pydicom stops before Pixel Data; so does the layer, which lists it last.
        int n = d->numElements;
        if (n > 0 && d->elements[n - 1].group == 0x7FE0 && d->elements[n - 1].element == 0x0010)
            --n;
        ASSERT_EQ(n, expected.size());
        for (int i = 0; i < n; ++i) {
            const dicom::dicomDataElement &e = d->elements[i];
            const QJsonObject x = expected[i].toObject();
            char tag[9];
            std::snprintf(tag, sizeof tag, "%04X%04X", e.group, e.element);
            ASSERT_EQ(tag, x.value("tag").toString().toStdString());
            const std::string vr = x.value("vr").toString().toStdString();
            EXPECT_EQ(std::string(e.vr, 2), vr.empty() ? "  " : vr) << tag;
            const bool sequence =
                vr == "SQ" ||
                (vr.empty() && dicom::dicomDictionaryType(e.group, e.element) == dicom::SQ);
            const std::string sha = e.data ? dicomtest::sha256(e.data, size_t(e.length))
                                           : dicomtest::sha256(nullptr, 0);
            if (sequence) {
                ++sequences;
                if (e.length != x.value("length").toInt() ||
                    sha != x.value("sha256").toString().toStdString())
                    sequenceDiffs.push_back(path + " " + tag);
                continue;
            }
            EXPECT_EQ(e.length, x.value("length").toInt()) << tag;
            if (!isPrivateCreator(e.group, e.element)) {
                EXPECT_EQ(sha, x.value("sha256").toString().toStdString()) << tag;
            }
            ++elements;
        }
        bigEndian += d->bigEndian;
        implicit += !d->explicitVR;
    }
    EXPECT_GT(elements, 30000);
    EXPECT_GT(sequences, 100);
    EXPECT_GE(bigEndian, 1);
    EXPECT_GE(implicit, 1);
    EXPECT_TRUE(sequenceDiffs.empty()) << sequenceDiffs.size() << " of " << sequences
                                       << " sequences differ, first " << sequenceDiffs[0];
}

// dcm_qa_ts: one image in nine transfer syntaxes (README: 1 explicit LE,
// 2 implicit LE, 3 explicit BE, 4 RLE, 5+6 JPEG lossless, 7+8 JPEG-LS,
// 9 JPEG 2000 lossless); the decoded pixels are identical.
class TransferSyntaxSet : public ::testing::Test
{
protected:
    void SetUp() override { VX_REQUIRE_SHARED_DATA(); }
    static std::string file(int n)
    {
        return vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm");
    }
};

TEST_F(TransferSyntaxSet, AllNineSyntaxesDecodeToTheSamePixels)
{
    const dicom::Compression expected[] = {
        dicom::COMPRESSION_NONE,   dicom::COMPRESSION_NONE,   dicom::COMPRESSION_NONE,
        dicom::COMPRESSION_RLE,    dicom::COMPRESSION_JPEG,   dicom::COMPRESSION_JPEG,
        dicom::COMPRESSION_JPEGLS, dicom::COMPRESSION_JPEGLS, dicom::COMPRESSION_JPEG2000};
    DicomPtr first = dicomtest::read(file(1), false);
    ASSERT_TRUE(first);
    const std::vector<unsigned char> reference = dicomtest::fullPixels(*first);
    ASSERT_EQ(reference.size(), 384u * 384u * 2u);
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(file(n));
        std::string why;
        DicomPtr d = dicomtest::read(file(n), true, &why);
        ASSERT_TRUE(d) << why;
        EXPECT_EQ(d->compression, expected[n - 1]);
        EXPECT_EQ(d->photometric, "MONOCHROME2");
        EXPECT_EQ(d->planarConfiguration, 0);
        EXPECT_TRUE(dicomtest::decodeFrames(*d, &why) == reference) << why;
        DicomPtr full = dicomtest::read(file(n), false, &why);
        ASSERT_TRUE(full) << why;
        EXPECT_TRUE(dicomtest::fullPixels(*full) == reference);
    }
}

TEST_F(TransferSyntaxSet, ByteOrderAndVRFormAreReported)
{
    DicomPtr le = dicomtest::read(file(1), true);
    DicomPtr implicit = dicomtest::read(file(2), true);
    DicomPtr be = dicomtest::read(file(3), true);
    ASSERT_TRUE(le && implicit && be);
    EXPECT_FALSE(le->bigEndian);
    EXPECT_TRUE(le->explicitVR);
    EXPECT_FALSE(implicit->bigEndian);
    EXPECT_FALSE(implicit->explicitVR);
    EXPECT_TRUE(be->bigEndian);
    EXPECT_TRUE(be->explicitVR);
    EXPECT_EQ(be->transferSyntaxName, "Explicit VR Big Endian");
    EXPECT_EQ(implicit->transferSyntaxName, "Implicit VR Little Endian");

    // Rows is 384 = 0x0180: stored most significant byte first in the big
    // endian file, least significant first in the others.
    const dicom::dicomDataElement *rowsBe = dicom::dicomFindElement(be.get(), 0x0028, 0x0010);
    const dicom::dicomDataElement *rowsLe = dicom::dicomFindElement(le.get(), 0x0028, 0x0010);
    const dicom::dicomDataElement *rowsIm = dicom::dicomFindElement(implicit.get(), 0x0028, 0x0010);
    ASSERT_TRUE(rowsBe && rowsLe && rowsIm);
    ASSERT_EQ(rowsBe->length, 2);
    EXPECT_EQ(rowsBe->data[0], 0x01);
    EXPECT_EQ(rowsBe->data[1], 0x80);
    EXPECT_EQ(rowsLe->data[0], 0x80);
    EXPECT_EQ(rowsLe->data[1], 0x01);
    EXPECT_EQ(std::string(rowsBe->vr, 2), "US");
    EXPECT_EQ(std::string(rowsIm->vr, 2), "  ");
    EXPECT_STREQ(dicom::dicomGetById(be.get(), 0x0028, 0x0010), "384");
    EXPECT_STREQ(dicom::dicomGetById(implicit.get(), 0x0028, 0x0010), "384");
    // The meta group is explicit VR little endian in every file.
    const dicom::dicomDataElement *ts = dicom::dicomFindElement(implicit.get(), 0x0002, 0x0010);
    ASSERT_TRUE(ts);
    EXPECT_EQ(std::string(ts->vr, 2), "UI");
}

// The text of every element is the same whatever the encoding, where the
// values are equal (the files differ in series number and UIDs). Private
// attributes are left out: without a VR in the file their type is unknown.
TEST_F(TransferSyntaxSet, ElementTextDoesNotDependOnTheEncoding)
{
    DicomPtr le = dicomtest::read(file(1), true);
    ASSERT_TRUE(le);
    int compared = 0;
    for (int n : {2, 3}) {
        DicomPtr other = dicomtest::read(file(n), true);
        ASSERT_TRUE(other);
        for (int i = 0; i < le->numElements; ++i) {
            const dicom::dicomDataElement &e = le->elements[i];
            if (e.group == 0x0002 || (e.group & 1))
                continue;
            const dicom::dicomDataElement *o =
                dicom::dicomFindElement(other.get(), e.group, e.element);
            if (!o || o->length != e.length || !e.data)
                continue;
            const bool sameValue = std::memcmp(o->data, e.data, size_t(e.length)) == 0;
            const char *a = dicom::dicomGetById(le.get(), e.group, e.element);
            const char *b = dicom::dicomGetById(other.get(), e.group, e.element);
            if (std::string(e.vr, 2) == "SQ" || (!a && !b))
                continue;
            // Binary values differ in their bytes but not in their text.
            const std::string vr(e.vr, 2);
            const bool binary = vr == "US" || vr == "SS" || vr == "UL" || vr == "SL" ||
                                vr == "FL" || vr == "FD" || vr == "AT";
            if (!sameValue && !binary)
                continue; // a value that really differs between the files
            ASSERT_TRUE(a && b);
            EXPECT_STREQ(a, b) << n << ".dcm (" << std::hex << e.group << "," << e.element << ")";
            ++compared;
        }
    }
    EXPECT_GT(compared, 150);
}

} // namespace

namespace {

// The reader may run on a worker thread while another thread reads too.
TEST_F(TransferSyntaxSet, FilesAreReadOnSeveralThreadsAtOnce)
{
    std::vector<std::string> serial(9);
    for (int n = 1; n <= 9; ++n) {
        DicomPtr d = dicomtest::read(file(n), false);
        ASSERT_TRUE(d);
        serial[size_t(n - 1)] = dicomtest::sha256(dicomtest::fullPixels(*d));
    }
    std::vector<std::string> parallel(9 * 4);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &parallel] {
            for (int n = 1; n <= 9; ++n) {
                DicomPtr d = dicomtest::read(file(1 + (n + t) % 9), false);
                if (d)
                    parallel[size_t(t * 9 + (n + t) % 9)] =
                        dicomtest::sha256(dicomtest::fullPixels(*d));
                if (d)
                    dicom::dicomGetById(d.get(), 0x0010, 0x0010);
                dicom::dicomDictionaryName(0x0020, uint16_t(0x1041 + n));
            }
        });
    for (std::thread &t : threads)
        t.join();
    for (int t = 0; t < 4; ++t)
        for (int n = 0; n < 9; ++n)
            EXPECT_EQ(parallel[size_t(t * 9 + n)], serial[size_t(n)])
                << "thread " << t << " file " << n + 1;
}

} // namespace

namespace {

std::vector<std::string> splitValues(const std::string &text)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t at; (at = text.find('\\', begin)) != std::string::npos; begin = at + 1)
        parts.push_back(text.substr(begin, at - begin));
    parts.push_back(text.substr(begin));
    return parts;
}

std::string trimmed(const std::string &s)
{
    const size_t b = s.find_first_not_of(' ');
    const size_t e = s.find_last_not_of(' ');
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// dicomGetById against pydicom's values: strings without their padding,
// multiple values split at '\', numbers that read back to the same value.
TEST_F(SharedFiles, ElementTextAgreesWithPydicomValues)
{
    std::vector<std::string> sample;
    for (size_t i = 0; i < files.size(); i += 7)
        sample.push_back(files[i]);
    for (int n : {1, 2, 3})
        sample.push_back(vxtest::sharedPath("dcm_qa_ts/In/" + std::to_string(n) + ".dcm"));
    std::string error;
    const QJsonObject texts = dicomtest::runReference("texts", sample, &error);
    ASSERT_FALSE(texts.isEmpty()) << error;
    int strings = 0, numbers = 0, tags = 0;
    for (const std::string &path : sample) {
        SCOPED_TRACE(path);
        DicomPtr d = dicomtest::read(path, true);
        ASSERT_TRUE(d);
        const QJsonObject values = texts.value(QString::fromStdString(path)).toObject();
        for (auto it = values.begin(); it != values.end(); ++it) {
            const uint32_t tag = it.key().toUInt(nullptr, 16);
            const uint16_t g = uint16_t(tag >> 16), e = uint16_t(tag & 0xFFFF);
            const QJsonObject v = it.value().toObject();
            const std::string vr = v.value("vr").toString().toStdString();
            const QJsonArray expected = v.value("values").toArray();
            if ((g & 1) && !d->explicitVR)
                continue; // private attributes have no known VR in an implicit data set
            const char *text = dicom::dicomGetById(d.get(), g, e);
            ASSERT_NE(text, nullptr) << it.key().toStdString();
            const std::vector<std::string> parts = splitValues(text);
            ASSERT_EQ(parts.size(), size_t(expected.size()))
                << it.key().toStdString() << " " << text;
            for (size_t k = 0; k < parts.size(); ++k) {
                const QJsonValue x = expected[qsizetype(k)];
                if (vr == "AT") {
                    unsigned tg = 0, te = 0;
                    ASSERT_EQ(std::sscanf(parts[k].c_str(), "(%x,%x)", &tg, &te), 2) << parts[k];
                    EXPECT_EQ(tg, unsigned(x.toArray()[0].toInt()));
                    EXPECT_EQ(te, unsigned(x.toArray()[1].toInt()));
                    ++tags;
                } else if (x.isDouble()) {
                    const double value = std::strtod(parts[k].c_str(), nullptr);
                    if (vr == "FL")
                        EXPECT_EQ(float(value), float(x.toDouble())) << it.key().toStdString();
                    else
                        EXPECT_EQ(value, x.toDouble()) << it.key().toStdString();
                    ++numbers;
                } else if (vr == "DS" || vr == "IS") {
                    // Numeric strings keep their leading blanks as stored.
                    EXPECT_EQ(trimmed(parts[k]), trimmed(x.toString().toStdString()))
                        << it.key().toStdString();
                    ++strings;
                } else {
                    // Only the padding at the end of the value goes; blanks
                    // before a '\' are kept as stored, pydicom drops them.
                    std::string part = parts[k];
                    if (k + 1 < parts.size())
                        part.erase(part.find_last_not_of(' ') + 1);
                    EXPECT_EQ(part, x.toString().toStdString()) << it.key().toStdString();
                    ++strings;
                }
            }
        }
    }
    EXPECT_GT(strings, 2000);
    EXPECT_GT(numbers, 300);
}

TEST_F(TransferSyntaxSet, TextFormsOfTheValueRepresentations)
{
    DicomPtr d = dicomtest::read(file(1), true);
    ASSERT_TRUE(d);
    // Absent, sequence and pixel data: no text.
    EXPECT_EQ(dicom::dicomGetById(d.get(), 0x0011, 0x0011), nullptr);
    EXPECT_EQ(dicom::dicomGetById(d.get(), 0x7FE0, 0x0010), nullptr);
    EXPECT_EQ(dicom::dicomFindElement(d.get(), 0x0011, 0x0011), nullptr);
    const dicom::dicomDataElement *px = dicom::dicomFindElement(d.get(), 0x7FE0, 0x0010);
    ASSERT_NE(px, nullptr);
    EXPECT_EQ(px->data, nullptr);
    EXPECT_EQ(px->length, 384 * 384 * 2);
    EXPECT_EQ(&d->elements[d->numElements - 1], px) << "pixel data are the last element";
    // (0002,0001) File Meta Information Version, OB 00 01 (PS3.10 7.1).
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0002, 0x0001), "00\\01");
    // Strings lose their padding; the element keeps it.
    const dicom::dicomDataElement *sop = dicom::dicomFindElement(d.get(), 0x0002, 0x0002);
    ASSERT_NE(sop, nullptr);
    EXPECT_EQ(sop->length, 26);
    EXPECT_EQ(sop->data[25], 0) << "UI padding";
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0002, 0x0002), "1.2.840.10008.5.1.4.1.1.4");
    for (int i = 1; i < d->numElements; ++i)
        EXPECT_LT((uint32_t(d->elements[i - 1].group) << 16) | d->elements[i - 1].element,
                  (uint32_t(d->elements[i].group) << 16) | d->elements[i].element)
            << "ascending tags";
}

} // namespace

namespace {

// Some writers put an implicit VR data set behind a meta header that names
// Explicit VR Little Endian: 2.dcm with only its transfer syntax UID changed.
TEST_F(TransferSyntaxSet, ImplicitDataSetBehindAnExplicitMetaHeaderIsRead)
{
    std::vector<unsigned char> bytes = vxtest::readFileBytes(file(2));
    const std::string implicitUid("1.2.840.10008.1.2\0", 18);
    const std::string explicitUid("1.2.840.10008.1.2.1\0", 20);
    // (0002,0010) UI, length 18, then the UID.
    const unsigned char tag[] = {0x02, 0x00, 0x10, 0x00, 'U', 'I', 18, 0};
    auto at = std::search(bytes.begin(), bytes.end(), tag, tag + 8);
    ASSERT_NE(at, bytes.end());
    ASSERT_TRUE(std::equal(implicitUid.begin(), implicitUid.end(), at + 8));
    const size_t pos = size_t(at - bytes.begin());
    bytes[pos + 6] = 20;
    bytes.erase(bytes.begin() + long(pos + 8), bytes.begin() + long(pos + 8 + 18));
    bytes.insert(bytes.begin() + long(pos + 8), explicitUid.begin(), explicitUid.end());
    // (0002,0000) group length grows by two bytes.
    const unsigned char groupLength[] = {0x02, 0x00, 0x00, 0x00, 'U', 'L', 4, 0};
    auto gl = std::search(bytes.begin(), bytes.end(), groupLength, groupLength + 8);
    ASSERT_NE(gl, bytes.end());
    gl[8] = uint8_t(gl[8] + 2);

    std::string why;
    VxMessageCapture capture;
    DicomPtr d(dicom::dicomReadBuffer(bytes.data(), bytes.size(), "patched", &why));
    ASSERT_TRUE(d) << why;
    EXPECT_EQ(capture.text(), "") << "no warning for every element";
    EXPECT_EQ(d->transferSyntaxUID, "1.2.840.10008.1.2.1");
    EXPECT_FALSE(d->explicitVR) << "the data set is what it is";
    const dicom::dicomDataElement *modality = dicom::dicomFindElement(d.get(), 0x0008, 0x0060);
    ASSERT_TRUE(modality);
    EXPECT_EQ(std::string(modality->vr, 2), "  ");
    // Sequences keep the file's implicit encoding: the same bytes as in 2.dcm.
    DicomPtr original = dicomtest::read(file(2), true);
    ASSERT_TRUE(original);
    const dicom::dicomDataElement *a = dicom::dicomFindElement(d.get(), 0x0008, 0x1140);
    const dicom::dicomDataElement *b = dicom::dicomFindElement(original.get(), 0x0008, 0x1140);
    ASSERT_TRUE(a && b && a->data && b->data);
    ASSERT_EQ(a->length, b->length);
    EXPECT_EQ(std::memcmp(a->data, b->data, size_t(a->length)), 0);
    EXPECT_EQ(d->rows, 384);
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0008, 0x0060), "MR");
    DicomPtr reference = dicomtest::read(file(1), false);
    ASSERT_TRUE(reference);
    EXPECT_TRUE(dicomtest::fullPixels(*d) == dicomtest::fullPixels(*reference));
}

} // namespace

namespace {

// The Referenced File IDs of a DICOMDIR, found the way the module finds
// them: the record sequence's bytes walked with the layer's helpers.
std::vector<std::string> referencedFiles(const dicom::dicomStruct &d)
{
    std::vector<std::string> ids;
    const dicom::dicomDataElement *records = dicom::dicomFindElement(&d, 0x0004, 0x1220);
    if (!records || !records->data)
        return ids;
    const unsigned char *p = records->data, *end = p + records->length;
    auto skipValue = [&](const dicom::dicomElementHeader &h, const unsigned char *value,
                         const unsigned char *limit, bool isItem) -> const unsigned char * {
        if (h.length != 0xFFFFFFFFu)
            return h.length <= uint64_t(limit - value) ? value + h.length : nullptr;
        const long n = dicom::dicomAdjustLength(value, limit, d.bigEndian, d.explicitVR, isItem);
        return n < 0 ? nullptr : value + n;
    };
    while (p < end) {
        dicom::dicomElementHeader item;
        if (!dicom::dicomReadElementHeader(p, end, d.bigEndian, d.explicitVR, &item) ||
            item.group != 0xFFFE || item.element != 0xE000)
            break;
        const unsigned char *content = p + item.headerSize;
        const unsigned char *next = skipValue(item, content, end, true);
        if (!next)
            break;
        const unsigned char *contentEnd = item.length == 0xFFFFFFFFu ? next - 8 : next;
        for (const unsigned char *q = content; q < contentEnd;) {
            dicom::dicomElementHeader e;
            if (!dicom::dicomReadElementHeader(q, contentEnd, d.bigEndian, d.explicitVR, &e))
                break;
            const unsigned char *value = q + e.headerSize;
            const unsigned char *after = skipValue(e, value, contentEnd, false);
            if (!after)
                break;
            if (e.group == 0x0004 && e.element == 0x1500) {
                std::string id(reinterpret_cast<const char *>(value), size_t(after - value));
                while (!id.empty() && (id.back() == ' ' || id.back() == '\0'))
                    id.pop_back();
                for (char &c : id)
                    if (c == '\\')
                        c = '/';
                ids.push_back(id);
            }
            q = after;
        }
        p = next;
    }
    return ids;
}

class DicomDir : public SharedFiles
{
};

TEST_F(DicomDir, RecordsAreWalkedFromTheSequenceBytes)
{
    if (!vxtest::haveProgram("dcmmkdir"))
        GTEST_SKIP() << "dcmmkdir (DCMTK) is not installed";
    const std::string series = "dcm_qa_ct/In/Philips/S21610/S2010/";
    // Explicit item lengths; undefined lengths; undefined lengths with icon
    // images, whose nested Pixel Data must not end the header parse.
    for (const char *options : {"", "-e", "-e +X"}) {
        SCOPED_TRACE(options);
        vxtest::TempDir dir;
        std::filesystem::create_directory(dir.path() / "CT");
        for (const char *name : {"I10", "I100", "I110", "I120"})
            std::filesystem::copy_file(vxtest::sharedPath(series + name), dir.path() / "CT" / name);
        ASSERT_EQ(vxtest::runCommand("cd " + vxtest::shellQuote(dir.path().string()) +
                                     " && dcmmkdir -q +r +I " + options + " CT"),
                  0);
        const std::string path = dir.file("DICOMDIR");
        std::string why;
        DicomPtr d = dicomtest::read(path, false, &why);
        ASSERT_TRUE(d) << why;
        EXPECT_TRUE(d->isDicomDir);
        EXPECT_EQ(d->frames, 0);
        EXPECT_EQ(d->pixelData, nullptr);
        EXPECT_FALSE(d->pixelsInFile);
        std::string error;
        const QJsonObject expected = dicomtest::runReference("dicomdir", {path}, &error);
        ASSERT_FALSE(expected.isEmpty()) << error;
        std::vector<std::string> ids;
        for (const QJsonValue &v : expected.value("ids").toArray())
            ids.push_back(v.toString().toStdString());
        ASSERT_EQ(ids.size(), 4u);
        EXPECT_EQ(referencedFiles(*d), ids);
    }
}

TEST_F(DicomDir, ThePhilipsDirectoryFileIsADicomDir)
{
    const std::string path = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/DIRFILE");
    DicomPtr d = dicomtest::read(path, true);
    ASSERT_TRUE(d);
    EXPECT_TRUE(d->isDicomDir);
    std::string error;
    const QJsonObject expected = dicomtest::runReference("dicomdir", {path}, &error);
    ASSERT_FALSE(expected.isEmpty()) << error;
    std::vector<std::string> ids;
    for (const QJsonValue &v : expected.value("ids").toArray())
        ids.push_back(v.toString().toStdString());
    EXPECT_EQ(referencedFiles(*d), ids);
}

} // namespace
