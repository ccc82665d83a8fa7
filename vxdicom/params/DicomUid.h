#pragma once

#include <QString>

/// The organisation's UID root (17 characters, digits and dots, under the
/// 2.25 arc), used as Implementation Class UID, Instance Creator UID and as
/// the first component of every generated UID.
extern const char *const creatorUID;

/// A new UID: root[.first][.second].date.time.hash.random, where the time
/// gives two components (hhmmss and milliseconds) and a negative number leaves
/// its component out. Date and time are written as plain numbers (no leading
/// zeros, as the UID syntax requires: 09:30:15.045 gives "93015.45"). The
/// result is cut to 64 characters and never ends in ".". The random generator
/// is seeded with the current millisecond, so two calls in one millisecond
/// with the same numbers give the same UID: callers vary the numbers.
QString generateSOPInstanceUID(int first, int second);

/// 32-bit string hash (FNV-1a); a null text hashes like "".
unsigned int dicomStringHash(const char *text);
/// 32-bit integer hash (the MurmurHash3 finaliser).
unsigned int dicomIntHash(int value);
