#pragma once

#include "platform/dicom/dicom.h"

#include <QString>
#include <QStringList>

#include <list>

/// One row of the value-representation table.
struct VRListStruct
{
    dicom::valRep vr;
    QString name;        ///< two-letter code, "AE"
    QString description; ///< translated description, "Application Entity"
};

/// The module's table of value representations, in the order in which codes
/// are offered to the user: AE AS AT CS DA DS DT FL FD IS LO LT OB OW PN SH SL
/// SS ST TM UI UL UN US UT. Built once at load time, read-only afterwards.
const std::list<VRListStruct> &vrList();

/// The 25 codes in table order (cached; the first call must not race).
QStringList getVRStringList();
/// Description of a VR; "Unknown" for a code without a row (23, sequences).
QString getVRDescription(dicom::valRep vr);
/// Two-letter code of a VR; "UN" for a code without a row.
QString encodeVRString(dicom::valRep vr);
/// VR of a text: its first two characters (trimmed, upper case) are looked for
/// as a substring of each code in table order, so "A" gives AE and "" gives AE;
/// no match gives UN.
dicom::valRep decodeVRString(const QString &text);

/// The text as it is stored: trimmed, inner white space simplified; the VR is
/// not consulted, multiple values stay as typed.
QString parseDicomDataString(const QString &text, dicom::valRep vr);
/// One value in the module's canonical form for its VR. Several VRs (AE, AS,
/// AT, CS, DA, TM, UI) replace a value that matches their pattern by a
/// default; that inversion is intended. DT splits at the first white space
/// into date and time, each only trimmed; a DT text without white space is all
/// date and comes back alone.
QString parseSingleDicomDataString(const QString &text, dicom::valRep vr);

/// Today as "%04d%02d%02d".
QString getDicomDate();
/// Now as "%02d%02d%02d.%03d" (hour, minute, second, millisecond).
QString getDicomTime();

/// False as soon as one of the first n bytes is above 127. n < 1 takes the
/// length of the NUL-terminated string at data; an empty text is ASCII.
bool isASCII(const unsigned char *data, int n);
/// Upper-case hexadecimal, two digits per byte, NUL-terminated, malloc'd
/// (release with free). n < 1 gives "0" with outLength 1.
char *hexEncode(const unsigned char *data, int n, int &outLength);
/// Bytes from pairs of hexadecimal characters, malloc'd and NUL-terminated.
/// 'a'..'f' count 10..15 and 'B'..'F' 11..15, but 'A' counts 17 (it falls
/// under the decimal rule); the pair's value is kept in one byte.
unsigned char *hexDecode(const char *text, unsigned length, int &outLength);

/// Value separators ('\\') become blanks, for storage in a parameter.
QString encodeQString(const QString &s);
/// The stored text as shown to the user (unchanged).
QString decodeQString(const QString &s);
/// n bytes in the local 8-bit encoding, through encodeQString.
QString encodeBytesToQString(const unsigned char *data, int n);
