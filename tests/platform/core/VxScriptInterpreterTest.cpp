#include "platform/core/VxScriptInterpreter.h"
#include "platform/core/VxScriptVars.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

namespace {

using Words = std::vector<KcString>;

// Scripts and their words worked out by hand from Tcl's rules (brackets are command substitution
// in Tcl, plain text here).
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

// Each row splits into the words worked out by hand and, where Tcl agrees, as tclsh splits it
// (its unknown command prints the words in hex). Syntax errors name their line.
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
          {"load \"a\"b", "line 1: extra characters after close-quote"},
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

// A saved network's script: comments, set and unset, $name and ${name} (names stop at characters
// that cannot be in one); the first failure stops the script and names its line and file.
TEST(VxScriptInterpreter, RunsScriptsAndFilesUntilTheFirstFailure)
{
    VxScriptInterpreter interp;
    std::vector<Words> calls;
    interp.registerCommand("load", [&calls](const Words &args, KcString *error) {
        calls.push_back(args);
        *error = "cannot open: missing.dcm";
        return args.back() == "missing.dcm" ? 0 : 1;
    });
    interp.registerCommand(
        "boom", [](const Words &, KcString *) -> int { throw std::runtime_error("bad state"); });
    interp.registerCommand("quiet", [](const Words &, KcString *) { return 0; });
    VxScriptVars *vars = VxScriptVars::instance();
    vars->set("a b", "spaced");
    vars->set("ns::v", "qualified");
    KcString error;
    ASSERT_EQ(interp.eval("   # comment ; not a command\nset dir /cd ;# comment after a semicolon\n"
                          "set n 3; load $dir/IM$n.dcm \"${dir} x\" #notacomment\n"
                          "load ${a b} $ns::v $n-x \"[$n]\"\n# comment \\\n continued comment",
                          &error),
              1)
        << error;
    EXPECT_EQ(calls, (std::vector<Words>{{"load", "/cd/IM3.dcm", "/cd x", "#notacomment"},
                                         {"load", "spaced", "qualified", "3-x", "[3]"}}));
    ASSERT_EQ(interp.eval("unset dir", &error), 1) << error;
    EXPECT_EQ(vars->get("dir"), nullptr);

    vxtest::TempDir dir;
    const std::string file = dir.file("net.hx"), text = "load ok.dcm\n\nload {unclosed\n";
    vxtest::writeFileBytes(file, {text.begin(), text.end()});
    for (const auto &[script, message] :
         std::initializer_list<std::pair<const char *, std::string>>{
             {"set\n", "line 1: set: wrong # args: should be \"set varName ?newValue?\""},
             {"load a.dcm\nload \\\n  missing.dcm\nload never.dcm",
              "line 2: load: cannot open: missing.dcm"},
             {"load a.dcm\nlod b.dcm", "line 2: invalid command name \"lod\""},
             {"boom", "line 1: boom: bad state"},
             {"quiet", "line 1: quiet failed"},
             {"", file + ", line 3: missing close-brace"}}) {
        EXPECT_EQ(*script ? interp.eval(script, &error) : interp.evalFile(file.c_str(), &error), 0);
        EXPECT_NE(error.find(message), std::string::npos) << error;
    }
    EXPECT_EQ(interp.evalFile(dir.file("none.hx").c_str(), &error), 0);
    EXPECT_NE(error.find("couldn't read file"), std::string::npos) << error;
    EXPECT_NE(error.find("none.hx"), std::string::npos) << error;
    for (const Words &call : calls)
        EXPECT_NE(call.back(), "never.dcm") << "a command after a failure does not run";
    for (const char *v : {"n", "a b", "ns::v"})
        vars->unset(v);
}
