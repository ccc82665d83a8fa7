#include "apps/vxdicom/AttributeFile.h"

#include "platform/data/VxParamBundle.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QFile>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

namespace vxdicom_cli {

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

} // namespace vxdicom_cli
