#include "platform/core/VxScriptInterpreter.h"
#include "platform/core/VxScriptVars.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using Words = std::vector<KcString>;

// Splits without running; variables come from VxScriptVars as they are.
std::vector<Words> split(const KcString &script)
{
    std::vector<Words> commands;
    KcString error;
    EXPECT_TRUE(VxScriptInterpreter::splitCommands(script, &commands, &error))
        << script << ": " << error;
    return commands;
}

// Each row: a script and its words worked out by hand from Tcl's rules
// (brackets are command substitution in Tcl, plain text here).
const std::pair<const char *, Words> kQuotingRows[] = {
    {"load -dicom \"a b.dcm\" c.dcm", {"load", "-dicom", "a b.dcm", "c.dcm"}},
    {"load {a b.dcm}  c.dcm", {"load", "a b.dcm", "c.dcm"}},
    {"x {a {b c} d}", {"x", "a {b c} d"}},
    {"x {a \\} b}", {"x", "a \\} b"}},
    {"x {$v \\n}", {"x", "$v \\n"}},
    {"x \"tab\\there\"", {"x", "tab\there"}},
    {"x a\\ b", {"x", "a b"}},
    {"x \\\"q\\\"", {"x", "\"q\""}},
    {"x \\x41\\102\\u00e9", {"x", "AB\xc3\xa9"}},
    {"x \\q", {"x", "q"}},
    {"x a\"b\"", {"x", "a\"b\""}},
    {"x a{b}", {"x", "a{b}"}},
    {"x [list a]", {"x", "[list", "a]"}},
    {"x \"a;b\" {c;d} e\\;f", {"x", "a;b", "c;d", "e;f"}},
    {"x \"\" {}", {"x", "", ""}},
    {"x $ a$", {"x", "$", "a$"}},
    {"x \"line1\nline2\"", {"x", "line1\nline2"}},
    {"x a \\\n    b", {"x", "a", "b"}},
    {"x \"a\\\n   b\"", {"x", "a b"}},
    {"x {a\\\n   b}", {"x", "a b"}},
    {"x\ty\r", {"x", "y"}},
};

std::string hex(const std::string &bytes)
{
    std::string out;
    for (unsigned char c : bytes)
        out += KcString::format("%02x", c);
    return out;
}

} // namespace

// Each row splits into the words worked out by hand; where Tcl agrees, tclsh
// splits it the same way: every unknown command prints its words in hex.
// Syntax errors name their line.
TEST(VxScriptQuoting, WordsFollowTclRulesAsTclshSplitsThem)
{
    const bool tcl = vxtest::haveProgram("tclsh");
    vxtest::TempDir dir;
    const std::string scriptFile = dir.file("row.tcl"), driver = dir.file("driver.tcl");
    const std::string driverText =
        "rename load {}\n"
        "proc unknown {args} { set out {}\n"
        "  foreach a $args { lappend out [binary encode hex [encoding convertto utf-8 $a]] }\n"
        "  puts [join $out ,] }\n"
        "set f [open [lindex $argv 0] rb]; set s [read $f]; close $f\n"
        "eval [encoding convertfrom utf-8 $s]\n";
    vxtest::writeFileBytes(driver, {driverText.begin(), driverText.end()});
    for (const auto &[script, words] : kQuotingRows) {
        const auto commands = split(script);
        ASSERT_EQ(commands.size(), 1u) << script;
        EXPECT_EQ(commands[0], words) << script;
        if (!tcl || std::string(script).find('[') != std::string::npos)
            continue;
        vxtest::writeFileBytes(scriptFile, {script, script + std::strlen(script)});
        std::string out;
        ASSERT_EQ(vxtest::runCommand("tclsh '" + driver + "' '" + scriptFile + "'", &out, true), 0)
            << script << out;
        std::string ours;
        for (const KcString &w : commands[0])
            ours += (ours.empty() ? "" : ",") + hex(w);
        EXPECT_EQ(ours + "\n", out) << script;
    }
    VxScriptVars::instance()->unset("nosuchvar");
    const std::pair<const char *, const char *> rows[] = {
        {"load a\nload \"b.dcm\nload c", "line 2: missing \""},
        {"\n\nload {a {b}", "line 3: missing close-brace"},
        {"load \"a\"b", "line 1: extra characters after close-quote"},
        {"x\nload {a}b", "line 2: extra characters after close-brace"},
        {"x\ny\nload $nosuchvar", "line 3: can't read \"nosuchvar\": no such variable"},
        {"load ${unclosed", "line 1: missing close-brace for variable name"},
    };
    for (const auto &[script, message] : rows) {
        std::vector<Words> commands;
        KcString error;
        EXPECT_FALSE(VxScriptInterpreter::splitCommands(script, &commands, &error)) << script;
        EXPECT_EQ(error, message);
    }
    if (!tcl)
        GTEST_SKIP() << "tclsh is not installed: the splits were not compared with Tcl's";
}

// A script as a saved network holds it: comments, commands split at newlines
// and semicolons, set and unset of script variables that $name and ${name}
// substitute (names stop at characters that cannot be in a name, braces keep
// the text); the first failure stops the script and names its line and file.
TEST(VxScriptInterpreter, RunsScriptsAndFilesUntilTheFirstFailure)
{
    VxScriptInterpreter interp;
    std::vector<Words> calls;
    interp.registerCommand("load", [&calls](const Words &args, KcString *error) {
        calls.push_back(args);
        if (args.back() != "missing.dcm")
            return 1;
        *error = "cannot open: missing.dcm";
        return 0;
    });
    interp.registerCommand(
        "boom", [](const Words &, KcString *) -> int { throw std::runtime_error("bad state"); });
    interp.registerCommand("quiet", [](const Words &, KcString *) { return 0; });
    VxScriptVars *vars = VxScriptVars::instance();
    vars->set("a b", "spaced");
    vars->set("ns::v", "qualified");
    vars->set("empty", "");
    KcString error;
    ASSERT_EQ(interp.eval("# a saved network\n   # indented comment ; not a command\n"
                          "set dir /cd/DICOM ;# comment after a semicolon\n"
                          "set n 3; load -dicom $dir/IM$n.dcm \"${dir} x\" {$dir} #notacomment\n"
                          "load ${a b} $ns::v $n.dcm $n-x \"[$n]\" a${empty}b\n"
                          "# comment \\\n continued comment\n;;set spaced {my scans}",
                          &error),
              1)
        << error;
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0], (Words{"load", "-dicom", "/cd/DICOM/IM3.dcm", "/cd/DICOM x", "$dir",
                               "#notacomment"}));
    EXPECT_EQ(calls[1], (Words{"load", "spaced", "qualified", "3.dcm", "3-x", "[3]", "ab"}));
    EXPECT_STREQ(vars->get("spaced"), "my scans");
    ASSERT_EQ(interp.eval("unset spaced dir", &error), 1) << error;
    EXPECT_EQ(vars->get("dir"), nullptr);

    vxtest::TempDir dir;
    const std::string file = dir.file("net.hx"), text = "load ok.dcm\n\nload {unclosed\n";
    vxtest::writeFileBytes(file, {text.begin(), text.end()});
    const std::pair<const char *, std::string> failures[] = {
        {"set\n", "line 1: set: wrong # args: should be \"set varName ?newValue?\""},
        {"\nset dir", "line 2: set: can't read \"dir\": no such variable"},
        {"load a.dcm\nload \\\n  missing.dcm\nload never.dcm",
         "line 2: load: cannot open: missing.dcm"},
        {"load a.dcm\nlod b.dcm", "line 2: invalid command name \"lod\""},
        {"boom", "line 1: boom: bad state"},
        {"quiet", "line 1: quiet failed"},
        {"", file + ", line 3: missing close-brace"},
        {"", "couldn't read file"}};
    for (const auto &[script, message] : failures) {
        const bool fromFile = !*script;
        const std::string name = message.rfind("couldn't", 0) == 0 ? dir.file("none.hx") : file;
        EXPECT_EQ(fromFile ? interp.evalFile(name.c_str(), &error) : interp.eval(script, &error),
                  0);
        EXPECT_NE(error.find(message), std::string::npos) << error;
    }
    EXPECT_NE(error.find("none.hx"), std::string::npos) << error;
    for (const Words &call : calls)
        EXPECT_NE(call.back(), "never.dcm") << "a command after a failure does not run";
    for (const char *v : {"n", "a b", "ns::v", "empty"})
        vars->unset(v);
}
