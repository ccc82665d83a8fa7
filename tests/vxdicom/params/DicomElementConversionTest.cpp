#include "vxdicom/params/DicomElementConversion.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <map>
#include <memory>
#include <string>

namespace {

using ParamPtr = std::unique_ptr<VxParamBase>;

// The Siemens test file in two encodings: 1.dcm explicit VR little endian,
// 2.dcm the same data set in implicit VR little endian.
const char *const kExplicitFile = "dcm_qa_ts/In/1.dcm";
const char *const kImplicitFile = "dcm_qa_ts/In/2.dcm";
const char *const kTags =
    "00100010 00081140 00080008 00280030 00290010 00290020 00191028 0019100A 00191014 0051100E "
    "00291010 00291020";

/// Raw elements of a real file, read by pydicom.
class RealElements
{
public:
    static const RealElements &of(const char *relative)
    {
        static std::map<std::string, RealElements> cache;
        auto it = cache.find(relative);
        if (it == cache.end())
            it = cache.emplace(relative, RealElements(vxtest::sharedPath(relative))).first;
        return it->second;
    }

    bool empty() const { return elements.empty(); }

    /// The element as the dicom:: layer gives it: VR letters as written, or
    /// two blanks for implicit VR.
    DicomDataElement get(uint16_t group, uint16_t element) const
    {
        const std::string key = QString::asprintf("%04X%04X", group, element).toStdString();
        auto it = elements.find(key);
        if (it == elements.end())
            return DicomDataElement();
        const Raw &r = it->second;
        return DicomDataElement(group, element, static_cast<int>(r.value.size()), r.vr[0], r.vr[1],
                                reinterpret_cast<const unsigned char *>(r.value.data()));
    }
    QByteArray bytes(uint16_t group, uint16_t element) const
    {
        auto it = elements.find(QString::asprintf("%04X%04X", group, element).toStdString());
        return it == elements.end() ? QByteArray() : it->second.value;
    }

private:
    struct Raw
    {
        char vr[2];
        QByteArray value;
    };

    explicit RealElements(const std::string &path)
    {
        std::string out;
        const std::string command = std::string(VX_PYTHON) +
                                    " " VX_PARAMS_TEST_DIR "/element_bytes.py '" + path + "' " +
                                    kTags;
        if (vxtest::runCommand(command, &out) != 0)
            return;
        const QJsonObject json = QJsonDocument::fromJson(QByteArray::fromStdString(out)).object();
        for (auto it = json.begin(); it != json.end(); ++it) {
            const QJsonObject o = it.value().toObject();
            const QByteArray vr = o["vr"].toString().toLatin1();
            Raw r;
            r.vr[0] = vr.size() == 2 ? vr[0] : ' ';
            r.vr[1] = vr.size() == 2 ? vr[1] : ' ';
            r.value = QByteArray::fromBase64(o["value"].toString().toLatin1());
            elements.emplace(it.key().toStdString(), r);
        }
    }

    std::map<std::string, Raw> elements;
};

#define REQUIRE_ELEMENTS(file)                                                                     \
    VX_REQUIRE_SHARED_DATA();                                                                      \
    if (!vxtest::havePythonModules({"pydicom"}))                                                   \
        GTEST_SKIP() << "pydicom is needed for " VX_PYTHON;                                        \
    const RealElements &file##Elements = RealElements::of(file);                                   \
    ASSERT_FALSE(file##Elements.empty()) << "element_bytes.py gave nothing for " << file

std::string textOf(const VxParamBase *p)
{
    if (!p || p->isBundle())
        return "<not a parameter>";
    return static_cast<const VxParameter *>(p)->stringValue();
}

ParamPtr convert(const DicomDataElement &e, const char *valueText, int plain = 0)
{
    const dicom::dicomDataElement view = e.view();
    return ParamPtr(convertDicomByIdToVxParamBase(&view, valueText, plain));
}

} // namespace

TEST(ParameterNames, AreGroupAndElementInUpperCaseHexadecimal)
{
    EXPECT_EQ(dicomParamName(0x0010, 0x0010), "G0010-0010");
    EXPECT_EQ(dicomParamName(0x7fe0, 0x0010), "G7FE0-0010");
    EXPECT_EQ(dicomParamName(0x0029, 0x1020), "G0029-1020");
    EXPECT_EQ(dicomParamName(0xFFFF, 0xabcd), "GFFFF-ABCD");
}

TEST(ElementCopy, OwnsItsValueAndKeepsEveryField)
{
    const unsigned char value[] = {'a', 'b', 'c', 'd'};
    dicom::dicomDataElement source;
    source.group = 0x0019;
    source.element = 0x1008;
    source.vr[0] = 'C';
    source.vr[1] = 'S';
    source.length = 4;
    source.data = value;

    DicomDataElement copy(&source);
    EXPECT_EQ(copy.group, 0x0019);
    EXPECT_EQ(copy.element, 0x1008);
    EXPECT_EQ(copy.length, 4);
    EXPECT_EQ(copy.vr[0], 'C');
    EXPECT_EQ(copy.vr[1], 'S');
    ASSERT_NE(copy.data, nullptr);
    EXPECT_NE(copy.data, value) << "a copy, not the source's buffer";
    EXPECT_EQ(std::string(reinterpret_cast<char *>(copy.data), 4), "abcd");

    DicomDataElement second = copy;
    DicomDataElement moved = std::move(copy);
    EXPECT_EQ(copy.data, nullptr);
    EXPECT_NE(second.data, moved.data);
    second = moved;
    EXPECT_EQ(std::string(reinterpret_cast<char *>(second.data), 4), "abcd");

    const DicomDataElement none(nullptr);
    EXPECT_EQ(none.group, 0);
    EXPECT_EQ(none.length, 0);
    EXPECT_EQ(none.vr[0], ' ');
    EXPECT_EQ(none.vr[1], ' ');
    EXPECT_EQ(none.data, nullptr);

    const DicomDataElement empty(0x0008, 0x0050, 0, 'S', 'H', value);
    EXPECT_EQ(empty.data, nullptr) << "no buffer below one byte";
    const DicomDataElement delayed(0x7FE0, 0x0010, 4096, 'O', 'W', nullptr);
    EXPECT_EQ(delayed.length, 4096) << "the length stays without value (delayed pixel data)";
    EXPECT_EQ(delayed.data, nullptr);
}

TEST(ElementConversion, PublicElementGivesDictionaryNameColonAndTheCallersText)
{
    REQUIRE_ELEMENTS(kExplicitFile);
    const DicomDataElement name = kExplicitFileElements.get(0x0010, 0x0010);
    const ParamPtr p = convert(name, "stc_test");
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->isBundle());
    EXPECT_EQ(p->name(), "G0010-0010");
    EXPECT_EQ(textOf(p.get()), "patient name: stc_test") << "known to the dictionary: no [PN]";

    // Values separated by '\\' are stored with blanks.
    const ParamPtr type =
        convert(kExplicitFileElements.get(0x0008, 0x0008), "ORIGINAL\\PRIMARY\\M\\ND\\MOSAIC");
    EXPECT_EQ(textOf(type.get()), "image type: ORIGINAL PRIMARY M ND MOSAIC");
    // Without a text from the caller the value part stays empty.
    EXPECT_EQ(textOf(convert(kExplicitFileElements.get(0x0028, 0x0030), nullptr).get()),
              "pixel spacing: ");
}

TEST(ElementConversion, ValueTextsAreUtf8OrElseLatin1)
{
    const unsigned char latin1[] = "M\xFCller^Anna";
    const DicomDataElement name(0x0010, 0x0010, 12, 'P', 'N', latin1);
    EXPECT_EQ(textOf(convert(name, "M\xFCller^Anna").get()), "patient name: M\xC3\xBCller^Anna")
        << "ISO_IR 100 text, not valid UTF-8";
    EXPECT_EQ(textOf(convert(name, "M\xC3\xBCller^Anna").get()), "patient name: M\xC3\xBCller^Anna")
        << "ISO_IR 192 text stays as it is";
}

TEST(ElementConversion, PrivateElementWithItsOwnVrIsAnnotatedUnlessPlain)
{
    REQUIRE_ELEMENTS(kExplicitFile);
    const DicomDataElement orientation = kExplicitFileElements.get(0x0051, 0x100E);
    ASSERT_EQ(orientation.vr[0], 'L');
    EXPECT_EQ(textOf(convert(orientation, "Tra>Cor(-6.2)").get()), " [LO]: Tra>Cor(-6.2)")
        << "no dictionary name, then the file's VR";
    EXPECT_EQ(textOf(convert(orientation, "Tra>Cor(-6.2)", 1).get()), ": Tra>Cor(-6.2)");

    // A binary-looking private value with an explicit FD is not hexadecimal:
    // the caller's text is used.
    const DicomDataElement fd = kExplicitFileElements.get(0x0019, 0x1028);
    EXPECT_EQ(textOf(convert(fd, "55.8040").get()), " [FD]: 55.8040");

    // Private creators are in the dictionary (a repeating range).
    EXPECT_EQ(
        textOf(convert(kExplicitFileElements.get(0x0029, 0x0010), "SIEMENS CSA HEADER").get()),
        "private creator: SIEMENS CSA HEADER");
}

TEST(ElementConversion, ImplicitPrivateTextIsShownAsTextUnderCs)
{
    REQUIRE_ELEMENTS(kImplicitFile);
    const DicomDataElement orientation = kImplicitFileElements.get(0x0051, 0x100E);
    ASSERT_EQ(orientation.vr[0], ' ') << "implicit VR";
    const dicom::dicomDataElement view = orientation.view();
    bool annotatable = false;
    EXPECT_EQ(dicomElementVR(view, &annotatable), dicom::CS);
    EXPECT_TRUE(annotatable);
    // The parser knows no VR for it and would print bytes; the text comes
    // from the value, without its padding blank.
    EXPECT_EQ(textOf(convert(orientation, "54 72 61 3E").get()), " [CS]: Tra>Cor(-6.2)");
    EXPECT_EQ(textOf(convert(kImplicitFileElements.get(0x0019, 0x1014), nullptr).get()),
              " [CS]: 0 0 0")
        << "'0\\\\0\\\\0 ': separators become blanks";
    EXPECT_EQ(textOf(convert(kImplicitFileElements.get(0x0019, 0x100A), nullptr).get()), " [CS]: #")
        << "US 35 stored as '#' 00: every byte is ASCII, so it reads as text up to the NUL";
}

TEST(ElementConversion, ImplicitPrivateValueWithAByteAbove127IsHexadecimal)
{
    REQUIRE_ELEMENTS(kImplicitFile);
    const DicomDataElement fd = kImplicitFileElements.get(0x0019, 0x1028);
    const dicom::dicomDataElement view = fd.view();
    bool annotatable = true;
    EXPECT_EQ(dicomElementVR(view, &annotatable), dicom::UN) << "the dictionary does not know it";
    EXPECT_FALSE(annotatable);
    // pydicom's bytes: F4 FD D4 78 E9 E6 4B 40 (the double 55.80...).
    EXPECT_EQ(textOf(convert(fd, "ignored").get()), ": F4FDD478E9E64B40")
        << "VR from the dictionary: no annotation";
}

TEST(ElementConversion, SequencesAreKeptAsTheHexadecimalOfTheirItems)
{
    for (const char *file : {kExplicitFile, kImplicitFile}) {
        REQUIRE_ELEMENTS(file);
        const DicomDataElement seq = RealElements::of(file).get(0x0008, 0x1140);
        const QByteArray bytes = RealElements::of(file).bytes(0x0008, 0x1140);
        ASSERT_GT(bytes.size(), 0);
        const ParamPtr p = convert(seq, "ignored");
        ASSERT_TRUE(p);
        EXPECT_EQ(p->name(), "G0008-1140");
        EXPECT_EQ(textOf(p.get()),
                  "referenced image sequence: " + bytes.toHex().toUpper().toStdString())
            << file;
    }
}

TEST(ElementConversion, EmptyElementsGiveNoParameter)
{
    const DicomDataElement empty(0x0008, 0x0050, 0, 'S', 'H', nullptr);
    EXPECT_EQ(convert(empty, "x"), nullptr);
    const unsigned char byte = 'x';
    const DicomDataElement zeroLength(0x0008, 0x0050, 0, 'S', 'H', &byte);
    EXPECT_EQ(convert(zeroLength, "x"), nullptr);
    EXPECT_EQ(convertDicomByIdToVxParamBase(nullptr, "x", 0), nullptr);
    EXPECT_EQ(convertDicomByIdToVxParameter(nullptr, "x", 0), nullptr);
    const dicom::dicomDataElement noData =
        DicomDataElement(0x7FE0, 0x0010, 4096, 'O', 'W', nullptr).view();
    EXPECT_EQ(convertDicomByIdToVxParameter(&noData, nullptr, 0), nullptr);
}

TEST(ElementConversion, CsaHeadersBecomeBundlesInBothEncodings)
{
    for (const char *file : {kExplicitFile, kImplicitFile}) {
        REQUIRE_ELEMENTS(file);
        const RealElements &elements = RealElements::of(file);
        const ParamPtr series = convert(elements.get(0x0029, 0x1020), nullptr);
        ASSERT_TRUE(series) << file;
        ASSERT_TRUE(series->isBundle()) << file;
        EXPECT_EQ(series->name(), "CSASeriesHeaderInfo");
        const VxParamBundle *s = series->asBundle();
        ASSERT_GT(s->size(), 45);
        EXPECT_EQ(s->entry(0)->name(), "UsedPatientWeight");

        const ParamPtr image = convert(elements.get(0x0029, 0x1010), nullptr);
        ASSERT_TRUE(image && image->isBundle()) << file;
        EXPECT_EQ(image->name(), "CSAImageHeaderInfo");
        EXPECT_EQ(image->asBundle()->entry(0)->name(), "EchoLinePosition");
    }
}

TEST(ElementConversion, ParameterFormNeverDecodesVendorHeaders)
{
    REQUIRE_ELEMENTS(kExplicitFile);
    const DicomDataElement csa = kExplicitFileElements.get(0x0029, 0x1020);
    const dicom::dicomDataElement view = csa.view();
    std::unique_ptr<VxParameter> p(convertDicomByIdToVxParameter(&view, nullptr, 0));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->name(), "G0029-1020");
    const QByteArray bytes = kExplicitFileElements.bytes(0x0029, 0x1020);
    EXPECT_EQ(p->stringValue(), " [OB]: " + bytes.toHex().toUpper().toStdString());
}

TEST(ElementConversion, NotSv10IsTheOlderLayoutAndAnEmptyBundle)
{
    // A CSA1-style value: 1 tag, 77, then a tag without items.
    std::string v(8 + 84, '\0');
    v[0] = 1;
    v[4] = 77;
    v.replace(8, 4, "Tag1");
    const DicomDataElement e(0x0029, 0x1010, static_cast<int>(v.size()), 'O', 'B',
                             reinterpret_cast<const unsigned char *>(v.data()));
    const ParamPtr p = convert(e, nullptr);
    ASSERT_TRUE(p && p->isBundle());
    EXPECT_EQ(p->name(), "CSAImageHeaderInfo");
    EXPECT_EQ(p->asBundle()->size(), 0);

    // A vendor header whose count is out of range gives no entry at all.
    v[0] = static_cast<char>(200);
    const DicomDataElement bad(0x0029, 0x1010, static_cast<int>(v.size()), 'O', 'B',
                               reinterpret_cast<const unsigned char *>(v.data()));
    VxMessageCapture console;
    EXPECT_EQ(convert(bad, nullptr), nullptr);
    EXPECT_TRUE(console.contains("Error: n not between 0 and 128"));
}

// --- through the dicom:: layer ------------------------------------------------------

namespace {

struct ParsedFile
{
    explicit ParsedFile(const std::string &path) : d(dicom::dicomReadFile(path.c_str(), 1, &why)) {}
    ~ParsedFile() { dicom::dicomFree(d); }
    ParsedFile(const ParsedFile &) = delete;
    ParsedFile &operator=(const ParsedFile &) = delete;

    ParamPtr convert(uint16_t group, uint16_t element) const
    {
        const dicom::dicomDataElement *e = dicom::dicomFindElement(d, group, element);
        return ParamPtr(
            e ? convertDicomByIdToVxParamBase(e, dicom::dicomGetById(d, group, element), 0)
              : nullptr);
    }

    dicom::dicomStruct *d;
    std::string why;
};

} // namespace

TEST(ElementConversionThroughTheLayer, AgreesWithPydicomsBytes)
{
    REQUIRE_ELEMENTS(kImplicitFile);
    const ParsedFile file(vxtest::sharedPath(kImplicitFile));
    ASSERT_TRUE(file.d) << file.why;
    ASSERT_FALSE(file.d->explicitVR);
    EXPECT_EQ(textOf(file.convert(0x0051, 0x100E).get()), " [CS]: Tra>Cor(-6.2)");
    EXPECT_EQ(textOf(file.convert(0x0010, 0x0010).get()), "patient name: stc_test");
    EXPECT_EQ(textOf(file.convert(0x0019, 0x1028).get()), ": F4FDD478E9E64B40");

    for (uint16_t element : {0x1010, 0x1020}) {
        const ParamPtr viaLayer = file.convert(0x0029, element);
        const ParamPtr viaPydicom = convert(kImplicitFileElements.get(0x0029, element), nullptr);
        ASSERT_TRUE(viaLayer && viaLayer->isBundle());
        ASSERT_TRUE(viaPydicom && viaPydicom->isBundle());
        EXPECT_EQ(viaLayer->asBundle()->dump(), viaPydicom->asBundle()->dump());
    }
}

TEST(ElementConversionThroughTheLayer, EveryElementOfEverySharedFileConverts)
{
    VX_REQUIRE_SHARED_DATA();
    VxMessageCapture console;
    int files = 0, parameters = 0, bundles = 0;
    for (const std::string &path : vxtest::sharedDicomFiles()) {
        const ParsedFile file(path);
        if (!file.d)
            continue;
        ++files;
        for (int i = 0; i < file.d->numElements; ++i) {
            const dicom::dicomDataElement &e = file.d->elements[i];
            const ParamPtr p(convertDicomByIdToVxParamBase(
                &e, dicom::dicomGetById(file.d, e.group, e.element), 0));
            if (!e.data || e.length < 1) {
                EXPECT_EQ(p, nullptr) << path;
                continue;
            }
            ASSERT_TRUE(p) << path << " " << dicomParamName(e.group, e.element).toStdString();
            if (p->isBundle()) {
                EXPECT_EQ(e.group, 0x0029) << path;
                ++bundles;
                continue;
            }
            EXPECT_EQ(p->name(), dicomParamName(e.group, e.element).toStdString());
            EXPECT_NE(textOf(p.get()).find(": "), std::string::npos) << path;
            ++parameters;
        }
    }
    EXPECT_GT(files, 300);
    EXPECT_GT(parameters, 30000);
    EXPECT_GE(bundles, 160) << "two CSA headers in each of the 80 Siemens files";
}
