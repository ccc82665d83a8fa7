#pragma once

// What the benchmark programs share: the files below a folder and the
// statistics of their timings.

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <string>
#include <vector>

namespace vxbench {

/// Every regular file below a folder, sorted; the notes that sit beside
/// scanner files (README.md, LICENSE, notes.txt) left out.
inline std::vector<std::string> filesBelow(const std::string &folder)
{
    namespace fs = std::filesystem;
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
    return files;
}

inline double sum(const std::vector<double> &v)
{
    return std::accumulate(v.begin(), v.end(), 0.0);
}

inline double mean(const std::vector<double> &v)
{
    return v.empty() ? 0 : sum(v) / double(v.size());
}

inline double median(std::vector<double> v)
{
    if (v.empty())
        return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

} // namespace vxbench
