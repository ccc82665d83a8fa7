#include "apps/vxdicom/InputFiles.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace vxdicom_cli {
namespace {

bool nameIs(const fs::path &path, const char *name)
{
    const std::string file = path.filename().string();
    if (file.size() != std::char_traits<char>::length(name))
        return false;
    for (size_t i = 0; i < file.size(); ++i)
        if (std::toupper(static_cast<unsigned char>(file[i])) != name[i])
            return false;
    return true;
}

// Walks one folder. A folder holding a DICOMDIR stands for that DICOMDIR
// alone (it lists what the folder holds); Philips' DIRFILE is left out, as the
// walk reaches the files it lists anyway. With useDicomDirs false every file
// is taken except DICOMDIRs.
bool walk(const fs::path &folder, std::vector<std::string> &files,
          std::vector<std::string> &dicomDirs, bool useDicomDirs = true)
{
    std::error_code ec;
    for (const char *name : {"DICOMDIR", "dicomdir", "DicomDir"}) {
        const fs::path candidate = folder / name;
        if (useDicomDirs && fs::is_regular_file(candidate, ec)) {
            dicomDirs.push_back(candidate.string());
            return true;
        }
    }
    std::vector<fs::path> entries;
    fs::directory_iterator it(folder, fs::directory_options::skip_permission_denied, ec);
    if (ec) {
        std::fprintf(stderr, "vxdicom: cannot read folder %s: %s\n", folder.c_str(),
                     ec.message().c_str());
        return false;
    }
    for (const fs::directory_iterator end; it != end; it.increment(ec)) {
        if (ec) {
            std::fprintf(stderr, "vxdicom: cannot read folder %s: %s\n", folder.c_str(),
                         ec.message().c_str());
            return false;
        }
        entries.push_back(it->path());
    }
    std::sort(entries.begin(), entries.end());
    for (const fs::path &entry : entries) {
        std::error_code typeEc;
        if (fs::is_directory(entry, typeEc)) {
            if (!walk(entry, files, dicomDirs, useDicomDirs))
                return false;
        } else if (fs::is_regular_file(entry, typeEc) && !nameIs(entry, "DIRFILE") &&
                   (useDicomDirs || !nameIs(entry, "DICOMDIR"))) {
            files.push_back(entry.string());
        }
    }
    return true;
}

} // namespace

bool expandInputs(const std::vector<std::string> &inputs, std::vector<std::string> &names)
{
    std::vector<std::string> dicomDirs;
    for (const std::string &input : inputs) {
        std::error_code ec;
        if (!fs::is_directory(input, ec)) {
            if (nameIs(input, "DICOMDIR") && fs::is_regular_file(input, ec))
                dicomDirs.push_back(input);
            else
                names.push_back(input);
            continue;
        }
        if (!walk(input, names, dicomDirs))
            return false;
    }
    // The same DICOMDIR named twice is read once.
    for (size_t i = 0; i < dicomDirs.size(); ++i)
        for (size_t j = i + 1; j < dicomDirs.size();) {
            std::error_code ec;
            if (fs::equivalent(dicomDirs[i], dicomDirs[j], ec))
                dicomDirs.erase(dicomDirs.begin() + static_cast<long>(j));
            else
                ++j;
        }
    // A DICOMDIR resolves its references against the folder of the last name
    // in the list, so it goes last; only one can be last, so the folders of
    // any others are read file by file (which finds the same images).
    for (size_t i = 0; i + 1 < dicomDirs.size(); ++i) {
        const fs::path folder = fs::path(dicomDirs[i]).parent_path();
        std::fprintf(stderr, "vxdicom: several DICOMDIRs; the files below %s are read without %s\n",
                     folder.empty() ? "." : folder.c_str(), dicomDirs[i].c_str());
        std::vector<std::string> none;
        if (!walk(folder.empty() ? fs::path(".") : folder, names, none, false))
            return false;
    }
    if (!dicomDirs.empty())
        names.push_back(dicomDirs.back());
    return true;
}

} // namespace vxdicom_cli
