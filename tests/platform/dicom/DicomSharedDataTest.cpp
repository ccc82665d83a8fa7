#include "tests/platform/dicom/DicomTestSupport.h"

#include "platform/core/VxMessage.h"

#include <QJsonArray>

using namespace vxtest;
namespace {

using dicomtest::DicomPtr, dicomtest::ts;

struct Tally
{
    int elements = 0, sequences = 0, bigEndian = 0, implicit = 0, hashed = 0, byGdcm = 0;
};

// One file as pydicom reads it (private creators, re-padded by DCMTK, by length), pixels by GDCM.
void expectLikePydicom(const std::string &path, const QJsonObject &r, Tally &t)
{
    SCOPED_TRACE(path);
    ASSERT_FALSE(r.contains("error")) << r.value("error").toString().toStdString();
    std::string why;
    DicomPtr d = dicomtest::read(path, true, &why);
    ASSERT_TRUE(d) << why;
    EXPECT_EQ(d->transferSyntaxUID, r["transferSyntax"].toString().toStdString());
    EXPECT_EQ((std::vector<int>{d->rows, d->columns, d->bitsAllocated, d->samplesPerPixel,
                                d->frames, d->pixelsInFile, d->isDicomDir, d->numElements}),
              (std::vector<int>{r["rows"].toInt(), r["columns"].toInt(), r["bitsAllocated"].toInt(),
                                r["samplesPerPixel"].toInt(), r["frames"].toInt(),
                                r["hasPixels"].toBool(), r["isDicomDir"].toBool(),
                                r["elements"].toInt()}))
        << "rows, columns, bits, samples, frames, pixels, DICOMDIR, elements";
    t.bigEndian += d->bigEndian;
    t.implicit += !d->explicitVR;
    const QJsonArray raw = r["raw"].toArray();
    const dicom::dicomDataElement &last = d->elements[d->numElements - 1];
    const int n = d->numElements - (last.group == 0x7FE0 && last.element == 0x0010 ? 1 : 0);
    ASSERT_EQ(n, raw.size());
    for (int i = 0; i < n; ++i) {
        const dicom::dicomDataElement &e = d->elements[i];
        const QJsonObject x = raw[i].toObject();
        const std::string tag = QString::asprintf("%04X%04X", e.group, e.element).toStdString();
        ASSERT_EQ(tag, x["tag"].toString().toStdString());
        const std::string vr = x["vr"].toString().toStdString();
        EXPECT_EQ(std::string(e.vr, 2), vr.empty() ? "  " : vr) << tag;
        EXPECT_EQ(e.length, x["length"].toInt()) << tag;
        if ((e.group & 1) && e.element >= 0x10 && e.element <= 0xFF)
            continue;
        EXPECT_EQ(dicomtest::sha256(e.data, e.data ? size_t(e.length) : 0),
                  x["sha256"].toString().toStdString())
            << tag;
        const bool sequence = dicom::dicomDictionaryType(e.group, e.element) == dicom::SQ;
        t.sequences += sequence;
        t.elements += !sequence;
    }
    const DicomPtr full = dicomtest::read(path, false, &why);
    ASSERT_TRUE(full) << why;
    EXPECT_EQ(full->pixelData == nullptr, !d->pixelsInFile);
    if (!d->pixelsInFile)
        return;
    const std::vector<unsigned char> frames = dicomtest::decodeFrames(*d, &why);
    ASSERT_FALSE(frames.empty()) << why;
    EXPECT_TRUE(!full->pixelsInFile && dicomtest::fullPixels(*full) == frames)
        << "delayed and full reads differ";
    if (r["pixelSha256"].isString()) {
        EXPECT_EQ(dicomtest::sha256(frames.data(), frames.size()),
                  r["pixelSha256"].toString().toStdString());
        ++t.hashed;
    } else if (haveProgram("gdcmconv")) { // no pydicom decoder: GDCM's decode, stored raw
        TempDir dir;
        const std::string raw = dir.file("raw.dcm");
        ASSERT_EQ(runCommand("gdcmconv --raw " + shellQuote(path) + " " + shellQuote(raw)), 0);
        const DicomPtr gdcm = dicomtest::read(raw, false, &why);
        ASSERT_TRUE(gdcm) << why;
        EXPECT_TRUE(dicomtest::fullPixels(*gdcm) == frames) << "GDCM decodes otherwise";
        ++t.byGdcm;
    }
}

TEST(SharedFiles, EveryFileAgreesWithPydicomAndGdcm)
{
    REQUIRE_PYDICOM();
    const std::vector<std::string> files = sharedDicomFiles();
    ASSERT_GT(files.size(), 300u);
    const QJsonObject reference = dicomtest::runReference("files", files);
    ASSERT_FALSE(reference.isEmpty());
    Tally t;
    for (const std::string &path : files)
        expectLikePydicom(path, reference[QString::fromStdString(path)].toObject(), t);
    EXPECT_GT(t.elements, 30000);
    EXPECT_GT(t.sequences, 100);
    EXPECT_GT(t.hashed, 300);
    EXPECT_TRUE(t.bigEndian && t.implicit);
    if (!haveProgram("gdcmconv"))
        GTEST_SKIP() << "gdcmconv is missing: compressed files pydicom cannot decode not compared";
    EXPECT_GT(t.byGdcm, 5);
}

// 2.dcm with its meta header naming an explicit VR transfer syntax still reads implicit.
TEST(TransferSyntaxSet, ImplicitDataSetBehindAnExplicitMetaHeaderIsRead)
{
    VX_REQUIRE_SHARED_DATA();
    const std::vector<unsigned char> file = readFileBytes(ts(2));
    std::string bytes(file.begin(), file.end()), uid = "1.2.840.10008.1.2";
    const size_t at = bytes.find(std::string("\x02\0\x10\0UI\x12\0", 8) + uid + '\0'),
                 length = bytes.find(std::string("\x02\0\0\0UL\x04\0", 8));
    ASSERT_TRUE(at != std::string::npos && length != std::string::npos);
    bytes.replace(at, 8 + 18, std::string("\x02\0\x10\0UI\x14\0", 8) + uid + ".1" + '\0');
    bytes[length + 8] = char(bytes[length + 8] + 2);
    std::string why;
    VxMessageCapture capture;
    DicomPtr d(dicom::dicomReadBuffer(reinterpret_cast<const unsigned char *>(bytes.data()),
                                      bytes.size(), "patched", &why)),
        original = dicomtest::read(ts(2), false);
    ASSERT_TRUE(d && original) << why;
    EXPECT_EQ(capture.text(), "") << "no warning for every element";
    EXPECT_EQ(d->transferSyntaxUID, uid + ".1");
    EXPECT_STREQ(dicom::dicomGetById(d.get(), 0x0008, 0x0060), "MR");
    EXPECT_FALSE(d->explicitVR) << "the data set is what it is";
    EXPECT_TRUE(dicomtest::fullPixels(*d) == dicomtest::fullPixels(*original));
}

} // namespace
