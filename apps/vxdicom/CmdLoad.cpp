// vxdicom load [-nodialog] [options] FILE|DIR ...: the host's "load -dicom"
// command. Reads the files, groups them into stacks, makes one field per
// stack, registers it, prints a summary per field and, with -o, saves the
// fields so that other tools open them in the same place.

#include "apps/vxdicom/FieldSummary.h"
#include "apps/vxdicom/GuiRuntime.h"
#include "apps/vxdicom/InputFiles.h"
#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/dicom/dicom.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/params/VxAnonymizeImageStack.h"
#include "vxdicom/reader/VxDicom.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace vxdicom_cli {

namespace {

// The slices' bundles still name the files they came from; the anonymizer
// module removes those names. The fields keep the labels the load gave them
// (already "Anonymized", made unique by the object pool).
void anonymizeFields(const KcDArray<VxField3 *> &fields)
{
    VxAnonymizeImageStack anonymizer;
    for (VxField3 *field : fields) {
        const KcString label = field->label();
        anonymizer.portData.connect(field);
        anonymizer.portAction.hit(0);
        anonymizer.fire();
        field->setLabel(label);
    }
}

} // namespace

void helpLoad()
{
    std::printf("usage: vxdicom load [-nodialog] [options] FILE|DIR ...\n"
                "\n"
                "Reads DICOM files (folders are walked recursively; a folder holding a\n"
                "DICOMDIR loads what the DICOMDIR references; .gz and .Z files are unpacked),\n"
                "groups the images into stacks with the stored stack-break criteria and\n"
                "makes one 3D field per stack. Prints one line per file read and a summary\n"
                "per field (label, dimensions, sample type, voxel size, bounding box,\n"
                "transformation, load command).\n"
                "\n"
                "options:\n"
                "  -nodialog            build the stacks without showing the import dialog\n"
                "                       (always the case without a display)\n"
                "  -o, --output DIR     save every field into DIR (created when missing); a\n"
                "                       large .nii is read straight into its file (the page\n"
                "                       cache takes it to the disk), over an earlier file of\n"
                "                       its name, which a load that fails or is interrupted\n"
                "                       (Ctrl-C) removes\n"
                "  --format FMT         nii.gz (default), nii or nrrd\n"
                "  --anonymize          anonymise the attributes (stack name \"Anonymized\",\n"
                "                       patient group left out), then run the anonymizer\n"
                "                       module on every field, so that saved files carry no\n"
                "                       patient name and no file names\n"
                "  --time-series        load the stacks as time steps of one series\n"
                "                       (saved as one 4D NIfTI when the steps share geometry)\n"
                "  --no-volume-split    keep a series that repeats its slice positions (fMRI,\n"
                "                       DTI, multi-echo) as the criteria cut it, instead of\n"
                "                       one volume per repetition\n"
                "  -q, --quiet          no line per file read\n"
                "  -h, --help           this text\n"
                "\n"
                "Environment: DICOM_DELAYED_READ=0 reads all pixels with the headers;\n"
                "DICOM_EPS_ORIENTATION sets the axis tolerance;\n"
                "VXDICOM_DECODE_THREADS sets how many threads read the frames of compressed\n"
                "or large volumes (default: one per processor; 1 reads on the loading\n"
                "thread alone);\n"
                "VXDICOM_SETTINGS_FILE names the preferences file.\n"
                "\n"
                "With a display the import dialog shows the stacks found: select the stacks\n"
                "to load (none selected: all of them) and press OK; Cancel, Esc or closing\n"
                "the window loads nothing.\n"
                "\n"
                "Exit status: 0 when every file was read and every field made (and saved);\n"
                "1 when a file could not be read (its header or its pixels, in either\n"
                "reading mode), a field could not be made or saved, no image was found or\n"
                "the dialog was cancelled (the other fields are still made and saved); 2 for\n"
                "a usage error. Failures and warnings go to standard error, the '+ name'\n"
                "lines and the summaries to standard output; -q keeps only the failures\n"
                "and the summaries.\n");
}

int runLoad(int argc, char **argv)
{
    bool showDialog = true;
    bool quiet = false;
    DicomLoadChoices choices;
    SaveOptions save;
    std::vector<std::string> inputs;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        auto value = [&](const char *option) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxdicom load: %s needs a value\n", option);
                return nullptr;
            }
            return argv[++i];
        };
        if (std::strcmp(a, "-nodialog") == 0 || std::strcmp(a, "--nodialog") == 0) {
            showDialog = false;
        } else if (std::strcmp(a, "-o") == 0 || std::strcmp(a, "--output") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            save.directory = v;
        } else if (std::strcmp(a, "--format") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            if (!parseSaveFormat(v, save.format)) {
                std::fprintf(stderr, "vxdicom load: unknown format '%s' (nii.gz, nii, nrrd)\n", v);
                return 2;
            }
        } else if (std::strcmp(a, "--anonymize") == 0) {
            choices.anonymize = true;
        } else if (std::strcmp(a, "--time-series") == 0) {
            choices.asTimeSeries = true;
        } else if (std::strcmp(a, "--no-volume-split") == 0) {
            choices.splitVolumes = false;
        } else if (std::strcmp(a, "-q") == 0 || std::strcmp(a, "--quiet") == 0) {
            quiet = true;
        } else if (a[0] == '-' && a[1] != '\0') {
            std::fprintf(stderr, "vxdicom load: unknown option '%s'\n", a);
            return 2;
        } else {
            inputs.emplace_back(a);
        }
    }
    if (inputs.empty()) {
        std::fprintf(stderr, "vxdicom load: no FILE or DIR given\n");
        helpLoad();
        return 2;
    }

    // The dictionary loads while the folders are walked and the GUI starts.
    dicom::dicomLoadDictionaryAhead();
    std::vector<std::string> names;
    if (!expandInputs(inputs, names))
        return 1;
    if (names.empty()) {
        std::fprintf(stderr, "vxdicom load: no files found\n");
        return 1;
    }

    if (quiet)
        VxMessage::getTheMsg()->setQuiet(true);
    registerDicomImportDialog();
    setDicomLoadChoices(choices);

    // Time series are saved as one file of all steps, not field by field.
    std::unique_ptr<WriteAheadScope> writeAhead;
    if (!choices.asTimeSeries)
        writeAhead = std::make_unique<WriteAheadScope>(save);

    return runWithGui(argc, argv, [&]() -> int {
        std::vector<const char *> argvNames;
        for (const std::string &n : names)
            argvNames.push_back(n.c_str());
        KcDArray<VxField3 *> fields;
        const int poolBefore = VxObjectPool::instance()->size();
        // Nobody could answer a dialog shown without a display.
        const bool dialog = showDialog && VxWarningDialog::haveDisplay();
        const int ok = vxReadDicom(static_cast<int>(argvNames.size()), argvNames.data(), fields,
                                   dialog ? 1 : 0, true);
        VxMessage::getTheMsg()->setQuiet(false);
        if (dicomImportCancelled) {
            std::fprintf(stderr, "vxdicom load: cancelled in the import dialog; nothing was "
                                 "loaded\n");
            return 1;
        }
        if (choices.anonymize)
            anonymizeFields(fields);
        // A file broken in its header and one broken in its pixels both fail
        // the command, whichever reading mode found it.
        return reportAndSave(fields, poolBefore, save, ok == 1 && dicomReadFailures == 0);
    });
}

} // namespace vxdicom_cli
