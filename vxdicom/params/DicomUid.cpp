#include "vxdicom/params/DicomUid.h"

#include "vxdicom/params/DicomValueCodec.h"

#include <QTime>

#include <cstdlib>

// 2.25 is the arc for UIDs derived from a UUID; this fixed 128-bit-style
// number stands for the project.
const char *const creatorUID = "2.25.3079214655.1";

unsigned int dicomStringHash(const char *text)
{
    unsigned int h = 2166136261u;
    for (const char *p = text; p && *p; ++p) {
        h ^= static_cast<unsigned char>(*p);
        h *= 16777619u;
    }
    return h;
}

unsigned int dicomIntHash(int value)
{
    unsigned int h = static_cast<unsigned int>(value);
    h ^= h >> 16;
    h *= 0x85ebca6bu;
    h ^= h >> 13;
    h *= 0xc2b2ae35u;
    h ^= h >> 16;
    return h;
}

QString generateSOPInstanceUID(int first, int second)
{
    QString uid = QString(creatorUID) + ".";
    if (first >= 0)
        uid += QString::number(first) + ".";
    if (second >= 0)
        uid += QString::number(second) + ".";
    uid += getDicomDate() + ".";
    uid += getDicomTime() + ".";

    const unsigned int h = dicomStringHash(uid.toLatin1().constData());
    const int m = QTime::currentTime().msec();
    std::srand(static_cast<unsigned int>(m));
    const int r = std::rand();
    uid += QString::number(static_cast<unsigned int>(m) + h) + ".";
    // Unsigned sum: rand() may be RAND_MAX, and r + m must not overflow.
    uid += QString::number(dicomIntHash(static_cast<int>(static_cast<unsigned int>(r) + static_cast<unsigned int>(m))));

    uid = uid.left(64);
    while (uid.endsWith(QLatin1Char('.')))
        uid.chop(1);
    return uid;
}
