#include "apps/vxdicom/view/ParameterRows.h"

#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QRegularExpression>

namespace vxview {

namespace {

bool isAttributeName(const QString &name)
{
    static const QRegularExpression pattern(
        QRegularExpression::anchoredPattern(QStringLiteral("G[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}")));
    return pattern.match(name).hasMatch();
}

const char *typeName(const VxParameter &p)
{
    switch (p.type()) {
    case VxParameter::Int:
        return "int";
    case VxParameter::Float:
        return "float";
    case VxParameter::String:
        break;
    }
    return "string";
}

ParameterRow rowOf(const VxParamBase &entry)
{
    ParameterRow row;
    row.name = entry.name().toQString();
    if (const VxParamBundle *b = entry.asBundle()) {
        row.bundle = true;
        row.children = parameterRows(*b);
        return row;
    }
    const auto &p = static_cast<const VxParameter &>(entry);
    const QString description = decodeDicomParam(&p, ContentName);
    if (isAttributeName(row.name) && !description.isNull()) {
        row.name = QStringLiteral("(%1,%2)").arg(decodeDicomParam(&p, ContentGroup),
                                                 decodeDicomParam(&p, ContentElement));
        row.description = description;
        row.vr = decodeDicomParam(&p, ContentVR);
        row.value = decodeQString(decodeDicomParam(&p, ContentValue));
        return row;
    }
    row.vr = QString::fromLatin1(typeName(p));
    row.value = p.stringValue().toQString();
    return row;
}

} // namespace

std::vector<ParameterRow> parameterRows(const VxParamBundle &bundle)
{
    std::vector<ParameterRow> rows;
    rows.reserve(static_cast<size_t>(bundle.size()));
    for (int i = 0; i < bundle.size(); ++i)
        if (const VxParamBase *e = bundle.entry(i))
            rows.push_back(rowOf(*e));
    return rows;
}

bool rowMatches(const ParameterRow &row, const QString &filter)
{
    if (filter.isEmpty())
        return true;
    if (row.bundle) // its count of entries is no text to look for
        return row.name.contains(filter, Qt::CaseInsensitive);
    for (const QString *text : {&row.name, &row.description, &row.vr, &row.value})
        if (text->contains(filter, Qt::CaseInsensitive))
            return true;
    return false;
}

} // namespace vxview
