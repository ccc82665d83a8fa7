#pragma once

#include <QString>

/// The organisation's UID root (17 characters, digits and dots, under the
/// 2.25 arc), used as Implementation Class UID, Instance Creator UID and as
/// the first component of every generated UID.
extern const char *const creatorUID;

/// root[.first][.second].date.time(two components).hash.random: a new UID of
/// at most 64 characters that never ends in ".". A negative number leaves its
/// component out. The random generator is seeded with the current
/// millisecond, so two calls in one millisecond with the same numbers give
/// the same UID: callers vary the numbers.
QString generateSOPInstanceUID(int first, int second);

/// 32-bit string hash (FNV-1a).
unsigned int dicomStringHash(const char *text);
/// 32-bit integer hash (a murmur3 finaliser).
unsigned int dicomIntHash(int value);
