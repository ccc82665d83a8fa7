// extractDicomDir and its walk over pydicom's DICOMDIRs (hand-made bytes: fuzz/, tests/hostile).

#include "vxdicom/reader/DicomDir.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "platform/dicom/dicom.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

using Ids = std::vector<std::string>;

/// The IDs dicomDirFileIds finds in a heap block of exactly the value's size (for ASan).
Ids walk(const std::string &bytes, bool big, bool explicitVr)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[std::max<size_t>(bytes.size(), 1)]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    KcDArray<KcString> ids;
    dicomDirFileIds(bytes.empty() ? nullptr : copy.get(), bytes.size(), big, explicitVr, ids);
    return Ids(ids.begin(), ids.end());
}

Ids pydicom(const std::string &arguments)
{
    std::string output, script = " " VX_TEST_DIR "/make_dicomdir.py ";
    EXPECT_EQ(vxtest::runCommand(VX_PYTHON + script + arguments + " 2>/dev/null", &output), 0)
        << arguments;
    Ids lines;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

/// A DICOMDIR written by pydicom with one IMAGE record per id.
void makeDicomDir(const std::string &out, const Ids &ids, const std::string &options = "")
{
    std::string arguments = vxtest::shellQuote(out) + " " + options;
    for (const std::string &id : ids)
        arguments += " --id " + vxtest::shellQuote(id);
    pydicom(arguments);
    ASSERT_TRUE(fs::is_regular_file(out)) << arguments;
}

/// The names extractDicomDir adds after `before` (the DICOMDIR itself when none).
Ids extracted(const std::string &dicomDir, Ids before = {})
{
    VxDicomFile file(dicomDir.c_str(), 0, 1);
    EXPECT_TRUE(file.isDicomDir()) << dicomDir;
    KcDArray<KcString> names;
    for (const std::string &n : before.empty() ? Ids{dicomDir} : before)
        names.append(n);
    const int given = names.size();
    const int count = extractDicomDir(&file, names);
    EXPECT_EQ(count, names.size());
    return Ids(names.begin() + given, names.end());
}

} // namespace

// pydicom's DICOMDIRs, ours in every encoding and its test set: every file, and cuts a prefix.
TEST(DicomDirExtraction, PydicomsDicomDirsGiveWhatPydicomReadsWholeOrCut)
{
    vxtest::TempDir dir;
    std::vector<std::pair<std::string, size_t>> sets; // path, number of records
    for (const char *syntax : {"explicit", "implicit", "big"})
        for (const char *lengths : {"", "--undefined-lengths"}) {
            sets.emplace_back(dir.file(std::string("DIR_") + syntax + lengths), 3);
            makeDicomDir(sets.back().first, {"IMAGES\\CT\\IM0001", "  IMAGES\\IM2", "IM3"},
                         std::string("--syntax ") + syntax + " " + lengths);
        }
    const std::string folder = pydicom("--folder").at(0);
    if (fs::is_regular_file(folder + "/DICOMDIR"))
        for (const char *name : {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-bigEnd",
                                 "DICOMDIR-reordered", "DICOMDIR-nooffset"})
            sets.emplace_back(folder + "/" + name, 31);
    else
        std::cout << "pydicom's test DICOMDIRs are not installed (python3-pydicom)\n";
    for (const auto &[path, records] : sets) {
        SCOPED_TRACE(path);
        const Ids names = extracted(path);
        ASSERT_EQ(names.size(), records);
        EXPECT_EQ(names, pydicom("--list " + vxtest::shellQuote(path)));
        for (const std::string &n : names)
            EXPECT_TRUE(records == 3u || fs::is_regular_file(n)) << n;
        if (path.ends_with("-reordered") || path.ends_with("-nooffset"))
            continue;
        std::string why;
        dicom::dicomStruct *d = dicom::dicomReadFile(path.c_str(), 1, &why);
        ASSERT_NE(d, nullptr) << why;
        const dicom::dicomDataElement *e = dicom::dicomFindElement(d, 0x0004, 0x1220);
        ASSERT_TRUE(e && e->data && e->length > 0);
        const std::string seq(e->data, e->data + e->length);
        const bool big = d->bigEndian, explicitVr = d->explicitVR;
        dicom::dicomFree(d);
        const Ids ids = walk(seq, big, explicitVr);
        for (size_t n = 0; n < seq.size(); ++n) {
            const Ids cut = walk(seq.substr(0, n), big, explicitVr);
            ASSERT_LE(cut.size(), ids.size()) << "cut at " << n;
            ASSERT_TRUE(std::equal(cut.begin(), cut.end(), ids.begin())) << "cut at " << n;
        }
    }
}

// IDs join the last name's folder, matched without case; empty or escaping ones and an
// inconsistent file set add nothing; a self-listing DICOMDIR is read once.
TEST(DicomDirExtraction, FileIdsResolveInsideTheFolderOfTheLastNameAndEachDicomDirIsReadOnce)
{
    vxtest::TempDir dir;
    for (const char *folder : {"images/series1", "self"})
        fs::create_directories(dir.path() / folder);
    vxtest::writeFileBytes(dir.file("images/series1/img0001"), {1});
    vxtest::writeFileBytes(dir.file("Im2"), {1});
    const std::string dicomDir = dir.file("DICOMDIR");
    makeDicomDir(dicomDir, {"IMAGES\\SERIES1\\IMG0001", "IM2", "MISSING", "..\\..\\ETC\\PASSWD",
                            "  ", "IMAGES\\..\\X"});
    EXPECT_EQ(extracted(dicomDir),
              (Ids{dir.file("images/series1/img0001"), dir.file("Im2"), dir.file("MISSING")}));
    EXPECT_EQ(extracted(dicomDir, {dicomDir, "/elsewhere/x.dcm"}),
              (Ids{"/elsewhere/IMAGES/SERIES1/IMG0001", "/elsewhere/IM2", "/elsewhere/MISSING"}))
        << "the last name's folder, not the DICOMDIR's";
    makeDicomDir(dir.file("FLAGGED"), {"IM2"}, "--inconsistent");
    EXPECT_TRUE(extracted(dir.file("FLAGGED")).empty());

    makeDicomDir(dir.file("self/DICOMDIR"), {"DICOMDIR"});
    KcDArray<KcString> names;
    names.append(dir.file("self/DICOMDIR"));
    KcDArray<VxDicomFile *> files;
    KcDArray<VxDicomImage *> images;
    VxMessageCapture capture;
    std::vector<std::string> progress;
    VxWorkArea::instance()->setObserver(
        [&](const std::string &s, float) { progress.push_back(s); });
    readDicomFiles(names, 1, false, files, images);
    VxWorkArea::instance()->setObserver(nullptr);
    EXPECT_EQ(progress.at(0), "processing DICOMDIR...") << "a DICOMDIR switches progress on";
    EXPECT_TRUE(files.isEmpty()) << "a DICOMDIR is not kept as a file";
    EXPECT_EQ(Ids(names.begin(), names.end()), Ids(2, dir.file("self/DICOMDIR")));
    EXPECT_TRUE(capture.contains("DICOMDIR " + dir.file("self/DICOMDIR") +
                                 " was read before; its files are not added again"))
        << capture.text();
}
