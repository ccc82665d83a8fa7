#include "vxdicom/stacks/DicomCriterion.h"

#include "vxdicom/stacks/DicomLoadOption.h"

#include <QStringDecoder>

#include <cmath>
#include <cstdio>

namespace {

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

int textOrder(const QString &a, const QString &b)
{
    return sign(QString::compare(a, b, Qt::CaseSensitive));
}

} // namespace

bool isOptionSatisfied(const QString &v, const KcDArray<QString> &s, const DicomLoadOption &option,
                       float tolerance)
{
    if (s.isEmpty())
        return true;
    double vNum = 0;
    double s0Num = 0;
    const bool vIsNumber = toNumber(v, vNum);
    const bool s0IsNumber = toNumber(s[0], s0Num);
    const bool numeric = vIsNumber && s0IsNumber;

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

    double older;
    double newer;
    double s1Num = 0;
    if (numeric && toNumber(s[1], s1Num)) {
        older = s1Num - s0Num;
        newer = s0Num - vNum;
    } else {
        older = textOrder(s[1], s[0]);
        newer = textOrder(s[0], v);
    }

    switch (option.value) {
    case DicomLoadOption::StrictlyMonotonic:
        return sign(older) == sign(newer) && newer != 0;
    case DicomLoadOption::Linear:
        // Slice locations are measured values: their steps agree within the
        // uniformity tolerance. Every other element must step exactly.
        if (option.name == "slice location") {
            if (newer == 0)
                return older == 0;
            if (older == 0)
                return false;
            return std::fabs((older - newer) / older) < tolerance;
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

bool pixelSizesDiffer(float a, float b)
{
    return a != b && std::fabs(a - b) > (a + b) * 0.00005f;
}

int compareColumnTexts(const QString &a, const QString &b)
{
    double x = 0;
    double y = 0;
    if (toNumber(a, x) && toNumber(b, y))
        return x > y ? 1 : x < y ? -1 : 0;
    return textOrder(a, b);
}

QString dicomColumnKey(const QString &text)
{
    double x = 0;
    if (!toNumber(text, x))
        return text;
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%+015g", x + 100000.0);
    return QString::fromLatin1(buffer);
}

QString dicomSliceLocationText(float location)
{
    return QStringLiteral("%1").arg(static_cast<double>(location), 0, 'g', 6);
}

QString dicomInstanceNumberText(int number)
{
    return QStringLiteral("%1").arg(number);
}

QString dicomLoadIndexCriterionText(int loadIndex)
{
    return QString(QChar(static_cast<char16_t>(loadIndex & 0xFF)));
}

QString dicomHeaderText(const char *value)
{
    if (!value)
        return QString();
    QStringDecoder utf8(QStringDecoder::Utf8);
    QString text = utf8(QByteArrayView(value));
    if (utf8.hasError())
        text = QString::fromLatin1(value);
    return text;
}
