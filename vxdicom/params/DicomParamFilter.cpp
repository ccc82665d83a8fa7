#include "vxdicom/params/DicomParamFilter.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <cctype>
#include <memory>

QString decodeDicomParam(const VxParameter *param, ReturnParamContent what, int index)
{
    if (!param)
        return QString();
    const QString text = QString::fromUtf8(param->stringValue().c_str());
    const QString name = QString::fromUtf8(param->name().c_str());
    const qsizetype bracket = text.indexOf(QLatin1Char('['));
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0 || (bracket >= 0 && colon < bracket))
        return QString();

    QString part;
    switch (what) {
    case ContentName:
        part = bracket >= 0 ? text.left(bracket) : text.left(colon);
        break;
    case ContentVR:
        if (bracket >= 0) {
            part = text.mid(bracket + 1, 2).toUpper();
        } else {
            const unsigned short group = name.mid(1, 4).toUShort(nullptr, 16);
            const unsigned short element = name.mid(6, 4).toUShort(nullptr, 16);
            part = encodeVRString(dicom::dicomDictionaryType(group, element));
        }
        break;
    case ContentValue:
        part = text.mid(colon + 1);
        break;
    case ContentValueItem: {
        const QStringList items = text.mid(colon + 1).trimmed().split(QLatin1Char(' '));
        if (index < 0 || index >= items.size())
            return QString();
        part = items[index];
        break;
    }
    case ContentGroup:
        part = name.mid(1, 4).toUpper();
        break;
    case ContentElement:
        part = name.mid(6, 4).toUpper();
        break;
    }
    return part.trimmed();
}

namespace {

bool keepGroup(unsigned group, DicomParamFilterPolicy policy)
{
    switch (policy) {
    case FilterPrivate:
        return (group & 1) != 0;
    case FilterPatient:
        return group == 0x0010;
    case FilterPublicNonPatient:
        return (group & 1) == 0 && group != 0x0010;
    default:
        return true;
    }
}

} // namespace

VxParamBundle *filterDicomParamBundle(const VxParamBundle *bundle, DicomParamFilterPolicy policy)
{
    if (!bundle)
        return nullptr;
    auto dicomBundle = std::make_unique<VxParamBundle>("DICOM");
    if (static_cast<int>(policy) > 3)
        return dicomBundle.release();
    if (static_cast<int>(policy) < 0)
        policy = FilterAll;

    auto all = std::make_unique<VxParamBundle>("All");
    for (int i = 0; i < bundle->nEntries(); ++i) {
        const VxParamBase *entry = bundle->entry(i);
        if (entry->isBundle())
            continue;
        const auto *param = static_cast<const VxParameter *>(entry);
        bool okGroup = false;
        bool okElement = false;
        const unsigned group = decodeDicomParam(param, ContentGroup).toUInt(&okGroup, 16);
        const unsigned element = decodeDicomParam(param, ContentElement).toUInt(&okElement, 16);
        if (!okGroup || !okElement || element == 0)
            continue;
        if (keepGroup(group, policy))
            all->copy(*entry);
    }
    dicomBundle->insert(all.release());
    return dicomBundle.release();
}

void fix(VxParamBundle *bundle)
{
    if (!bundle)
        return;
    for (int i = 0; i < bundle->nEntries(); ++i) {
        VxParamBase *entry = bundle->entry(i);
        if (entry->isBundle()) {
            fix(static_cast<VxParamBundle *>(entry));
            continue;
        }
        auto *param = static_cast<VxParameter *>(entry);
        if (param->type() != VxParameter::String)
            continue;
        std::string text = param->stringValue();
        for (char &c : text)
            if (!std::isprint(static_cast<unsigned char>(c)) || c == '"')
                c = ' ';
        while (!text.empty() &&
               (std::isspace(static_cast<unsigned char>(text.back())) || text.back() == '\\'))
            text.pop_back();
        param->setString(text.c_str());
    }
}
