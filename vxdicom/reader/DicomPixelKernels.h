#pragma once

// Sample kernels of the reader: value ranges and the rescale into the
// field's sample type. Plain loops over plain arrays, written so that the
// compiler vectorises them (this file is built with -O3).

/// Value range kernels: min 1, max 0 for no data.
void dicomValueRangeU8(const unsigned char *data, long count, int &min, int &max);
void dicomValueRangeS16(const short *data, long count, int &min, int &max);
void dicomValueRangeU16(const unsigned short *data, long count, int &min, int &max);
void dicomValueRangeS32(const int *data, long count, long long &min, long long &max);

/// Rescaling kernels: target = clamp(floor(s * scale + offset + 0.5), low, high)
/// in single precision; count < 1 does nothing.
void dicomRescale(short *dst, const unsigned short *src, long count, float scale, float offset,
                  int low, int high);
void dicomRescale(unsigned short *dst, const unsigned short *src, long count, float scale,
                  float offset, int low, int high);
void dicomRescale(short *dst, const short *src, long count, float scale, float offset, int low,
                  int high);
void dicomRescale(unsigned short *dst, const short *src, long count, float scale, float offset,
                  int low, int high);
void dicomRescale(unsigned char *dst, const unsigned char *src, long count, float scale,
                  float offset, int low, int high);
