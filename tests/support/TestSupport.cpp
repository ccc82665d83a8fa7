#include "tests/support/TestSupport.h"

#include "platform/core/VxPreferences.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace vxtest {

std::string sharedDataDir()
{
    const char *env = std::getenv("VX_SHARED_DATA_DIR");
    const std::string dir = env && *env ? env : VX_SHARED_DATA_DIR;
    std::error_code ec;
    return fs::is_directory(dir, ec) ? dir : std::string();
}

std::string sharedPath(const std::string &relative)
{
    return (fs::path(sharedDataDir()) / relative).string();
}

std::vector<std::string> sharedDicomFiles(const std::string &relativeDir)
{
    std::vector<std::string> files;
    const std::string root = sharedDataDir();
    if (root.empty())
        return files;
    const fs::path base = relativeDir.empty() ? fs::path(root) : fs::path(root) / relativeDir;
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(base, ec);
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

TempDir::TempDir()
{
    std::string pattern = (fs::temp_directory_path() / "vxtest-XXXXXX").string();
    char *made = mkdtemp(pattern.data());
    if (!made)
        throw std::runtime_error("cannot create a temporary directory");
    dir = made;
}

TempDir::~TempDir()
{
    std::error_code ec;
    fs::remove_all(dir, ec);
}

int runCommand(const std::string &command, std::string *output, bool mergeStderr)
{
    const std::string full = mergeStderr ? command + " 2>&1" : command;
    FILE *pipe = popen(full.c_str(), "r");
    if (!pipe)
        return -1;
    std::array<char, 4096> buf{};
    size_t n;
    while ((n = fread(buf.data(), 1, buf.size(), pipe)) > 0)
        if (output)
            output->append(buf.data(), n);
    const int status = pclose(pipe);
    return status == -1 ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string shellQuote(const std::string &s)
{
    std::string quoted = "'";
    for (char c : s)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

int runPython(const std::string &script, const std::vector<std::string> &args, std::string *output,
              bool mergeStderr)
{
    std::string command = std::string(VX_PYTHON) + " " + shellQuote(script);
    for (const std::string &a : args)
        command += " " + shellQuote(a);
    return runCommand(command, output, mergeStderr);
}

QJsonDocument pythonJson(const std::string &script, const std::vector<std::string> &args)
{
    std::string out;
    EXPECT_EQ(runPython(script, args, &out), 0) << script << ": " << out.substr(0, 300);
    return QJsonDocument::fromJson(QByteArray::fromStdString(out));
}

CommandOutcome runCapturing(const std::string &command)
{
    TempDir dir;
    const std::string errFile = dir.file("stderr");
    CommandOutcome r;
    r.status = runCommand("{ " + command + "; } 2>" + shellQuote(errFile), &r.out);
    const std::vector<unsigned char> err = readFileBytes(errFile);
    r.err.assign(err.begin(), err.end());
    return r;
}

CommandOutcome runVxdicom(const std::string &arguments, const std::string &cwd,
                          const std::string &environment)
{
    TempDir dir;
    return runCapturing((cwd.empty() ? "" : "cd " + shellQuote(cwd) + " && ") +
                        "env -u DICOM_DELAYED_READ -u DICOM_EPS_ORIENTATION " + environment +
                        " VXDICOM_SETTINGS_FILE=" + shellQuote(dir.file("vxdicom.ini")) +
                        " XDG_RUNTIME_DIR=" + shellQuote(dir.path().string()) +
                        " QT_QPA_PLATFORM=offscreen timeout 300 " + shellQuote(VXDICOM_BINARY) +
                        " " + arguments);
}

ScopedEnv::ScopedEnv(const char *n, const char *value) : name(n)
{
    if (const char *old = std::getenv(n))
        previous = old;
    value ? setenv(n, value, 1) : unsetenv(n);
}

ScopedEnv::~ScopedEnv()
{
    previous ? setenv(name.c_str(), previous->c_str(), 1) : unsetenv(name.c_str());
}

bool haveProgram(const std::string &name)
{
    return runCommand("command -v " + shellQuote(name) + " >/dev/null 2>&1") == 0;
}

bool havePythonModules(const std::vector<std::string> &modules)
{
    std::string imports;
    for (const auto &m : modules)
        imports += "import " + m + "; ";
    return runCommand(std::string(VX_PYTHON) + " -c '" + imports + "' >/dev/null 2>&1") == 0;
}

std::vector<unsigned char> readFileBytes(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<unsigned char>((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
}

void writeFileBytes(const std::string &path, const std::vector<unsigned char> &bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char *>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

IsolatedEnvironment::IsolatedEnvironment()
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    std::filesystem::permissions(runtimeDir.path(), std::filesystem::perms::owner_all);
    setenv("XDG_RUNTIME_DIR", runtimeDir.path().c_str(), 0);
    const std::string settings = settingsDir.file("vxdicom.ini");
    setenv("VXDICOM_SETTINGS_FILE", settings.c_str(), 1);
    VxSettingsMgr::getInstance()->setStorageFile(settings);
    for (const char *name : {"ZENTA_MHT_STEREOTAXIS", "ZENTA_ZIEHM_RECONSTRUCTION",
                             "DICOM_DELAYED_READ", "DICOM_EPS_ORIENTATION"})
        unsetenv(name);
}

std::vector<std::string> namesIn(const std::string &folder)
{
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace vxtest
