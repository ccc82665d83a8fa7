// Elements become parameters: a Siemens file in explicit and implicit VR, texts in UTF-8 (every
// shared file's elements: info_vs_pydicom.py).

#include "vxdicom/params/DicomElementConversion.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "tests/support/TestSupport.h"

#include <map>
#include <tuple>

namespace {

using ParamPtr = std::unique_ptr<VxParamBase>;
using LayerPtr = std::unique_ptr<dicom::dicomStruct, void (*)(dicom::dicomStruct *)>;

std::string textOf(const ParamPtr &p)
{
    return p && !p->isBundle() ? static_cast<const VxParameter *>(p.get())->stringValue()
                               : std::string("<not a parameter>");
}

ParamPtr convert(const DicomDataElement &e, const char *valueText, int plain = 0)
{
    const dicom::dicomDataElement view = e.view();
    return ParamPtr(convertDicomByIdToVxParamBase(&view, valueText, plain));
}

TEST(ElementConversion, RealElementsInBothEncodings)
{
    VX_REQUIRE_SHARED_DATA();
    for (const char *file : {"dcm_qa_ts/In/1.dcm", "dcm_qa_ts/In/2.dcm"}) {
        SCOPED_TRACE(file);
        std::map<std::string, DicomDataElement> elements;
        const LayerPtr d(dicom::dicomReadFile(vxtest::sharedPath(file).c_str(), 1, nullptr),
                         dicom::dicomFree);
        for (int i = 0; d && i < d->numElements; ++i)
            elements.emplace(
                dicomParamName(d->elements[i].group, d->elements[i].element).toStdString(),
                DicomDataElement(&d->elements[i]));
        ASSERT_GT(elements.size(), 100u);
        const bool implicit = elements["G0051-100E"].vr[0] == ' ';
        EXPECT_EQ(implicit, file[13] == '2');
        // implicitExpected nullptr: as explicit; expected nullptr: checked in implicit VR only.
        const std::tuple<const char *, const char *, int, const char *, const char *> rows[] = {
            {"G0010-0010", "stc_test", 0, "patient name: stc_test", nullptr}, // known: no [PN]
            {"G0008-0008", "ORIGINAL\\PRIMARY\\M\\ND\\MOSAIC", 0,
             "image type: ORIGINAL PRIMARY M ND MOSAIC", nullptr},
            {"G0028-0030", nullptr, 0, "pixel spacing: ", nullptr},
            // Private: no name, then the file's VR; without one, ASCII text is
            // read as CS from the value, and other bytes are hexadecimal.
            {"G0051-100E", "Tra>Cor(-6.2)", 0, " [LO]: Tra>Cor(-6.2)", " [CS]: Tra>Cor(-6.2)"},
            {"G0051-100E", "Tra>Cor(-6.2)", 1, ": Tra>Cor(-6.2)", ": Tra>Cor(-6.2)"},
            // pydicom reads the FD 55.80... as F4 FD D4 78 E9 E6 4B 40.
            {"G0019-1028", "55.8040", 0, " [FD]: 55.8040", ": F4FDD478E9E64B40"},
            {"G0019-1014", nullptr, 0, nullptr, " [CS]: 0 0 0"}, // '0\0\0 ': blanks
            {"G0019-100A", nullptr, 0, nullptr, " [CS]: #"},     // US 35 as '#' 00: up to the NUL
        };
        for (const auto &[tag, text, plain, expected, implicitExpected] : rows)
            if (const char *want = implicit && implicitExpected ? implicitExpected : expected) {
                EXPECT_EQ(textOf(convert(elements[tag], text, plain)), want) << tag;
            }
        const ParamPtr csa = convert(elements["G0029-1020"], nullptr); // CSA headers: bundles
        ASSERT_TRUE(csa && csa->isBundle() && csa->name() == "CSASeriesHeaderInfo");
        EXPECT_GT(csa->asBundle()->size(), 45);
        EXPECT_EQ(csa->asBundle()->entry(0)->name(), "UsedPatientWeight");
    }
}

TEST(ElementConversion, LatinOneAndUtf8TextsBothBecomeUtf8)
{
    const unsigned char latin1[] = "M\xFCller^Anna";
    const DicomDataElement name(0x0010, 0x0010, 12, 'P', 'N', latin1);
    for (const char *text : {"M\xFCller^Anna", "M\xC3\xBCller^Anna"})
        EXPECT_EQ(textOf(convert(name, text)), "patient name: M\xC3\xBCller^Anna") << text;
}

} // namespace
