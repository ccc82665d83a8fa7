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

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

std::unique_ptr<VxUniformScalarField3> smallField()
{
    const int dims[3] = {2, 2, 2};
    return std::make_unique<VxUniformScalarField3>(dims, KcPrimType::Int16, nullptr);
}

// The layout a loaded field carries: "DICOM" with "All" and one bundle per slice.
std::unique_ptr<VxUniformScalarField3> fieldWithDicomBundles(int slices)
{
    auto field = smallField();
    auto dicom = std::make_unique<VxParamBundle>("DICOM");
    auto all = std::make_unique<VxParamBundle>("All");
    all->setString("G0008-0060", "modality [CS]: CT");
    all->setString("G0010-0010", "patient name [PN]: Doe^Jane");
    all->setString("G0010-0020", "patient id [LO]: 12345");
    dicom->insert(all.release());
    for (int s = 0; s < slices; ++s) {
        auto slice = std::make_unique<VxParamBundle>(KcString::format("Slice%03d", s).c_str());
        slice->setString("G0020-0013", KcString::format("instance number [IS]: %d", s + 1));
        slice->setString("Filename", KcString::format("/cd/DOE_JANE/IM%04d", s + 1));
        slice->setString("Name", "Doe^Jane");
        dicom->insert(slice.release());
    }
    field->parameters().insert(dicom.release());
    field->setLabel("Doe^Jane");
    return field;
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
    auto field = fieldWithDicomBundles(3);
    VxAnonymizeImageStack module;
    VxData notAField;
    EXPECT_FALSE(module.portData.connect(&notAField)) << "only 3D fields are accepted";
    EXPECT_TRUE(module.portData.connect(field.get()));
    EXPECT_EQ(press(module), "anonymized patient name\nanonymized 3 single slices' bundles\n");

    EXPECT_EQ(module.result(0), field.get()) << "the field itself, no copy";
    EXPECT_EQ(field->label(), "Anonymized");
    const VxParamBundle *dicom = field->parameters().bundle("DICOM");
    ASSERT_NE(dicom, nullptr);
    const VxParamBundle *all = dicom->bundle("All");
    ASSERT_NE(all, nullptr);
    ASSERT_EQ(all->size(), 3);
    EXPECT_EQ(all->entry(1)->name(), "G0010-0010") << "replaced in its place";
    EXPECT_EQ(all->getString("G0010-0010"), "patient name: <Anonymized>");
    EXPECT_EQ(all->getString("G0010-0020"), "patient id [LO]: 12345") << "only the name";
    EXPECT_EQ(all->getString("G0008-0060"), "modality [CS]: CT");
    for (int s = 0; s < 3; ++s) {
        const VxParamBundle *slice = dicom->bundle(KcString::format("Slice%03d", s).c_str());
        ASSERT_NE(slice, nullptr);
        EXPECT_EQ(slice->find("Filename"), nullptr);
        EXPECT_EQ(slice->find("Name"), nullptr);
        EXPECT_EQ(slice->getString("G0020-0013"),
                  KcString::format("instance number [IS]: %d", s + 1));
    }
    // A second press: the replaced text still begins with "patient name".
    EXPECT_EQ(press(module), "anonymized patient name\nanonymized 3 single slices' bundles\n");
    EXPECT_EQ(all->getString("G0010-0010"), "patient name: <Anonymized>");
}

TEST(AnonymizerModule, NothingHappensWithoutAPressOrWithoutAField)
{
    auto field = fieldWithDicomBundles(1);
    VxAnonymizeImageStack module;
    module.portData.connect(field.get());
    {
        VxMessageCapture capture;
        module.fire();
        EXPECT_EQ(capture.text(), "");
    }
    EXPECT_EQ(module.result(0), nullptr);
    EXPECT_EQ(field->label(), "Doe^Jane");
    EXPECT_EQ(field->parameters().bundle("DICOM")->bundle("Slice000")->getString("Name"),
              "Doe^Jane");

    VxAnonymizeImageStack unconnected;
    EXPECT_EQ(press(unconnected), "");
    EXPECT_EQ(unconnected.result(0), nullptr);
}

TEST(AnonymizerModule, OnlyTheWordingPatientNameIsRecognised)
{
    struct Row
    {
        const char *text;
        bool replaced;
        const char *why;
    };
    const Row rows[] = {
        {"patient name [PN]: Doe^Jane", true, "the dictionary name with its VR"},
        {"patient name: Doe^Jane", true, "without the VR"},
        {"PATIENT NAME [PN]: DOE^JANE", true, "compared without case"},
        {"patient name", true, "the prefix alone"},
        {"patient's name: Doe^Jane", false, "an older dictionary wording"},
        {"other patient names [PN]: Roe^Jane", false, "another element"},
        {"patient", false, "shorter than the prefix"},
    };
    for (const Row &row : rows) {
        auto field = smallField();
        auto dicom = std::make_unique<VxParamBundle>("DICOM");
        auto all = std::make_unique<VxParamBundle>("All");
        all->setString("G0010-0010", row.text);
        all->setInt("Count", 3);
        dicom->insert(all.release());
        field->parameters().insert(dicom.release());
        VxAnonymizeImageStack module;
        module.portData.connect(field.get());
        const std::string messages = press(module);
        const VxParamBundle *after = field->parameters().bundle("DICOM")->bundle("All");
        EXPECT_EQ(after->getString("G0010-0010"),
                  row.replaced ? "patient name: <Anonymized>" : row.text)
            << row.why;
        EXPECT_EQ(messages, row.replaced ? "anonymized patient name\n" : "") << row.why;
        EXPECT_EQ(after->getString("Count"), "3") << "non-string parameters are left alone";
    }
}

TEST(AnonymizerModule, BundlesBeginningWithAllAreNotSlices)
{
    auto field = smallField();
    auto dicom = std::make_unique<VxParamBundle>("DICOM");
    for (const char *name : {"All", "ALLX", "allOther", "Slice000", "CSAImageHeaderInfo"}) {
        auto b = std::make_unique<VxParamBundle>(name);
        b->setString("Filename", "/cd/IM1");
        dicom->insert(b.release());
    }
    field->parameters().insert(dicom.release());
    VxAnonymizeImageStack module;
    module.portData.connect(field.get());
    EXPECT_EQ(press(module), "anonymized 2 single slices' bundles\n");
    const VxParamBundle *after = field->parameters().bundle("DICOM");
    for (const char *kept : {"All", "ALLX", "allOther"})
        EXPECT_EQ(after->bundle(kept)->getString("Filename"), "/cd/IM1") << kept;
    for (const char *cleared : {"Slice000", "CSAImageHeaderInfo"})
        EXPECT_EQ(after->bundle(cleared)->find("Filename"), nullptr) << cleared;
}

TEST(AnonymizerModule, FieldWithoutDicomParametersIsOnlyRelabelled)
{
    auto field = smallField();
    field->parameters().setString("Modality", "CT");
    field->setLabel("scan");
    VxAnonymizeImageStack module;
    module.portData.connect(field.get());
    EXPECT_EQ(press(module), "");
    EXPECT_EQ(field->label(), "Anonymized");
    EXPECT_EQ(module.result(0), field.get());
    EXPECT_EQ(field->parameters().getString("Modality"), "CT");
}

TEST(AnonymizerModule, RealCtParametersLoseNameAndFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_ct/In/Philips/S21610/S2010");
    files.erase(
        std::remove_if(files.begin(), files.end(),
                       [](const std::string &f) { return f.find("DIRFILE") != std::string::npos; }),
        files.end());
    ASSERT_GE(files.size(), 4u);
    std::vector<std::unique_ptr<VxDicomFile>> opened;
    VxDicomImageStack stack;
    for (size_t i = 0; i < 4; ++i) {
        opened.push_back(std::make_unique<VxDicomFile>(files[i].c_str(), static_cast<int>(i), 1));
        for (VxDicomImage *image : opened.back()->images)
            stack.append(image);
    }
    stack.setDicomParameters(false);
    auto field = smallField();
    field->parameters().insert(new VxParamBundle(stack.parameters));
    const VxParamBundle *all = field->parameters().bundle("DICOM")->bundle("All");
    ASSERT_NE(all, nullptr);
    // dcmdump: (0010,0010) PN [HEAD] in every file of this series.
    const std::string name = all->getString("G0010-0010");
    ASSERT_EQ(name.substr(0, 12), "patient name");
    ASSERT_EQ(name.substr(name.size() - 6), ": HEAD");

    VxAnonymizeImageStack module;
    module.portData.connect(field.get());
    EXPECT_EQ(press(module), "anonymized patient name\nanonymized 4 single slices' bundles\n");
    const std::string dump = field->parameters().dump();
    EXPECT_EQ(dump.find(name), std::string::npos) << dump;
    for (const std::string &f : files)
        EXPECT_EQ(dump.find(f), std::string::npos) << f;
    EXPECT_NE(dump.find("patient name: <Anonymized>"), std::string::npos);
}
