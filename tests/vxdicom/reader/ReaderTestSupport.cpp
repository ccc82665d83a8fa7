#include "tests/vxdicom/reader/ReaderTestSupport.h"

#include "platform/gui/ThreadNegotiator.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/DicomImportDialog.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace readertest {

std::string scriptPath(const char *name)
{
    return (fs::path(VX_READER_TEST_DIR) / name).string();
}

int runScript(const char *script, const std::vector<std::string> &args, std::string *output,
              bool mergeStderr)
{
    std::string command = std::string(VX_PYTHON) + " " + vxtest::shellQuote(script);
    for (const std::string &a : args)
        command += " " + vxtest::shellQuote(a);
    return vxtest::runCommand(command, output, mergeStderr);
}

QJsonArray pydicomReference(const std::vector<std::string> &files, bool withPixels)
{
    std::vector<std::string> args;
    if (withPixels)
        args.push_back("--pixels");
    args.insert(args.end(), files.begin(), files.end());
    std::string out;
    const int rc = runScript(scriptPath("reader_reference.py").c_str(), args, &out);
    EXPECT_EQ(rc, 0) << "reader_reference.py failed";
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(out), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << error.errorString().toStdString();
    return doc.array();
}

void editCopy(const std::string &src, const std::string &dst, const std::vector<std::string> &args)
{
    std::vector<std::string> all = {src, dst};
    all.insert(all.end(), args.begin(), args.end());
    std::string out;
    const int rc = runScript(scriptPath("dicom_edit.py").c_str(), all, &out, true);
    ASSERT_EQ(rc, 0) << "dicom_edit.py failed: " << out;
}

void makeSeries(const std::string &dir, const std::vector<std::string> &args)
{
    std::vector<std::string> all = {dir};
    all.insert(all.end(), args.begin(), args.end());
    const std::string script =
        (fs::path(VX_READER_TEST_DIR) / ".." / ".." / "support" / "make_series.py").string();
    std::string out;
    const int rc = runScript(script.c_str(), all, &out, true);
    ASSERT_EQ(rc, 0) << "make_series.py failed: " << out;
}

std::vector<std::string> filesIn(const std::string &dir)
{
    std::vector<std::string> out;
    for (const auto &e : fs::directory_iterator(dir))
        if (e.is_regular_file())
            out.push_back(e.path().string());
    std::sort(out.begin(), out.end());
    return out;
}

OpenedFiles::OpenedFiles(const std::vector<std::string> &paths, int delayed)
{
    for (const std::string &p : paths)
        add(p, delayed);
}

OpenedFiles::~OpenedFiles()
{
    for (VxDicomFile *f : files)
        delete f;
}

VxDicomFile *OpenedFiles::add(const std::string &path, int delayed)
{
    try {
        files.push_back(new VxDicomFile(path.c_str(), static_cast<int>(files.size()), delayed));
    } catch (const char *text) {
        ADD_FAILURE() << "reading " << path << " failed: " << text;
        return nullptr;
    }
    return files.back();
}

KcDArray<VxDicomImage *> OpenedFiles::images() const
{
    KcDArray<VxDicomImage *> out;
    for (VxDicomFile *f : files)
        for (VxDicomImage *image : f->images)
            out.append(image);
    return out;
}

std::unique_ptr<VxDicomImageStack> stackOf(const KcDArray<VxDicomImage *> &images)
{
    std::vector<VxDicomImage *> sorted(images.data(), images.data() + images.size());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const VxDicomImage *a, const VxDicomImage *b) {
                         return a->sliceLocation < b->sliceLocation;
                     });
    auto stack = std::make_unique<VxDicomImageStack>();
    for (VxDicomImage *image : sorted)
        stack->append(image);
    stack->setDicomParameters(false);
    return stack;
}

namespace {

FakeDialogConfig theConfig;
DicomDialogNegotiatorFactory previousFactory = nullptr;

class FakeImportDialog : public ForkedObject, public DicomImportDialog
{
public:
    int exec() override
    {
        ++theConfig.execCount;
        if (theConfig.execResult == 1)
            build();
        dialogResult = theConfig.execResult;
        return dialogResult;
    }
    void setCaption(const QString &caption) override { theConfig.caption = caption.toStdString(); }
    void setImages(const KcDArray<VxDicomImage *> *list) override { images = list; }
    void setStacks(KcDArray<VxDicomImageStack *> *list) override { stacks = list; }
    int result() const override { return dialogResult; }
    bool exportImageStacks() override
    {
        ++theConfig.exportCount;
        build();
        return true;
    }
    bool getAsTimeSeries() const override { return theConfig.asTimeSeries; }

private:
    void build()
    {
        if (!images || !stacks)
            return;
        std::vector<int> order;
        std::map<int, KcDArray<VxDicomImage *>> bySeries;
        for (VxDicomImage *image : *images) {
            const char *s = dicom::dicomGetById(image->file->data, 0x0020, 0x0011);
            const int series = s ? std::atoi(s) : 0;
            if (!bySeries.count(series))
                order.push_back(series);
            bySeries[series].append(image);
        }
        for (int series : order) {
            VxDicomImageStack *stack = stackOf(bySeries[series]).release();
            stack->label = KcString::format("S%d", series);
            stacks->append(stack);
        }
        if (theConfig.adjust)
            theConfig.adjust(*stacks);
    }

    const KcDArray<VxDicomImage *> *images = nullptr;
    KcDArray<VxDicomImageStack *> *stacks = nullptr;
    int dialogResult = 0;
};

class FakeNegotiator : public ThreadNegotiator
{
protected:
    ForkedObject *create() override { return new FakeImportDialog; }
};

std::unique_ptr<ThreadNegotiator> makeFake()
{
    return std::make_unique<FakeNegotiator>();
}

} // namespace

FakeDialog::FakeDialog()
{
    theConfig = FakeDialogConfig();
    previousFactory = dicomDialogNegotiatorFactory();
    setDicomDialogNegotiatorFactory(&makeFake);
}

FakeDialog::~FakeDialog()
{
    setDicomDialogNegotiatorFactory(previousFactory);
    theConfig = FakeDialogConfig();
}

FakeDialogConfig &FakeDialog::config()
{
    return theConfig;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line))
        out.push_back(line);
    return out;
}

} // namespace readertest
