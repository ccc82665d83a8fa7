#include "vxdicom/params/DicomParamFilter.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QStringList>

#include <cctype>
#include <memory>

QString decodeDicomParam(const VxParameter *param, ReturnParamContent what, int index)
{
    // 1.
    if (!param)
        return QString();

    // 2. The first "[" and the first ":"; without ":", or with ":" before "[",
    // the text is not an attribute's.
    const QString text = param->stringValue().toQString();
    const QString name = param->name().toQString();
    const qsizetype bracket = text.indexOf(QLatin1Char('['));
    const qsizetype colon = text.indexOf(QLatin1Char(':'));
    if (colon < 0 || (bracket >= 0 && colon < bracket))
        return QString();

    // 3. The part asked for.
    QString part;
    switch (what) {
    case ContentName:
        part = bracket >= 0 ? text.left(bracket) : text.left(colon);
        break;
    case ContentVR:
        if (bracket >= 0) {
            part = text.mid(bracket + 1, 2).toUpper();
        } else {
            const auto group = static_cast<uint16_t>(name.mid(1, 4).toUShort(nullptr, 16));
            const auto element = static_cast<uint16_t>(name.mid(6, 4).toUShort(nullptr, 16));
            part = encodeVRString(dicom::dicomDictionaryType(group, element));
        }
        break;
    case ContentValue:
        part = text.mid(colon + 1);
        break;
    case ContentValueItem: {
        // Split at single blanks; empty parts count.
        const QStringList items = text.mid(colon + 1).trimmed().split(QLatin1Char(' '));
        if (index < 0 || index >= items.size())
            return QString();
        part = items.at(index);
        break;
    }
    case ContentGroup:
        part = name.mid(1, 4).toUpper();
        break;
    case ContentElement:
        part = name.mid(6, 4).toUpper();
        break;
    default:
        return QString();
    }

    // 4.
    return part.trimmed();
}

namespace {

bool policyKeepsGroup(int policy, unsigned group)
{
    switch (policy) {
    case FilterPrivate:
        return (group & 1) != 0;
    case FilterPatient:
        return group == 0x0010;
    case FilterPublicNonPatient:
        return (group & 1) == 0 && group != 0x0010;
    default: // FilterAll and every negative value
        return true;
    }
}

} // namespace

VxParamBundle *filterDicomParamBundle(const VxParamBundle *bundle, DicomParamFilterPolicy policy)
{
    // 1.
    if (!bundle)
        return nullptr;

    // 3 (a policy above 3 makes no "All").
    auto dicomBundle = std::make_unique<VxParamBundle>("DICOM");
    const int p = static_cast<int>(policy);
    if (p > FilterPublicNonPatient)
        return dicomBundle.release();

    // 2. Parameters only; nested bundles (decoded vendor headers) stay behind.
    auto all = std::make_unique<VxParamBundle>("All");
    for (int i = 0; i < bundle->size(); ++i) {
        const VxParamBase *entry = bundle->entry(i);
        if (entry->isBundle())
            continue;
        const auto *param = static_cast<const VxParameter *>(entry);
        // Unreadable numbers count 0, so such entries fall out with the group lengths.
        const unsigned group = decodeDicomParam(param, ContentGroup).toUInt(nullptr, 16);
        const unsigned element = decodeDicomParam(param, ContentElement).toUInt(nullptr, 16);
        if (element != 0 && policyKeepsGroup(p, group))
            all->copy(entry);
    }
    dicomBundle->insert(all.release());
    return dicomBundle.release();
}

void fix(VxParamBundle *bundle)
{
    if (!bundle)
        return;
    // 1. Every entry, in order; bundles recursively.
    for (int i = 0; i < bundle->size(); ++i) {
        VxParamBase *entry = bundle->entry(i);
        if (entry->isBundle()) {
            fix(entry->asBundle());
            continue;
        }
        auto *param = static_cast<VxParameter *>(entry);
        if (!param->isString())
            continue;

        // 2. Characters that are not printable (C locale: anything outside
        // 0x20..0x7E), and double quotes, become blanks; a character outside
        // ASCII becomes one blank, whatever its UTF-8 length.
        const QString text = param->stringValue().toQString();
        QString cleaned;
        cleaned.reserve(text.size());
        for (const char32_t c : text.toUcs4()) {
            const bool printable = c < 0x80 && std::isprint(static_cast<int>(c));
            cleaned += (printable && c != U'"') ? QChar(static_cast<char16_t>(c)) : QChar(u' ');
        }

        // 3. Trailing white space and dangling value separators.
        while (!cleaned.isEmpty()) {
            const char16_t last = cleaned.back().unicode();
            if (!(last < 0x80 && std::isspace(last)) && last != u'\\')
                break;
            cleaned.chop(1);
        }
        param->setString(KcString::fromQString(cleaned));
    }
}
