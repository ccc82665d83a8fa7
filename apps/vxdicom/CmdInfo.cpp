// vxdicom info FILE...: what the dicom:: layer reads from each file, then a
// decode of every frame the way the reader reads them (delayed read, frame by
// frame).

#include "apps/vxdicom/SubCommand.h"

#include "platform/dicom/dicom.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace vxdicom_cli {
namespace {

using InfoLines = std::vector<std::pair<std::string, std::string>>;

/// A group of "label: value" lines printed for every file that was read.
using InfoSection = void (*)(const dicom::dicomStruct &d, InfoLines &lines);

struct StructFree
{
    void operator()(dicom::dicomStruct *d) const { dicom::dicomFree(d); }
};

void layerSection(const dicom::dicomStruct &d, InfoLines &lines)
{
    lines.emplace_back("transfer syntax", d.transferSyntaxUID + " (" + d.transferSyntaxName + ")");
    lines.emplace_back("rows", std::to_string(d.rows));
    lines.emplace_back("columns", std::to_string(d.columns));
    lines.emplace_back("frames", std::to_string(d.frames));
    lines.emplace_back("bits allocated", std::to_string(d.bitsAllocated));
    lines.emplace_back("bytes per sample", std::to_string(d.bytesPerSample));
    lines.emplace_back("samples per pixel", std::to_string(d.samplesPerPixel));
    lines.emplace_back("photometric", d.photometric.empty() ? "-" : d.photometric);
    lines.emplace_back("elements", std::to_string(d.numElements));
    lines.emplace_back("DICOMDIR", d.isDicomDir ? "yes" : "no");
}

// Sections in the order they are printed; add a row for more values.
const InfoSection kSections[] = {
    layerSection,
};

// Decodes every frame into one frame buffer; "" on success, else the reason.
std::string decodeAll(const dicom::dicomStruct &d, std::string *summary)
{
    if (!d.pixelsInFile) {
        *summary = "none";
        return {};
    }
    if (d.compression == dicom::COMPRESSION_UNSUPPORTED)
        return "transfer syntax " + d.transferSyntaxUID + " cannot be decoded";
    std::vector<unsigned char> frame(size_t(d.frameSize) + 1);
    for (int k = 0; k < d.frames; ++k) {
        std::string why;
        if (!dicom::dicomReadImageData(&d, nullptr, k, frame.data(), frame.size(), &why))
            return d.frames > 1 ? "frame " + std::to_string(k + 1) + ": " + why : why;
    }
    *summary = std::to_string(d.frames) + (d.frames == 1 ? " frame" : " frames") + " decoded";
    return {};
}

bool infoOne(const char *path)
{
    std::string why;
    std::unique_ptr<dicom::dicomStruct, StructFree> d(dicom::dicomReadFile(path, 1, &why));
    if (!d) {
        std::fprintf(stderr, "reading %s failed: %s\n", path, why.c_str());
        return false;
    }
    InfoLines lines;
    for (InfoSection section : kSections)
        section(*d, lines);
    std::string pixels;
    const std::string failure = decodeAll(*d, &pixels);
    lines.emplace_back("pixels", failure.empty() ? pixels : "not decoded");

    std::printf("%s\n", path);
    for (const auto &[label, value] : lines)
        std::printf("  %-18s %s\n", (label + ":").c_str(), value.c_str());
    std::fflush(stdout);
    if (!failure.empty()) {
        std::fprintf(stderr, "reading %s failed: %s\n", path, failure.c_str());
        return false;
    }
    return true;
}

} // namespace

void helpInfo()
{
    std::printf("usage: vxdicom info FILE...\n"
                "\n"
                "Prints, for every FILE, what the DICOM layer reads from it (transfer syntax,\n"
                "image size, frames, sample layout, number of elements, DICOMDIR flag), then\n"
                "decodes every frame. Exit status 0 when every file was read and decoded, 1\n"
                "otherwise (each failure is reported as \"reading FILE failed: REASON\" on\n"
                "standard error, and the other files are still processed), 2 for a usage error.\n"
                "\n"
                "Transfer syntaxes decoded:\n");
    const std::string syntaxes = dicom::dicomSupportedTransferSyntaxes();
    size_t begin = 0;
    while (begin < syntaxes.size()) {
        const size_t end = syntaxes.find('\n', begin);
        std::printf("  %s\n", syntaxes.substr(begin, end - begin).c_str());
        if (end == std::string::npos)
            break;
        begin = end + 1;
    }
}

int runInfo(int argc, char **argv)
{
    std::vector<const char *> files;
    bool options = true;
    for (int i = 1; i < argc; ++i) {
        if (options && std::strcmp(argv[i], "--") == 0) {
            options = false;
        } else if (options && argv[i][0] == '-' && argv[i][1] != '\0') {
            std::fprintf(stderr, "vxdicom info: unknown option '%s'\n", argv[i]);
            return 2;
        } else {
            files.push_back(argv[i]);
        }
    }
    if (files.empty()) {
        std::fprintf(stderr, "usage: vxdicom info FILE...\n");
        return 2;
    }
    QCoreApplication app(argc, argv);
    dicom::dicomInitialize();
    bool ok = true;
    for (size_t i = 0; i < files.size(); ++i) {
        if (i > 0)
            std::printf("\n");
        ok = infoOne(files[i]) && ok;
    }
    return ok ? 0 : 1;
}

} // namespace vxdicom_cli
