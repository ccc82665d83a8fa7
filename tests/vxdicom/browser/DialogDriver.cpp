#include "tests/vxdicom/browser/DialogDriver.h"

#include "tests/support/TestSupport.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <QPointer>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

namespace browsertest {

LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
                              const std::function<void(DicomDialog &)> &drive)
{
    registerDicomImportDialog();
    auto driven = std::make_shared<bool>(false);
    const QPointer<QTimer> waiting =
        when([driven] { return !*driven && visibleWindow<DicomDialog>(); },
             [driven, drive] {
                 *driven = true;
                 drive(*visibleWindow<DicomDialog>());
             });
    // Owned by the worker too, which may outlive a test that gave up on it.
    auto state = std::make_shared<LoadOutcome>();
    auto names = std::make_shared<std::vector<std::string>>(files);
    state->returned = runOnWorker([state, names] {
        std::vector<const char *> argv;
        for (const std::string &n : *names)
            argv.push_back(n.c_str());
        state->result =
            vxReadDicom(static_cast<int>(argv.size()), argv.data(), state->fields, 1, false);
        state->cancelled = dicomImportCancelled;
    });
    delete waiting.data();
    EXPECT_TRUE(*driven) << "the dialog was not shown";
    return state->returned ? *state : LoadOutcome();
}

std::vector<std::string> twoSeries()
{
    // The CT folder's DICOMDIR (DIRFILE) is left out: it lists the same images.
    std::vector<std::string> files;
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_ct/In"))
        if (f.find("DIRFILE") == std::string::npos)
            files.push_back(f);
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_decubitus/In"))
        files.push_back(f);
    return files;
}

} // namespace browsertest
