#pragma once

#include "platform/core/KcString.h"

#include <functional>
#include <map>
#include <mutex>
#include <vector>

/// The host's script interpreter: runs command scripts such as a saved
/// network's "load -dicom ..." lines.
///
/// Syntax, a subset of Tcl with Tcl's quoting rules:
/// - commands are separated by newlines or ';'; a '#' where a command would
///   begin starts a comment that runs to the end of the line;
/// - words are separated by blanks and tabs; "double quotes" group a word in
///   which $NAME substitution and backslash escapes apply; {braces} group a
///   word literally and nest (only backslash-newline is replaced there);
/// - backslash escapes: \a \b \f \n \r \t \v, \xHH, \OOO (octal), \uHHHH,
///   and a backslash before any other character stands for that character;
///   a backslash-newline and the blanks after it become one blank, so a
///   command may continue on the next line;
/// - $NAME (letters, digits, '_' and "::") and ${ANY TEXT} substitute the
///   variable from VxScriptVars; an unset variable is an error; a '$' that
///   starts no name is kept as it is;
/// - brackets have no special meaning (there is no command substitution).
///
/// Built-in commands: `set NAME VALUE` (stores into VxScriptVars), `set NAME`
/// (fails when NAME is unset), `unset NAME ...`.
///
/// Errors name a line: the line where a failing command begins, or for a
/// syntax error or an unset variable the line of the fault:
/// "line 3: invalid command name \"lod\"", "line 4: load: cannot open ..."
/// for eval(); the same prefixed with the file name ("net.hx, line 3: ...")
/// for evalFile(). Evaluation stops at the first failure; the commands before
/// it have run.
class VxScriptInterpreter
{
public:
    /// A command gets all words of its call, its own name first
    /// (`load -dicom "a b.dcm"` gives "load", "-dicom", "a b.dcm"). It returns
    /// a value above 0 for success; 0 or less is a failure, explained in *error
    /// (which is never null).
    using Command = std::function<int(const std::vector<KcString> &args, KcString *error)>;

    /// The host's interpreter.
    static VxScriptInterpreter *instance();

    VxScriptInterpreter();
    VxScriptInterpreter(const VxScriptInterpreter &) = delete;
    VxScriptInterpreter &operator=(const VxScriptInterpreter &) = delete;

    /// Registers or replaces a command (also a built-in one).
    void registerCommand(const KcString &name, Command command);
    /// False when no such command was registered.
    bool unregisterCommand(const KcString &name);
    bool hasCommand(const KcString &name) const;

    /// Runs a script. Returns 1 when every command succeeded, else 0 with the
    /// reason in *error (when given).
    [[nodiscard]] int eval(const KcString &script, KcString *error = nullptr);
    /// Runs the script in a file; a file that cannot be read is a failure.
    [[nodiscard]] int evalFile(const char *path, KcString *error = nullptr);

    /// Splits a script into its commands' words with substitution done, as
    /// eval() would see them, without running anything (variables are read
    /// as they are now). Returns false and the reason on a syntax error or an
    /// unset variable.
    static bool splitCommands(const KcString &script, std::vector<std::vector<KcString>> *commands,
                              KcString *error = nullptr);

private:
    int run(const KcString &script, const KcString &where, KcString *error);

    mutable std::mutex mutex;
    std::map<KcString, Command> commands;
};
