#include "vxdicom/reader/VxDicomField.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/data/WriteAhead.h"
#include "platform/dicom/dicom.h"

#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/params/DicomParamFilter.h"
#include "vxdicom/reader/DicomReaderSettings.h"
#include "vxdicom/reader/OrderedPool.h"
#include "vxdicom/reader/VolumePrefault.h"
#include "vxdicom/reader/VxDicom.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"
#include <Inventor/SbVec3f.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

namespace {

struct SampleDeleter
{
    void operator()(void *p) const { vxfield::releaseSamples(p); }
};
using SampleBuffer = std::unique_ptr<unsigned char, SampleDeleter>;

const char *const overflowQuestion =
    "According to the DICOM header the pixel values should be linearly scaled.\n"
    "However, after applying the scaling an overflow would occur. You can either\n"
    "completely ignore the scaling, apply the scaling and clamp the data values,\n"
    "or use adjusted scaling parameters, so that no data overflow occurs.";

enum OverflowChoice { IgnoreScaling = 0, ClampData = 1, AdjustScaling = 2 };

float orientationTolerance()
{
    const char *env = std::getenv("DICOM_EPS_ORIENTATION");
    return env ? static_cast<float>(std::atof(env)) : 0.03f;
}

void typeBounds(KcPrimType type, int &low, int &high)
{
    switch (type) {
    case KcPrimType::UInt16:
        low = 0;
        high = 65535;
        break;
    case KcPrimType::Int16:
        low = -32768;
        high = 32767;
        break;
    default:
        low = 0;
        high = 255;
        break;
    }
}

// Converts one slice in place from the stack's sample type to the field's.
// Both types have the same size, which createField3 checks.
void rescaleSlice(void *samples, long count, KcPrimType from, KcPrimType to, float scale,
                  float offset)
{
    int low, high;
    typeBounds(to, low, high);
    if (from == KcPrimType::UInt16 && to == KcPrimType::Int16)
        dicomRescale(static_cast<short *>(samples), static_cast<const unsigned short *>(samples),
                     count, scale, offset, low, high);
    else if (from == KcPrimType::UInt16 && to == KcPrimType::UInt16)
        dicomRescale(static_cast<unsigned short *>(samples),
                     static_cast<const unsigned short *>(samples), count, scale, offset, low, high);
    else if (from == KcPrimType::Int16 && to == KcPrimType::Int16)
        dicomRescale(static_cast<short *>(samples), static_cast<const short *>(samples), count,
                     scale, offset, low, high);
    else if (from == KcPrimType::Int16 && to == KcPrimType::UInt16)
        dicomRescale(static_cast<unsigned short *>(samples), static_cast<const short *>(samples),
                     count, scale, offset, low, high);
    else if (from == KcPrimType::UInt8 && to == KcPrimType::UInt8)
        dicomRescale(static_cast<unsigned char *>(samples),
                     static_cast<const unsigned char *>(samples), count, scale, offset, low, high);
}

unsigned char clampByte(double v)
{
    return static_cast<unsigned char>(v < 0 ? 0 : (v > 255 ? 255 : std::lround(v)));
}

// The bits of a 32-bit colour component that a 16-bit component keeps: the
// stored bits are moved down to bit 0, and of more than 16 only the top 16
// stay.
struct ColourReduction
{
    int shift = 0;
    uint32_t mask = 0xFFFFFFFFu;
    int drop = 0;
};

ColourReduction colourReduction(const VxDicomImage &image)
{
    ColourReduction r;
    const int stored = image.bitsStored > 0 && image.bitsStored <= 32 ? image.bitsStored : 32;
    const int high = image.highBit >= stored - 1 && image.highBit < 32 ? image.highBit : stored - 1;
    r.shift = high + 1 - stored;
    r.mask = stored == 32 ? 0xFFFFFFFFu : (1u << stored) - 1u;
    r.drop = stored > 16 ? stored - 16 : 0;
    return r;
}

// Copies one colour frame into pixel order; planar frames are interleaved,
// YBR_FULL is converted to RGB (the decoder hands JPEG colour over as RGB)
// and 32-bit components are reduced to 16 bits.
void fillColourSlice(unsigned char *dst, const unsigned char *src, const VxDicomImage &image,
                     const char *photometric)
{
    const long pixels = static_cast<long>(image.width) * image.height;
    const int spp = image.samplesPerPixel;
    if (image.bytesPerSample == 4) {
        const ColourReduction r = colourReduction(image);
        unsigned short *out = reinterpret_cast<unsigned short *>(dst);
        for (long i = 0; i < pixels; ++i)
            for (int s = 0; s < spp; ++s) {
                uint32_t v;
                const long at = image.planarConfig == 1 ? s * pixels + i : i * spp + s;
                std::memcpy(&v, src + at * 4, 4);
                out[i * spp + s] = static_cast<unsigned short>(((v >> r.shift) & r.mask) >> r.drop);
            }
        return;
    }
    const int bytes = image.bytesPerSample == 1 ? 1 : 2;
    if (image.planarConfig == 1) {
        for (long i = 0; i < pixels; ++i)
            for (int s = 0; s < spp; ++s)
                std::memcpy(dst + (i * spp + s) * bytes, src + (s * pixels + i) * bytes,
                            static_cast<size_t>(bytes));
    } else {
        std::memcpy(dst, src, static_cast<size_t>(pixels) * spp * bytes);
    }
    if (bytes == 1 && spp == 3 && photometric && std::strcmp(photometric, "YBR_FULL") == 0) {
        for (long i = 0; i < pixels; ++i) {
            unsigned char *p = dst + i * 3;
            const double y = p[0], cb = p[1] - 128.0, cr = p[2] - 128.0;
            p[0] = clampByte(y + 1.402 * cr);
            p[1] = clampByte(y - 0.344136 * cb - 0.714136 * cr);
            p[2] = clampByte(y + 1.772 * cb);
        }
    }
}

// The plain rescale (slope 1, a whole intercept) of a slice that was just
// read, done while the slice is still in the cache instead of in a second
// pass over the volume. It is taken only when the rescaled values fit the
// stack's own type, so it is exact and can be undone; createField3 undoes it
// when the stack as a whole needs another type or an adjusted scaling.
bool rescaleWhileCached(unsigned char *slice, long count, const VxDicomImage &image,
                        KcPrimType type)
{
    const float o = image.rescaleIntercept;
    if (image.rescaleSlope != 1.0f || o == 0.0f || o != std::trunc(o) || std::fabs(o) > 65536.0f ||
        image.minValue > image.maxValue || image.primType() != type)
        return false;
    int low, high;
    typeBounds(type, low, high);
    const long lo = image.minValue + static_cast<long>(o);
    const long hi = image.maxValue + static_cast<long>(o);
    if (lo < low || hi > high)
        return false;
    rescaleSlice(slice, count, type, type, 1.0f, o);
    return true;
}

void undoEarlyRescale(unsigned char *slice, long count, const VxDicomImage &image, KcPrimType type)
{
    rescaleSlice(slice, count, type, type, 1.0f, -image.rescaleIntercept);
}

// Rescales with a fraction (a PET slope of 0.0001, a Philips MR slope of
// 2.36) give values that no integer sample holds. Such stacks become
// floating-point fields rather than keeping the stored samples with a scale:
// single precision holds every stored 16-bit value times any slope to seven
// digits, slices whose rescales differ need no common scale, and every user
// of the field (viewers, NIfTI, NRRD) sees the physical values as they are.
// Whole-number rescales (the CT intercept of -1024) stay integer fields.
bool needsFloatSamples(const VxDicomImageStack &stack)
{
    for (const VxDicomImage *image : stack.images) {
        const float s = image->rescaleSlope, o = image->rescaleIntercept;
        if (s != std::trunc(s) || o != std::trunc(o) || s == 0)
            return true;
        // 32-bit samples have no integer type above them to rescale into.
        if (image->primType() == KcPrimType::Int32 && (s != 1 || o != 0))
            return true;
    }
    return false;
}

// The stored samples at the start of `slice` become s * v + o in single
// precision, in place: the floats take twice (or four times) the bytes, so
// the conversion runs from the last sample back, which never overwrites a
// sample before it is read. Returns the smallest and largest value.
template <class T>
void storedToFloat(unsigned char *slice, long count, double s, double o, float &lo, float &hi)
{
    const T *in = reinterpret_cast<const T *>(slice);
    float *out = reinterpret_cast<float *>(slice);
    for (long i = count - 1; i >= 0; --i) {
        const float v = static_cast<float>(in[i] * s + o);
        out[i] = v;
        lo = std::min(lo, v);
        hi = std::max(hi, v);
    }
}

void sliceToFloat(unsigned char *slice, long count, const VxDicomImage &image, float &lo, float &hi)
{
    const double s = image.rescaleSlope, o = image.rescaleIntercept;
    switch (image.primType()) {
    case KcPrimType::UInt8:
        storedToFloat<unsigned char>(slice, count, s, o, lo, hi);
        break;
    case KcPrimType::Int16:
        storedToFloat<short>(slice, count, s, o, lo, hi);
        break;
    case KcPrimType::UInt16:
        storedToFloat<unsigned short>(slice, count, s, o, lo, hi);
        break;
    default:
        if (image.isSigned)
            storedToFloat<int>(slice, count, s, o, lo, hi);
        else
            storedToFloat<unsigned>(slice, count, s, o, lo, hi);
        break;
    }
}

// A volume's sample buffer where no write ahead holds it (released with
// free, through vxfield::releaseSamples). Large buffers start on a
// 2 MiB boundary, which is also a disk block boundary, so that a saved file
// can take the samples straight from here (OutputFile::writeUncached). They
// are not offered for huge pages: on virtual machines that hand free memory
// back to the host, a huge page mostly comes from returned memory and costs
// far more to fault in than small pages do (measured on the 2-core VM: 13 %
// more time for a JPEG 2000 series, the same for an uncompressed one).
unsigned char *allocateSamples(size_t bytes)
{
    constexpr size_t boundary = 2u << 20;
    if (bytes < 4 * boundary)
        return static_cast<unsigned char *>(std::malloc(bytes));
    void *p = nullptr;
    if (posix_memalign(&p, boundary, bytes) != 0)
        return nullptr;
    return static_cast<unsigned char *>(p);
}

// The value range of a slice that was read lazily, for its image record.
void rangeOfSlice(VxDicomImage &image, const void *samples)
{
    const long n = image.numSamples();
    switch (image.primType()) {
    case KcPrimType::UInt8:
        dicomValueRangeU8(static_cast<const unsigned char *>(samples), n, image.minValue,
                          image.maxValue);
        break;
    case KcPrimType::Int16:
        dicomValueRangeS16(static_cast<const short *>(samples), n, image.minValue, image.maxValue);
        break;
    case KcPrimType::UInt16:
        dicomValueRangeU16(static_cast<const unsigned short *>(samples), n, image.minValue,
                           image.maxValue);
        break;
    default:
        break;
    }
}

// Where the samples of the image frame (row, column, slice) went while they
// were reordered: image axis a lies along lattice axis `axis[a]`, reversed
// when `sign[a]` is -1.
struct AxisMap
{
    int axis[3] = {0, 1, 2};
    int sign[3] = {1, 1, 1};

    void swap(VxLattice3 *lat, int i, int j, int k)
    {
        if (!lat->swapDims(i, j, k))
            return;
        const int order[3] = {i, j, k};
        for (int a = 0; a < 3; ++a)
            for (int n = 0; n < 3; ++n)
                if (order[n] == axis[a]) {
                    axis[a] = n;
                    break;
                }
    }
    void mirror(VxLattice3 *lat, int latticeAxis)
    {
        lat->mirror(latticeAxis);
        for (int a = 0; a < 3; ++a)
            if (axis[a] == latticeAxis)
                sign[a] = -sign[a];
    }
    int imageAxisOf(int latticeAxis) const
    {
        for (int a = 0; a < 3; ++a)
            if (axis[a] == latticeAxis)
                return a;
        return latticeAxis;
    }
    /// Row a: the lattice direction of image axis a (row-vector convention).
    SbMatrix matrix() const
    {
        SbMatrix m = SbMatrix::identity();
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c)
                m[a][c] = (c == axis[a]) ? static_cast<float>(sign[a]) : 0.0f;
        return m;
    }
};

float distance(const float a[3], const float b[3])
{
    const float dx = a[0] - b[0], dy = a[1] - b[1], dz = a[2] - b[2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

// 0 when v is near none of the six axis directions, else 1..6 for +x, -x,
// +y, -y, +z, -z (the first one within the tolerance).
int axisClass(const float v[3], float tolerance)
{
    static const float axes[6][3] = {{1, 0, 0},  {-1, 0, 0}, {0, 1, 0},
                                     {0, -1, 0}, {0, 0, 1},  {0, 0, -1}};
    for (int i = 0; i < 6; ++i)
        if (distance(v, axes[i]) < tolerance)
            return i + 1;
    return 0;
}

void multiply(const float m[3][3], const float v[3], float out[3])
{
    for (int r = 0; r < 3; ++r)
        out[r] = m[r][0] * v[0] + m[r][1] * v[1] + m[r][2] * v[2];
}

// Uncompressed volumes smaller than this are read faster than a helper
// thread starts.
constexpr size_t kParallelReadBytes = size_t(16) << 20;

// Frames worth handing to helper threads: not yet in memory, whole frames
// (the tiles of a mosaic share one decoded frame), and compressed, or
// uncompressed in a large volume, whose pages both threads then fault in
// and fill.
bool readsInParallel(const VxDicomImage &image, bool largeVolume)
{
    return !image.hasPixels() && image.tile < 0 && image.file && image.file->data &&
           (largeVolume || image.file->data->compression != dicom::COMPRESSION_NONE);
}

} // namespace

VxField3 *createField3(VxDicomImageStack &stack)
{
    VxMessage *msg = VxMessage::getTheMsg();
    if (stack.images.isEmpty() || stack.width < 1 || stack.height < 1)
        return nullptr;

    const VxDicomImage *first = stack.images[0];
    const int spp = first->samplesPerPixel;
    const long sliceSamples = static_cast<long>(stack.width) * stack.height * spp;
    const bool floatSamples = spp == 1 && needsFloatSamples(stack);
    const long sampleBytes = floatSamples ? 4 : stack.primType.size();
    const long sliceBytes = sliceSamples * sampleBytes;

    // A few headers can claim terabytes: a stack that cannot fit in memory is
    // refused before anything of its size is allocated.
    const long bytes =
        stack.memSize() < 0 ? -1 : stack.memSize() / stack.primType.size() * sampleBytes;
    const uint64_t limit = dicom::dicomMemoryLimit();
    if (bytes < 0 || static_cast<uint64_t>(bytes) >= limit) {
        msg->failure("stack %s: its samples need %ld bytes, more than the memory limit of %llu "
                     "bytes\n",
                     stack.name.c_str(), bytes, static_cast<unsigned long long>(limit));
        return nullptr;
    }
    // Where the field is to be saved uncompressed anyway, its samples are
    // read straight into the file they are saved in; it ends before the
    // samples are released. Room for one more byte: decoders write
    // odd-sized frames as whole words.
    std::unique_ptr<vxfield::WriteAhead> ahead =
        spp == 1 ? vxfield::WriteAhead::start(static_cast<size_t>(bytes), 1, stack.name) : nullptr;
    SampleBuffer samples(ahead ? ahead->samples()
                               : allocateSamples(static_cast<size_t>(bytes) + 1));
    if (!samples) {
        msg->failure("stack %s: cannot allocate %ld bytes for its samples\n", stack.name.c_str(),
                     bytes);
        return nullptr;
    }

    if (spp > 1 && first->bytesPerSample == 4) {
        const int drop = colourReduction(*first).drop;
        if (drop > 0)
            msg->warning("stack %s: its colour components have %d stored bits; the colour field "
                         "holds 16 bits per component, so the lowest %d bits of each are "
                         "dropped\n",
                         stack.name.c_str(), 16 + drop, drop);
    }

    VxWorkArea *work = VxWorkArea::instance();
    const bool progress = stack.numSlices > 1;
    if (progress) {
        work->startProgress();
        work->setStatus("loading image data...");
    }
    const size_t slices = static_cast<size_t>(stack.images.size());
    std::vector<char> rangeLearnt(slices, 0), rescaledEarly(slices, 0);
    float floatLow = std::numeric_limits<float>::max(), floatHigh = -floatLow;

    // Brings the samples of image k into its slice, learns their range where
    // the header did not give it, and rescales them while they are in the
    // cache where that keeps them in their type; throws the file's texts.
    // Touches nothing but the image, its file's decoder, the slice and its
    // flags, so that slices may be filled on several threads at once.
    const size_t storedSliceBytes = static_cast<size_t>(sliceSamples * stack.primType.size());
    auto fillSlice = [&](int k) {
        VxDicomImage &image = *stack.images[k];
        unsigned char *slice = samples.get() + k * sliceBytes;
        if (spp != 1) {
            fillColourSlice(slice, static_cast<const unsigned char *>(image.pixelData()), image,
                            image.file->data->photometric.c_str());
            return;
        }
        if (image.hasPixels())
            // The stored samples; a float field converts them in place below.
            std::memcpy(slice, image.pixelData(), storedSliceBytes);
        else
            image.loadToMemory(slice);
        // Images read lazily learn their value range only now, with their samples.
        if (image.minValue > image.maxValue) {
            rangeOfSlice(image, slice);
            rangeLearnt[static_cast<size_t>(k)] = 1;
        }
        if (!floatSamples)
            rescaledEarly[static_cast<size_t>(k)] =
                rescaleWhileCached(slice, sliceSamples, image, stack.primType) ? 1 : 0;
    };
    // Frames are read or decoded ahead on helper threads, which the pool
    // stops and joins on every way out of this function before the samples
    // are released. Without them, a second thread faults in the far end of
    // a large volume meanwhile.
    std::unique_ptr<OrderedPool> pool;
    bool poolReadsUncompressed = false;
    if (progress) {
        const bool large = static_cast<size_t>(bytes) >= kParallelReadBytes;
        std::vector<int> parallel;
        for (int k = 0; k < stack.images.size(); ++k)
            if (readsInParallel(*stack.images[k], large)) {
                parallel.push_back(k);
                poolReadsUncompressed |=
                    stack.images[k]->file->data->compression == dicom::COMPRESSION_NONE;
            }
        const int threads = OrderedPool::defaultThreads();
        if (parallel.size() > 1 && threads > 1)
            pool = std::make_unique<OrderedPool>(std::move(parallel), fillSlice, threads,
                                                 2 * threads + 2);
        else
            poolReadsUncompressed = false;
    }
    VolumePrefault prefault(samples.get(), poolReadsUncompressed ? 0 : static_cast<size_t>(bytes));

    for (int k = 0; k < stack.images.size(); ++k) {
        VxDicomImage &image = *stack.images[k];
        unsigned char *slice = samples.get() + k * sliceBytes;
        OrderedPool::Outcome decoded;
        const char *failure = nullptr;
        if (pool && pool->covers(k)) {
            decoded = pool->take(k);
            VxMessage::getTheMsg()->replay(decoded.messages);
            if (decoded.exception)
                std::rethrow_exception(decoded.exception);
            if (decoded.failed)
                failure = decoded.failure.c_str();
        } else {
            try {
                fillSlice(k);
            } catch (const char *text) {
                failure = text;
            }
        }
        if (failure) {
            if (progress)
                work->endProgress();
            msg->failure("reading %s failed: %s\n", image.file->fileName.c_str(), failure);
            return nullptr;
        }
        prefault.readerAt(static_cast<size_t>(k + 1) * static_cast<size_t>(sliceBytes));
        if (floatSamples)
            sliceToFloat(slice, sliceSamples, image, floatLow, floatHigh);
        if (progress) {
            work->setProgress(static_cast<float>(k + 1) / static_cast<float>(stack.numSlices));
            if (work->wasInterrupted()) {
                work->setStatus("interrupted.");
                work->endProgress();
                msg->failure("stack %s: loading interrupted\n", stack.name.c_str());
                return nullptr;
            }
        }
    }
    if (pool)
        pool->stop();
    prefault.stop();
    if (progress)
        work->endProgress();
    const bool rangesChanged = std::find(rangeLearnt.begin(), rangeLearnt.end(), 1) != rangeLearnt.end();
    if (rangesChanged && stack.minValue > stack.maxValue)
        stack.recomputeDataRange();

    // The fit of the rescale is decided once every image knows its range;
    // the sample size never changes, so the buffer above stays valid.
    float scale = 1, offset = 0;
    KcPrimType type = stack.primType;
    const bool overflow = !floatSamples && stack.checkForDataOverflow(scale, offset, type);
    if (type.size() != stack.primType.size()) {
        msg->failure("Internal error in %s, line %d.\n", "VxDicom", __LINE__);
        return nullptr;
    }

    // Slices rescaled early assumed the plain rescale into the stack's own
    // type; when the decision is another, they get their stored values back.
    const bool earlyHolds = !overflow && type == stack.primType;
    if (!earlyHolds)
        for (int k = 0; k < stack.images.size(); ++k)
            if (rescaledEarly[static_cast<size_t>(k)]) {
                undoEarlyRescale(samples.get() + k * sliceBytes, sliceSamples, *stack.images[k],
                                 stack.primType);
                rescaledEarly[static_cast<size_t>(k)] = 0;
            }

    int choice = AdjustScaling;
    if (floatSamples)
        type = KcPrimType::Float;
    else if (spp == 1) {
        if (overflow)
            choice =
                VxWarningDialog::warning("DICOM", overflowQuestion, "Ignore scaling", "Clamp data",
                                         "Adjust scaling", AdjustScaling, AdjustScaling);
        bool statusShown = false;
        for (int k = 0; k < stack.images.size(); ++k) {
            const VxDicomImage &image = *stack.images[k];
            float s = image.rescaleSlope;
            float o = image.rescaleIntercept;
            if (overflow) {
                if (choice == IgnoreScaling) {
                    s = 1;
                    o = 0;
                } else if (choice == AdjustScaling) {
                    s = image.rescaleSlope * scale;
                    o = image.rescaleIntercept * scale + offset;
                }
            }
            if ((s == 1 && o == 0) || rescaledEarly[static_cast<size_t>(k)])
                continue;
            if (!statusShown) {
                work->setStatus("Adjusting image data");
                statusShown = true;
            }
            rescaleSlice(samples.get() + k * sliceBytes, sliceSamples, stack.primType, type, s, o);
        }
    }

    if (stack.minValue == stack.maxValue)
        stack.recomputeDataRange();

    const int dims[3] = {stack.width, stack.height, stack.numSlices};
    std::unique_ptr<VxRegScalarField3> field;
    if (stack.spacingState == 1) {
        if (spp == 1)
            field = std::make_unique<VxUniformScalarField3>(dims, type, samples.release());
        else
            field = std::make_unique<VxRegColorField3>(dims, VX_COORD_UNIFORM, spp,
                                                       samples.release(), type);
        field->lattice()->setBoundingBox(stack.bbox);
    } else {
        if (spp == 1)
            field = std::make_unique<VxStackedScalarField3>(dims, type, samples.release());
        else
            field = std::make_unique<VxRegColorField3>(dims, VX_COORD_STACKED, spp,
                                                       samples.release(), type);
        field->lattice()->setBoundingBox(stack.bbox);
        field->lattice()->setSliceCoords(stack.sliceLocations.data(), stack.sliceLocations.size());
    }

    vxfield::WriteAhead::keep(std::move(ahead));

    VxParamBundle &params = field->parameters();
    auto dicomParams = std::make_unique<VxParamBundle>(stack.parameters);
    fix(dicomParams.get());
    params.insert(dicomParams.release(), true);
    if (!VxSkin::instance()->dataWindowOption()) {
        if (floatSamples)
            params.setString("DataWindow",
                             KcString::format("%g %g", double(floatLow), double(floatHigh)));
        else
            params.setString("DataWindow",
                             KcString::format("%d %d", stack.minValue, stack.maxValue));
    }
    if (overflow && spp == 1 && choice != IgnoreScaling) {
        if (scale != 1)
            params.setFloat("DataWindowScale", 1.0 / scale);
        if (offset != 0)
            params.setFloat("DataWindowBias", -offset / scale);
    }
    params.setString("Modality", stack.modality);
    params.setFloat("UnitLength", 0.001 / dicomUnitFactor());
    return field.release();
}

void flipField3(VxField3 *field, const VxDicomImageStack &stack)
{
    if (!field || stack.images.isEmpty())
        return;
    auto *reg = dynamic_cast<VxRegScalarField3 *>(field);
    if (!reg)
        return;
    VxLattice3 *lat = reg->lattice();
    const VxDicomImage *first = stack.images[0];
    const VxDicomImage *last = stack.images[stack.images.size() - 1];
    const float tolerance = orientationTolerance();
    const float unit = dicomUnitFactor();

    // Orientation class of the slice normal and its axis matrix.
    float normal[3] = {first->normal[0], first->normal[1], first->normal[2]};
    if (normal[0] == 0 && normal[1] == 0 && normal[2] == 0)
        normal[2] = 1;
    const int cls = axisClass(normal, tolerance);
    float m[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    switch (cls) {
    case 1:
        m[2][0] = 1;
        m[1][1] = 1;
        m[0][2] = -1;
        break;
    case 2:
        m[2][0] = -1;
        m[1][1] = 1;
        m[0][2] = 1;
        break;
    case 3:
        m[0][0] = 1;
        m[2][1] = 1;
        m[1][2] = -1;
        break;
    case 4:
        m[0][0] = 1;
        m[2][1] = -1;
        m[1][2] = 1;
        break;
    case 5:
        m[0][0] = 1;
        m[1][1] = 1;
        m[2][2] = 1;
        break;
    case 6:
        m[0][0] = -1;
        m[1][1] = 1;
        m[2][2] = -1;
        break;
    default:
        break;
    }

    float bbox[6];
    lat->getBoundingBox(bbox);

    AxisMap map;
    if (lat->coordType() == VX_COORD_STACKED && cls <= 4) {
        VxMessage::getTheMsg()->printf("Stacked field of coronal/xz or sagittal/yz slices\n");
        VxMessage::getTheMsg()->printf("A transformation will be applied.\n");
        // The samples stay in image order, so the transformation alone
        // carries the orientation.
        setTransform(reg, stack, bbox, map.matrix());
        return;
    }

    float r[3], c[3];
    multiply(m, first->rowDirection, r);
    multiply(m, first->columnDirection, c);

    // In-plane correction by the row direction.
    switch (axisClass(r, tolerance)) {
    case 1:
        break;
    case 3:
        map.swap(lat, 1, 0, 2);
        map.mirror(lat, 0);
        break;
    case 2:
        map.mirror(lat, 0);
        map.mirror(lat, 1);
        break;
    case 4:
        map.swap(lat, 1, 0, 2);
        map.mirror(lat, 1);
        break;
    default:
        break;
    }

    // Slice axis onto its patient axis.
    switch (cls) {
    case 1:
        map.swap(lat, 2, 1, 0);
        map.mirror(lat, 2);
        break;
    case 2:
        map.swap(lat, 2, 1, 0);
        if (lat->dim(0) > 1)
            map.mirror(lat, 0);
        break;
    case 3:
        map.swap(lat, 0, 2, 1);
        map.mirror(lat, 2);
        break;
    case 4:
        map.swap(lat, 0, 2, 1);
        if (lat->dim(1) > 1)
            map.mirror(lat, 1);
        break;
    case 6:
        if (lat->dim(2) > 1)
            map.mirror(lat, 2);
        map.mirror(lat, 0);
        break;
    default:
        break;
    }

    lat->getBoundingBox(bbox);
    float d[3];
    for (int k = 0; k < 3; ++k)
        d[k] = lat->dim(k) > 1 ? (bbox[2 * k + 1] - bbox[2 * k]) / (lat->dim(k) - 1) : 0.0f;

    float box[6];
    const bool stacked = lat->coordType() == VX_COORD_STACKED;
    const int sliceAxis = map.axis[2];
    if (!first->hasPosition) {
        for (int k = 0; k < 3; ++k) {
            const float half = (lat->dim(k) - 1) * d[k] / 2;
            box[2 * k] = -half;
            box[2 * k + 1] = half;
        }
        if (!stacked) {
            const float a = unit * first->sliceLocation;
            const float b = unit * last->sliceLocation;
            box[2 * sliceAxis] = std::min(a, b);
            box[2 * sliceAxis + 1] = std::max(a, b);
        }
    } else {
        float p[3];
        for (int k = 0; k < 3; ++k)
            p[k] = first->position[k] * unit;
        for (int k = 0; k < 3; ++k) {
            const int a = map.imageAxisOf(k);
            bool down;
            if (a == 0)
                down = first->rowDirection[k] < 0;
            else if (a == 1)
                down = first->columnDirection[k] < 0;
            else
                down = !(last->position[k] > first->position[k]);
            const float length = (lat->dim(k) - 1) * d[k];
            box[2 * k] = down ? p[k] - length : p[k];
            box[2 * k + 1] = down ? p[k] : p[k] + length;
        }
        if (stacked && sliceAxis == 2) {
            KcDArray<float> z;
            const int n = stack.images.size();
            const bool reversed = !(last->position[2] > first->position[2]);
            for (int i = 0; i < n; ++i)
                z.append(stack.images[reversed ? n - 1 - i : i]->position[2] * unit);
            lat->setSliceCoords(z.data(), z.size());
        }
    }
    lat->setBoundingBox(box);
    lat->coordsChanged();
    lat->getBoundingBox(box);
    // The orientation matrix is the reordering itself (image row, column and
    // normal onto lattice axes): undone first, the image frame then maps to patient axes.
    setTransform(reg, stack, box, map.matrix());
}

namespace {

// Whether the row and column directions lie exactly on patient axes (every
// component 0 or of length 1 to single precision).
bool onTheAxes(const VxDicomImage &image)
{
    for (const float *v : {image.rowDirection, image.columnDirection})
        for (int k = 0; k < 3; ++k) {
            const float a = std::fabs(v[k]);
            if (a > 1e-6f && std::fabs(a - 1.0f) > 1e-6f)
                return false;
        }
    return true;
}

} // namespace

void setTransform(VxRegScalarField3 *field, const VxDicomImageStack &stack, const float *bbox,
                  const SbMatrix &matrix)
{
    if (!field || stack.images.isEmpty())
        return;
    const VxDicomImage *first = stack.images[0];
    const VxDicomImage *last = stack.images[stack.images.size() - 1];
    // The orientation tolerance only chose the lattice axes; a direction a
    // little off its axis (a 0.3 degree tilt puts the edge of a 25 cm image
    // 1.3 mm away) keeps its rotation here. Only images exactly on the axes
    // need no transformation.
    if (onTheAxes(*first) && field->coordType() != VX_COORD_STACKED)
        return;

    const float unit = dicomUnitFactor();
    const float *R[3] = {first->rowDirection, first->columnDirection, first->normal};
    SbVec3f p0, pN;
    for (int k = 0; k < 3; ++k) {
        p0[k] = first->position[k] * unit;
        pN[k] = last->position[k] * unit;
    }

    // The box in the image frame: where the lattice's corners lie once the
    // reordering is undone.
    const SbMatrix undo = matrix.inverse();
    float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
    for (int corner = 0; corner < 8; ++corner) {
        const SbVec3f v(bbox[(corner & 1) ? 1 : 0], bbox[(corner & 2) ? 3 : 2],
                        bbox[(corner & 4) ? 5 : 4]);
        SbVec3f w;
        undo.multDirMatrix(v, w);
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], w[k]);
            hi[k] = std::max(hi[k], w[k]);
        }
    }

    auto rotate = [&](float x, float y, float z) {
        SbVec3f out;
        for (int k = 0; k < 3; ++k)
            out[k] = x * R[0][k] + y * R[1][k] + z * R[2][k];
        return out;
    };
    const SbVec3f a = rotate(lo[0], lo[1], lo[2]);
    const SbVec3f b = rotate(lo[0], lo[1], hi[2]);
    const SbVec3f d1 = p0 - a, d2 = pN - b, d3 = p0 - b, d4 = pN - a;
    // A tie goes to the pairing of the first image with the top of the box.
    const SbVec3f t =
        (d3 - d4).length() <= (d1 - d2).length() ? (d3 + d4) * 0.5f : (d1 + d2) * 0.5f;

    const SbMatrix T(R[0][0], R[0][1], R[0][2], 0, R[1][0], R[1][1], R[1][2], 0, R[2][0], R[2][1],
                     R[2][2], 0, t[0], t[1], t[2], 1);
    field->setTransform(undo * T);
}

void registerField3(VxField3 *field, const VxDicomImageStack &stack)
{
    if (!field)
        return;
    if (!useDynamicSeriesCtrl) {
        field->setLabel(stack.name);
        VxObjectPool::instance()->add(field);
        KcString command = "load -dicom";
        const KcString *previous = nullptr;
        for (const VxDicomImage *image : stack.images) {
            const KcString &name = image->file->loadName;
            if (previous && *previous == name)
                continue;
            previous = &name;
            command += " ";
            if (name.find(' ') != std::string::npos)
                command += "\"" + name + "\"";
            else
                command += name;
        }
        field->setLoadCommand(command);
        return;
    }
    VxDynamicSeriesCtrl::TimeStep step;
    step.append(field);
    timeSteps.append(step);
}
