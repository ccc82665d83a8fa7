#pragma once

#include <QObject>
#include <QStringList>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

class VxPoolObject;

namespace vxview {

/// What an open left behind.
struct OpenOutcome
{
    /// The objects the open added to the object pool (fields, a time-series
    /// control); none when it was cancelled.
    std::vector<VxPoolObject *> added;
    bool cancelled = false;       ///< Cancel was pressed (nothing is kept)
    bool dialogCancelled = false; ///< the import dialog was cancelled
    int failures = 0;             ///< files and stacks that could not be read
    bool ok = false;              ///< the reader entry succeeded
};

/// Opens DICOM files as the host's "load -dicom" does: the reader entry
/// (vxReadDicom) runs on a worker thread while this (the GUI) thread runs the
/// event loop, so that the import dialog and the reader's questions come up
/// through the thread negotiator; the work area's progress comes back as
/// signals. Cancel interrupts the reading and the pixel loading, skips the
/// import dialog when it is not up yet, and removes whatever the open had
/// already added, so a cancelled open loads nothing. One open at a time.
class DicomOpener : public QObject
{
    Q_OBJECT
public:
    explicit DicomOpener(QObject *parent = nullptr);
    /// A running open is cancelled and waited for (the event loop keeps
    /// running meanwhile, so that a dialog step can finish).
    ~DicomOpener() override;

    /// Starts reading the files (a folder's files must already be listed).
    /// With showDialog the import dialog is shown (when there is a display),
    /// otherwise the stacks load as the criteria group them. asTimeSeries
    /// loads the stacks as the steps of one time-series control. False when
    /// an open is running or there is no name.
    bool open(const QStringList &files, bool showDialog, bool asTimeSeries);
    bool isRunning() const { return running; }
    /// Asks the running open to stop; nothing it read is kept.
    void cancel();
    /// Cancels a running open and waits for it without signalling its end
    /// (for owners that are going away).
    void cancelAndWait();

signals:
    /// The work area's status text and fraction (0..1).
    void progress(const QString &status, double fraction);
    /// The open ended (on the GUI thread, the worker joined).
    void finished(const vxview::OpenOutcome &outcome);

private:
    void finish();

    bool running = false;
    std::atomic<bool> workDone{false};
    std::thread worker;
    std::vector<VxPoolObject *> poolBefore;
    int result = 0;
};

} // namespace vxview

Q_DECLARE_METATYPE(vxview::OpenOutcome)
