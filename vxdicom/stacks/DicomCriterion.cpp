#include "vxdicom/stacks/DicomCriterion.h"

#include "platform/core/VxScriptVars.h"
#include "vxdicom/stacks/DicomLoadOption.h"

#include <atomic>
#include <cmath>
#include <cstdlib>

namespace {

std::atomic<float> uniformTolerance{0.02f};

int sign(double v)
{
    return v > 0 ? 1 : v < 0 ? -1 : 0;
}

bool toNumber(const QString &text, double &out)
{
    bool ok = false;
    out = text.toDouble(&ok);
    return ok;
}

} // namespace

float dicomUniformTolerance()
{
    return uniformTolerance.load();
}

void setDicomUniformTolerance(float tolerance)
{
    uniformTolerance.store(tolerance);
}

float dicomMaxDistError()
{
    const auto value = VxScriptVars::instance().get("DicomMaxDistError");
    if (!value)
        return 0.05f;
    return static_cast<float>(std::strtod(value->c_str(), nullptr));
}

bool isOptionSatisfied(const QString &v, const KcDArray<QString> &s, const DicomLoadOption &option)
{
    if (s.isEmpty())
        return true;
    double vNum = 0, s0Num = 0;
    const bool numeric = toNumber(v, vNum) & toNumber(s[0], s0Num);

    if (option.value == DicomLoadOption::Constant)
        return numeric ? vNum == s0Num : v == s[0];

    if (option.value == DicomLoadOption::StrictlyMonotonic) {
        if (numeric && vNum == s0Num)
            return false;
        if (v == s[0])
            return false;
    }

    if (s.size() == 1)
        return true;

    double older, newer;
    double s1Num = 0;
    if (numeric && toNumber(s[1], s1Num)) {
        older = s1Num - s0Num;
        newer = s0Num - vNum;
    } else {
        older = sign(QString::compare(s[1], s[0], Qt::CaseSensitive));
        newer = sign(QString::compare(s[0], v, Qt::CaseSensitive));
    }

    switch (option.value) {
    case DicomLoadOption::StrictlyMonotonic:
        return sign(older) == sign(newer) && newer != 0;
    case DicomLoadOption::Linear:
        if (option.name == "slice location") {
            if (newer == 0)
                return older == 0;
            if (older == 0)
                return false;
            return std::fabs((older - newer) / older) < dicomUniformTolerance();
        }
        return std::fabs(older - newer) < 1e-6;
    case DicomLoadOption::Monotonic:
        if (sign(older) == sign(newer) || older == 0)
            return true;
        return newer == 0;
    default:
        return true;
    }
}

bool slicesAreMonotonous(const KcDArray<float> &loc)
{
    if (loc.size() < 3)
        return true;
    const float d0 = loc[1] - loc[0];
    if (std::fabs(d0) < 1e-6f)
        return false;
    for (int k = 1; k + 1 < loc.size(); ++k) {
        const float d = loc[k + 1] - loc[k];
        if (sign(d) != sign(d0) || std::fabs(d) < 1e-6f)
            return false;
    }
    return true;
}

bool slicesAreUniform(const KcDArray<float> &loc, float tolerance)
{
    if (loc.size() < 3)
        return true;
    for (int i = 2; i < loc.size(); ++i) {
        const float a = loc[i - 2] - loc[i - 1];
        const float b = loc[i - 1] - loc[i];
        if (a != 0) {
            if (!(std::fabs((a - b) / a) < tolerance))
                return false;
        } else if (b != 0) {
            return false;
        }
    }
    return true;
}
