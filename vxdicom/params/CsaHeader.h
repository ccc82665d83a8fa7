#pragma once

class VxParamBundle;

/// Siemens CSA private headers, (0029,1010) image and (0029,1020) series.
///
/// Every count and length of both layouts is a 32-bit little-endian word of
/// which only the lowest byte is read, so values above 255 are taken modulo
/// 256 (a long item such as the series header's MrPhoenixProtocol therefore
/// derails the rest of the walk); the bundles users and scripts already rely
/// on come from exactly this walk, so it must stay.
///
/// Both decoders check every read against `length`: a hostile header (counts
/// or lengths past the value's end) yields what fits and is never read past
/// the value. A tag whose 84 bytes do not fit, and an item whose header or
/// data do not fit, are not read, and the walk ends there. Well-formed headers
/// give the same bundles as an unchecked walk.

/// Newer layout ("SV10" at byte 0, tested by the caller): a new bundle named
/// `name` with one sub-bundle per tag, in header order, named by the tag
/// (repeated names are kept, not merged), holding the integers "vm",
/// "syngodt", "nitems", "xx", the string "vr" and, when at least one item was
/// read, the bundle "values" with one string per read item, named "%04d" of
/// the item's index ("0000", "0001", ...; skipped items leave gaps). An item
/// is read when its marker byte (offset 8) is 'M' or 0xCD and its length is
/// not 0; any other item skips its 16-byte header only. Returns null, with
/// "Error: n not between 0 and 128" on the console, for more than 128 tags.
/// The caller owns the result.
VxParamBundle *decode_csa2(const unsigned char *data, int length, const char *name);

/// Older layout: walked item by item (items past `length` are not read) and
/// yields a new, empty bundle named `name`; null, with the same message, for
/// more than 128 tags. The caller owns the result.
VxParamBundle *decode_csa1(const unsigned char *data, int length, const char *name);

#include <string>
#include <vector>

/// The values of the tag `name` of a CSA2 header ("SV10"), read with the
/// full 32-bit counts and lengths of the layout (unlike decode_csa2's walk,
/// which keeps the legacy low-byte reads), each trimmed of padding. Empty
/// when the header is not CSA2, lacks the tag, or is damaged where the tag
/// would be. Every read is checked against `length`.
std::vector<std::string> csa2Values(const unsigned char *data, int length, const char *name);
