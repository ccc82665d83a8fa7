// vxdicom run 'SCRIPT' | FILE: runs host script commands with the host's
// script interpreter, the module's "load -dicom" among them, so that the load
// commands stored with fields and the creation command of a time-series
// control (TimeSeriesCtrl.vxs) load their data again.

#include "apps/vxdicom/FieldSummary.h"
#include "apps/vxdicom/GuiRuntime.h"
#include "apps/vxdicom/SubCommand.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxScriptInterpreter.h"
#include "platform/core/VxScriptVars.h"
#include "platform/data/VxField3.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace vxdicom_cli {

void helpRun()
{
    std::printf("usage: vxdicom run [options] 'SCRIPT' | FILE\n"
                "\n"
                "Runs host script commands, given as text or as a file of commands (a\n"
                "FILE is an existing file; anything else is script text), with the host's\n"
                "interpreter: Tcl quoting (\"a b.dcm\", {a b.dcm}, backslash escapes),\n"
                "commands separated by newlines or ';', '#' comments, and the commands\n"
                "  load -dicom FILE ... [-nodialog]   the module's reader, as 'vxdicom load'\n"
                "  set NAME VALUE, unset NAME         script variables ($NAME)\n"
                "Stored load commands replay this way: the load command a field carries\n"
                "and TimeSeriesCtrl.vxs written by 'vxdicom load --time-series -o DIR'.\n"
                "While the variable DicomLoadAsTimeSeries is a number other than 0, each\n"
                "load makes one time series of its stacks (TimeSeriesCtrl.vxs sets it).\n"
                "After each load the summaries of its fields are printed.\n"
                "\n"
                "The import dialog: a stored load command has no -nodialog, so with a\n"
                "display the dialog is shown for it, as the host does when it replays\n"
                "the command; without a display (or with -nodialog) the stacks are built\n"
                "silently with the stored stack-break criteria.\n"
                "\n"
                "options:\n"
                "  -nodialog            never show the import dialog\n"
                "  -o, --output DIR     save what each load made into DIR (as 'vxdicom load')\n"
                "  --format FMT         nii.gz (default), nii or nrrd\n"
                "  -q, --quiet          no line per file read\n"
                "  -h, --help           this text\n"
                "\n"
                "Exit status: 0 when every command succeeded, 1 when one failed (the\n"
                "message names its line; the commands before it have run), 2 for a usage\n"
                "error. A load that makes no field fails.\n");
}

namespace {

struct RunState
{
    bool neverDialog = false;
    bool quiet = false;
    SaveOptions save;
    std::set<std::string> savedNames;
};

// load -dicom NAMES... [-nodialog]: the host's load command for DICOM.
int loadCommand(RunState &state, const std::vector<KcString> &args, KcString *error)
{
    if (args.size() < 2 || args[1] != "-dicom") {
        *error = "only \"load -dicom FILE ... ?-nodialog?\" is known here";
        return 0;
    }
    std::vector<const char *> names;
    for (size_t i = 2; i < args.size(); ++i)
        names.push_back(args[i].c_str());
    bool dialog = !state.neverDialog && VxWarningDialog::haveDisplay();
    if (!names.empty() && std::strcmp(names.back(), "-nodialog") == 0) {
        names.pop_back();
        dialog = false;
    }
    if (names.empty()) {
        *error = "wrong # args: should be \"load -dicom FILE ... ?-nodialog?\"";
        return 0;
    }

    // "set DicomLoadAsTimeSeries 1" in the script (TimeSeriesCtrl.vxs has it)
    // stands for the dialog's "As Time Series" choice.
    DicomLoadChoices choices;
    if (const char *series = VxScriptVars::instance()->get("DicomLoadAsTimeSeries"))
        choices.asTimeSeries = std::strtol(KcString(series).c_str(), nullptr, 10) != 0;
    setDicomLoadChoices(choices);

    VxMessage::getTheMsg()->setQuiet(state.quiet);
    KcDArray<VxField3 *> fields;
    const int poolBefore = VxObjectPool::instance()->size();
    const int ok =
        vxReadDicom(static_cast<int>(names.size()), names.data(), fields, dialog ? 1 : 0, true);
    VxMessage::getTheMsg()->setQuiet(false);

    if (fields.isEmpty()) {
        *error = KcString::format("no field was made from %zu file%s", names.size(),
                                  names.size() == 1 ? "" : "s");
        return 0;
    }
    if (reportAndSave(fields, poolBefore, state.save, ok == 1) != 0) {
        *error = ok == 1 ? "the fields could not be saved" : "a stack's field could not be made";
        return 0;
    }
    return 1;
}

} // namespace

int runRun(int argc, char **argv)
{
    RunState state;
    std::vector<std::string> positional;
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        auto value = [&](const char *option) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxdicom run: %s needs a value\n", option);
                return nullptr;
            }
            return argv[++i];
        };
        if (std::strcmp(a, "-nodialog") == 0 || std::strcmp(a, "--nodialog") == 0) {
            state.neverDialog = true;
        } else if (std::strcmp(a, "-o") == 0 || std::strcmp(a, "--output") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            state.save.directory = v;
        } else if (std::strcmp(a, "--format") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            if (!parseSaveFormat(v, state.save.format)) {
                std::fprintf(stderr, "vxdicom run: unknown format '%s' (nii.gz, nii, nrrd)\n", v);
                return 2;
            }
        } else if (std::strcmp(a, "-q") == 0 || std::strcmp(a, "--quiet") == 0) {
            state.quiet = true;
        } else if (std::strcmp(a, "--") == 0) {
            for (++i; i < argc; ++i)
                positional.emplace_back(argv[i]);
        } else if (a[0] == '-' && a[1] != '\0' && std::strchr(a, ' ') == nullptr &&
                   std::strchr(a, '\n') == nullptr) {
            std::fprintf(stderr, "vxdicom run: unknown option '%s'\n", a);
            return 2;
        } else {
            positional.emplace_back(a);
        }
    }
    if (positional.size() != 1) {
        std::fprintf(stderr, positional.empty() ? "vxdicom run: no SCRIPT or FILE given\n"
                                                : "vxdicom run: one SCRIPT or FILE only\n");
        helpRun();
        return 2;
    }
    const std::string &what = positional[0];
    std::error_code ec;
    const bool isFile = std::filesystem::is_regular_file(what, ec);
    if (!isFile && what.find_first_of(" \t\n;") == std::string::npos) {
        // A single word is no command worth running: it names a missing file.
        std::fprintf(stderr, "vxdicom run: %s: no such file\n", what.c_str());
        return 1;
    }
    state.save.usedNames = &state.savedNames;

    registerDicomImportDialog();
    return runWithGui(argc, argv, [&]() -> int {
        VxScriptInterpreter *interp = VxScriptInterpreter::instance();
        interp->registerCommand("load",
                                [&state](const std::vector<KcString> &args, KcString *error) {
                                    return loadCommand(state, args, error);
                                });
        KcString error;
        const int ok = isFile ? interp->evalFile(what.c_str(), &error) : interp->eval(what, &error);
        interp->unregisterCommand("load");
        if (!ok) {
            std::fflush(stdout);
            std::fprintf(stderr, "vxdicom run: %s\n", error.c_str());
            return 1;
        }
        return 0;
    });
}

} // namespace vxdicom_cli
