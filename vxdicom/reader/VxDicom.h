#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"
#include "platform/data/VxDynamicSeriesCtrl.h"

class VxField3;
class VxDicomFile;
class VxDicomImage;

/// Reader entry, as the host's "load -dicom" command calls it. A last name
/// "-nodialog" is dropped and suppresses the import dialog. Returns 1 on
/// success (also when nothing was found or the dialog was cancelled), 0 when
/// there were no names or a stack's field could not be made.
int vxReadDicom(int n, const char **names);
int vxReadDicom(int n, const char **names, int showDialog, bool verbose);
/// The full pipeline; every created field is appended to `fields`.
int vxReadDicom(int n, const char **names, KcDArray<VxField3 *> &fields, int showDialog,
                bool verbose);

/// Whether delayed reading is on: "DICOM_DELAYED_READ" unset, or set to a
/// base-10 integer other than 0.
bool dicomDelayedReadEnabled();

/// The reading loop alone (files, DICOMDIR expansion, per-file and summary
/// messages, progress and interruption). The opened files and their images
/// are appended to the arrays; the caller owns the files. `names` grows with
/// the files that DICOMDIRs reference.
void readDicomFiles(KcDArray<KcString> &names, int delayed, bool verbose,
                    KcDArray<VxDicomFile *> &files, KcDArray<VxDicomImage *> &images);

/// Fields become time steps of one dynamic series instead of data objects
/// (set by every load from the dialog's "as time series" choice).
extern bool useDynamicSeriesCtrl;
/// Whether the user cancelled the import dialog in the last load (set by
/// every load; a cancelled load returns 1 all the same, as nothing failed).
extern bool dicomImportCancelled;
/// Files that could not be read and stacks that gave no field in the last
/// load (each also named on the console); the command line's exit status
/// follows it whatever the reading mode.
extern int dicomReadFailures;
/// Time steps collected during a load for the dynamic series control.
extern KcDArray<VxDynamicSeriesCtrl::TimeStep> timeSteps;
