// Times the reader's lazy read of every file below a folder: the construction
// of a VxDicomFile with delayed reading (header parse, one image record per
// frame with its per-image parameters; no pixels), which the reader does for
// every file before it builds stacks, and separately the attribute
// parameters of the file (dicomDataElements, Siemens CSA headers decoded).
//
//   vxdicom_bench_reader [--repeat N] [--once] FOLDER
//
// --repeat N: N timed passes after one untimed pass that warms the page cache
// and the dictionary (default 5). --once: a single pass, nothing untimed, for
// timing the whole process from outside.

#include "bench/common/BenchSupport.h"
#include "platform/data/VxParamBundle.h"
#include "platform/dicom/dicom.h"
#include "vxdicom/reader/VxDicomFile.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using vxbench::mean;
using vxbench::median;
using vxbench::sum;
using Clock = std::chrono::steady_clock;

struct PassTimes
{
    std::vector<double> readUs;       ///< per file: VxDicomFile construction
    std::vector<double> attributesUs; ///< per file: dicomDataElements()
    int failed = 0;
    int images = 0;
    int parameters = 0;
};

double since(Clock::time_point start)
{
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

PassTimes pass(const std::vector<std::string> &files)
{
    PassTimes t;
    t.readUs.reserve(files.size());
    t.attributesUs.reserve(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        std::unique_ptr<VxDicomFile> file;
        const auto start = Clock::now();
        try {
            file = std::make_unique<VxDicomFile>(files[i].c_str(), int(i), 1);
        } catch (const char *text) {
            std::fprintf(stderr, "reading %s failed: %s\n", files[i].c_str(), text);
        }
        const double readUs = since(start);
        if (!file) {
            ++t.failed;
            continue;
        }
        const auto attributesStart = Clock::now();
        const std::unique_ptr<VxParamBundle> attributes = file->dicomDataElements();
        t.attributesUs.push_back(since(attributesStart));
        t.readUs.push_back(readUs);
        t.images += file->images.size();
        t.parameters += attributes->size();
    }
    return t;
}

int usage()
{
    std::fprintf(stderr, "usage: vxdicom_bench_reader [--repeat N] [--once] FOLDER\n");
    return 2;
}

} // namespace

int main(int argc, char **argv)
{
    int repeat = 5;
    bool once = false;
    std::string folder;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--repeat") == 0 && i + 1 < argc)
            repeat = std::max(1, std::atoi(argv[++i]));
        else if (std::strcmp(argv[i], "--once") == 0)
            once = true;
        else if (argv[i][0] != '-' && folder.empty())
            folder = argv[i];
        else
            return usage();
    }
    if (folder.empty())
        return usage();

    const std::vector<std::string> files = vxbench::filesBelow(folder);
    if (files.empty()) {
        std::fprintf(stderr, "no files below %s\n", folder.c_str());
        return 1;
    }

    dicom::dicomInitialize();
    if (once) {
        const PassTimes t = pass(files);
        std::printf("%zu files, %d not readable, %d images, one pass %.2f ms\n", files.size(),
                    t.failed, t.images, (sum(t.readUs) + sum(t.attributesUs)) / 1000.0);
        return t.failed ? 1 : 0;
    }

    pass(files); // warms the page cache and loads the dictionary
    std::vector<double> read, attributes, readTotals, attributeTotals;
    PassTimes last;
    for (int r = 0; r < repeat; ++r) {
        last = pass(files);
        read.insert(read.end(), last.readUs.begin(), last.readUs.end());
        attributes.insert(attributes.end(), last.attributesUs.begin(), last.attributesUs.end());
        readTotals.push_back(sum(last.readUs));
        attributeTotals.push_back(sum(last.attributesUs));
    }
    std::printf("%s: %zu files (%d not readable), %d images, %d attribute parameters per pass; "
                "%d passes, warm cache\n",
                folder.c_str(), files.size(), last.failed, last.images, last.parameters, repeat);
    std::printf("lazy read (VxDicomFile, delayed):  per file median %.1f us, mean %.1f us; "
                "per pass median %.2f ms\n",
                median(read), mean(read), median(readTotals) / 1000.0);
    std::printf("attribute parameters (dicomDataElements): per file median %.1f us, mean %.1f us; "
                "per pass median %.2f ms\n",
                median(attributes), mean(attributes), median(attributeTotals) / 1000.0);
    return last.failed ? 1 : 0;
}
