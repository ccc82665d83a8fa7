#pragma once

// The vxdicom binary run as users run it, and what its output says.

#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace clitest {

using Outcome = vxtest::CommandOutcome;

inline std::string q(const std::string &s)
{
    return vxtest::shellQuote(s);
}

/// vxdicom with the arguments (quoted with q()), from `cwd`, with preferences of its own,
/// offscreen, stopped after five minutes; `environment`: env's arguments ("-u NAME", "N=V").
inline Outcome vxdicom(const std::string &arguments, const std::string &cwd = {},
                       const std::string &environment = {})
{
    vxtest::TempDir dir;
    return vxtest::runCapturing(
        (cwd.empty() ? "" : "cd " + q(cwd) + " && ") +
        "env -u DICOM_DELAYED_READ -u DICOM_EPS_ORIENTATION " + environment +
        " VXDICOM_SETTINGS_FILE=" + q(dir.file("vxdicom.ini")) +
        " XDG_RUNTIME_DIR=" + q(dir.path().string()) + " QT_QPA_PLATFORM=offscreen timeout 300 " +
        q(VXDICOM_BINARY) + " " + arguments);
}

inline bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}
inline size_t count(const std::string &text, const std::string &part)
{
    size_t n = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

/// The "field ..." and "time series ..." lines of a load's output.
inline std::vector<std::string> summaryLines(const std::string &out)
{
    std::vector<std::string> kept;
    std::istringstream in(out);
    for (std::string line; std::getline(in, line);)
        if (line.rfind("field ", 0) == 0 || line.rfind("time series ", 0) == 0)
            kept.push_back(line);
    return kept;
}

inline int fieldCount(const std::string &out)
{
    return int(count("\n" + out, "\nfield "));
}
/// /usr/bin/python3 with a script of tests/apps; its status (77: a module is missing).
inline int python(const char *script, const std::vector<std::string> &args, std::string *output)
{
    std::string command =
        std::string(VX_PYTHON) + " " + q(std::string(VX_APPS_TEST_DIR) + "/" + script);
    for (const std::string &a : args)
        command += " " + q(a);
    return vxtest::runCommand(command, output, true);
}

} // namespace clitest
