// vxdicom: the command line of the vxdicom module, a dispatcher over sub-commands.

#include "apps/vxdicom/SubCommand.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace vxdicom_cli {
namespace {

// Add a sub-command here: name, one-line summary, entry and help functions.
const SubCommand kCommands[] = {
    {"info", "print files as the DICOM layer and the module read them (image records, attributes)",
     runInfo, helpInfo},
    {"load", "load DICOM files into 3D fields (and save them as NIfTI or NRRD)", runLoad, helpLoad},
    {"save-dicom", "write volumes (NIfTI, NRRD or loaded DICOM) as DICOM, one file per slice",
     runSaveDicom, helpSaveDicom},
    {"anonymize", "run the anonymizer module on a saved field (NRRD or NIfTI)", runAnonymize,
     helpAnonymize},
    {"run", "run host script commands (stored \"load -dicom ...\" commands)", runRun, helpRun},
    {"view", "the viewer window: open DICOM, NIfTI and NRRD, look at slices, save", runView,
     helpView},
};

void usage(FILE *out)
{
    std::fprintf(out, "usage: vxdicom COMMAND [ARGUMENTS...]\n"
                      "       vxdicom help [COMMAND]\n"
                      "\n"
                      "commands:\n");
    for (const SubCommand &c : kCommands)
        std::fprintf(out, "  %-12s %s\n", c.name, c.summary);
    std::fprintf(out, "\nRun 'vxdicom COMMAND --help' for the arguments of a command.\n");
}

const SubCommand *find(const char *name)
{
    for (const SubCommand &c : kCommands)
        if (std::strcmp(c.name, name) == 0)
            return &c;
    return nullptr;
}

int unknown(const char *name)
{
    std::fprintf(stderr, "vxdicom: unknown command '%s'\n\n", name);
    usage(stderr);
    return 2;
}

} // namespace

bool wantsHelp(int argc, char **argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0)
            return false;
        if (std::strcmp(argv[i], "-h") == 0 || std::strcmp(argv[i], "--help") == 0)
            return true;
    }
    return false;
}

} // namespace vxdicom_cli

int main(int argc, char **argv)
{
    using namespace vxdicom_cli;
    if (argc < 2) {
        usage(stderr);
        return 2;
    }
    const char *name = argv[1];
    if (std::strcmp(name, "-h") == 0 || std::strcmp(name, "--help") == 0) {
        usage(stdout);
        return 0;
    }
    if (std::strcmp(name, "help") == 0) {
        if (argc < 3) {
            usage(stdout);
            return 0;
        }
        const SubCommand *c = find(argv[2]);
        if (!c)
            return unknown(argv[2]);
        c->help();
        return 0;
    }
    const SubCommand *c = find(name);
    if (!c)
        return unknown(name);
    if (wantsHelp(argc - 1, argv + 1)) {
        c->help();
        return 0;
    }
    try {
        return c->run(argc - 1, argv + 1);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "vxdicom %s: %s\n", name, e.what());
    } catch (...) {
        std::fprintf(stderr, "vxdicom %s: unexpected failure\n", name);
    }
    return 1;
}
