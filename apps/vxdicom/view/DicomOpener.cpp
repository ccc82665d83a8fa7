#include "apps/vxdicom/view/DicomOpener.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <QCoreApplication>
#include <QMetaObject>

#include <algorithm>
#include <chrono>
#include <exception>
#include <string>

namespace vxview {

namespace {

// The reader asks its dialog factory for the import dialog; a plain function
// pointer cannot carry the opener, so the one open that runs at a time
// leaves its Cancel here.
std::atomic<bool> gCancelled{false};

// The import dialog of the viewer: the browser's dialog, except that an
// open cancelled before the dialog came up neither shows it nor exports a
// stack, so the reader makes no field.
class ViewImportDialog : public DicomDialog
{
public:
    int exec() override
    {
        if (gCancelled) {
            skipped = true;
            return 0;
        }
        return DicomDialog::exec();
    }
    int result() const override { return skipped ? 0 : DicomDialog::result(); }
    bool exportImageStacks() override
    {
        return gCancelled ? false : DicomDialog::exportImageStacks();
    }

private:
    bool skipped = false;
};

class ViewImportNegotiator : public ThreadNegotiator
{
protected:
    ForkedObject *create() override { return new ViewImportDialog; }
};

std::unique_ptr<ThreadNegotiator> makeNegotiator()
{
    return std::make_unique<ViewImportNegotiator>();
}

} // namespace

DicomOpener::DicomOpener(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<vxview::OpenOutcome>();
}

DicomOpener::~DicomOpener()
{
    cancelAndWait();
}

void DicomOpener::cancelAndWait()
{
    if (!running)
        return;
    disconnect(this, nullptr, nullptr, nullptr);
    cancel();
    // The worker may be waiting for a dialog step of the GUI thread: keep
    // the events coming until it ends.
    while (!workDone) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    finish();
}

bool DicomOpener::open(const QStringList &files, bool showDialog, bool asTimeSeries)
{
    if (running || files.isEmpty())
        return false;
    running = true;
    workDone = false;
    gCancelled = false;
    poolBefore.clear();
    for (VxPoolObject *o : VxObjectPool::instance()->objects())
        poolBefore.push_back(o);

    DicomLoadChoices choices;
    choices.asTimeSeries = asTimeSeries;
    setDicomLoadChoices(choices);
    setDicomDialogNegotiatorFactory(&makeNegotiator);
    // The work area clears its interrupt whenever a new phase starts (the
    // files, then each stack's pixels): a cancelled open sets it again at
    // every step, so that no later phase runs to its end.
    VxWorkArea::instance()->setObserver([this](const std::string &status, float fraction) {
        if (gCancelled)
            VxWorkArea::instance()->interrupt();
        const QString text = QString::fromStdString(status);
        QMetaObject::invokeMethod(
            this, [this, text, fraction] { emit progress(text, fraction); }, Qt::QueuedConnection);
    });

    std::vector<std::string> names;
    for (const QString &f : files)
        names.push_back(f.toStdString());
    const bool dialog = showDialog && VxWarningDialog::haveDisplay();
    worker = std::thread([this, names, dialog] {
        int r = 0;
        try {
            std::vector<const char *> argv;
            for (const std::string &n : names)
                argv.push_back(n.c_str());
            KcDArray<VxField3 *> fields;
            r = vxReadDicom(static_cast<int>(argv.size()), argv.data(), fields, dialog ? 1 : 0,
                            true);
        } catch (const std::exception &e) {
            VxMessage::getTheMsg()->error("opening DICOM files failed: %s\n", e.what());
        } catch (const char *text) {
            VxMessage::getTheMsg()->error("opening DICOM files failed: %s\n", text);
        } catch (...) {
            VxMessage::getTheMsg()->error("opening DICOM files failed\n");
        }
        result = r;
        workDone = true;
        QMetaObject::invokeMethod(
            this, [this] { finish(); }, Qt::QueuedConnection);
    });
    return true;
}

void DicomOpener::cancel()
{
    if (!running)
        return;
    gCancelled = true;
    VxWorkArea::instance()->interrupt();
}

void DicomOpener::finish()
{
    if (!running || !workDone)
        return;
    worker.join();
    VxWorkArea::instance()->setObserver(VxWorkArea::Observer());

    OpenOutcome outcome;
    outcome.cancelled = gCancelled;
    outcome.dialogCancelled = dicomImportCancelled;
    outcome.failures = dicomReadFailures;
    outcome.ok = result == 1;
    std::vector<VxPoolObject *> added;
    for (VxPoolObject *o : VxObjectPool::instance()->objects())
        if (std::find(poolBefore.begin(), poolBefore.end(), o) == poolBefore.end())
            added.push_back(o);
    if (outcome.cancelled) {
        for (VxPoolObject *o : added)
            VxObjectPool::instance()->remove(o);
        VxMessage::getTheMsg()->printf("opening cancelled; nothing was loaded\n");
    } else {
        outcome.added = added;
    }
    running = false;
    emit finished(outcome);
}

} // namespace vxview
