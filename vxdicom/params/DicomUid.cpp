#include "vxdicom/params/DicomUid.h"

#include "vxdicom/params/DicomValueCodec.h"

#include <QTime>

#include <cstdlib>

// 2.25 is the arc of UIDs derived from a UUID (ITU-T X.667); 17 characters,
// no component with a leading zero.
const char *const creatorUID = "2.25.3079214655.1";

// Hashes: FNV-1a (32 bit) for strings, the MurmurHash3 finaliser (fmix32) for integers.
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
    // 1. The organisation's root.
    QString uid = QString::fromLatin1(creatorUID) + ".";

    // 2. The caller's numbers, when not negative.
    if (first >= 0)
        uid += QString::number(first) + ".";
    if (second >= 0)
        uid += QString::number(second) + ".";

    // 3. Date, then time (two components), each read from the clock. The
    // fields keep their fixed widths ("093015.045"), which keeps the
    // components of two moments apart; validators that insist on PS3.5's
    // rule against leading zeros flag them.
    uid += getDicomDate() + ".";
    uid += getDicomTime() + ".";

    // 4. Hash of the text so far; the generator is re-seeded with the
    // millisecond on every call, so equal calls in one millisecond give equal
    // UIDs and callers vary the numbers.
    const unsigned int h = dicomStringHash(uid.toLatin1().constData());
    const unsigned int m = static_cast<unsigned int>(QTime::currentTime().msec());
    std::srand(m);
    const unsigned int r = static_cast<unsigned int>(std::rand());

    // 5. Both sums are taken as unsigned 32-bit numbers (rand() + m may pass INT_MAX).
    uid += QString::number(m + h) + ".";
    uid += QString::number(dicomIntHash(static_cast<int>(r + m)));

    // 6. The UI limit of 64 characters, and never a trailing ".".
    uid.truncate(64);
    while (uid.endsWith(QLatin1Char('.')))
        uid.chop(1);
    return uid;
}
