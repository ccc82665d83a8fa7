// vxdicom save-dicom INPUT... -o OUTDIR: the host's "save as DICOM" command.
// Each field (from a NIfTI or NRRD file, or from DICOM loaded as by `load
// -nodialog`) becomes one single-frame file per slice.

#include "apps/vxdicom/GuiRuntime.h"
#include "apps/vxdicom/InputFiles.h"
#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxFieldFile.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/export/Dicom3AttributeFile.h"
#include "vxdicom/export/Dicom3FieldWriter.h"
#include "vxdicom/export/QxDicom3SaveDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <QDir>
#include <QString>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vxdicom_cli {
namespace {

bool isVolumeFile(const std::string &name)
{
    return VxFieldFile::formatOf(name.c_str()) != VxFieldFile::Unknown;
}

std::string folderName(const std::string &label, std::set<std::string> &used)
{
    std::string base;
    for (char c : label)
        base += (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_') ? c : '_';
    if (base.empty())
        base = "field";
    std::string name = base;
    for (int n = 2; used.count(name); ++n)
        name = base + "_" + std::to_string(n);
    used.insert(name);
    return name;
}

struct SaveRequest
{
    std::string outDir;
    Dicom3SaveOptions options;
    bool edit = false; ///< each field through the "Save as DICOM" dialog
};

} // namespace

void helpSaveDicom()
{
    std::printf(
        "usage: vxdicom save-dicom INPUT... -o OUTDIR [options]\n"
        "\n"
        "Writes each field as DICOM, one single-frame file per slice (IM00001.dcm, ...,\n"
        "in slice order), explicit VR in this machine's byte order. INPUT is a volume\n"
        "file (.nii, .nii.gz, .nrrd, .nhdr) or DICOM files and folders, loaded as\n"
        "'vxdicom load -nodialog' does (one field per stack). With several fields,\n"
        "each goes to its own folder below OUTDIR, named after its label. A field of\n"
        "one slice with 3 unsigned 8-bit components is written as a Secondary Capture\n"
        "RGB image.\n"
        "\n"
        "options:\n"
        "  -o, --output DIR       the folder to write to (created when missing)\n"
        "  --modality M           CT, MR, NM, CR, SC, US or US-MF (the storage class);\n"
        "                         default: the field's modality when CT, MR or NM, else MR\n"
        "  --attributes FILE      attributes that override the generated ones, one per\n"
        "                         line: GGGG,EEEE VR description: value (see README)\n"
        "  --edit                 show the \"Save as DICOM\" dialog for each field (needs a\n"
        "                         display): modality, prefix and every attribute to\n"
        "                         edit before the files are written\n"
        "  --patient-name NAME    the patient's name (default \"Unknown\")\n"
        "  --prefix TEXT          file name prefix (default IM)\n"
        "  -h, --help             this text\n"
        "\n"
        "Written files carry the fixed orientation 1\\0\\0\\0\\1\\0, instance numbers from 0\n"
        "and new UIDs. A write that fails names the file and says how many files were\n"
        "written; nothing written is removed.\n"
        "\n"
        "Exit status: 0 when every field was written, 1 otherwise, 2 for a usage error.\n");
}

int runSaveDicom(int argc, char **argv)
{
    SaveRequest request;
    std::vector<std::string> inputs;
    std::string attributesFile;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        auto value = [&](const char *option) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxdicom save-dicom: %s needs a value\n", option);
                return nullptr;
            }
            return argv[++i];
        };
        if (std::strcmp(a, "-o") == 0 || std::strcmp(a, "--output") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.outDir = v;
        } else if (std::strcmp(a, "--modality") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.options.sopClassIndex = dicom3SopClassOf(QString::fromLocal8Bit(v));
            if (request.options.sopClassIndex < 0) {
                std::fprintf(stderr,
                             "vxdicom save-dicom: unknown modality '%s' (CT, MR, NM, CR, SC, US, "
                             "US-MF)\n",
                             v);
                return 2;
            }
        } else if (std::strcmp(a, "--attributes") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            attributesFile = v;
        } else if (std::strcmp(a, "--edit") == 0) {
            request.edit = true;
        } else if (std::strcmp(a, "--patient-name") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.options.patientName = QString::fromLocal8Bit(v);
        } else if (std::strcmp(a, "--prefix") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.options.prefix = QString::fromLocal8Bit(v);
        } else if (a[0] == '-' && a[1] != '\0') {
            std::fprintf(stderr, "vxdicom save-dicom: unknown option '%s'\n", a);
            return 2;
        } else {
            inputs.emplace_back(a);
        }
    }
    if (inputs.empty() || request.outDir.empty()) {
        std::fprintf(stderr, "vxdicom save-dicom: %s\n",
                     inputs.empty() ? "no INPUT given" : "no output folder (-o OUTDIR) given");
        return 2;
    }
    if (request.edit && !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) {
        std::fprintf(stderr, "vxdicom save-dicom: --edit shows a dialog and needs a display "
                             "(DISPLAY is not set); nothing was written\n");
        return 2;
    }
    if (!attributesFile.empty()) {
        std::string error;
        request.options.attributes = readAttributeFile(attributesFile, &error);
        if (!request.options.attributes) {
            std::fprintf(stderr, "vxdicom save-dicom: %s\n", error.c_str());
            return 1;
        }
    }

    // Volume files are read here; everything else goes through the DICOM reader.
    std::vector<std::unique_ptr<VxField3>> volumes;
    std::vector<std::string> dicomInputs;
    for (const std::string &input : inputs) {
        if (!isVolumeFile(input)) {
            dicomInputs.push_back(input);
            continue;
        }
        KcString error;
        std::unique_ptr<VxRegScalarField3> field = VxFieldFile::load(input.c_str(), &error);
        if (!field) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        volumes.push_back(std::move(field));
    }
    std::vector<std::string> names;
    if (!expandInputs(dicomInputs, names))
        return 1;

    registerDicomImportDialog();
    return runWithGui(argc, argv, [&]() -> int {
        std::vector<VxField3 *> fields;
        for (auto &v : volumes)
            fields.push_back(v.get());
        KcDArray<VxField3 *> loaded;
        bool ok = true;
        if (!names.empty()) {
            std::vector<const char *> argvNames;
            for (const std::string &n : names)
                argvNames.push_back(n.c_str());
            ok = vxReadDicom(static_cast<int>(argvNames.size()), argvNames.data(), loaded, 0,
                             true) == 1 &&
                 dicomReadFailures == 0;
            for (VxField3 *f : loaded)
                fields.push_back(f);
        }
        if (request.edit && !VxWarningDialog::haveDisplay()) {
            std::fprintf(stderr, "vxdicom save-dicom: --edit shows a dialog and needs a display "
                                 "(DISPLAY is not set); nothing was written\n");
            return 2;
        }
        if (fields.empty()) {
            std::fprintf(stderr, "vxdicom save-dicom: nothing to write\n");
            return 1;
        }
        std::set<std::string> used;
        for (VxField3 *field : fields) {
            std::string dir = request.outDir;
            if (fields.size() > 1)
                dir = QDir(QString::fromStdString(request.outDir))
                          .filePath(QString::fromStdString(folderName(field->label(), used)))
                          .toStdString();
            if (!request.edit) {
                ok = saveFieldAsDicom(*field, QString::fromStdString(dir), request.options) >= 0 &&
                     ok;
            } else if (saveFieldThroughDialog(*field, QString::fromStdString(dir),
                                              request.options) == 0) {
                std::fprintf(stderr,
                             "vxdicom save-dicom: cancelled; nothing was written for field "
                             "\"%s\"\n",
                             field->label().c_str());
                ok = false;
            }
        }
        return ok ? 0 : 1;
    });
}

} // namespace vxdicom_cli
