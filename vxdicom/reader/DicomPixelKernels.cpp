#include "vxdicom/reader/DicomPixelKernels.h"

#include <cmath>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {
// Min and max in the samples' own type, branch-free so that the loop vectorises.
template <typename T> void valueRange(const T *data, long count, int &min, int &max)
{
    min = 1;
    max = 0;
    if (!data || count < 1)
        return;
    T lo = data[0], hi = data[0];
    for (long i = 1; i < count; ++i) {
        lo = data[i] < lo ? data[i] : lo;
        hi = data[i] > hi ? data[i] : hi;
    }
    min = lo;
    max = hi;
}
} // namespace

void dicomValueRangeU8(const unsigned char *data, long count, int &min, int &max)
{
    valueRange(data, count, min, max);
}

void dicomValueRangeS16(const short *data, long count, int &min, int &max)
{
    valueRange(data, count, min, max);
}

void dicomValueRangeU16(const unsigned short *data, long count, int &min, int &max)
{
    valueRange(data, count, min, max);
}

void dicomValueRangeS32(const int *data, long count, long long &min, long long &max)
{
    min = 1;
    max = 0;
    if (!data || count < 1)
        return;
    min = max = data[0];
    for (long i = 1; i < count; ++i) {
        if (data[i] < min)
            min = data[i];
        else if (data[i] > max)
            max = data[i];
    }
}

namespace {
template <typename Dst, typename Src>
void rescaleKernel(Dst *dst, const Src *src, long count, float scale, float offset, int low,
                   int high)
{
    // A slope of 1 and a whole intercept (CT's -1024) add exactly in single
    // precision, so whole-number arithmetic gives the same samples, faster.
    if (scale == 1.0f && offset == static_cast<float>(static_cast<int>(offset)) &&
        offset > -16777216.0f && offset < 16777216.0f) {
        const int off = static_cast<int>(offset);
        for (long i = 0; i < count; ++i) {
            int v = static_cast<int>(src[i]) + off;
            v = v < low ? low : v;
            v = v > high ? high : v;
            dst[i] = static_cast<Dst>(v);
        }
        return;
    }
    const float lo = static_cast<float>(low);
    const float hi = static_cast<float>(high);
    for (long i = 0; i < count; ++i) {
        float v = static_cast<float>(src[i]) * scale + offset + 0.5f;
        // The bounds are whole numbers, so clamping before the floor gives
        // floor-then-clamp; written branch-free so that the loop vectorises.
        v = v >= lo ? v : lo;
        v = v > hi ? hi : v;
        int t = static_cast<int>(v);
        t -= static_cast<float>(t) > v ? 1 : 0;
        dst[i] = static_cast<Dst>(t);
    }
}
} // namespace

void dicomRescale(short *dst, const unsigned short *src, long count, float scale, float offset,
                  int low, int high)
{
    rescaleKernel(dst, src, count, scale, offset, low, high);
}
void dicomRescale(unsigned short *dst, const unsigned short *src, long count, float scale,
                  float offset, int low, int high)
{
    rescaleKernel(dst, src, count, scale, offset, low, high);
}
void dicomRescale(short *dst, const short *src, long count, float scale, float offset, int low,
                  int high)
{
#if defined(__SSE2__)
    // Signed words with a slope of 1 and a whole intercept that is a word
    // itself (CT's -1024), clamped to the whole range of words: the sum
    // saturated is the sum clamped, eight samples per instruction (the
    // compiler widens to 32 bits instead).
    if (scale == 1.0f && low == -32768 && high == 32767 && offset == std::trunc(offset) &&
        offset >= -32768.0f && offset <= 32767.0f) {
        const __m128i add = _mm_set1_epi16(static_cast<short>(offset));
        long i = 0;
        for (; i + 8 <= count; i += 8) {
            const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
            _mm_storeu_si128(reinterpret_cast<__m128i *>(dst + i), _mm_adds_epi16(v, add));
        }
        if (i < count)
            rescaleKernel(dst + i, src + i, count - i, scale, offset, low, high);
        return;
    }
#endif
    rescaleKernel(dst, src, count, scale, offset, low, high);
}
void dicomRescale(unsigned short *dst, const short *src, long count, float scale, float offset,
                  int low, int high)
{
    rescaleKernel(dst, src, count, scale, offset, low, high);
}
void dicomRescale(unsigned char *dst, const unsigned char *src, long count, float scale,
                  float offset, int low, int high)
{
    rescaleKernel(dst, src, count, scale, offset, low, high);
}
