#include "platform/core/VxScriptInterpreter.h"
#include "platform/core/VxScriptVars.h"
#include "tests/support/TestSupport.h"

#include <cstring>
#include <stdexcept>

namespace {

using Words = std::vector<KcString>;

// Scripts and their words by Tcl's rules (brackets are plain text here).
const std::pair<const char *, Words> kQuotingRows[] = {
    {"load -dicom \"a b.dcm\" {c {d} e}", {"load", "-dicom", "a b.dcm", "c {d} e"}},
    {"x {a \\} b} {$v \\n}", {"x", "a \\} b", "$v \\n"}},
    {"x \"tab\\there\" a\\ b \\\"q\\\" \\q", {"x", "tab\there", "a b", "\"q\"", "q"}},
    {"x \\x41\\102\\u00e9", {"x", "AB\xc3\xa9"}},
    {"x a\"b\" a{b} $ a$ \"\" {}", {"x", "a\"b\"", "a{b}", "$", "a$", "", ""}},
    {"x [list a]", {"x", "[list", "a]"}},
    {"x \"a;b\" {c;d} e\\;f", {"x", "a;b", "c;d", "e;f"}},
    {"x \"line1\nline2\" a \\\n    b", {"x", "line1\nline2", "a", "b"}},
    {"x \"a\\\n   b\" {a\\\n   b}\ty\r", {"x", "a b", "a b", "y"}},
};

} // namespace

// Rows split as by hand and as tclsh splits them; syntax errors name their line.
TEST(VxScriptQuoting, WordsFollowTclRulesAsTclshSplitsThem)
{
    const bool tcl = vxtest::haveProgram("tclsh");
    vxtest::TempDir dir;
    const std::string script = dir.file("row.tcl"), driver = dir.file("driver.tcl");
    const std::string driverText =
        "rename load {}\n"
        "proc unknown {args} { set out {}\n"
        "  foreach a $args { lappend out [binary encode hex [encoding convertto utf-8 $a]] }\n"
        "  puts [join $out ,] }\n"
        "set f [open [lindex $argv 0] rb]; set s [read $f]; close $f\n"
        "eval [encoding convertfrom utf-8 $s]\n";
    vxtest::writeFileBytes(driver, {driverText.begin(), driverText.end()});
    for (const auto &[text, words] : kQuotingRows) {
        std::vector<Words> commands;
        KcString error, ours;
        ASSERT_TRUE(VxScriptInterpreter::splitCommands(text, &commands, &error)) << error;
        ASSERT_EQ(commands, std::vector<Words>{words}) << text;
        if (!tcl || std::string(text).find('[') != std::string::npos)
            continue;
        vxtest::writeFileBytes(script, {text, text + std::strlen(text)});
        for (const KcString &w : words) {
            ours += ours.empty() ? "" : ",";
            for (unsigned char c : w)
                ours += KcString::format("%02x", c);
        }
        std::string out;
        ASSERT_EQ(vxtest::runCommand("tclsh '" + driver + "' '" + script + "'", &out, true), 0);
        EXPECT_EQ(ours + "\n", out) << text;
    }
    VxScriptVars::instance()->unset("nosuchvar");
    for (const auto &[text, message] :
         {std::pair{"\n\nload {a {b}", "line 3: missing close-brace"},
          {"x\nload {a}b", "line 2: extra characters after close-brace"},
          {"x\ny\nload $nosuchvar", "line 3: can't read \"nosuchvar\": no such variable"},
          {"load ${unclosed", "line 1: missing close-brace for variable name"}}) {
        std::vector<Words> commands;
        KcString error;
        EXPECT_FALSE(VxScriptInterpreter::splitCommands(text, &commands, &error)) << text;
        EXPECT_EQ(error, message);
    }
    if (!tcl)
        GTEST_SKIP() << "tclsh is not installed: the splits were not compared with Tcl's";
}

// ${a b}, ${ns::v}, continued comments, a throwing command and an unreadable file.
TEST(VxScriptInterpreter, RunsScriptsAndFilesUntilTheFirstFailure)
{
    VxScriptInterpreter interp;
    std::vector<Words> calls;
    interp.registerCommand(
        "load", [&calls](const Words &args, KcString *) { return calls.push_back(args), 1; });
    interp.registerCommand(
        "boom", [](const Words &, KcString *) -> int { throw std::runtime_error("bad state"); });
    VxScriptVars::instance()->set("a b", "spaced");
    VxScriptVars::instance()->set("ns::v", "qualified");
    KcString error;
    EXPECT_EQ(
        interp.eval("load ${a b} $ns::v #notacomment\n# comment \\\n load x\nboom\nload y", &error),
        0);
    EXPECT_EQ(error, "line 4: boom: bad state");
    EXPECT_EQ(calls, (std::vector<Words>{{"load", "spaced", "qualified", "#notacomment"}}));
    EXPECT_EQ(interp.evalFile("/nonexistent/none.hx", &error), 0);
    EXPECT_NE(error.find("couldn't read file"), std::string::npos) << error;
    for (const char *v : {"a b", "ns::v"})
        VxScriptVars::instance()->unset(v);
}
