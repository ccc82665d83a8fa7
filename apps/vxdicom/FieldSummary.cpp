#include "apps/vxdicom/FieldSummary.h"

#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxFieldFile.h"
#include "platform/data/WriteAhead.h"
#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

namespace vxdicom_cli {
namespace {

const char *unitName(double metresPerUnit)
{
    if (std::fabs(metresPerUnit - 0.01) < 1e-9)
        return "cm";
    if (std::fabs(metresPerUnit - 0.001) < 1e-9)
        return "mm";
    if (std::fabs(metresPerUnit - 1.0) < 1e-9)
        return "m";
    return "units";
}

const char *extension(SaveOptions::Format f)
{
    switch (f) {
    case SaveOptions::Nifti:
        return ".nii";
    case SaveOptions::Nrrd:
        return ".nrrd";
    default:
        return ".nii.gz";
    }
}

std::string uniqueName(const std::string &base, const char *ending, std::set<std::string> &used)
{
    std::string name = base + ending;
    for (int n = 2; used.count(name); ++n)
        name = base + "_" + std::to_string(n) + ending;
    used.insert(name);
    return name;
}

// A file name made of the label: letters, digits, '-', '_' and '.' are kept,
// everything else becomes '_'; names already used get "_2", "_3", ...
std::string fileNameFor(const std::string &label, std::set<std::string> &used,
                        SaveOptions::Format format)
{
    std::string base;
    for (char c : label)
        base += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.')
                    ? c
                    : '_';
    while (!base.empty() && base.front() == '.')
        base.erase(base.begin());
    if (base.empty())
        base = "field";
    return uniqueName(base, extension(format), used);
}

bool saveOne(const VxField3 &field, const fs::path &path, SaveOptions::Format format)
{
    KcString error;
    const bool ok = format == SaveOptions::Nrrd
                        ? VxFieldFile::saveNrrd(field, path.c_str(), false, &error)
                        : VxFieldFile::saveNifti(field, path.c_str(), &error);
    if (!ok) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return false;
    }
    std::printf("saved %s\n", path.c_str());
    return true;
}

VxDynamicDicomSeriesCtrl *newSeriesControl(int poolBefore)
{
    const KcDArray<VxPoolObject *> objects = VxObjectPool::instance()->objects();
    for (int i = objects.size() - 1; i >= poolBefore && i >= 0; --i)
        if (auto *ctrl = dynamic_cast<VxDynamicDicomSeriesCtrl *>(objects[i]))
            return ctrl;
    return nullptr;
}

} // namespace

bool parseSaveFormat(const char *text, SaveOptions::Format &format)
{
    if (std::strcmp(text, "nii.gz") == 0 || std::strcmp(text, "niigz") == 0)
        format = SaveOptions::NiftiGz;
    else if (std::strcmp(text, "nii") == 0)
        format = SaveOptions::Nifti;
    else if (std::strcmp(text, "nrrd") == 0)
        format = SaveOptions::Nrrd;
    else
        return false;
    return true;
}

void printFieldSummary(const VxField3 &field)
{
    const char *unit = unitName(field.unitLength());
    std::printf("field \"%s\" (%s)", field.label().c_str(), field.typeName());
    if (const VxLattice3 *lat = field.lattice()) {
        float box[6];
        lat->getBoundingBox(box);
        std::printf(": %d x %d x %d %s", lat->dim(0), lat->dim(1), lat->dim(2),
                    lat->primType().name());
        if (lat->nComponents() > 1)
            std::printf(" x %d components", lat->nComponents());
        std::printf(", voxel");
        for (int k = 0; k < 3; ++k) {
            const double d =
                lat->dim(k) > 1 ? (box[2 * k + 1] - box[2 * k]) / (lat->dim(k) - 1) : 0;
            std::printf("%s%g", k ? " x " : " ", d);
        }
        std::printf(" %s%s, box [%g %g] [%g %g] [%g %g] %s", unit,
                    lat->coordType() == VX_COORD_STACKED ? " (stacked: mean slice distance)" : "",
                    box[0], box[1], box[2], box[3], box[4], box[5], unit);
    }
    if (field.hasTransform()) {
        const SbMatrix &m = field.transform();
        std::printf(", transformation (rows, world = local x M)");
        for (int r = 0; r < 4; ++r)
            std::printf(" [%g %g %g %g]", m[r][0], m[r][1], m[r][2], m[r][3]);
    }
    if (!field.loadCommand().empty())
        std::printf(", load command: %s", field.loadCommand().c_str());
    std::printf("\n");
}

WriteAheadScope::WriteAheadScope(const SaveOptions &save)
{
    if (save.directory.empty() || save.format != SaveOptions::Nifti)
        return;
    std::error_code ec;
    fs::create_directories(save.directory, ec);
    // The name reportAndSave gives the first field of that label.
    const fs::path dir(save.directory);
    std::set<std::string> used = save.usedNames ? *save.usedNames : std::set<std::string>();
    vxfield::WriteAhead::setNamer([dir, used, format = save.format](const KcString &label) {
        std::set<std::string> names = used;
        return (dir / fileNameFor(label, names, format)).string();
    });
}

WriteAheadScope::~WriteAheadScope()
{
    vxfield::WriteAhead::setNamer(nullptr);
}

int reportAndSave(const KcDArray<VxField3 *> &fields, int poolBefore, const SaveOptions &save,
                  bool loadSucceeded)
{
    for (const VxField3 *field : fields)
        printFieldSummary(*field);

    VxDynamicDicomSeriesCtrl *series = newSeriesControl(poolBefore);
    if (series)
        std::printf("time series \"%s\": %d time step%s\n", series->label().c_str(),
                    series->nSteps(), series->nSteps() == 1 ? "" : "s");

    bool ok = loadSucceeded && !fields.isEmpty();
    if (fields.isEmpty())
        std::fprintf(stderr, "vxdicom load: no field was made\n");
    if (save.directory.empty() || fields.isEmpty())
        return ok ? 0 : 1;

    std::error_code ec;
    fs::create_directories(save.directory, ec);
    if (ec) {
        std::fprintf(stderr, "vxdicom load: cannot create folder %s: %s\n", save.directory.c_str(),
                     ec.message().c_str());
        return 1;
    }
    std::set<std::string> ownNames;
    std::set<std::string> &used = save.usedNames ? *save.usedNames : ownNames;
    const fs::path dir(save.directory);

    if (series) {
        KcDArray<const VxField3 *> steps;
        for (int i = 0; i < series->nSteps(); ++i)
            if (!series->step(i).isEmpty())
                if (auto *f = dynamic_cast<const VxField3 *>(series->step(i)[0]))
                    steps.append(f);
        bool written = false;
        if (save.format != SaveOptions::Nrrd) {
            KcString error;
            const fs::path path = dir / fileNameFor(series->label(), used, save.format);
            if (VxFieldFile::saveNiftiSeries(steps, path.c_str(), &error)) {
                std::printf("saved %s (%d time steps)\n", path.c_str(), steps.size());
                written = true;
            } else {
                std::fprintf(stderr, "warning: the time steps are saved one file each: %s\n",
                             error.c_str());
            }
        }
        if (!written)
            for (int i = 0; i < steps.size(); ++i)
                ok = saveOne(*steps[i],
                             dir / fileNameFor(series->label() + "_t" + std::to_string(i), used,
                                               save.format),
                             save.format) &&
                     ok;
        const fs::path command = dir / uniqueName("TimeSeriesCtrl", ".vxs", used);
        if (FILE *f = std::fopen(command.c_str(), "w")) {
            // The creation command alone would replay as separate fields: the
            // variable makes 'vxdicom run' load the stacks as one series again.
            std::fprintf(f,
                         "# time series of %d steps; replay with: vxdicom run %s\n"
                         "set DicomLoadAsTimeSeries 1\n",
                         series->nSteps(), command.filename().c_str());
            series->saveCreation(f, save.directory.c_str(), 0);
            const bool closed = std::fclose(f) == 0;
            if (closed)
                std::printf("saved %s (replay with: vxdicom run %s)\n", command.c_str(),
                            command.c_str());
            ok = closed && ok;
        } else {
            std::fprintf(stderr, "saving %s failed: %s\n", command.c_str(), std::strerror(errno));
            ok = false;
        }
        return ok ? 0 : 1;
    }

    for (const VxField3 *field : fields)
        ok = saveOne(*field, dir / fileNameFor(field->label(), used, save.format), save.format) &&
             ok;
    return ok ? 0 : 1;
}

} // namespace vxdicom_cli
