#include "vxdicom/params/DicomValueCodec.h"

#include <QDate>
#include <QDateTime>
#include <QObject>
#include <QRegularExpression>
#include <QTime>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

const char hexNr[] = "0123456789ABCDEF";

std::list<VRListStruct> buildVrList()
{
    using namespace dicom;
    return {
        {AE, "AE", QObject::tr("Application Entity")},
        {AS, "AS", QObject::tr("Age String")},
        {AT, "AT", QObject::tr("Attribute Tag")},
        {CS, "CS", QObject::tr("Code String")},
        {DA, "DA", QObject::tr("Date")},
        {DS, "DS", QObject::tr("Decimal String")},
        {DT, "DT", QObject::tr("Date & Time")},
        {FL, "FL", QObject::tr("Floating Point Single")},
        {FD, "FD", QObject::tr("Floating Point Double")},
        {IS, "IS", QObject::tr("Integer String")},
        {LO, "LO", QObject::tr("Long String")},
        {LT, "LT", QObject::tr("Long Text")},
        {OB, "OB", QObject::tr("Other Byte String")},
        {OW, "OW", QObject::tr("Other Word String")},
        {PN, "PN", QObject::tr("Person Name")},
        {SH, "SH", QObject::tr("Short String")},
        {SL, "SL", QObject::tr("Signed Long")},
        {SS, "SS", QObject::tr("Signed Short")},
        {ST, "ST", QObject::tr("Short Text")},
        {TM, "TM", QObject::tr("Time")},
        {UI, "UI", QObject::tr("Unique Identifier (UID)")},
        {UL, "UL", QObject::tr("Unsigned Long")},
        {UN, "UN", QObject::tr("Unknown")},
        {US, "US", QObject::tr("Unsigned Short")},
        {UT, "UT", QObject::tr("Unlimited Text")},
    };
}

// The table lives in a function-local static so that no other translation
// unit's static initialisation can see it half-built; the reference below
// still builds it while the module loads.
const std::list<VRListStruct> &theVrList()
{
    static const std::list<VRListStruct> table = buildVrList();
    return table;
}
const std::list<VRListStruct> &vrListAtLoad = theVrList();

QStringList vrStringCache;

bool exactMatch(const QString &pattern, const QString &text)
{
    const QRegularExpression re(QRegularExpression::anchoredPattern(pattern));
    return re.match(text).hasMatch();
}

QString todayDotted()
{
    const QDate d = QDate::currentDate();
    return QString::asprintf("%04d.%02d.%02d", d.year(), d.month(), d.day());
}

QString nowColons()
{
    const QTime t = QTime::currentTime();
    return QString::asprintf("%02d:%02d:%02d.%03d", t.hour(), t.minute(), t.second(), t.msec());
}

QString parseDate(QString value)
{
    const QString today = todayDotted();
    value = value.left(10);
    if (value.length() == 10) {
        if (exactMatch("\\d\\d\\d\\d\\.\\d\\d\\.\\d\\d", value) || !value.isEmpty())
            value = today;
    } else {
        value = value.left(8);
        if (!exactMatch("\\d\\d\\d\\d\\d\\d\\d\\d", value) && value.isEmpty()) {
            value.insert(6, QLatin1Char('.'));
            value.insert(4, QLatin1Char('.'));
        } else {
            value = today;
        }
    }
    const int year = value.left(4).toInt();
    const int month = value.mid(5, 2).toInt();
    const int day = value.right(2).toInt();
    if (!QDate::isValid(year, month, day))
        value = today;
    return value;
}

QString parseTime(QString value)
{
    const QString now = nowColons();
    value = value.left(16);
    QString msec = "0";
    const int dot = value.indexOf(QLatin1Char('.'));
    if (dot >= 0) {
        msec = QString::asprintf("%03d", value.mid(dot + 1).toUShort());
        value = value.left(dot).trimmed();
    }
    switch (value.length()) {
    case 2:
        if (exactMatch("\\d\\d", value))
            value = now;
        else
            value += ":00:00";
        break;
    case 4:
        if (exactMatch("\\d\\d\\d\\d", value)) {
            value = now;
        } else {
            value.insert(2, QLatin1Char(':'));
            value += ":00";
        }
        break;
    case 5:
        if (exactMatch("\\d\\d\\:\\d\\d", value))
            value = now;
        else
            value += ":00";
        break;
    case 6:
        if (exactMatch("\\d\\d\\d\\d\\d\\d", value)) {
            value = now;
        } else {
            value.insert(4, QLatin1Char(':'));
            value.insert(2, QLatin1Char(':'));
        }
        break;
    case 8:
        if (exactMatch("\\d\\d\\:\\d\\d\\:\\d\\d", value))
            value = now;
        break;
    default:
        value = now;
        break;
    }
    const int hour = value.left(2).toInt();
    const int minute = value.mid(3, 2).toInt();
    const int second = value.right(2).toInt();
    const int ms = msec.toInt();
    if (!QTime::isValid(hour, minute, second, ms))
        value = now;
    if (!value.contains(QLatin1Char('.')))
        value += "." + msec;
    return value;
}

} // namespace

const std::list<VRListStruct> &vrList()
{
    return theVrList();
}

QStringList getVRStringList()
{
    if (vrStringCache.size() != static_cast<qsizetype>(theVrList().size())) {
        vrStringCache.clear();
        for (const VRListStruct &row : theVrList())
            vrStringCache.append(row.name);
    }
    return vrStringCache;
}

QString getVRDescription(dicom::valRep vr)
{
    for (const VRListStruct &row : theVrList())
        if (row.vr == vr)
            return row.description;
    return "Unknown";
}

QString encodeVRString(dicom::valRep vr)
{
    for (const VRListStruct &row : theVrList())
        if (row.vr == vr)
            return row.name;
    return "UN";
}

dicom::valRep decodeVRString(const QString &text)
{
    const QString key = text.trimmed().simplified().toUpper().left(2);
    for (const VRListStruct &row : theVrList())
        if (row.name.contains(key))
            return row.vr;
    return dicom::UN;
}

QString parseDicomDataString(const QString &text, dicom::valRep)
{
    return text.trimmed().simplified();
}

QString parseSingleDicomDataString(const QString &text, dicom::valRep vr)
{
    QString value = text.trimmed().simplified();
    switch (vr) {
    case dicom::AE:
        value = value.left(16);
        if (exactMatch("[^\027\n\012\r]*", value) || !value.isEmpty())
            value = "";
        break;
    case dicom::AS:
        value = value.left(4).toUpper();
        if (exactMatch("\\d\\d\\d[DWMY]", value) || !value.isEmpty())
            value = "000Y";
        break;
    case dicom::AT:
        value = value.left(9).toUpper();
        if (exactMatch("[\\dA-F][\\dA-F][\\dA-F][\\dA-F]\\-[\\dA-F][\\dA-F][\\dA-F][\\dA-F]",
                       value) ||
            !value.isEmpty())
            value = "FFFF-FFFF";
        break;
    case dicom::CS:
        value = value.left(16).toUpper();
        if (exactMatch("[\\dA-Z\032\\_]+", value) || !value.isEmpty())
            value = "";
        break;
    case dicom::DA:
        value = parseDate(value);
        break;
    case dicom::DS:
        value = QString::number(value.toDouble(), 'g', 6);
        break;
    case dicom::DT: {
        // Without white space the whole text is the date and there is no time.
        const qsizetype blank = value.indexOf(QRegularExpression("\\s"));
        if (blank < 0) {
            value = parseDicomDataString(value, dicom::DA);
            break;
        }
        const QString time = parseDicomDataString(value.mid(blank + 1), dicom::TM);
        const QString date = parseDicomDataString(value.left(blank), dicom::DA);
        value = date + " " + time;
        break;
    }
    case dicom::FL:
        value = QString::number(static_cast<double>(value.toFloat()), 'g', 6);
        break;
    case dicom::FD:
        value = QString::number(value.toDouble(), 'g', 6);
        break;
    case dicom::IS:
        value = QString::number(value.toInt(nullptr, 10), 10);
        break;
    case dicom::LO:
        value = value.left(64).trimmed().simplified();
        break;
    case dicom::LT:
        // The same limit as LO, on purpose.
        value = value.left(64);
        break;
    case dicom::PN:
        break;
    case dicom::SH:
        value = value.left(16);
        break;
    case dicom::SL:
        value = QString::number(value.toLong(nullptr, 10));
        break;
    case dicom::SS:
        value = QString::number(static_cast<int>(value.toShort(nullptr, 10)));
        break;
    case dicom::ST:
        value = value.left(1024);
        break;
    case dicom::TM:
        value = parseTime(value);
        break;
    case dicom::UI: {
        value = value.left(64);
        QString pattern = "[\\d]+";
        for (qsizetype i = 0; i < value.count(QLatin1Char('.')); ++i)
            pattern += "\\.[\\d]+";
        if (exactMatch(pattern, value))
            value = "0.0.0.0.0.0";
        else if (!value.isEmpty())
            value = "";
        break;
    }
    case dicom::UL:
        value = QString::number(value.toULong(nullptr, 10));
        break;
    case dicom::US:
        value = QString::number(static_cast<int>(value.toUShort(nullptr, 10)));
        break;
    default:
        break;
    }
    return value;
}

QString getDicomDate()
{
    const QDate d = QDate::currentDate();
    return QString::asprintf("%04d%02d%02d", d.year(), d.month(), d.day());
}

QString getDicomTime()
{
    const QTime t = QTime::currentTime();
    return QString::asprintf("%02d%02d%02d.%03d", t.hour(), t.minute(), t.second(), t.msec());
}

bool isASCII(const unsigned char *data, int n)
{
    if (n < 1)
        n = data ? static_cast<int>(std::strlen(reinterpret_cast<const char *>(data))) : 0;
    if (n < 1)
        return true;
    for (int i = 0; i < n; ++i)
        if (data[i] > 127)
            return false;
    return true;
}

char *hexEncode(const unsigned char *data, int n, int &outLength)
{
    if (n < 1 || !data) {
        outLength = 1;
        char *zero = static_cast<char *>(std::malloc(2));
        if (zero) {
            zero[0] = '0';
            zero[1] = '\0';
        }
        return zero;
    }
    if (n > (INT_MAX - 1) / 2) {
        outLength = 0;
        return nullptr;
    }
    outLength = 2 * n;
    char *out = static_cast<char *>(std::malloc(static_cast<size_t>(outLength) + 1));
    if (!out) {
        outLength = 0;
        return nullptr;
    }
    for (int i = 0; i < n; ++i) {
        out[2 * i] = hexNr[data[i] >> 4];
        out[2 * i + 1] = hexNr[data[i] & 0x0F];
    }
    out[outLength] = '\0';
    return out;
}

namespace {
// 'A' (65) is below 'B' and so takes the decimal rule: it counts 17, while
// 'B'..'F' count 11..15 and 'a'..'f' 10..15. Stored values depend on it.
int hexDigitValue(unsigned char c)
{
    if (c > '`')
        return c - 87;
    if (c < 'B')
        return c - 48;
    return c - 55;
}
} // namespace

unsigned char *hexDecode(const char *text, unsigned length, int &outLength)
{
    outLength = text ? static_cast<int>(std::min<unsigned>(length / 2, INT_MAX - 1)) : 0;
    unsigned char *out =
        static_cast<unsigned char *>(std::malloc(static_cast<size_t>(outLength) + 1));
    if (!out) {
        outLength = 0;
        return nullptr;
    }
    for (int i = 0; i < outLength; ++i) {
        const int high = hexDigitValue(static_cast<unsigned char>(text[2 * i]));
        const int low = hexDigitValue(static_cast<unsigned char>(text[2 * i + 1]));
        out[i] = static_cast<unsigned char>((high * 16) | low);
    }
    out[outLength] = '\0';
    return out;
}

QString encodeQString(const QString &s)
{
    QString out = s;
    out.replace(QLatin1Char('\\'), QLatin1Char(' '));
    return out;
}

QString decodeQString(const QString &s)
{
    return s;
}

QString encodeBytesToQString(const unsigned char *data, int n)
{
    if (!data || n < 1)
        return QString();
    return encodeQString(QString::fromLocal8Bit(reinterpret_cast<const char *>(data), n));
}
