#pragma once

#include <QJsonDocument>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vxtest {

/// ../shared/data beside the checkout, or "" when it is not there.
std::string sharedDataDir();

/// Path of a file or folder below ../shared/data.
std::string sharedPath(const std::string &relative);

/// Every regular file below a folder of ../shared/data, sorted (README.md, LICENSE, notes.txt out).
std::vector<std::string> sharedDicomFiles(const std::string &relativeDir = "");

/// A temporary directory removed with everything in it when the object dies.
class TempDir
{
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const std::filesystem::path &path() const { return dir; }
    std::string file(const std::string &name) const { return (dir / name).string(); }

private:
    std::filesystem::path dir;
};

/// Set up before a program's tests run, alive for the whole run: widgets offscreen, a private
/// runtime folder, the preferences in a private file (the user's are never read or changed), and
/// none of the module's environment switches from the developer's shell (tests set their own).
class IsolatedEnvironment
{
public:
    IsolatedEnvironment();
    IsolatedEnvironment(const IsolatedEnvironment &) = delete;
    IsolatedEnvironment &operator=(const IsolatedEnvironment &) = delete;

private:
    TempDir runtimeDir;
    TempDir settingsDir;
};

/// Runs a command through /bin/sh: its exit status; output gets stdout (and stderr if mergeStderr).
int runCommand(const std::string &command, std::string *output = nullptr, bool mergeStderr = false);

/// A text quoted for /bin/sh (single quotes; a quote inside becomes '\'').
std::string shellQuote(const std::string &s);

/// Runs VX_PYTHON with a script and its arguments (each quoted); as runCommand.
int runPython(const std::string &script, const std::vector<std::string> &args,
              std::string *output = nullptr, bool mergeStderr = false);
/// The JSON document a script prints (runPython); a test failure when its status is not 0.
QJsonDocument pythonJson(const std::string &script, const std::vector<std::string> &args);

/// What a command printed on each stream, and its exit status.
struct CommandOutcome
{
    int status = -1;
    std::string out, err;
};

/// Runs a command through /bin/sh with standard output and standard error kept apart.
CommandOutcome runCapturing(const std::string &command);

/// The vxdicom command line run in `cwd` (none: here) with settings of its own, offscreen, none of
/// the module's switches, for 5 minutes at most; `environment`: more of env's arguments.
CommandOutcome runVxdicom(const std::string &arguments, const std::string &cwd = {},
                          const std::string &environment = {});

/// Sets (or, with a null value, unsets) an environment variable while the object lives.
class ScopedEnv
{
public:
    ScopedEnv(const char *name, const char *value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv &) = delete;
    ScopedEnv &operator=(const ScopedEnv &) = delete;

private:
    std::string name;
    std::optional<std::string> previous;
};

/// True when an executable of that name is on PATH (or at that absolute path).
bool haveProgram(const std::string &name);

/// True when /usr/bin/python3 can import every module named.
bool havePythonModules(const std::vector<std::string> &modules);

std::vector<unsigned char> readFileBytes(const std::string &path);
void writeFileBytes(const std::string &path, const std::vector<unsigned char> &bytes);
/// The names of the entries of a folder (not their paths), sorted.
std::vector<std::string> namesIn(const std::string &folder);

} // namespace vxtest

/// Skips the current test unless `have` holds; `what` names what it needs.
#define VX_REQUIRE(have, what)                                                                     \
    do {                                                                                           \
        if (!(have))                                                                               \
            GTEST_SKIP() << what << " is needed for this test";                                    \
    } while (0)

/// Skips the current test when ../shared/data is absent (a user's fresh clone).
#define VX_REQUIRE_SHARED_DATA()                                                                   \
    do {                                                                                           \
        if (vxtest::sharedDataDir().empty())                                                       \
            GTEST_SKIP() << "../shared/data is not beside this checkout; real scanner files "      \
                            "are needed for this test";                                            \
    } while (0)
