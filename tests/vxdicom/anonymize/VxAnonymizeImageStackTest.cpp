// The anonymizer module: what one press of "DoIt" changes in a field's DICOM
// parameters, and its messages. `vxdicom anonymize` (tests/apps) drives the
// module through its ports as a user does.

#include "vxdicom/params/VxAnonymizeImageStack.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <gtest/gtest.h>

namespace {

/// A field with a "DICOM" bundle holding "All" with the name text given,
/// and one bundle of that name per further entry of `bundles`.
std::unique_ptr<VxUniformScalarField3> field(const char *name, std::vector<const char *> bundles)
{
    const int dims[3] = {2, 2, 2};
    auto f = std::make_unique<VxUniformScalarField3>(dims, KcPrimType::Int16, nullptr);
    auto *dicom = new VxParamBundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->setString("G0008-0060", "modality [CS]: CT");
    all->setString("G0010-0010", name);
    all->setInt("Count", 3);
    dicom->insert(all);
    for (const char *b : bundles) {
        auto *slice = new VxParamBundle(b);
        slice->setString("G0020-0013", "instance number [IS]: 1");
        slice->setString("Filename", "/cd/DOE_JANE/IM0001");
        slice->setString("Name", "Doe^Jane");
        dicom->insert(slice);
    }
    f->parameters().insert(dicom);
    f->setLabel("Doe^Jane");
    return f;
}

std::string press(VxAnonymizeImageStack &module)
{
    VxMessageCapture capture;
    module.portAction.hit(0);
    module.fire();
    return capture.text();
}

} // namespace

TEST(AnonymizerModule, DoItReplacesThePatientNameAndDropsTheSlicesFileNamesInPlace)
{
    auto f = field("patient name [PN]: Doe^Jane",
                   {"Slice000", "Slice001", "ALLX", "allOther", "CSAImageHeaderInfo"});
    VxAnonymizeImageStack module;
    VxData notAField;
    EXPECT_FALSE(module.portData.connect(&notAField)) << "only 3D fields are accepted";
    EXPECT_TRUE(module.portData.connect(f.get()));
    {
        VxMessageCapture capture;
        module.fire();
        EXPECT_EQ(capture.text(), "") << "nothing without a press";
        EXPECT_EQ(f->label(), "Doe^Jane");
    }
    for (int pressed = 0; pressed < 2; ++pressed) { // the replaced text still matches
        EXPECT_EQ(press(module), "anonymized patient name\nanonymized 3 single slices' bundles\n");
        EXPECT_EQ(module.result(0), f.get()) << "the field itself, no copy";
        EXPECT_EQ(f->label(), "Anonymized");
        const VxParamBundle *dicom = f->parameters().bundle("DICOM");
        const VxParamBundle *all = dicom->bundle("All");
        ASSERT_EQ(all->size(), 3);
        EXPECT_EQ(all->entry(1)->name(), "G0010-0010") << "replaced in its place";
        EXPECT_EQ(all->getString("G0010-0010"), "patient name: <Anonymized>");
        EXPECT_EQ(all->getString("G0008-0060"), "modality [CS]: CT");
        for (const char *cleared : {"Slice000", "Slice001", "CSAImageHeaderInfo"}) {
            EXPECT_EQ(dicom->bundle(cleared)->find("Filename"), nullptr) << cleared;
            EXPECT_EQ(dicom->bundle(cleared)->find("Name"), nullptr) << cleared;
            EXPECT_EQ(dicom->bundle(cleared)->getString("G0020-0013"), "instance number [IS]: 1");
        }
        for (const char *kept : {"ALLX", "allOther"}) // bundles beginning with "All" are not slices
            EXPECT_EQ(dicom->bundle(kept)->getString("Filename"), "/cd/DOE_JANE/IM0001") << kept;
    }
    VxAnonymizeImageStack unconnected;
    EXPECT_EQ(press(unconnected), "");
    EXPECT_EQ(unconnected.result(0), nullptr);

    const int dims[3] = {2, 2, 2};
    VxUniformScalarField3 plain(dims, KcPrimType::Int16, nullptr);
    plain.parameters().setString("Modality", "CT");
    VxAnonymizeImageStack relabel;
    relabel.portData.connect(&plain);
    EXPECT_EQ(press(relabel), "") << "a field without DICOM parameters is only relabelled";
    EXPECT_EQ(plain.label(), "Anonymized");
    EXPECT_EQ(plain.parameters().getString("Modality"), "CT");
}

TEST(AnonymizerModule, OnlyTheWordingPatientNameIsRecognised)
{
    const std::tuple<const char *, bool, const char *> rows[] = {
        {"patient name [PN]: Doe^Jane", true, "the dictionary name with its VR"},
        {"patient name: Doe^Jane", true, "without the VR"},
        {"PATIENT NAME [PN]: DOE^JANE", true, "compared without case"},
        {"patient name", true, "the prefix alone"},
        {"patient's name: Doe^Jane", false, "an older dictionary wording"},
        {"other patient names [PN]: Roe^Jane", false, "another element"},
        {"patient", false, "shorter than the prefix"},
    };
    for (const auto &[text, replaced, why] : rows) {
        auto f = field(text, {});
        VxAnonymizeImageStack module;
        module.portData.connect(f.get());
        EXPECT_EQ(press(module), replaced ? "anonymized patient name\n" : "") << why;
        const VxParamBundle *all = f->parameters().bundle("DICOM")->bundle("All");
        EXPECT_EQ(all->getString("G0010-0010"), replaced ? "patient name: <Anonymized>" : text)
            << why;
        EXPECT_EQ(all->getString("Count"), "3") << "non-string parameters are left alone";
    }
}

TEST(AnonymizerModule, RealCtParametersLoseNameAndFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<std::unique_ptr<VxDicomFile>> opened;
    VxDicomImageStack stack;
    std::vector<std::string> files;
    for (const char *name : {"I10", "I20", "I30", "I40"}) {
        files.push_back(vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/") + name);
        opened.push_back(std::make_unique<VxDicomFile>(files.back().c_str(),
                                                       static_cast<int>(opened.size()), 1));
        for (VxDicomImage *image : opened.back()->images)
            stack.append(image);
    }
    stack.setDicomParameters(false);
    const int dims[3] = {2, 2, 2};
    VxUniformScalarField3 f(dims, KcPrimType::Int16, nullptr);
    f.parameters().insert(new VxParamBundle(stack.parameters));
    // dcmdump: (0010,0010) PN [HEAD] in every file of this series.
    const std::string name = f.parameters().bundle("DICOM")->bundle("All")->getString("G0010-0010");
    ASSERT_EQ(name.substr(0, 12), "patient name");
    ASSERT_EQ(name.substr(name.size() - 6), ": HEAD");
    VxAnonymizeImageStack module;
    module.portData.connect(&f);
    EXPECT_EQ(press(module), "anonymized patient name\nanonymized 4 single slices' bundles\n");
    const std::string dump = f.parameters().dump();
    EXPECT_EQ(dump.find(name), std::string::npos) << dump;
    for (const std::string &file : files)
        EXPECT_EQ(dump.find(file), std::string::npos) << file;
    EXPECT_NE(dump.find("patient name: <Anonymized>"), std::string::npos);
}
