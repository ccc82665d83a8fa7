#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"

int VxDynamicDicomSeriesCtrl::saveCreation(FILE *file, const char * /*dataDir*/, int /*flags*/)
{
    if (!file)
        return 0;
    std::fprintf(file, "load -dicom");
    for (const KcString &name : fileNames) {
        // Inside double quotes the script interpreter substitutes variables
        // and escapes (as Tcl does, which also runs brackets): a backslash
        // keeps such characters of a name as they are.
        std::string quoted;
        for (char c : name) {
            if (c == '"' || c == '\\' || c == '$' || c == '[' || c == ']')
                quoted += '\\';
            quoted += c;
        }
        std::fprintf(file, " \"%s\"", quoted.c_str());
    }
    std::fprintf(file, "\n");
    return 0;
}
