#include "vxdicom/export/Dicom3AttributeFile.h"

#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QFile>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

std::unique_ptr<VxParamBundle> readAttributeFile(const std::string &path, std::string *error)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        if (error)
            *error = "cannot read " + path + ": " + file.errorString().toStdString();
        return nullptr;
    }
    static const QRegularExpression line(QRegularExpression::anchoredPattern(
        "\\s*\\(?\\s*([0-9A-Fa-f]{4})\\s*,\\s*([0-9A-Fa-f]{4})\\s*\\)?\\s+([A-Za-z]{2})\\s*"
        "([^:]*):(.*)"));
    const QStringList vrs = getVRStringList();

    auto bundle = std::make_unique<VxParamBundle>("DICOM");
    auto all = std::make_unique<VxParamBundle>("All");
    int number = 0;
    while (!file.atEnd()) {
        ++number;
        const QString text = QString::fromUtf8(file.readLine()).trimmed();
        if (text.isEmpty() || text.startsWith('#'))
            continue;
        const QRegularExpressionMatch m = line.match(text);
        const QString vr = m.hasMatch() ? m.captured(3).toUpper() : QString();
        if (!m.hasMatch() || !vrs.contains(vr)) {
            if (error)
                *error = path + ", line " + std::to_string(number) + ": expected 'GGGG,EEEE VR " +
                         "description: value'" +
                         (m.hasMatch() ? ", and '" + vr.toStdString() + "' is no VR" : "") +
                         ", got '" + text.toStdString() + "'";
            return nullptr;
        }
        const QString name =
            QStringLiteral("G%1-%2").arg(m.captured(1).toUpper(), m.captured(2).toUpper());
        const QString value = m.captured(4).trimmed() + " [" + vr + "]: " + m.captured(5).trimmed();
        all->insert(new VxParameter(name.toUtf8().constData(), value.toUtf8().constData()), true);
    }
    bundle->insert(all.release());
    return bundle;
}

bool writeAttributeFile(const std::string &path, const VxParamBundle &bundle, std::string *error)
{
    QFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text)) {
        if (error)
            *error = "cannot write " + path + ": " + file.errorString().toStdString();
        return false;
    }
    QByteArray text = "# DICOM attributes for vxdicom save-dicom --attributes: "
                      "GGGG,EEEE VR description: value\n";
    if (const VxParamBundle *all = bundle.bundle("All"))
        for (int i = 0; i < all->size(); ++i) {
            const VxParamBase *entry = all->entry(i);
            if (!entry || entry->isBundle())
                continue;
            const auto *p = static_cast<const VxParameter *>(entry);
            text +=
                QStringLiteral("%1,%2 %3 %4: %5\n")
                    .arg(decodeDicomParam(p, ContentGroup), decodeDicomParam(p, ContentElement),
                         decodeDicomParam(p, ContentVR), decodeDicomParam(p, ContentName).trimmed(),
                         decodeQString(decodeDicomParam(p, ContentValue).trimmed()))
                    .toUtf8();
        }
    if (file.write(text) != text.size() || !file.flush()) {
        if (error)
            *error = "cannot write " + path + ": " + file.errorString().toStdString();
        return false;
    }
    return true;
}
