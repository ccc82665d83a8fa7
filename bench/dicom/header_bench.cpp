// Times dicomReadFile over every file below a folder: the header parse of a
// delayed read (what the reader does for every file before it shows the
// import dialog), optionally followed by decoding every frame.
//
//   vxdicom_bench_header [--repeat N] [--pixels] FOLDER

#include "bench/common/BenchSupport.h"
#include "platform/dicom/dicom.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using vxbench::mean;
using vxbench::median;
using vxbench::sum;
using Clock = std::chrono::steady_clock;

// One pass over the files; the time of each file in microseconds.
std::vector<double> pass(const std::vector<std::string> &files, bool pixels, int *failed)
{
    std::vector<double> times;
    std::vector<unsigned char> frame;
    *failed = 0;
    for (const std::string &path : files) {
        const auto start = Clock::now();
        dicom::dicomStruct *d = dicom::dicomReadFile(path.c_str(), 1, nullptr);
        bool ok = d != nullptr;
        if (d && pixels && d->pixelsInFile) {
            frame.resize(size_t(d->frameSize) + 1);
            for (int k = 0; k < d->frames && ok; ++k)
                ok = dicom::dicomReadImageData(d, nullptr, k, frame.data(), frame.size(), nullptr);
        }
        dicom::dicomFree(d);
        const double us = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
        if (ok)
            times.push_back(us);
        else
            ++*failed;
    }
    return times;
}

} // namespace

int main(int argc, char **argv)
{
    int repeat = 5;
    bool pixels = false;
    std::string folder;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--repeat") == 0 && i + 1 < argc)
            repeat = std::max(1, std::atoi(argv[++i]));
        else if (std::strcmp(argv[i], "--pixels") == 0)
            pixels = true;
        else if (argv[i][0] != '-')
            folder = argv[i];
        else {
            std::fprintf(stderr, "usage: vxdicom_bench_header [--repeat N] [--pixels] FOLDER\n");
            return 2;
        }
    }
    if (folder.empty()) {
        std::fprintf(stderr, "usage: vxdicom_bench_header [--repeat N] [--pixels] FOLDER\n");
        return 2;
    }
    const std::vector<std::string> files = vxbench::filesBelow(folder);
    if (files.empty()) {
        std::fprintf(stderr, "no files below %s\n", folder.c_str());
        return 1;
    }

    dicom::dicomInitialize();
    dicom::dicomDictionaryName(0x0010, 0x0010); // dictionary loaded outside the timing
    int failed = 0;
    pass(files, pixels, &failed); // warm the page cache

    std::vector<double> all;
    std::vector<double> passTotals;
    for (int r = 0; r < repeat; ++r) {
        std::vector<double> t = pass(files, pixels, &failed);
        passTotals.push_back(sum(t));
        all.insert(all.end(), t.begin(), t.end());
    }
    std::printf("%s, %zu files (%d not readable), %d passes, %s\n", folder.c_str(), files.size(),
                failed, repeat, pixels ? "header + all frames" : "header only (delayed read)");
    std::printf("per file: median %.1f us, mean %.1f us\n", median(all), mean(all));
    std::printf("per pass: best %.2f ms, median %.2f ms\n",
                *std::min_element(passTotals.begin(), passTotals.end()) / 1000.0,
                median(passTotals) / 1000.0);
    return 0;
}
