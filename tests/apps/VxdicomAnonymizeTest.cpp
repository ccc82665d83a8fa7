// Anonymising from the command line, both ways: the load's "Anonymize Data"
// choice (--anonymize) and the anonymizer module run on a saved field
// (vxdicom anonymize). Saved NRRD files then carry no patient name and no
// file names.

#include "tests/apps/CliRunner.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace clitest;

namespace {

const char *const kMrFolder = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag";

// The key/value lines of an NRRD header ("key:=value" and "field: value").
std::map<std::string, std::string> nrrdHeader(const std::string &path)
{
    const std::vector<unsigned char> bytes = vxtest::readFileBytes(path);
    std::map<std::string, std::string> header;
    size_t pos = 0;
    while (pos < bytes.size()) {
        size_t end = pos;
        while (end < bytes.size() && bytes[end] != '\n')
            ++end;
        const std::string line(bytes.begin() + static_cast<long>(pos),
                               bytes.begin() + static_cast<long>(end));
        if (line.empty())
            break; // the data follow
        const size_t keyValue = line.find(":=");
        const size_t field = line.find(": ");
        if (keyValue != std::string::npos)
            header[line.substr(0, keyValue)] = line.substr(keyValue + 2);
        else if (field != std::string::npos)
            header[line.substr(0, field)] = line.substr(field + 2);
        pos = end + 1;
    }
    return header;
}

// Everything an NRRD header must not say once anonymised: the patient's
// name and the names of the files the field came from.
void expectAnonymous(const std::string &path, const std::string &patientName,
                     const std::vector<std::string> &sources)
{
    const std::map<std::string, std::string> header = nrrdHeader(path);
    ASSERT_FALSE(header.empty()) << path;
    EXPECT_EQ(header.at("content"), "Anonymized");
    for (const auto &[key, value] : header) {
        EXPECT_EQ(key.find("Filename"), std::string::npos) << key;
        EXPECT_EQ(value.find(patientName), std::string::npos) << key << " = " << value;
        for (const std::string &source : sources)
            EXPECT_EQ(value.find(fs::path(source).filename().string()), std::string::npos)
                << key << " = " << value;
    }
}

} // namespace

TEST(VxdicomAnonymize, ModuleRunOnASavedFieldRemovesNameAndFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string saved = dir.file("saved");
    const Outcome load = vxdicom("load -nodialog -q --format nrrd -o " + q(saved) + " " +
                                 q(vxtest::sharedPath(kMrFolder)));
    ASSERT_EQ(load.status, 0) << load.err;
    // pydicom: (0010,0010) Patient's Name is "HFS" in this series.
    const std::string in = saved + "/HFS.nrrd";
    std::map<std::string, std::string> before = nrrdHeader(in);
    ASSERT_EQ(before["DICOM/All/G0010-0010"], "patient name: HFS");
    ASSERT_FALSE(before["DICOM/Slice034/Filename"].empty()) << "35 slices, each with its file";

    const std::string out = dir.file("anon.nrrd");
    const Outcome r = vxdicom("anonymize " + q(in) + " -o " + q(out));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "anonymized patient name\nanonymized 35 single slices' bundles\nsaved " + out + "\n");
    EXPECT_EQ(nrrdHeader(out)["DICOM/All/G0010-0010"], "patient name: <Anonymized>");
    expectAnonymous(out, ": HFS", vxtest::sharedDicomFiles(kMrFolder));
    const std::map<std::string, std::string> after = nrrdHeader(out);
    EXPECT_EQ(after.at("DICOM/All/G0010-0020"), before.at("DICOM/All/G0010-0020"))
        << "other patient attributes stay";
    EXPECT_EQ(after.at("sizes"), before.at("sizes"));
    EXPECT_EQ(after.at("space directions"), before.at("space directions"));
    EXPECT_EQ(after.at("space origin"), before.at("space origin"));

    // A second press finds the replaced name again, as the module does.
    const std::string again = dir.file("again.nrrd");
    const Outcome second = vxdicom("anonymize " + q(out) + " -o " + q(again));
    ASSERT_EQ(second.status, 0) << second.err;
    EXPECT_EQ(second.out, "anonymized patient name\nanonymized 35 single slices' bundles\nsaved " +
                              again + "\n");
}

TEST(VxdicomAnonymize, LoadChoiceLeavesOutThePatientGroupAndFileNames)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const std::string saved = dir.file("saved");
    const Outcome r = vxdicom("load -nodialog -q --anonymize --format nrrd -o " + q(saved) + " " +
                              q(vxtest::sharedPath(kMrFolder)));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(contains(r.out, "anonymized 35 single slices' bundles\n")) << r.out;
    EXPECT_FALSE(contains(r.out, "anonymized patient name")) << "group 0010 is not there at all";
    EXPECT_TRUE(contains(r.out, "field \"Anonymized\"")) << r.out;
    const std::string path = saved + "/Anonymized.nrrd";
    expectAnonymous(path, ": HFS", vxtest::sharedDicomFiles(kMrFolder));
    for (const auto &[key, value] : nrrdHeader(path))
        EXPECT_NE(key.rfind("DICOM/All/G0010-", 0), 0u) << key << " = " << value;
    EXPECT_FALSE(nrrdHeader(path)["DICOM/All/G0008-0060"].empty()) << "other groups stay";
}

TEST(VxdicomAnonymize, NiftiFieldIsOnlyRelabelled)
{
    VX_REQUIRE_SHARED_DATA();
    vxtest::TempDir dir;
    const Outcome load = vxdicom("load -nodialog -q --format nii -o " + q(dir.file("s")) + " " +
                                 q(vxtest::sharedPath(kMrFolder)));
    ASSERT_EQ(load.status, 0) << load.err;
    const std::string out = dir.file("anon.nii");
    const Outcome r = vxdicom("anonymize " + q(dir.file("s/HFS.nii")) + " -o " + q(out));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "saved " + out + "\n") << "no DICOM parameters, no messages";
    // NIfTI keeps the label in descrip (80 bytes at offset 148).
    const std::vector<unsigned char> bytes = vxtest::readFileBytes(out);
    ASSERT_GT(bytes.size(), 228u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(bytes.data() + 148)), "Anonymized");
}

TEST(VxdicomAnonymize, UsageAndFileErrors)
{
    vxtest::TempDir dir;
    Outcome r = vxdicom("anonymize");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "no IN given")) << r.err;
    r = vxdicom("anonymize in.nrrd");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "no OUT given (-o OUT)")) << r.err;
    r = vxdicom("anonymize in.nrrd -o out.dcm");
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(contains(r.err, "out.dcm: unknown ending")) << r.err;
    r = vxdicom("anonymize in.nrrd -o out.nhdr");
    EXPECT_EQ(r.status, 2);
    r = vxdicom("anonymize a.nrrd b.nrrd -o out.nrrd");
    EXPECT_EQ(r.status, 2);
    r = vxdicom("anonymize " + q(dir.file("missing.nrrd")) + " -o " + q(dir.file("out.nrrd")));
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(contains(r.err, dir.file("missing.nrrd"))) << r.err;
    EXPECT_FALSE(fs::exists(dir.file("out.nrrd")));
}
