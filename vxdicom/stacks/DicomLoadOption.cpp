#include "vxdicom/stacks/DicomLoadOption.h"

#include "platform/dicom/dicom.h"

#include <QString>
#include <QStringList>

#include <cstdlib>

namespace {
constexpr int kPolicyBits = 5;
}

DicomLoadOption::DicomLoadOption() = default;

DicomLoadOption::DicomLoadOption(int g, int e, Id v, const char *n, int o)
    : group(g), element(e), value(v), options(o), name(n ? n : "unknown")
{
}

int DicomLoadOption::numAllowedOptions() const
{
    int count = 0;
    for (int bit = 0; bit < kPolicyBits; ++bit)
        if (options & (1 << bit))
            ++count;
    return count;
}

DicomLoadOption::Id DicomLoadOption::getOption(int n) const
{
    int seen = 0;
    for (int bit = 0; bit < kPolicyBits; ++bit) {
        if (options & (1 << bit)) {
            if (seen == n)
                return static_cast<Id>(1 << bit);
            ++seen;
        }
    }
    return Ignore;
}

void DicomLoadOption::getOption(int n, Id &id, KcString &text) const
{
    id = getOption(n);
    text = description(id);
}

KcString DicomLoadOption::description(int id)
{
    switch (id) {
    case Ignore:
        return "ignore";
    case Constant:
        return "constant";
    case Monotonic:
        return "monotonic";
    case StrictlyMonotonic:
        return "strictly monot.";
    case Linear:
        return "linear";
    default:
        return "unused";
    }
}

KcString DicomLoadOption::toString() const
{
    return KcString::format("<%d|%d|%d|%d|%s>", group, element, static_cast<int>(value), options,
                            name.c_str());
}

bool DicomLoadOption::fromString(const KcString &text)
{
    const QString s = text.toQString();
    if (s.count(QLatin1Char('|')) < 4)
        return false;
    const QStringList parts = s.split(QLatin1Char('|'), Qt::SkipEmptyParts);
    if (parts.size() < 4)
        return false;
    int numbers[4];
    for (int i = 0; i < 4; ++i) {
        bool ok = false;
        numbers[i] = parts[i].toInt(&ok, 10);
        if (!ok)
            return false;
    }
    qsizetype pos = -1;
    for (int i = 0; i < 4; ++i)
        pos = s.indexOf(QLatin1Char('|'), pos + 1);
    KcString newName = KcString::fromQString(s.mid(pos + 1));

    if (numbers[0] >= 0 && numbers[0] <= 0xFFFF && numbers[1] >= 0 && numbers[1] <= 0xFFFF) {
        const auto g = static_cast<unsigned short>(numbers[0]);
        const auto e = static_cast<unsigned short>(numbers[1]);
        if (dicom::dicomDictionaryContains(g, e))
            if (const char *dictName = dicom::dicomDictionaryName(g, e))
                newName = dictName;
    }
    group = numbers[0];
    element = numbers[1];
    value = static_cast<Id>(numbers[2]);
    options = numbers[3];
    name = newName;
    return true;
}

KcDArray<DicomLoadOption *> defaultDicomLoadOptions()
{
    struct Row
    {
        int group, element;
        DicomLoadOption::Id value;
        int options;
    };
    const bool stereotaxis = std::getenv("ZENTA_MHT_STEREOTAXIS") != nullptr;
    const bool ziehm = std::getenv("ZENTA_ZIEHM_RECONSTRUCTION") != nullptr;
    const Row rows[] = {
        {0x0010, 0x0010, DicomLoadOption::Constant, 3},
        {0x0010, 0x0020, DicomLoadOption::Constant, 3},
        {0x0020, 0x000E, DicomLoadOption::Constant, 3},
        {0x0008, 0x0021, DicomLoadOption::Constant, 3},
        {0x0020, 0x0011, DicomLoadOption::Ignore, 3},
        {0x0018, 0x0020, DicomLoadOption::Constant, 3},
        {0x0020, 0x0037, DicomLoadOption::Constant, 3},
        {0x0020, 0x0013, DicomLoadOption::StrictlyMonotonic, 31},
    };
    KcDArray<DicomLoadOption *> list;
    for (const Row &r : rows)
        list.append(new DicomLoadOption(r.group, r.element, r.value,
                                        dicom::dicomDictionaryName(r.group, r.element), r.options));
    if (!stereotaxis)
        list.append(new DicomLoadOption(
            0x0020, 0x1041, ziehm ? DicomLoadOption::Ignore : DicomLoadOption::StrictlyMonotonic,
            dicom::dicomDictionaryName(0x0020, 0x1041), 31));
    list.append(new DicomLoadOption(-1, -1, DicomLoadOption::Ignore, "file name", 3));
    list.append(new DicomLoadOption(-1, -1, DicomLoadOption::Ignore, "load index", 23));
    return list;
}

KcString dicomLoadOptionsToString(const KcDArray<DicomLoadOption *> &options)
{
    KcString text;
    for (const DicomLoadOption *o : options)
        if (o)
            text += o->toString();
    return text;
}

KcDArray<DicomLoadOption *> dicomLoadOptionsFromString(const KcString &text)
{
    KcDArray<DicomLoadOption *> list;
    if (text.size() < 2)
        return list;
    const QString inner =
        QString::fromUtf8(text.data() + 1, static_cast<qsizetype>(text.size()) - 2);
    for (const QString &part : inner.split("><", Qt::SkipEmptyParts)) {
        auto *option = new DicomLoadOption();
        if (option->fromString(KcString::fromQString(part)))
            list.append(option);
        else
            delete option;
    }
    return list;
}
