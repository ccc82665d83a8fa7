#pragma once
// Helpers of the reader tests: the folder's scripts, and files read as the reader reads them.

#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <iterator>
#include <sstream>

namespace readertest {

namespace fs = std::filesystem;

inline const char *const kMrFile = "dcm_qa_ge/In/01_Ax_DWI_TENSOR_R2/i22.MRDC.1";
inline const char *const kCtSeries = "dcm_qa_ct/In/Philips/S21610/S2010";

inline std::vector<std::string> words(const std::string &text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

/// Runs a script of this folder (or a path relative to it).
inline int runScript(const std::string &script, const std::vector<std::string> &args,
                     std::string *output, bool mergeStderr = true)
{
    return vxtest::runPython(std::string(VX_TEST_DIR "/") + script, args, output, mergeStderr);
}

inline QJsonArray pydicomReference(const std::vector<std::string> &args)
{
    return vxtest::pythonJson(VX_TEST_DIR "/reader_reference.py", args).array();
}

inline void editCopy(const std::string &src, const std::string &dst, const std::string &args)
{
    std::vector<std::string> all = words(args), out(1);
    all.insert(all.begin(), {src, dst});
    ASSERT_EQ(runScript("dicom_edit.py", all, &out[0]), 0) << out[0];
}

/// A series of make_series.py; its files by name.
inline std::vector<std::string> makeSeries(const std::string &dir, const std::string &args)
{
    std::vector<std::string> all = words(args), files;
    all.insert(all.begin(), dir);
    std::string out;
    EXPECT_EQ(runScript("../../support/make_series.py", all, &out), 0) << out;
    for (const std::string &name : vxtest::namesIn(dir))
        files.push_back(dir + "/" + name);
    return files;
}

/// Files read as the reader reads them, each one's position as its load index.
struct OpenedFiles
{
    explicit OpenedFiles(const std::vector<std::string> &paths = {}, int delayed = 1)
    {
        for (const std::string &p : paths)
            try {
                files.emplace_back(new VxDicomFile(p.c_str(), int(files.size()), delayed));
            } catch (const char *text) {
                ADD_FAILURE() << "reading " << p << " failed: " << text;
            }
    }
    KcDArray<VxDicomImage *> images() const
    {
        KcDArray<VxDicomImage *> out;
        for (const auto &f : files)
            for (VxDicomImage *image : f->images)
                out.append(image);
        return out;
    }
    VxDicomImage *image(int i) const { return images()[i]; }
    int size() const { return images().size(); }
    std::vector<std::unique_ptr<VxDicomFile>> files;
};

/// A stack as the browser makes one: by slice location, DICOM parameters attached.
inline std::unique_ptr<VxDicomImageStack> stackOf(const KcDArray<VxDicomImage *> &images)
{
    std::vector<VxDicomImage *> sorted(images.data(), images.data() + images.size());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](auto *a, auto *b) { return a->sliceLocation < b->sliceLocation; });
    auto stack = std::make_unique<VxDicomImageStack>();
    for (VxDicomImage *image : sorted)
        stack->append(image);
    stack->setDicomParameters(false);
    return stack;
}

} // namespace readertest
