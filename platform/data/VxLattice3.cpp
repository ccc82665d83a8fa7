#include "platform/data/VxLattice3.h"

#include "platform/data/WriteAhead.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Fixed-size voxel so that the copy loops compile to plain loads and stores.
template <size_t N>
struct Voxel
{
    unsigned char bytes[N];
};

// Reverses the order of `count` consecutive elements of N bytes at `p`.
template <size_t N>
void reverseElements(unsigned char *p, size_t count)
{
    if (count < 2)
        return;
    // Plain integer elements let the compiler vectorise the reversal.
    if constexpr (N == 1)
        std::reverse(p, p + count);
    else if constexpr (N == 2)
        std::reverse(reinterpret_cast<uint16_t *>(p), reinterpret_cast<uint16_t *>(p) + count);
    else if constexpr (N == 4)
        std::reverse(reinterpret_cast<uint32_t *>(p), reinterpret_cast<uint32_t *>(p) + count);
    else if constexpr (N == 8)
        std::reverse(reinterpret_cast<uint64_t *>(p), reinterpret_cast<uint64_t *>(p) + count);
    else {
        auto *v = reinterpret_cast<Voxel<N> *>(p);
        for (size_t a = 0, b = count - 1; a < b; ++a, --b)
            std::swap(v[a], v[b]);
    }
}

// The same for elements of any size (whole rows or slices), swapped through a
// small buffer so that nothing the size of the volume is allocated.
void reverseElementsAny(unsigned char *p, size_t count, size_t n)
{
    if (count < 2)
        return;
    unsigned char tmp[4096];
    for (size_t a = 0, b = count - 1; a < b; ++a, --b) {
        unsigned char *pa = p + a * n;
        unsigned char *pb = p + b * n;
        for (size_t done = 0; done < n; done += sizeof tmp) {
            const size_t len = std::min(sizeof tmp, n - done);
            std::memcpy(tmp, pa + done, len);
            std::memcpy(pa + done, pb + done, len);
            std::memcpy(pb + done, tmp, len);
        }
    }
}

// Mirrors along axis 0: reverses every row, voxel by voxel.
template <size_t N>
void mirrorRows(unsigned char *p, size_t n0, size_t rows)
{
    for (size_t r = 0; r < rows; ++r)
        reverseElements<N>(p + r * n0 * N, n0);
}

// Copies the samples of `src` (dims d) into `dst` so that new axis a is old
// axis perm[a]. The copy runs over cubes of 32 x 32 x 32 voxels, so that
// reads and writes both stay within a few cache lines per row whichever
// axis becomes the fastest.
template <size_t N>
void permuteCopy(const unsigned char *src, unsigned char *dst, const size_t d[3], const int perm[3])
{
    constexpr size_t tile = 32;
    const size_t oldStride[3] = {1, d[0], d[0] * d[1]};
    const size_t s0 = oldStride[perm[0]];
    const size_t s1 = oldStride[perm[1]];
    const size_t s2 = oldStride[perm[2]];
    const size_t n0 = d[perm[0]];
    const size_t n1 = d[perm[1]];
    const size_t n2 = d[perm[2]];
    const auto *in = reinterpret_cast<const Voxel<N> *>(src);
    auto *out = reinterpret_cast<Voxel<N> *>(dst);
    if (perm[0] == 0) {
        // Rows stay rows: only their order changes.
        for (size_t c = 0; c < n2; ++c)
            for (size_t b = 0; b < n1; ++b)
                std::memcpy(out + (c * n1 + b) * n0, in + c * s2 + b * s1, n0 * N);
        return;
    }
    for (size_t c0 = 0; c0 < n2; c0 += tile)
        for (size_t b0 = 0; b0 < n1; b0 += tile)
            for (size_t a0 = 0; a0 < n0; a0 += tile) {
                const size_t c1 = std::min(c0 + tile, n2);
                const size_t b1 = std::min(b0 + tile, n1);
                const size_t a1 = std::min(a0 + tile, n0);
                for (size_t c = c0; c < c1; ++c)
                    for (size_t b = b0; b < b1; ++b) {
                        const Voxel<N> *from = in + c * s2 + b * s1;
                        Voxel<N> *to = out + (c * n1 + b) * n0;
                        for (size_t a = a0; a < a1; ++a)
                            to[a] = from[a * s0];
                    }
            }
}

void permuteCopyAny(const unsigned char *src, unsigned char *dst, const size_t d[3],
                    const int perm[3], size_t n)
{
    const size_t oldStride[3] = {1, d[0], d[0] * d[1]};
    for (size_t c = 0; c < d[perm[2]]; ++c)
        for (size_t b = 0; b < d[perm[1]]; ++b)
            for (size_t a = 0; a < d[perm[0]]; ++a) {
                const size_t from = a * oldStride[perm[0]] + b * oldStride[perm[1]] +
                                    c * oldStride[perm[2]];
                std::memcpy(dst, src + from * n, n);
                dst += n;
            }
}

} // namespace

VxLattice3::VxLattice3(const int dims[3], KcPrimType primType, int nComponents, void *data,
                       VxCoordType coordType)
    : type(primType), components(nComponents > 0 ? nComponents : 1), coords(coordType)
{
    for (int a = 0; a < 3; ++a)
        dimensions[a] = dims && dims[a] > 0 ? dims[a] : 0;
    samples = static_cast<unsigned char *>(data);
    if (!samples && numBytes() > 0)
        samples = static_cast<unsigned char *>(std::calloc(numBytes(), 1));
    for (int a = 0; a < 3; ++a) {
        box[2 * a] = 0.0f;
        box[2 * a + 1] = dimensions[a] > 0 ? static_cast<float>(dimensions[a] - 1) : 0.0f;
    }
    if (coords == VX_COORD_STACKED) {
        slices.resize(dimensions[2]);
        for (int k = 0; k < dimensions[2]; ++k)
            slices[k] = static_cast<float>(k);
    }
}

VxLattice3::~VxLattice3()
{
    vxfield::WriteAhead::forget(samples);
    vxfield::releaseSamples(samples);
}

size_t VxLattice3::numVoxels() const
{
    return static_cast<size_t>(dimensions[0]) * static_cast<size_t>(dimensions[1]) *
           static_cast<size_t>(dimensions[2]);
}

KcRawData3D VxLattice3::rawData() const
{
    return KcRawData3D(samples, dimensions, type, components);
}

void VxLattice3::getBoundingBox(float bbox[6]) const
{
    std::copy(box, box + 6, bbox);
    if (coords == VX_COORD_STACKED && !slices.isEmpty()) {
        bbox[4] = slices[0];
        bbox[5] = slices.last();
    }
}

void VxLattice3::setBoundingBox(const float bbox[6])
{
    const int n = coords == VX_COORD_STACKED ? 4 : 6;
    std::copy(bbox, bbox + n, box);
}

bool VxLattice3::setSliceCoords(const float *z, int n)
{
    if (coords != VX_COORD_STACKED || !z || n != dimensions[2])
        return false;
    for (int k = 0; k < n; ++k)
        slices[k] = z[k];
    return true;
}

void VxLattice3::voxelPosition(int i, int j, int k, float out[3]) const
{
    const int index[3] = {i, j, k};
    for (int a = 0; a < 3; ++a) {
        if (a == 2 && coords == VX_COORD_STACKED) {
            out[2] = k >= 0 && k < slices.size() ? slices[k] : 0.0f;
            continue;
        }
        const float lo = box[2 * a];
        const float hi = box[2 * a + 1];
        // Interpolating from both ends keeps the last voxel exactly on the box.
        if (dimensions[a] > 1) {
            const double t = static_cast<double>(index[a]) / (dimensions[a] - 1);
            out[a] = static_cast<float>(lo * (1.0 - t) + hi * t);
        } else {
            out[a] = lo;
        }
    }
}

bool VxLattice3::swapDims(int i, int j, int k)
{
    const int perm[3] = {i, j, k};
    bool seen[3] = {false, false, false};
    for (int p : perm) {
        if (p < 0 || p > 2 || seen[p])
            return false;
        seen[p] = true;
    }
    if (coords == VX_COORD_STACKED && k != 2)
        return false;
    if (i == 0 && j == 1)
        return true;

    const size_t d[3] = {static_cast<size_t>(dimensions[0]), static_cast<size_t>(dimensions[1]),
                         static_cast<size_t>(dimensions[2])};
    const size_t bytes = numBytes();
    if (bytes > 0 && samples) {
        auto *moved = static_cast<unsigned char *>(std::malloc(bytes));
        if (!moved)
            return false;
        switch (voxelBytes()) {
        case 1: permuteCopy<1>(samples, moved, d, perm); break;
        case 2: permuteCopy<2>(samples, moved, d, perm); break;
        case 3: permuteCopy<3>(samples, moved, d, perm); break;
        case 4: permuteCopy<4>(samples, moved, d, perm); break;
        case 8: permuteCopy<8>(samples, moved, d, perm); break;
        default:
            permuteCopyAny(samples, moved, d, perm, static_cast<size_t>(voxelBytes()));
            break;
        }
        vxfield::WriteAhead::forget(samples);
        vxfield::releaseSamples(samples);
        samples = moved;
    }

    const int oldDims[3] = {dimensions[0], dimensions[1], dimensions[2]};
    float oldBox[6];
    std::copy(box, box + 6, oldBox);
    for (int a = 0; a < 3; ++a) {
        dimensions[a] = oldDims[perm[a]];
        box[2 * a] = oldBox[2 * perm[a]];
        box[2 * a + 1] = oldBox[2 * perm[a] + 1];
    }
    return true;
}

void VxLattice3::mirror(int axis)
{
    if (axis < 0 || axis > 2 || !samples || dimensions[axis] < 2)
        return;
    const size_t vb = static_cast<size_t>(voxelBytes());
    const size_t n0 = static_cast<size_t>(dimensions[0]);
    const size_t n1 = static_cast<size_t>(dimensions[1]);
    const size_t n2 = static_cast<size_t>(dimensions[2]);
    if (axis == 0) {
        const size_t rows = n1 * n2;
        switch (vb) {
        case 1: mirrorRows<1>(samples, n0, rows); break;
        case 2: mirrorRows<2>(samples, n0, rows); break;
        case 3: mirrorRows<3>(samples, n0, rows); break;
        case 4: mirrorRows<4>(samples, n0, rows); break;
        case 8: mirrorRows<8>(samples, n0, rows); break;
        default:
            for (size_t r = 0; r < rows; ++r)
                reverseElementsAny(samples + r * n0 * vb, n0, vb);
            break;
        }
    } else if (axis == 1) {
        // Whole rows trade places within each slice.
        const size_t rowBytes = n0 * vb;
        for (size_t z = 0; z < n2; ++z)
            reverseElementsAny(samples + z * n1 * rowBytes, n1, rowBytes);
    } else {
        reverseElementsAny(samples, n2, n0 * n1 * vb);
    }
}
