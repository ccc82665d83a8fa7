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
// walk reaches the files it lists anyway.
bool walk(const fs::path &folder, std::vector<std::string> &files,
          std::vector<std::string> &dicomDirs)
{
    std::error_code ec;
    for (const char *name : {"DICOMDIR", "dicomdir", "DicomDir"}) {
        const fs::path candidate = folder / name;
        if (fs::is_regular_file(candidate, ec)) {
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
            if (!walk(entry, files, dicomDirs))
                return false;
        } else if (fs::is_regular_file(entry, typeEc) && !nameIs(entry, "DIRFILE")) {
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
            names.push_back(input);
            continue;
        }
        if (!walk(input, names, dicomDirs))
            return false;
    }
    // A DICOMDIR resolves its references against the folder of the last name
    // in the list, so the ones found in folders go last.
    names.insert(names.end(), dicomDirs.begin(), dicomDirs.end());
    return true;
}

} // namespace vxdicom_cli
