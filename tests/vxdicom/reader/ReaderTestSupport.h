#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"
#include "tests/support/TestSupport.h"

#include <QJsonArray>
#include <QJsonObject>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class VxDicomFile;
class VxDicomImage;
class VxDicomImageStack;

namespace readertest {

/// Path of a script in this test folder.
std::string scriptPath(const char *name);

/// Runs /usr/bin/python3 with the script of this folder and the arguments
/// (each quoted for the shell); returns its exit status, fills output.
int runScript(const char *script, const std::vector<std::string> &args, std::string *output,
              bool mergeStderr = false);

/// pydicom's view of the files (reader_reference.py), keyed by path.
QJsonArray pydicomReference(const std::vector<std::string> &files, bool withPixels = false);

/// Copies src to dst with dicom_edit.py, passing the editing arguments
/// ("--set", "Columns=0", ...). Fails the current test when the script fails.
void editCopy(const std::string &src, const std::string &dst, const std::vector<std::string> &args);

/// Writes a small synthetic series with tests/support/make_series.py.
void makeSeries(const std::string &dir, const std::vector<std::string> &args);

/// The DICOM files of a folder (every regular file), sorted by name.
std::vector<std::string> filesIn(const std::string &dir);

using vxtest::ScopedEnv;

/// Files read as the reader reads them, owned here.
class OpenedFiles
{
public:
    OpenedFiles() = default;
    explicit OpenedFiles(const std::vector<std::string> &paths, int delayed = 1);
    ~OpenedFiles();
    OpenedFiles(const OpenedFiles &) = delete;
    OpenedFiles &operator=(const OpenedFiles &) = delete;

    VxDicomFile *add(const std::string &path, int delayed = 1);
    KcDArray<VxDicomImage *> images() const;
    std::vector<VxDicomFile *> files;
};

/// A stack made as the browser makes one: the images in ascending slice
/// location, with the DICOM parameters attached.
std::unique_ptr<VxDicomImageStack> stackOf(const KcDArray<VxDicomImage *> &images);

/// The import dialog that the load pipeline drives, replaced by one whose
/// answers the test sets: images are grouped into stacks by Series Number
/// (0020,0011), in ascending slice location, in the order the series first
/// appear; each stack's label is "S<series number>".
struct FakeDialogConfig
{
    int execResult = 1; ///< result of a modal run
    bool asTimeSeries = false;
    int execCount = 0;   ///< modal runs so far
    int exportCount = 0; ///< silent exports so far
    KcString caption;    ///< the caption the pipeline set
    /// Changes the stacks before they are handed back (names, labels).
    std::function<void(KcDArray<VxDicomImageStack *> &)> adjust;
};
/// Registers the fake dialog for the lifetime of the object (and resets the
/// configuration); restores the previous factory afterwards.
class FakeDialog
{
public:
    FakeDialog();
    ~FakeDialog();
    FakeDialogConfig &config();
};

/// Lines of a captured console text.
std::vector<std::string> lines(const std::string &text);

} // namespace readertest
