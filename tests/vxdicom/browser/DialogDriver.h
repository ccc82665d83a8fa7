#pragma once

#include "platform/core/VxObjectPool.h"
#include "tests/support/WidgetDriver.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/browser/DicomDialogView.h"
#include "vxdicom/reader/VxDicom.h"

#include <QPointer>
#include <QTest>
#include <QTimer>

#include <functional>

namespace browsertest {

using namespace uitest;

/// What a load through the dialog gave; the fields are owned by the object pool.
struct LoadOutcome
{
    bool returned = false;
    int result = -1;
    bool cancelled = false;
    KcDArray<VxField3 *> fields;
};

/// Runs vxReadDicom on a worker thread with the dialog shown, as the program
/// does, while this (the GUI) thread runs the event loop; `drive` gets the
/// dialog once it is visible and ends it. A load that does not return within
/// a minute fails the test instead of hanging it.
inline LoadOutcome loadThroughDialog(const std::vector<std::string> &files,
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
        state->result = vxReadDicom(int(argv.size()), argv.data(), state->fields, 1, false);
        state->cancelled = dicomImportCancelled;
    });
    delete waiting.data();
    EXPECT_TRUE(*driven) << "the dialog was not shown";
    return state->returned ? *state : LoadOutcome();
}

/// The Philips CT (54 axial slices, patient name "HEAD"; its DICOMDIR left
/// out) and the Siemens sagittal T1 (35 slices, "HFS").
inline std::vector<std::string> twoSeries()
{
    std::vector<std::string> files;
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_ct/In"))
        if (f.find("DIRFILE") == std::string::npos)
            files.push_back(f);
    for (const std::string &f : vxtest::sharedDicomFiles("dcm_qa_decubitus/In"))
        files.push_back(f);
    return files;
}

using stacktest::instanceNumbers;
using stacktest::stackSizes;

inline int sectionOf(const QTreeWidget *list, const QString &label)
{
    for (int s = 0; s < list->columnCount(); ++s)
        if (list->headerItem()->text(s) == label)
            return s;
    return -1;
}

inline QTreeWidgetItem *rowOfText(QTreeWidget *tree, int column, const QString &text)
{
    const auto found = tree->findItems(text, Qt::MatchExactly, column);
    return found.isEmpty() ? nullptr : found.first();
}

/// Empties the object pool before and after a test of real series.
class RealSeries : public stacktest::RealSeries
{
protected:
    void SetUp() override
    {
        VxObjectPool::instance()->clear();
        stacktest::RealSeries::SetUp();
    }
    void TearDown() override
    {
        VxObjectPool::instance()->clear();
        stacktest::RealSeries::TearDown();
    }
};

} // namespace browsertest
