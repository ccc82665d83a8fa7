// NRRD files through teem's nrrd library, the format's reference
// implementation: teem parses headers and decodes the samples (raw, gzip,
// bzip2, ascii; attached or detached data) and formats the headers we write.
// The samples we write go through vxfield::writeFile, which puts a file under
// its name only once it is complete and compresses gzip members on all cores.

#include "platform/core/VxMessage.h"
#include "platform/data/FieldGeometry.h"
#include "platform/data/OutputFile.h"
#include "platform/data/VxFieldFile.h"

#include <teem/biff.h>
#include <teem/nrrd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <sys/stat.h>
#include <vector>

using vxfield::Geometry;
using vxfield::Vec3;

namespace {

const char *const kSliceOffsetsKey = "vx:SliceOffsets";
const char *const kParameterTypesKey = "vx:ParameterTypes";

bool fail(KcString *error, const char *verb, const char *path, const KcString &why)
{
    if (error)
        *error = KcString::format("%s %s failed: %s", verb, path ? path : "(null)", why.c_str());
    return false;
}

// teem reports errors through biff, a store of messages per library that is
// shared by the whole process, and keeps its settings in globals: one call
// into teem at a time.
std::mutex &teemMutex()
{
    static std::mutex m;
    return m;
}

void quietTeem()
{
    static bool done = false;
    if (!done) {
        nrrdStateVerboseIO = 0; // no notes of its own on stderr
        done = true;
    }
}

// teem's account of a failure, innermost last: "[nrrd] fn: text" lines. The
// two innermost texts say what was wrong, e.g. "trouble parsing sizes info
// |2 2|: parsed 2 values, but dimension is 3".
KcString teemError()
{
    char *raw = biffGetDone(NRRD);
    std::vector<std::string> texts;
    for (const char *p = raw; p && *p;) {
        const char *end = std::strchr(p, '\n');
        std::string line(p, end ? static_cast<size_t>(end - p) : std::strlen(p));
        p = end ? end + 1 : p + line.size();
        if (line.compare(0, 7, "[nrrd] ") == 0)
            line.erase(0, 7);
        const size_t colon = line.find(": ");
        if (colon != std::string::npos && line.find(' ') > colon)
            line.erase(0, colon + 2); // the function name
        else if (!line.empty() && line.back() == ':' && line.find(' ') == std::string::npos)
            line.clear();
        if (!line.empty())
            texts.push_back(line);
    }
    std::free(raw);
    if (texts.empty())
        return "teem's nrrd library gave no reason";
    if (texts.size() == 1 || texts[texts.size() - 2].compare(0, 7, "trouble") != 0)
        return texts.back();
    return texts[texts.size() - 2] + ": " + texts.back();
}

struct NrrdNixer
{
    void operator()(Nrrd *n) const { nrrdNix(n); } // frees all but the samples
};
using NrrdPtr = std::unique_ptr<Nrrd, NrrdNixer>;
struct IoStateNixer
{
    void operator()(NrrdIoState *s) const { nrrdIoStateNix(s); }
};
using IoStatePtr = std::unique_ptr<NrrdIoState, IoStateNixer>;
struct FileCloser
{
    void operator()(FILE *f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;
struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
using Buffer = std::unique_ptr<void, FreeDeleter>;

std::string formatNumber(double v)
{
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.12g", v);
    return buf;
}

// Names in key paths: the path separator, the key-value separator, blanks
// and control characters are percent-encoded.
std::string encodeName(const std::string &s)
{
    std::string out;
    for (unsigned char c : s) {
        if (c == '%' || c == '/' || c == ':' || c == '=' || c == '\\' || c <= ' ' || c == 0x7f) {
            char buf[4];
            std::snprintf(buf, sizeof buf, "%%%02X", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string decodeName(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() &&
            std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out += static_cast<char>(std::strtol(s.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

void flattenParameters(const VxParamBundle &bundle, const std::string &prefix,
                       std::vector<std::pair<std::string, std::string>> &keys, std::string &types)
{
    for (int i = 0; i < bundle.size(); ++i) {
        const VxParamBase *e = bundle.entry(i);
        const std::string path = prefix + encodeName(e->name());
        if (const VxParamBundle *b = e->asBundle()) {
            if (b->size() == 0)
                keys.emplace_back(path + "/", "");
            else
                flattenParameters(*b, path + "/", keys, types);
            continue;
        }
        const auto *p = static_cast<const VxParameter *>(e);
        if (p->type() == VxParameter::Float) {
            char buf[40];
            std::snprintf(buf, sizeof buf, "%.17g", p->floatValue());
            keys.emplace_back(path, buf);
            types += (types.empty() ? "" : " ") + path + "=f";
        } else {
            keys.emplace_back(path, p->stringValue());
            if (p->type() == VxParameter::Int)
                types += (types.empty() ? "" : " ") + path + "=i";
        }
    }
}

int teemType(KcPrimType type)
{
    switch (type.id()) {
    case KcPrimType::UInt8:
        return nrrdTypeUChar;
    case KcPrimType::Int16:
        return nrrdTypeShort;
    case KcPrimType::UInt16:
        return nrrdTypeUShort;
    case KcPrimType::Int32:
        return nrrdTypeInt;
    case KcPrimType::Float:
        return nrrdTypeFloat;
    }
    return nrrdTypeUChar;
}

// What a file's sample type is loaded as: int8 widens to int16, double
// narrows to float; the other types of teem are refused.
bool loadedType(int teem, KcPrimType &type)
{
    switch (teem) {
    case nrrdTypeChar:
    case nrrdTypeShort:
        type = KcPrimType::Int16;
        return true;
    case nrrdTypeUChar:
        type = KcPrimType::UInt8;
        return true;
    case nrrdTypeUShort:
        type = KcPrimType::UInt16;
        return true;
    case nrrdTypeInt:
        type = KcPrimType::Int32;
        return true;
    case nrrdTypeFloat:
    case nrrdTypeDouble:
        type = KcPrimType::Float;
        return true;
    }
    return false;
}

bool isFinite(const double *v, unsigned n)
{
    for (unsigned i = 0; i < n; ++i)
        if (!std::isfinite(v[i]))
            return false;
    return true;
}

// The offset of the first byte after the header (the line after the first
// empty one), or -1 when the file ends first.
long dataOffset(FILE *f)
{
    int previous = '\n';
    bool lineStart = false;
    int c;
    std::rewind(f);
    while ((c = std::fgetc(f)) != EOF) {
        if (c == '\n' && (previous == '\n' || (previous == '\r' && lineStart)))
            return std::ftell(f);
        if (c == '\n')
            lineStart = true;
        else if (c != '\r')
            lineStart = false;
        previous = c;
    }
    return -1;
}

// Inserts a parameter (or, for a path ending in "/", an empty bundle) at
// its path below root.
void restoreParameter(VxParamBundle &root, const std::string &key, const std::string &value,
                      const std::map<std::string, char> &types)
{
    VxParamBundle *b = &root;
    size_t start = 0;
    while (true) {
        const size_t slash = key.find('/', start);
        if (slash == std::string::npos)
            break;
        const std::string name = decodeName(key.substr(start, slash - start));
        VxParamBundle *sub = b->bundle(name.c_str());
        if (!sub) {
            sub = new VxParamBundle(name.c_str());
            b->insert(sub);
        }
        b = sub;
        start = slash + 1;
    }
    if (start >= key.size())
        return;
    const std::string name = decodeName(key.substr(start));
    auto t = types.find(key);
    if (t != types.end() && t->second == 'f')
        b->setFloat(name.c_str(), std::strtod(value.c_str(), nullptr));
    else if (t != types.end() && t->second == 'i')
        b->setInt(name.c_str(), static_cast<int>(std::strtol(value.c_str(), nullptr, 10)));
    else
        b->setString(name.c_str(), value);
}

KcString directoryOf(const char *path)
{
    const std::string p = path;
    const size_t slash = p.find_last_of('/');
    return slash == std::string::npos ? KcString(".") : KcString(p.substr(0, slash));
}

// The header teem formats for the field: LPS space, the axes as space
// directions, millimetres, kinds, and the parameters as key/value pairs. The
// samples are written by the caller; teem only formats (skipData).
bool formatHeader(const VxField3 &field, const Geometry &g, bool gzip, std::string &header,
                  KcString &why)
{
    const VxLattice3 *lat = field.lattice();
    const int comps = lat->nComponents();
    const unsigned dim = comps > 1 ? 4 : 3;
    const unsigned first = comps > 1 ? 1 : 0;
    size_t sizes[NRRD_DIM_MAX];
    double directions[NRRD_DIM_MAX][NRRD_SPACE_DIM_MAX];
    int kinds[NRRD_DIM_MAX];
    if (comps > 1) {
        sizes[0] = static_cast<size_t>(comps);
        nrrdSpaceVecSetNaN(directions[0]);
        const bool colour = lat->primType() == KcPrimType::UInt8;
        kinds[0] = comps == 3 && colour   ? nrrdKindRGBColor
                   : comps == 4 && colour ? nrrdKindRGBAColor
                                          : nrrdKindVector;
    }
    for (unsigned k = 0; k < 3; ++k) {
        sizes[first + k] = static_cast<size_t>(lat->dim(static_cast<int>(k)));
        nrrdSpaceVecSetNaN(directions[first + k]);
        for (unsigned c = 0; c < 3; ++c)
            directions[first + k][c] = g.axis[k][c];
        kinds[first + k] = nrrdKindDomain;
    }

    std::vector<std::pair<std::string, std::string>> keys;
    std::string types;
    flattenParameters(field.parameters(), "", keys, types);
    std::string offsets;
    for (double d : g.sliceOffsetsMm) {
        if (!offsets.empty())
            offsets += ' ';
        offsets += formatNumber(d);
    }

    std::lock_guard<std::mutex> lock(teemMutex());
    quietTeem();
    NrrdPtr n(nrrdNew());
    IoStatePtr io(nrrdIoStateNew());
    if (!n || !io)
        return why = "out of memory", false;
    // teem only reads the samples' address here: it writes no data.
    if (nrrdWrap_nva(n.get(), const_cast<void *>(lat->data()), teemType(lat->primType()), dim,
                     sizes) ||
        nrrdSpaceSet(n.get(), nrrdSpaceLeftPosteriorSuperior) ||
        nrrdSpaceOriginSet(n.get(), g.origin.data()))
        return why = teemError(), false;
    nrrdAxisInfoSet_nva(n.get(), nrrdAxisInfoSpaceDirection, directions);
    nrrdAxisInfoSet_nva(n.get(), nrrdAxisInfoKind, kinds);
    for (unsigned c = 0; c < 3; ++c)
        n->spaceUnits[c] = airStrdup("mm");
    if (!field.label().isEmpty())
        n->content = airStrdup(field.label().c_str());
    int rc = 0;
    if (g.stacked)
        rc |= nrrdKeyValueAdd(n.get(), kSliceOffsetsKey, offsets.c_str());
    if (!types.empty())
        rc |= nrrdKeyValueAdd(n.get(), kParameterTypesKey, types.c_str());
    for (const auto &[key, value] : keys)
        rc |= nrrdKeyValueAdd(n.get(), key.c_str(), value.c_str());
    if (rc)
        return why = teemError(), false;

    io->skipData = AIR_TRUE;
    nrrdIoStateEncodingSet(io.get(), gzip ? nrrdEncodingGzip : nrrdEncodingRaw);
    char *text = nullptr;
    if (nrrdStringWrite(&text, n.get(), io.get())) {
        std::free(text);
        n->data = nullptr;
        return why = teemError(), false;
    }
    n->data = nullptr;
    header = text;
    std::free(text);
    header += "\n"; // the empty line before the samples
    return true;
}

} // namespace

bool VxFieldFile::saveNrrd(const VxField3 &field, const char *path, bool gzip, KcString *error)
{
    const char *verb = "saving";
    if (!path || !*path)
        return fail(error, verb, path, "no file name");
    const VxLattice3 *lat = field.lattice();
    if (!lat || !lat->data())
        return fail(error, verb, path, "the field has no regular lattice with samples");
    if (!VxFieldFile::hasFiniteGeometry(field))
        return fail(error, verb, path,
                    KcString::format("field \"%s\": its geometry is not finite (NaN or infinity "
                                     "in its position, spacing or orientation)",
                                     field.label().c_str()));
    Geometry g;
    KcString why;
    if (!vxfield::geometryOf(field, g, why))
        return fail(error, verb, path, why);
    std::string h;
    if (!formatHeader(field, g, gzip, h, why))
        return fail(error, verb, path, why);

    // The header as it is; the samples raw after it or as gzip members.
    const vxfield::ByteRange header{h.data(), h.size()};
    const vxfield::ByteRange samples{lat->data(), lat->numBytes()};
    const bool written = gzip ? vxfield::writeFile(path, {header}, {samples}, why)
                              : vxfield::writeFile(path, {header, samples}, {}, why);
    if (!written)
        return fail(error, verb, path, why);
    return true;
}

std::unique_ptr<VxRegScalarField3> VxFieldFile::loadNrrd(const char *path, KcString *error)
{
    const char *verb = "loading";
    auto bad = [&](const KcString &why) -> std::unique_ptr<VxRegScalarField3> {
        fail(error, verb, path, why);
        return nullptr;
    };
    if (!path || !*path)
        return bad("no file name");
    // teem also reads PNM, PNG, VTK and plain text; a field file must be NRRD.
    FilePtr f(std::fopen(path, "rb"));
    if (!f)
        return bad("cannot open: " + vxfield::systemError());
    char magic[4] = {};
    if (std::fread(magic, 1, 4, f.get()) != 4 || std::memcmp(magic, "NRRD", 4) != 0)
        return bad("not an NRRD file (no NRRD magic)");

    std::unique_lock<std::mutex> lock(teemMutex());
    quietTeem();

    // The header alone first: what it promises is checked before teem
    // allocates and reads the samples.
    NrrdPtr n(nrrdNew());
    IoStatePtr io(nrrdIoStateNew());
    if (!n || !io)
        return bad("out of memory");
    io->skipData = AIR_TRUE;
    if (nrrdLoad(n.get(), path, io.get()))
        return bad(teemError());

    KcPrimType type;
    if (!loadedType(n->type, type))
        return bad(
            KcString::format("sample type \"%s\" is not supported", airEnumStr(nrrdType, n->type)));
    const int dimension = static_cast<int>(n->dim);
    const unsigned spaceDim = n->spaceDim;
    if (spaceDim != 0 && spaceDim != 3)
        return bad(KcString::format("space \"%s\" (%u dimensions) is not supported",
                                    airEnumStr(nrrdSpace, n->space), spaceDim));
    auto isSpatial = [&](int axis) {
        const NrrdAxisInfo &a = n->axis[axis];
        if (spaceDim) // teem takes "none" as NaN and refuses other vectors that are not finite
            return isFinite(a.spaceDirection, spaceDim);
        return a.kind == nrrdKindUnknown || a.kind == nrrdKindDomain || a.kind == nrrdKindSpace;
    };

    // A first non-spatial axis holds the components of each voxel; the next
    // (up to three) spatial axes are the lattice; any further axes are
    // volumes, of which the first is loaded.
    int axis = 0;
    int components = 1;
    if (dimension > 1 && !isSpatial(0)) {
        components = static_cast<int>(n->axis[0].size);
        axis = 1;
    }
    int dims[3] = {1, 1, 1};
    Vec3 columns[3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    Vec3 origin{0, 0, 0};
    int spatialAxes = 0;
    for (; axis < dimension && spatialAxes < 3; ++axis) {
        const NrrdAxisInfo &a = n->axis[axis];
        if (!isSpatial(axis))
            return bad(
                KcString::format("axis %d is not spatial where a spatial one is needed", axis));
        if (a.size > INT32_MAX)
            return bad(KcString::format("axis %d has %zu samples", axis, a.size));
        dims[spatialAxes] = static_cast<int>(a.size);
        if (spaceDim) {
            for (size_t c = 0; c < 3; ++c)
                columns[spatialAxes][c] = a.spaceDirection[c];
        } else {
            // Without a space: "spacings" and "axis mins" along the axes.
            const double spacing = a.spacing;
            columns[spatialAxes][static_cast<size_t>(spatialAxes)] =
                std::isfinite(spacing) && spacing != 0.0 ? spacing : 1.0;
            if (std::isfinite(a.min))
                origin[static_cast<size_t>(spatialAxes)] = a.min;
        }
        ++spatialAxes;
    }
    size_t volumes = 1;
    for (; axis < dimension; ++axis)
        volumes *= n->axis[axis].size;
    if (spatialAxes == 0)
        return bad("no spatial axis");
    if (spaceDim && isFinite(n->spaceOrigin, 3))
        for (size_t c = 0; c < 3; ++c)
            origin[c] = n->spaceOrigin[c];

    // Patient space: LPS as it is; RAS and LAS are mirrored into it.
    double sign[3] = {1, 1, 1};
    switch (n->space) {
    case nrrdSpaceRightAnteriorSuperior:
        sign[0] = sign[1] = -1;
        break;
    case nrrdSpaceLeftAnteriorSuperior:
        sign[1] = -1;
        break;
    case nrrdSpaceUnknown:
    case nrrdSpaceLeftPosteriorSuperior:
    case nrrdSpaceScannerXYZ:
    case nrrdSpace3DRightHanded:
    case nrrdSpace3DLeftHanded:
        break;
    default:
        return bad(
            KcString::format("space \"%s\" is not supported", airEnumStr(nrrdSpace, n->space)));
    }
    double unitMm = 1.0;
    if (spaceDim && n->spaceUnits[0]) {
        const std::string unit = n->spaceUnits[0];
        if (unit == "m")
            unitMm = 1000.0;
        else if (unit == "cm")
            unitMm = 10.0;
        else if (unit == "um" || unit == "micron" || unit == "microns")
            unitMm = 0.001;
    }
    Geometry g;
    for (size_t c = 0; c < 3; ++c) {
        g.origin[c] = sign[c] * origin[c] * unitMm;
        for (int k = 0; k < 3; ++k)
            g.axis[k][c] = sign[c] * columns[k][c] * unitMm;
    }

    // Parameters, their types and the slice offsets.
    std::vector<std::pair<std::string, std::string>> keys;
    for (unsigned i = 0; i < nrrdKeyValueSize(n.get()); ++i) {
        char *key = nullptr;
        char *value = nullptr;
        nrrdKeyValueIndex(n.get(), &key, &value, i);
        keys.emplace_back(key ? key : "", value ? value : "");
        std::free(key);
        std::free(value);
    }
    std::map<std::string, char> types;
    std::vector<double> offsets;
    for (const auto &[key, value] : keys) {
        std::vector<std::string> words;
        for (size_t i = 0; i < value.size();) {
            const size_t j = std::min(value.find(' ', i), value.size());
            if (j > i)
                words.push_back(value.substr(i, j - i));
            i = j + 1;
        }
        if (key == kParameterTypesKey) {
            for (const std::string &w : words) {
                const size_t eq = w.rfind('=');
                if (eq != std::string::npos && eq + 1 < w.size())
                    types[w.substr(0, eq)] = w[eq + 1];
            }
        } else if (key == kSliceOffsetsKey) {
            for (const std::string &w : words) {
                char *end = nullptr;
                const double d = std::strtod(w.c_str(), &end);
                if (end && !*end && std::isfinite(d))
                    offsets.push_back(d);
            }
        }
    }
    VxParamBundle params("Parameters");
    for (const auto &[key, value] : keys)
        if (key.compare(0, 3, "vx:") != 0)
            restoreParameter(params, key, value, types);
    if (!offsets.empty()) {
        if (static_cast<int>(offsets.size()) == dims[2] && dims[2] > 0) {
            g.stacked = true;
            g.sliceOffsetsMm = offsets;
            for (double &d : g.sliceOffsetsMm)
                d *= unitMm;
        } else {
            VxMessage::getTheMsg()->warning(
                "loading %s: %zu slice offsets for %d slices are ignored\n", path, offsets.size(),
                dims[2]);
        }
    }

    // Where the samples are: a single data file is checked before anything
    // is allocated (sizes far beyond the file, gzip data that is not gzip,
    // which teem would take as raw bytes).
    const size_t samples = nrrdElementNumber(n.get());
    const size_t fileBytes = nrrdElementSize(n.get());
    if (samples == 0 || samples > SIZE_MAX / 8 / fileBytes)
        return bad("the sizes are too large");
    const unsigned dataFiles = io->dataFNArr ? io->dataFNArr->len : 0;
    FilePtr detached;
    FILE *data = f.get();
    long start = 0;
    if (dataFiles == 1) {
        const std::string name =
            io->dataFN[0][0] == '/' ? io->dataFN[0] : directoryOf(path) + "/" + io->dataFN[0];
        detached.reset(std::fopen(name.c_str(), "rb"));
        if (!detached)
            return bad("cannot open the data file " + name + ": " + vxfield::systemError());
        data = detached.get();
    } else if (dataFiles == 0 && (start = dataOffset(f.get())) < 0) {
        return bad("no data after the header");
    }
    if (dataFiles <= 1 && io->lineSkip == 0) {
        struct stat st;
        if (fstat(fileno(data), &st) != 0)
            return bad("cannot read the file size: " + vxfield::systemError());
        const unsigned long long have =
            static_cast<unsigned long long>(st.st_size) - static_cast<unsigned long long>(start);
        if (io->encoding == nrrdEncodingRaw) {
            const unsigned long long skip = io->byteSkip > 0 ? io->byteSkip : 0;
            const unsigned long long need = samples * fileBytes + skip;
            if (have < need)
                return bad(KcString::format("the file holds %llu bytes of samples, %llu are needed",
                                            have, need));
        } else if (io->encoding == nrrdEncodingGzip) {
            unsigned char gz[2] = {};
            if (std::fseek(data, start, SEEK_SET) != 0 || std::fread(gz, 1, 2, data) != 2 ||
                gz[0] != 0x1f || gz[1] != 0x8b)
                return bad("the gzip data does not start with the gzip magic bytes");
        }
    }
    detached.reset();
    f.reset();

    // The samples, decoded by teem and swapped to this machine's order.
    NrrdPtr full(nrrdNew());
    IoStatePtr fullIo(nrrdIoStateNew());
    if (!full || !fullIo)
        return bad("out of memory");
    if (nrrdLoad(full.get(), path, fullIo.get())) {
        const KcString why = teemError();
        std::free(full->data);
        full->data = nullptr;
        return bad(why);
    }
    Buffer buffer(full->data);
    full->data = nullptr;
    lock.unlock();

    const size_t voxels = static_cast<size_t>(dims[0]) * dims[1] * dims[2];
    const size_t kept = voxels * static_cast<size_t>(components);
    if (volumes > 1) // the first volume leads the samples
        if (void *first = std::realloc(buffer.get(), kept * fileBytes)) {
            (void)buffer.release();
            buffer.reset(first);
        }
    if (n->type == nrrdTypeChar || n->type == nrrdTypeDouble) {
        Buffer converted(std::malloc(kept * static_cast<size_t>(type.size())));
        if (!converted)
            return bad("out of memory");
        if (n->type == nrrdTypeChar) {
            const auto *src = static_cast<const int8_t *>(buffer.get());
            auto *dst = static_cast<int16_t *>(converted.get());
            for (size_t i = 0; i < kept; ++i)
                dst[i] = src[i];
        } else {
            const auto *src = static_cast<const double *>(buffer.get());
            auto *dst = static_cast<float *>(converted.get());
            for (size_t i = 0; i < kept; ++i)
                dst[i] = static_cast<float>(src[i]);
        }
        buffer = std::move(converted);
    }
    if (volumes > 1)
        VxMessage::getTheMsg()->warning("loading %s: only the first of %zu volumes is loaded\n",
                                        path, volumes);

    // Lengths in the unit the parameters ask for, else millimetres.
    double mmPerUnit = 1.0;
    if (const VxParameter *u = params.parameter("UnitLength"))
        if (u->floatValue() > 0.0 && std::isfinite(u->floatValue()))
            mmPerUnit = u->floatValue() * 1000.0;

    std::unique_ptr<VxRegScalarField3> result =
        vxfield::makeField(dims, type, components, buffer.release(), g, mmPerUnit);
    for (int i = 0; i < params.size(); ++i)
        result->parameters().copy(params.entry(i));
    result->setLabel(vxfield::baseName(path));
    return result;
}
