#pragma once

#include "platform/core/KcDArray.h"

#include <QString>

#include <memory>

class ThreadNegotiator;
class VxDicomImage;
class VxDicomImageStack;

/// What the load pipeline needs of the import dialog. The dialog itself
/// (widgets, browser list) lives above the reader and registers a factory of
/// its negotiator, so that the reader depends on no widget. Every call is
/// made on the GUI thread (through the negotiator).
class DicomImportDialog
{
public:
    virtual ~DicomImportDialog() = default;
    virtual void setCaption(const QString &caption) = 0;
    virtual void setImages(const KcDArray<VxDicomImage *> *images) = 0;
    virtual void setStacks(KcDArray<VxDicomImageStack *> *stacks) = 0;
    /// Result of the last modal run (1 = accepted).
    virtual int result() const = 0;
    /// Exports the loadable stacks with the default grouping, without showing
    /// the dialog; false when the export was refused.
    virtual bool exportImageStacks() = 0;
    /// The "as time series" choice.
    virtual bool getAsTimeSeries() const = 0;
};

/// Makes the negotiator whose forked object is a DicomImportDialog.
using DicomDialogNegotiatorFactory = std::unique_ptr<ThreadNegotiator> (*)();
void setDicomDialogNegotiatorFactory(DicomDialogNegotiatorFactory factory);
DicomDialogNegotiatorFactory dicomDialogNegotiatorFactory();
