// vxdicom save-dicom INPUT... -o OUTDIR: the host's "save as DICOM" command.
// Each field (from a NIfTI or NRRD file, or from DICOM loaded as by `load
// -nodialog`) becomes one single-frame file per slice.

#include "apps/vxdicom/AttributeFile.h"
#include "apps/vxdicom/GuiRuntime.h"
#include "apps/vxdicom/InputFiles.h"
#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxFieldFile.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/Dicom3Writer.h"
#include "vxdicom/reader/VxDicom.h"

#include <QDir>
#include <QString>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace vxdicom_cli {
namespace {

struct ModalityName
{
    const char *name;
    int sopClassIndex;
};

// The storage classes the writer builds, by the name a user gives.
const ModalityName kModalities[] = {
    {"CR", 0}, {"CT", 1}, {"MR", 2}, {"NM", 3}, {"SC", 4}, {"US", 9}, {"US-MF", 10},
};

int sopClassOf(const char *name)
{
    for (const ModalityName &m : kModalities)
        if (std::strcmp(m.name, name) == 0)
            return m.sopClassIndex;
    return -1;
}

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
    int sopClassIndex = -1; ///< -1: from the field's "Modality", MR otherwise
    std::string patientName;
    std::unique_ptr<VxParamBundle> attributes;
    std::string prefix = "IM";
};

// The "Modality" parameter of a loaded field names its class when the
// command line does not.
int defaultSopClass(const VxField3 &field)
{
    const KcString modality = field.parameters().getString("Modality");
    const int index = sopClassOf(modality.c_str());
    return index >= 0 ? index : 2;
}

// Writes one field; returns the number of files written, or -1.
int saveField(VxField3 &field, const std::string &dir, const SaveRequest &request)
{
    VxMessage *msg = VxMessage::getTheMsg();
    std::unique_ptr<Dicom3Object> object;
    std::vector<unsigned char> rgb;
    const VxLattice3 *lat = field.lattice();
    if (!lat) {
        msg->printf("save-dicom: field \"%s\" has no regular lattice\n", field.label().c_str());
        return -1;
    }
    const KcPrimType type = lat->primType();
    if (lat->nComponents() > 1) {
        if (lat->dim(2) != 1 || type != KcPrimType::UInt8 || lat->nComponents() != 3) {
            msg->printf("save-dicom: field \"%s\": colour is written as one 2D RGB image of "
                        "unsigned 8-bit samples; this one has %d slices of %d %s components\n",
                        field.label().c_str(), lat->dim(2), lat->nComponents(), type.name());
            return -1;
        }
        const int dims[3] = {lat->dim(0), lat->dim(1), lat->nComponents()};
        object =
            std::make_unique<Dicom3Object>(dims, static_cast<const unsigned char *>(lat->data()));
    } else {
        if (type != KcPrimType::UInt8 && type != KcPrimType::Int16 && type != KcPrimType::UInt16) {
            msg->printf("save-dicom: field \"%s\" holds %s samples; DICOM images are written "
                        "from unsigned 8-bit and signed or unsigned 16-bit samples\n",
                        field.label().c_str(), type.name());
            return -1;
        }
        if (auto *uniform = dynamic_cast<VxUniformScalarField3 *>(&field))
            object = std::make_unique<Dicom3Object>(uniform);
        else if (auto *stacked = dynamic_cast<VxStackedScalarField3 *>(&field))
            object = std::make_unique<Dicom3Object>(stacked);
        else {
            msg->printf("save-dicom: field \"%s\" is neither uniform nor stacked\n",
                        field.label().c_str());
            return -1;
        }
        object->setSOPClassIndex(request.sopClassIndex >= 0 ? request.sopClassIndex
                                                            : defaultSopClass(field));
        // Lengths are written in millimetres.
        object->setLengthUnitFactor(static_cast<float>(field.unitLength() * 1000.0));
    }
    if (!request.patientName.empty())
        object->setPatientName(QString::fromStdString(request.patientName));
    if (object->generate() < 0)
        return -1;
    if (lat->nComponents() == 3) {
        // Colour images need their sample arrangement stated; the pixels are
        // interleaved.
        VxParamBundle colour("DICOM");
        auto *all = new VxParamBundle("All");
        all->insert(new VxParameter("G0028-0006", "planar configuration [US]: 0"));
        colour.insert(all);
        object->insertDicomParamBundle(&colour);
    }
    if (request.attributes)
        object->insertDicomParamBundle(request.attributes.get());

    QStringList written;
    const int n = writeDicom3Slices(*object, QString::fromStdString(dir),
                                    QString::fromStdString(request.prefix), &written);
    if (n < 0)
        return -1;
    std::printf("field \"%s\": %d file%s written to %s (%s)\n", field.label().c_str(), n,
                n == 1 ? "" : "s", dir.c_str(),
                Dicom3Object::theModality[object->getSOPClassIndex()]);
    return n;
}

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
            request.sopClassIndex = sopClassOf(v);
            if (request.sopClassIndex < 0) {
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
        } else if (std::strcmp(a, "--patient-name") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.patientName = v;
        } else if (std::strcmp(a, "--prefix") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            request.prefix = v;
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
    if (!attributesFile.empty()) {
        std::string error;
        request.attributes = readAttributeFile(attributesFile, &error);
        if (!request.attributes) {
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
                             true) == 1;
            for (VxField3 *f : loaded)
                fields.push_back(f);
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
            ok = saveField(*field, dir, request) >= 0 && ok;
        }
        return ok ? 0 : 1;
    });
}

} // namespace vxdicom_cli
