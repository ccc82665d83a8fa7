#include "platform/data/VxFieldFile.h"

#include "platform/core/VxMessage.h"
#include "platform/data/FieldGeometry.h"
#include "platform/data/OutputFile.h"
#include "platform/data/WriteAhead.h"

#include <zlib.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

// nifti1.h defines names (DT_UNKNOWN, ...) that clash with system headers:
// it comes last.
#include <nifti1_io.h>

using vxfield::Geometry;

namespace {

bool fail(KcString *error, const char *verb, const char *path, const KcString &why)
{
    if (error)
        *error = KcString::format("%s %s failed: %s", verb, path ? path : "(null)", why.c_str());
    return false;
}

// nifticlib reports errors on stderr at its default debug level; we report
// them ourselves.
void quietNifti()
{
    static std::once_flag once;
    std::call_once(once, [] {
        nifti_set_debug_level(0);
        nifti_set_allow_upper_fext(1);
    });
}

// NIfTI-1 datatype of a field's samples, or 0.
int niftiTypeOf(KcPrimType type, int components)
{
    if (components == 3 && type == KcPrimType::UInt8)
        return DT_RGB24;
    if (components == 4 && type == KcPrimType::UInt8)
        return DT_RGBA32;
    if (components != 1)
        return 0;
    switch (type.id()) {
    case KcPrimType::UInt8:
        return DT_UINT8;
    case KcPrimType::Int16:
        return DT_INT16;
    case KcPrimType::UInt16:
        return DT_UINT16;
    case KcPrimType::Int32:
        return DT_INT32;
    case KcPrimType::Float:
        return DT_FLOAT32;
    }
    return 0;
}

void warnUneven(const char *path, const Geometry &g)
{
    VxMessage::getTheMsg()->warning(
        "saving %s: the slices of this stacked field are not evenly spaced; NIfTI stores the "
        "mean spacing of %g mm, which moves slices by up to %g mm\n",
        path, vxfield::norm(g.axis[2]), g.maxSliceErrorMm);
}

bool writeNifti(const KcDArray<const VxField3 *> &fields, const char *path, KcString *error,
                double stepSeconds, bool series)
{
    const char *verb = "saving";
    if (!path || !*path)
        return fail(error, verb, path, "no file name");
    if (VxFieldFile::formatOf(path) != VxFieldFile::Nifti)
        return fail(error, verb, path, "not a NIfTI file name (.nii or .nii.gz)");
    if (fields.isEmpty())
        return fail(error, verb, path, "no field to save");
    for (int t = 0; t < fields.size(); ++t)
        if (fields[t] && !VxFieldFile::hasFiniteGeometry(*fields[t]))
            return fail(error, verb, path,
                        KcString::format("field \"%s\": its geometry is not finite (NaN or "
                                         "infinity in its position, spacing or orientation)",
                                         fields[t]->label().c_str()));
    for (int t = 0; t < fields.size(); ++t)
        if (!fields[t] || !fields[t]->lattice() || !fields[t]->lattice()->data())
            return fail(error, verb, path,
                        KcString::format("step %d has no regular lattice with samples", t));

    const VxLattice3 &lat0 = *fields[0]->lattice();
    const int datatype = niftiTypeOf(lat0.primType(), lat0.nComponents());
    if (!datatype)
        return fail(error, verb, path,
                    KcString::format("NIfTI-1 cannot hold %d components of %s per voxel; save "
                                     "as NRRD",
                                     lat0.nComponents(), lat0.primType().name()));
    Geometry g;
    KcString why;
    if (!vxfield::geometryOf(*fields[0], g, why))
        return fail(error, verb, path, why);

    for (int t = 1; t < fields.size(); ++t) {
        const VxLattice3 &lat = *fields[t]->lattice();
        if (lat.dim(0) != lat0.dim(0) || lat.dim(1) != lat0.dim(1) || lat.dim(2) != lat0.dim(2))
            return fail(error, verb, path,
                        KcString::format("step %d has dimensions %d x %d x %d, step 0 %d x %d x %d",
                                         t, lat.dim(0), lat.dim(1), lat.dim(2), lat0.dim(0),
                                         lat0.dim(1), lat0.dim(2)));
        if (lat.primType() != lat0.primType() || lat.nComponents() != lat0.nComponents())
            return fail(error, verb, path,
                        KcString::format("step %d has %d x %s samples, step 0 %d x %s", t,
                                         lat.nComponents(), lat.primType().name(),
                                         lat0.nComponents(), lat0.primType().name()));
        Geometry gt;
        if (!vxfield::geometryOf(*fields[t], gt, why))
            return fail(error, verb, path, KcString::format("step %d: %s", t, why.c_str()));
        if (!vxfield::sameGeometry(g, gt, lat0.dims(), 1e-3))
            return fail(error, verb, path,
                        KcString::format("step %d lies elsewhere in space than step 0", t));
    }
    if (g.unevenSlices)
        warnUneven(path, g);

    quietNifti();
    int dims[8] = {series ? 4 : 3, lat0.dim(0), lat0.dim(1), lat0.dim(2), fields.size(), 1, 1, 1};
    std::unique_ptr<nifti_image, void (*)(nifti_image *)> nim(nifti_make_new_nim(dims, datatype, 0),
                                                              nifti_image_free);
    if (!nim)
        return fail(error, verb, path, "cannot make a NIfTI-1 header");

    // RAS: x and y of our LPS axes change sign.
    const double sign[3] = {-1.0, -1.0, 1.0};
    mat44 sto;
    std::memset(&sto, 0, sizeof sto);
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k)
            sto.m[r][k] = static_cast<float>(sign[r] * g.axis[k][static_cast<size_t>(r)]);
        sto.m[r][3] = static_cast<float>(sign[r] * g.origin[static_cast<size_t>(r)]);
    }
    sto.m[3][3] = 1.0f;
    nim->sto_xyz = sto;
    nim->sto_ijk = nifti_mat44_inverse(sto);
    nim->sform_code = NIFTI_XFORM_ALIGNED_ANAT;

    float qb, qc, qd, qx, qy, qz, dx, dy, dz, qfac;
    nifti_mat44_to_quatern(sto, &qb, &qc, &qd, &qx, &qy, &qz, &dx, &dy, &dz, &qfac);
    nim->quatern_b = qb;
    nim->quatern_c = qc;
    nim->quatern_d = qd;
    nim->qoffset_x = qx;
    nim->qoffset_y = qy;
    nim->qoffset_z = qz;
    nim->qfac = qfac;
    nim->dx = nim->pixdim[1] = dx;
    nim->dy = nim->pixdim[2] = dy;
    nim->dz = nim->pixdim[3] = dz;
    nim->qto_xyz = nifti_quatern_to_mat44(qb, qc, qd, qx, qy, qz, dx, dy, dz, qfac);
    nim->qto_ijk = nifti_mat44_inverse(nim->qto_xyz);
    nim->qform_code = NIFTI_XFORM_SCANNER_ANAT;
    nim->xyz_units = NIFTI_UNITS_MM;
    if (series) {
        nim->dt = nim->pixdim[4] = static_cast<float>(stepSeconds);
        nim->time_units = NIFTI_UNITS_SEC;
    }
    // Samples that were scaled to fit their type carry the way back to the
    // physical values ("DataWindowScale", "DataWindowBias"): NIfTI's own
    // scaling says the same to other tools.
    // A series gets them only when all its steps agree.
    auto scalingOf = [](const VxField3 *f, float &slope, float &inter) {
        const VxParameter *scale = f->parameters().parameter("DataWindowScale");
        const VxParameter *bias = f->parameters().parameter("DataWindowBias");
        slope = scale ? static_cast<float>(scale->floatValue()) : 1.0f;
        inter = bias ? static_cast<float>(bias->floatValue()) : 0.0f;
        if (slope == 0.0f)
            slope = 1.0f;
    };
    scalingOf(fields[0], nim->scl_slope, nim->scl_inter);
    for (int t = 1; t < fields.size(); ++t) {
        float slope, inter;
        scalingOf(fields[t], slope, inter);
        if (slope != nim->scl_slope || inter != nim->scl_inter) {
            nim->scl_slope = 1.0f;
            nim->scl_inter = 0.0f;
            break;
        }
    }
    std::snprintf(nim->descrip, sizeof nim->descrip, "%s", fields[0]->label().c_str());

    // One file: the header, the extender (no extensions) and the samples of
    // each step straight from the fields' buffers, without a joined copy.
    nim->nifti_type = NIFTI_FTYPE_NIFTI1_1;
    nifti_set_iname_offset(nim.get());
    nifti_1_header header = nifti_convert_nim2nhdr(nim.get());
    const unsigned char extender[4] = {0, 0, 0, 0};
    if (static_cast<size_t>(nim->iname_offset) != sizeof header + sizeof extender)
        return fail(error, verb, path, "unexpected NIfTI-1 data offset");
    std::vector<vxfield::ByteRange> parts = {{&header, sizeof header}, {extender, sizeof extender}};
    size_t sampleBytes = 0;
    for (int t = 0; t < fields.size(); ++t)
        sampleBytes += fields[t]->lattice()->numBytes();
    // A large uncompressed file starts its samples at the next block
    // (vox_offset 4096; the bytes between are zero, an empty extension
    // area), so that the volume, allocated on a block boundary, goes from
    // memory to the disk without a copy through the page cache.
    static const unsigned char
        padding[vxfield::kUncachedAlignment - sizeof header - sizeof extender] = {};
    const bool gzip = vxfield::endsWithNoCase(path, ".gz");
    if (!gzip && sampleBytes >= vxfield::kUncachedMinBytes) {
        header.vox_offset = static_cast<float>(vxfield::kUncachedAlignment);
        parts.push_back({padding, sizeof padding});
    }
    // Samples written ahead while they were read need only the header.
    if (!gzip && fields.size() == 1 && header.vox_offset == vxfield::kUncachedAlignment)
        if (auto ahead = vxfield::WriteAhead::take(lat0.data(), sampleBytes)) {
            vxfield::SaveProgress progress(path);
            if (ahead->finish(parts, path, progress.keepGoing(), why))
                return true;
            if (why == "interrupted")
                return fail(error, verb, path, why);
            // Otherwise the plain save below tells what goes wrong.
        }
    for (int t = 0; t < fields.size(); ++t)
        parts.push_back({fields[t]->lattice()->data(), fields[t]->lattice()->numBytes()});
    const bool written =
        gzip ? vxfield::writeFile(path, {}, parts, why) : vxfield::writeFile(path, parts, {}, why);
    if (!written)
        return fail(error, verb, path, why);
    return true;
}

// Checks the header before nifticlib sees it: it reports what it dislikes on
// stderr, whatever its debug level. gzread reads plain files as they are.
bool checkNiftiHeader(const char *path, KcString &why)
{
    gzFile gz = gzopen(path, "rb");
    if (!gz) {
        why = "cannot open: " + vxfield::systemError();
        return false;
    }
    unsigned char h[348];
    const int n = gzread(gz, h, sizeof h);
    gzclose(gz);
    if (n != static_cast<int>(sizeof h)) {
        why = "shorter than a NIfTI-1 header";
        return false;
    }
    int32_t headerSize;
    std::memcpy(&headerSize, h, 4);
    const bool swapped = headerSize != 348;
    if (swapped)
        headerSize = static_cast<int32_t>(__builtin_bswap32(static_cast<uint32_t>(headerSize)));
    if (headerSize != 348) {
        why = "not a NIfTI-1 file (no 348-byte header)";
        return false;
    }
    int16_t dim[8];
    std::memcpy(dim, h + 40, sizeof dim);
    for (int16_t &d : dim)
        if (swapped)
            d = static_cast<int16_t>(__builtin_bswap16(static_cast<uint16_t>(d)));
    if (dim[0] < 1 || dim[0] > 7) {
        why = KcString::format("dim[0] is %d, not 1 to 7", dim[0]);
        return false;
    }
    for (int i = 1; i <= dim[0]; ++i)
        if (dim[i] < 1) {
            why = KcString::format("dim[%d] is %d", i, dim[i]);
            return false;
        }
    return true;
}

template <typename From, typename To>
void convertSamples(const void *from, void *to, size_t n, double slope, double inter)
{
    const From *src = static_cast<const From *>(from);
    To *dst = static_cast<To *>(to);
    for (size_t i = 0; i < n; ++i)
        dst[i] = static_cast<To>(src[i] * slope + inter);
}

} // namespace

VxFieldFile::Format VxFieldFile::formatOf(const char *path)
{
    if (!path)
        return Unknown;
    if (vxfield::endsWithNoCase(path, ".nii") || vxfield::endsWithNoCase(path, ".nii.gz"))
        return Nifti;
    if (vxfield::endsWithNoCase(path, ".nrrd") || vxfield::endsWithNoCase(path, ".nhdr"))
        return Nrrd;
    return Unknown;
}

bool VxFieldFile::hasFiniteGeometry(const VxField3 &field)
{
    const VxLattice3 *lat = field.lattice();
    if (!lat)
        return true;
    for (int corner = 0; corner < 8; ++corner) {
        float w[3];
        field.voxelToWorld((corner & 1) ? lat->dim(0) - 1 : 0, (corner & 2) ? lat->dim(1) - 1 : 0,
                           (corner & 4) ? lat->dim(2) - 1 : 0, w);
        for (float v : w)
            if (!std::isfinite(v))
                return false;
    }
    return true;
}

bool VxFieldFile::save(const VxField3 &field, const char *path, KcString *error)
{
    switch (formatOf(path)) {
    case Nifti:
        return saveNifti(field, path, error);
    case Nrrd:
        return saveNrrd(field, path, false, error);
    case Unknown:
        break;
    }
    return fail(error, "saving", path, "unknown file type (use .nii, .nii.gz or .nrrd)");
}

bool VxFieldFile::saveNifti(const VxField3 &field, const char *path, KcString *error)
{
    KcDArray<const VxField3 *> one;
    one.append(&field);
    return writeNifti(one, path, error, 0.0, false);
}

bool VxFieldFile::saveNiftiSeries(const KcDArray<const VxField3 *> &fields, const char *path,
                                  KcString *error, double stepSeconds)
{
    return writeNifti(fields, path, error, stepSeconds, true);
}

std::unique_ptr<VxRegScalarField3> VxFieldFile::load(const char *path, KcString *error)
{
    switch (formatOf(path)) {
    case Nifti:
        return loadNifti(path, error);
    case Nrrd:
        return loadNrrd(path, error);
    case Unknown:
        break;
    }
    fail(error, "loading", path, "unknown file type (use .nii, .nii.gz, .nrrd or .nhdr)");
    return nullptr;
}

std::unique_ptr<VxRegScalarField3> VxFieldFile::loadNifti(const char *path, KcString *error)
{
    const char *verb = "loading";
    if (!path || !*path) {
        fail(error, verb, path, "no file name");
        return nullptr;
    }
    FILE *probe = std::fopen(path, "rb");
    if (!probe) {
        fail(error, verb, path, "cannot open: " + vxfield::systemError());
        return nullptr;
    }
    std::fseek(probe, 0, SEEK_END);
    const long fileSize = std::ftell(probe);
    std::fclose(probe);

    KcString why;
    if (!checkNiftiHeader(path, why)) {
        fail(error, verb, path, why);
        return nullptr;
    }
    quietNifti();
    std::unique_ptr<nifti_image, void (*)(nifti_image *)> nim(nifti_image_read(path, 0),
                                                              nifti_image_free);
    if (!nim) {
        fail(error, verb, path, "not a readable NIfTI-1 file");
        return nullptr;
    }
    const int dims[3] = {nim->nx, nim->ny, nim->nz};
    for (int k = 0; k < 3; ++k)
        if (dims[k] < 1) {
            fail(error, verb, path, KcString::format("dimension %d is %d", k + 1, dims[k]));
            return nullptr;
        }

    KcPrimType type = KcPrimType::UInt8;
    int components = 1;
    switch (nim->datatype) {
    case DT_UINT8:
        type = KcPrimType::UInt8;
        break;
    case DT_INT16:
        type = KcPrimType::Int16;
        break;
    case DT_UINT16:
        type = KcPrimType::UInt16;
        break;
    case DT_INT32:
        type = KcPrimType::Int32;
        break;
    case DT_FLOAT32:
        type = KcPrimType::Float;
        break;
    case DT_INT8:
        type = KcPrimType::Int16;
        break;
    case DT_FLOAT64:
        type = KcPrimType::Float;
        break;
    case DT_RGB24:
        components = 3;
        break;
    case DT_RGBA32:
        components = 4;
        break;
    default:
        fail(error, verb, path,
             KcString::format("sample type %s is not supported",
                              nifti_datatype_string(nim->datatype)));
        return nullptr;
    }

    const size_t nVoxels = static_cast<size_t>(dims[0]) * dims[1] * dims[2];
    const size_t fileBytes = nVoxels * static_cast<size_t>(nim->nbyper);
    if (!nifti_is_gzfile(nim->iname) && nim->iname_offset >= 0 &&
        static_cast<double>(nim->iname_offset) + static_cast<double>(fileBytes) >
            static_cast<double>(fileSize) &&
        std::strcmp(nim->iname, path) == 0) {
        fail(error, verb, path,
             KcString::format("the file holds %ld bytes, the header asks for %zu", fileSize,
                              static_cast<size_t>(nim->iname_offset) + fileBytes));
        return nullptr;
    }

    void *raw = std::malloc(fileBytes ? fileBytes : 1);
    if (!raw) {
        fail(error, verb, path, KcString::format("out of memory for %zu bytes", fileBytes));
        return nullptr;
    }
    // Volume 0 of every further dimension.
    const int pick[8] = {0, -1, -1, -1, 0, 0, 0, 0};
    const int got = nifti_read_collapsed_image(nim.get(), pick, &raw);
    if (got < 0 || static_cast<size_t>(got) != fileBytes) {
        std::free(raw);
        fail(error, verb, path, "the samples are truncated or unreadable");
        return nullptr;
    }
    const size_t volumes = nim->nvox / (nVoxels ? nVoxels : 1);
    if (volumes > 1)
        VxMessage::getTheMsg()->warning("loading %s: only the first of %zu volumes is loaded\n",
                                        path, volumes);

    const double slope = nim->scl_slope;
    const double inter = nim->scl_inter;
    const bool scaled = components == 1 && slope != 0.0 && std::isfinite(slope) &&
                        std::isfinite(inter) && (slope != 1.0 || inter != 0.0);
    void *data = raw;
    if (scaled || nim->datatype == DT_INT8 || nim->datatype == DT_FLOAT64) {
        const KcPrimType to = scaled ? KcPrimType(KcPrimType::Float) : type;
        void *converted = std::malloc(nVoxels * static_cast<size_t>(to.size()));
        if (!converted) {
            std::free(raw);
            fail(error, verb, path, "out of memory");
            return nullptr;
        }
        const double s = scaled ? slope : 1.0;
        const double b = scaled ? inter : 0.0;
        switch (nim->datatype) {
        case DT_INT8:
            if (scaled)
                convertSamples<int8_t, float>(raw, converted, nVoxels, s, b);
            else
                convertSamples<int8_t, int16_t>(raw, converted, nVoxels, 1, 0);
            break;
        case DT_FLOAT64:
            convertSamples<double, float>(raw, converted, nVoxels, s, b);
            break;
        case DT_UINT8:
            convertSamples<uint8_t, float>(raw, converted, nVoxels, s, b);
            break;
        case DT_INT16:
            convertSamples<int16_t, float>(raw, converted, nVoxels, s, b);
            break;
        case DT_UINT16:
            convertSamples<uint16_t, float>(raw, converted, nVoxels, s, b);
            break;
        case DT_INT32:
            convertSamples<int32_t, float>(raw, converted, nVoxels, s, b);
            break;
        case DT_FLOAT32:
            convertSamples<float, float>(raw, converted, nVoxels, s, b);
            break;
        }
        std::free(raw);
        data = converted;
        type = to;
    }

    // sform when there is one, else qform, else the voxel size alone
    // (ANALYZE): nifti's RAS with x and y negated gives our LPS.
    mat44 a;
    if (nim->sform_code > 0) {
        a = nim->sto_xyz;
    } else if (nim->qform_code > 0) {
        a = nim->qto_xyz;
    } else {
        std::memset(&a, 0, sizeof a);
        a.m[0][0] = nim->dx;
        a.m[1][1] = nim->dy;
        a.m[2][2] = nim->dz;
        a.m[3][3] = 1.0f;
    }
    double unitMm = 1.0;
    if (nim->xyz_units == NIFTI_UNITS_METER)
        unitMm = 1000.0;
    else if (nim->xyz_units == NIFTI_UNITS_MICRON)
        unitMm = 0.001;

    Geometry g;
    const double sign[3] = {-1.0, -1.0, 1.0};
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k)
            g.axis[k][static_cast<size_t>(r)] = sign[r] * a.m[r][k] * unitMm;
        g.origin[static_cast<size_t>(r)] = sign[r] * a.m[r][3] * unitMm;
    }
    std::unique_ptr<VxRegScalarField3> field =
        vxfield::makeField(dims, type, components, data, g, 1.0);
    field->setLabel(vxfield::baseName(path));
    return field;
}
