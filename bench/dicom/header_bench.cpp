// Times dicomReadFile over every file below a folder: the header parse of a
// delayed read (what the reader does for every file before it shows the
// import dialog), optionally followed by decoding every frame.
//
//   vxdicom_bench_header [--repeat N] [--pixels] FOLDER

#include "platform/dicom/dicom.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

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

double median(std::vector<double> v)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
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
    std::vector<std::string> files;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(folder, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        if (ec)
            break;
        const std::string name = it->path().filename().string();
        if (it->is_regular_file() && name != "README.md" && name != "LICENSE" &&
            name != "notes.txt")
            files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
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
        passTotals.push_back(std::accumulate(t.begin(), t.end(), 0.0));
        all.insert(all.end(), t.begin(), t.end());
    }
    const double mean =
        all.empty() ? 0 : std::accumulate(all.begin(), all.end(), 0.0) / double(all.size());
    std::printf("%s, %zu files (%d not readable), %d passes, %s\n", folder.c_str(), files.size(),
                failed, repeat, pixels ? "header + all frames" : "header only (delayed read)");
    std::printf("per file: median %.1f us, mean %.1f us\n", median(all), mean);
    std::printf("per pass: best %.2f ms, median %.2f ms\n",
                *std::min_element(passTotals.begin(), passTotals.end()) / 1000.0,
                median(passTotals) / 1000.0);
    return 0;
}
