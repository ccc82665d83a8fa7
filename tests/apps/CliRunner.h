#pragma once

#include "tests/support/TestSupport.h"

#include <string>
#include <vector>

namespace clitest {

using Outcome = vxtest::CommandOutcome;

/// A text quoted for /bin/sh.
inline std::string q(const std::string &s)
{
    return vxtest::shellQuote(s);
}

/// Runs the vxdicom binary with the arguments (quote names with q()), from
/// folder `cwd` when given, with a preferences file of its own (the default
/// stack-break criteria) and Qt's offscreen platform. A run that takes more
/// than five minutes is stopped (status 124).
Outcome vxdicom(const std::string &arguments, const std::string &cwd = std::string());

bool contains(const std::string &text, const std::string &part);
std::vector<std::string> lines(const std::string &text);
/// The lines of a load's output that describe its fields: "field ...",
/// "  transformation ...", "  load command: ..." and "time series ...".
std::vector<std::string> summaryLines(const std::string &out);

/// The number of "field ..." summary lines.
int fieldCount(const std::string &out);

/// Runs /usr/bin/python3 with a script of tests/apps and the arguments;
/// returns its exit status (77: a module it needs is missing).
int python(const char *script, const std::vector<std::string> &args, std::string *output);

} // namespace clitest
