#pragma once

class VxParamBundle;

/// Siemens CSA private headers, (0029,1010) image and (0029,1020) series.
///
/// Every count and length of both layouts is a 32-bit little-endian word of
/// which only the lowest byte is read, so values above 255 are taken modulo
/// 256; this matches the headers the module was built against and must stay.
/// Both decoders stop at the end of the value: a hostile header yields what
/// fits and is never read past `length`.

/// Newer layout ("SV10" at byte 0): one sub-bundle per tag, named by the tag,
/// holding "vm", "vr", "syngodt", "nitems", "xx" and, when an item was read,
/// "values" with "0000", "0001", ... Returns a new bundle named `name`, or null
/// (with "Error: n not between 0 and 128" on the console) for more than 128 tags.
VxParamBundle *decode_csa2(const unsigned char *data, int length, const char *name);

/// Older layout: walked for validity only; returns an empty bundle named
/// `name`, or null for more than 128 tags.
VxParamBundle *decode_csa1(const unsigned char *data, int length, const char *name);
