// The anonymizer module: what one press of "DoIt" changes in a field's DICOM parameters.
#include "vxdicom/params/VxAnonymizeImageStack.h"
#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"

#include <gtest/gtest.h>

namespace {

const int dims[3] = {2, 2, 2};

/// A field as loaded: bundles "All" and those named, each with that patient name, file and name.
std::unique_ptr<VxUniformScalarField3> field(const char *name, std::vector<const char *> bundles)
{
    auto f = std::make_unique<VxUniformScalarField3>(dims, KcPrimType::Int16, nullptr);
    auto *dicom = new VxParamBundle("DICOM");
    bundles.insert(bundles.begin(), "All");
    for (const char *b : bundles) {
        auto *bundle = new VxParamBundle(b);
        bundle->setString("G0010-0010", name);
        bundle->setString("Filename", "/cd/DOE_JANE/IM0001");
        bundle->setString("Name", "Doe^Jane");
        dicom->insert(bundle);
    }
    f->parameters().insert(dicom);
    f->setLabel("Doe^Jane");
    return f;
}

std::string press(VxField3 &f)
{
    VxAnonymizeImageStack module;
    EXPECT_TRUE(module.portData.connect(&f));
    VxMessageCapture capture;
    module.portAction.hit(0);
    module.fire();
    EXPECT_EQ(module.result(0), &f) << "the field itself, no copy";
    return capture.text();
}

} // namespace

TEST(AnonymizerModule, DoItReplacesThePatientNameAndDropsTheSlicesFileNamesInPlace)
{
    auto f = field("patient name [PN]: Doe^Jane", {"Slice000", "Slice001", "ALLX", "allOther"});
    EXPECT_EQ(press(*f), "anonymized patient name\nanonymized 2 single slices' bundles\n");
    EXPECT_EQ(f->label(), "Anonymized");
    const VxParamBundle *dicom = f->parameters().bundle("DICOM");
    EXPECT_EQ(dicom->bundle("All")->entry(0)->name(), "G0010-0010") << "replaced in place";
    EXPECT_EQ(dicom->bundle("All")->getString("G0010-0010"), "patient name: <Anonymized>");
    EXPECT_EQ(dicom->bundle("All")->getString("Filename"), "/cd/DOE_JANE/IM0001");
    for (const char *slice : {"Slice000", "Slice001"})
        EXPECT_FALSE(dicom->bundle(slice)->find("Filename") || dicom->bundle(slice)->find("Name"));
    for (const char *kept : {"ALLX", "allOther"}) // bundles beginning with "All" are not slices
        EXPECT_EQ(dicom->bundle(kept)->getString("Name"), "Doe^Jane") << kept;
    VxUniformScalarField3 plain(dims, KcPrimType::Int16, nullptr);
    EXPECT_EQ(press(plain), "") << "a field without DICOM parameters is only relabelled";
    EXPECT_EQ(plain.label(), "Anonymized");
    // Only the wording "patient name" (any case, a prefix) is recognised.
    for (const auto &[text, replaced] :
         {std::pair{"PATIENT NAME [PN]: DOE^JANE", true}, std::pair{"patient name", true},
          std::pair{"patient's name: Doe^Jane", false},
          std::pair{"other patient names [PN]: Roe^Jane", false}, std::pair{"patient", false}}) {
        auto g = field(text, {});
        EXPECT_EQ(press(*g), replaced ? "anonymized patient name\n" : "") << text;
        const VxParamBundle *all = g->parameters().bundle("DICOM")->bundle("All");
        EXPECT_EQ(all->getString("G0010-0010"), replaced ? "patient name: <Anonymized>" : text);
    }
}
