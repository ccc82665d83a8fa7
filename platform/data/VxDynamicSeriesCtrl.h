#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/VxPoolObject.h"
#include "platform/data/VxData.h"

#include <cstdio>

/// The host's time-series control: a sequence of time steps, each a list of
/// data objects, of which one step is current. The control lives in the
/// object pool like a data object; the objects of its steps are not in the
/// pool but owned by the control.
class VxDynamicSeriesCtrl : public VxPoolObject
{
public:
    /// The data objects that make up one time step.
    using TimeStep = KcDArray<VxData *>;

    VxDynamicSeriesCtrl();
    /// Destroys every object of every step (an object listed in several
    /// steps once).
    ~VxDynamicSeriesCtrl() override;
    VxDynamicSeriesCtrl(const VxDynamicSeriesCtrl &) = delete;
    VxDynamicSeriesCtrl &operator=(const VxDynamicSeriesCtrl &) = delete;

    /// Takes ownership of the objects of all steps (null entries are dropped)
    /// and makes step 0 current. Steps of an earlier init() are destroyed,
    /// except objects handed over again. The caller keeps the array itself
    /// and must not destroy the objects.
    void init(const KcDArray<TimeStep> &steps);

    int nSteps() const { return steps.size(); }
    /// Step i; an empty step when i is out of range.
    const TimeStep &step(int i) const;

    /// The current step's index, or -1 when there is no step.
    int currentStep() const { return current; }
    /// Makes step i current; false (and no change) when i is out of range.
    bool setCurrentStep(int i);
    /// Object j of the current step, or null.
    VxData *currentData(int j = 0) const;

    /// Writes the script command that recreates the control into file; the
    /// host calls it when it saves a session. dataDir is the folder the
    /// session's data is saved to, flags are the host's save flags. Returns 0
    /// on success. The base control cannot be recreated and writes nothing.
    virtual int saveCreation(FILE *file, const char *dataDir, int flags);

    const char *typeName() const override { return "VxDynamicSeriesCtrl"; }

private:
    void destroySteps(const KcDArray<TimeStep> *keep);

    KcDArray<TimeStep> steps;
    int current = -1;
};
