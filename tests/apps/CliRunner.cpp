#include "tests/apps/CliRunner.h"

#include "tests/support/TestSupport.h"

#include <sstream>

namespace clitest {

Outcome vxdicom(const std::string &arguments, const std::string &cwd)
{
    vxtest::TempDir dir;
    std::string command;
    if (!cwd.empty())
        command = "cd " + q(cwd) + " && ";
    command += "env VXDICOM_SETTINGS_FILE=" + q(dir.file("vxdicom.ini")) +
               " XDG_RUNTIME_DIR=" + q(dir.path().string()) +
               " QT_QPA_PLATFORM=offscreen timeout 300 " + q(VXDICOM_BINARY) + " " + arguments;
    return vxtest::runCapturing(command);
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

std::vector<std::string> lines(const std::string &text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

std::vector<std::string> summaryLines(const std::string &out)
{
    std::vector<std::string> kept;
    for (const std::string &line : lines(out))
        if (line.rfind("field ", 0) == 0 || line.rfind("time series ", 0) == 0)
            kept.push_back(line);
    return kept;
}

int fieldCount(const std::string &out)
{
    int n = 0;
    for (const std::string &line : lines(out))
        n += line.rfind("field ", 0) == 0 ? 1 : 0;
    return n;
}

int python(const char *script, const std::vector<std::string> &args, std::string *output)
{
    std::string command =
        std::string(VX_PYTHON) + " " + q(std::string(VX_APPS_TEST_DIR) + "/" + script);
    for (const std::string &a : args)
        command += " " + q(a);
    return vxtest::runCommand(command, output, true);
}

} // namespace clitest
