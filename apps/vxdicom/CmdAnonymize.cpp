// vxdicom anonymize IN -o OUT: the anonymizer compute module run on a saved
// field. Loads IN, connects it to a VxAnonymizeImageStack, presses "DoIt" and
// saves the module's result to OUT.

#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxFieldFile.h"
#include "vxdicom/params/VxAnonymizeImageStack.h"

#include <strings.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace vxdicom_cli {

void helpAnonymize()
{
    std::printf("usage: vxdicom anonymize IN -o OUT\n"
                "\n"
                "Loads a field saved by 'vxdicom load' (NRRD keeps the DICOM attributes;\n"
                "NIfTI only the label), runs the anonymizer module on it (the \"DoIt\"\n"
                "button of VxAnonymizeImageStack) and saves the result. The module\n"
                "replaces the patient name of the attributes by \"<Anonymized>\", removes\n"
                "the file names of the single slices' bundles and labels the field\n"
                "\"Anonymized\". Prints the module's messages (\"anonymized patient name\",\n"
                "\"anonymized N single slices' bundles\").\n"
                "\n"
                "IN and OUT end in .nrrd, .nhdr (read only), .nii or .nii.gz; OUT may be IN.\n"
                "\n"
                "options:\n"
                "  -o, --output OUT     the file to write (required)\n"
                "  -h, --help           this text\n"
                "\n"
                "Exit status: 0 when OUT was written, 1 when IN could not be read or OUT\n"
                "not written, 2 for a usage error.\n");
}

int runAnonymize(int argc, char **argv)
{
    std::string input;
    std::string output;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        if (std::strcmp(a, "-o") == 0 || std::strcmp(a, "--output") == 0) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxdicom anonymize: %s needs a value\n", a);
                return 2;
            }
            output = argv[++i];
        } else if (a[0] == '-' && a[1] != '\0') {
            std::fprintf(stderr, "vxdicom anonymize: unknown option '%s'\n", a);
            return 2;
        } else if (input.empty()) {
            input = a;
        } else {
            std::fprintf(stderr, "vxdicom anonymize: one input only ('%s' and '%s')\n",
                         input.c_str(), a);
            return 2;
        }
    }
    if (input.empty() || output.empty()) {
        std::fprintf(stderr, "vxdicom anonymize: %s\n",
                     input.empty() ? "no IN given" : "no OUT given (-o OUT)");
        return 2;
    }
    for (const std::string *name : {&input, &output})
        if (VxFieldFile::formatOf(name->c_str()) == VxFieldFile::Unknown) {
            std::fprintf(stderr,
                         "vxdicom anonymize: %s: unknown ending (.nrrd, .nhdr, .nii, .nii.gz)\n",
                         name->c_str());
            return 2;
        }
    if (output.size() >= 5 && strcasecmp(output.c_str() + output.size() - 5, ".nhdr") == 0) {
        std::fprintf(stderr, "vxdicom anonymize: %s: .nhdr is read, not written; use .nrrd\n",
                     output.c_str());
        return 2;
    }

    KcString error;
    std::unique_ptr<VxRegScalarField3> field = VxFieldFile::load(input.c_str(), &error);
    if (!field) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }

    VxAnonymizeImageStack anonymizer;
    anonymizer.portData.connect(field.get());
    anonymizer.portAction.hit(0);
    anonymizer.fire();

    const auto *result = dynamic_cast<const VxField3 *>(anonymizer.result(0));
    if (!result) {
        std::fprintf(stderr, "vxdicom anonymize: the module gave no result for %s\n",
                     input.c_str());
        return 1;
    }
    if (!VxFieldFile::save(*result, output.c_str(), &error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    VxMessage::getTheMsg()->printf("saved %s\n", output.c_str());
    return 0;
}

} // namespace vxdicom_cli
