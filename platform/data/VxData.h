#pragma once

#include "platform/core/VxPoolObject.h"
#include "platform/data/VxParamBundle.h"

/// A data object of the host: pool object (label, load command) with a
/// parameter bundle.
class VxData : public VxPoolObject
{
public:
    VxParamBundle &parameters() { return params; }
    const VxParamBundle &parameters() const { return params; }
    const char *typeName() const override { return "VxData"; }

private:
    VxParamBundle params{"Parameters"};
};
