#include "platform/data/VxDynamicSeriesCtrl.h"

#include <unordered_set>

VxDynamicSeriesCtrl::VxDynamicSeriesCtrl() = default;

VxDynamicSeriesCtrl::~VxDynamicSeriesCtrl()
{
    destroySteps(nullptr);
}

void VxDynamicSeriesCtrl::destroySteps(const KcDArray<TimeStep> *keep)
{
    std::unordered_set<VxData *> spared;
    if (keep)
        for (const TimeStep &s : *keep)
            for (VxData *d : s)
                spared.insert(d);
    std::unordered_set<VxData *> destroyed;
    for (TimeStep &s : steps)
        for (VxData *d : s)
            if (d && !spared.count(d) && destroyed.insert(d).second)
                delete d;
    steps.clear();
    current = -1;
}

void VxDynamicSeriesCtrl::init(const KcDArray<TimeStep> &newSteps)
{
    destroySteps(&newSteps);
    for (const TimeStep &s : newSteps) {
        TimeStep kept;
        for (VxData *d : s)
            if (d)
                kept.append(d);
        steps.append(std::move(kept));
    }
    current = steps.isEmpty() ? -1 : 0;
}

const VxDynamicSeriesCtrl::TimeStep &VxDynamicSeriesCtrl::step(int i) const
{
    static const TimeStep none;
    return i >= 0 && i < steps.size() ? steps[i] : none;
}

bool VxDynamicSeriesCtrl::setCurrentStep(int i)
{
    if (i < 0 || i >= steps.size())
        return false;
    current = i;
    return true;
}

VxData *VxDynamicSeriesCtrl::currentData(int j) const
{
    const TimeStep &s = step(current);
    return j >= 0 && j < s.size() ? s[j] : nullptr;
}

int VxDynamicSeriesCtrl::saveCreation(FILE *, const char *, int)
{
    return 0;
}
