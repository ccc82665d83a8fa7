#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"

int VxDynamicDicomSeriesCtrl::saveCreation(FILE *file, const char * /*dataDir*/, int /*flags*/)
{
    if (!file)
        return 0;
    std::fprintf(file, "load -dicom");
    for (const KcString &name : fileNames)
        std::fprintf(file, " \"%s\"", name.c_str());
    std::fprintf(file, "\n");
    return 0;
}
