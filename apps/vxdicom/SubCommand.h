#pragma once

// The sub-commands of the vxdicom command line. A sub-command is one source
// file with an entry function and a row in the table of main.cpp.

namespace vxdicom_cli {

struct SubCommand
{
    const char *name;
    const char *summary; ///< one line for the command list
    /// Runs the command; argv[0] is the command name. Returns the exit status.
    int (*run)(int argc, char **argv);
    /// Prints the command's help to standard output.
    void (*help)();
};

int runInfo(int argc, char **argv);
void helpInfo();
int runLoad(int argc, char **argv);
void helpLoad();
int runSaveDicom(int argc, char **argv);
void helpSaveDicom();
int runAnonymize(int argc, char **argv);
void helpAnonymize();
int runRun(int argc, char **argv);
void helpRun();
int runView(int argc, char **argv);
void helpView();

/// True when args hold -h or --help.
bool wantsHelp(int argc, char **argv);

} // namespace vxdicom_cli
