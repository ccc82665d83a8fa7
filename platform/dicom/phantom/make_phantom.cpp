// Writes the built-in example series: vxdicom-phantom OUTDIR [--mr] [--slices N]
#include "platform/dicom/phantom/DicomPhantom.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

int main(int argc, char **argv)
{
    dicom::PhantomOptions options;
    const char *dir = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::printf("usage: vxdicom-phantom OUTDIR [--mr] [--slices N]\n"
                        "Writes a synthetic axial CT (or MR) series, one file per slice.\n");
            return 0;
        } else if (!std::strcmp(argv[i], "--mr")) {
            options.modality = "MR";
        } else if (!std::strcmp(argv[i], "--slices") && i + 1 < argc) {
            options.slices = std::atoi(argv[++i]);
        } else if (argv[i][0] == '-') {
            std::fprintf(stderr, "vxdicom-phantom: unknown option %s\n", argv[i]);
            return 2;
        } else {
            dir = argv[i];
        }
    }
    if (!dir || options.slices < 1) {
        std::fprintf(stderr, "usage: vxdicom-phantom OUTDIR [--mr] [--slices N]\n");
        return 2;
    }
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    KcString error;
    if (!dicom::writePhantomSeries(dir, options, &error)) {
        std::fprintf(stderr, "vxdicom-phantom: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
