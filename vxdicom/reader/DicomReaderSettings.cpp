#include "vxdicom/reader/DicomReaderSettings.h"

#include "platform/core/VxPreferences.h"
#include "platform/core/VxScriptVars.h"

#include <atomic>
#include <cmath>
#include <cstdlib>

namespace {
std::atomic<float> theUnitFactor{0.1f};
}

float dicomMaxDistError()
{
    const char *value = VxScriptVars::instance()->get("DicomMaxDistError");
    if (!value)
        return 0.05f;
    return static_cast<float>(std::strtod(value, nullptr));
}

float dicomUnitFactor()
{
    return theUnitFactor.load();
}

void setDicomUnitFactor(float factor)
{
    theUnitFactor.store(factor);
}

void setDicomUnitFactorFromPreferences()
{
    if (std::getenv("ZENTA_MHT_STEREOTAXIS") || std::getenv("ZENTA_ZIEHM_RECONSTRUCTION")) {
        setDicomUnitFactor(1.0f);
        return;
    }
    const float unit = VxSettingsMgr::getInstance()->getPreferences().lengthUnit;
    // Single-precision epsilon, as the menu compares the stored unit.
    setDicomUnitFactor(std::fabs(unit - 0.01f) < 1.1920929e-07f ? 0.1f : 1.0f);
}
