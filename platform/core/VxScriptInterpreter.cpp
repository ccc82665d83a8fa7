#include "platform/core/VxScriptInterpreter.h"

#include "platform/core/VxScriptVars.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace {

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

bool isNameChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

void appendUtf8(std::string &out, unsigned code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

// Reads one command at a time, so that variables set by a command are seen
// by the substitutions of the next one.
class Parser
{
public:
    explicit Parser(const std::string &text) : s(text) {}

    /// Next command's words. False at the end of the script or on an error
    /// (then `failed` is set and `message` says why).
    bool next(std::vector<KcString> &words, int &commandLine)
    {
        words.clear();
        if (!skipToCommand())
            return false;
        commandLine = line;
        for (;;) {
            skipBlanks();
            if (pos >= s.size())
                return true;
            const char c = s[pos];
            if (c == '\n' || c == ';') {
                consume();
                return true;
            }
            KcString word;
            if (!parseWord(word))
                return false;
            words.push_back(std::move(word));
        }
    }

    bool failed = false;
    KcString message;
    int errorLine = 0;

private:
    char peek(size_t ahead = 0) const { return pos + ahead < s.size() ? s[pos + ahead] : '\0'; }
    bool atBackslashNewline() const { return peek() == '\\' && peek(1) == '\n'; }

    void consume()
    {
        if (s[pos] == '\n')
            ++line;
        ++pos;
    }

    // Backslash-newline and the blanks after it: one word separator.
    void skipBackslashNewline()
    {
        pos += 2;
        ++line;
        while (pos < s.size() && isBlank(s[pos]))
            ++pos;
    }

    void skipBlanks()
    {
        for (;;) {
            if (pos < s.size() && isBlank(s[pos]))
                ++pos;
            else if (atBackslashNewline())
                skipBackslashNewline();
            else
                return;
        }
    }

    // Skips separators and comments up to the first word of a command.
    bool skipToCommand()
    {
        for (;;) {
            skipBlanks();
            if (pos >= s.size())
                return false;
            const char c = s[pos];
            if (c == '\n' || c == ';') {
                consume();
            } else if (c == '#') {
                while (pos < s.size() && s[pos] != '\n') {
                    if (atBackslashNewline())
                        skipBackslashNewline();
                    else
                        ++pos;
                }
            } else {
                return true;
            }
        }
    }

    bool fail(int atLine, const std::string &why)
    {
        failed = true;
        errorLine = atLine;
        message = why;
        return false;
    }

    // After a closing quote or brace only a separator may follow.
    bool checkWordEnd(int startLine, const char *what)
    {
        if (pos >= s.size() || isBlank(s[pos]) || s[pos] == '\n' || s[pos] == ';' ||
            atBackslashNewline())
            return true;
        return fail(startLine, std::string("extra characters after close-") + what);
    }

    bool parseWord(KcString &word)
    {
        const int startLine = line;
        if (s[pos] == '{') {
            if (!parseBraced(word, startLine))
                return false;
            return checkWordEnd(startLine, "brace");
        }
        if (s[pos] == '"') {
            ++pos;
            for (;;) {
                if (pos >= s.size())
                    return fail(startLine, "missing \"");
                const char c = s[pos];
                if (c == '"') {
                    ++pos;
                    break;
                }
                if (!substituteOne(word, startLine))
                    return false;
            }
            return checkWordEnd(startLine, "quote");
        }
        while (pos < s.size()) {
            const char c = s[pos];
            if (isBlank(c) || c == '\n' || c == ';' || atBackslashNewline())
                break;
            if (!substituteOne(word, startLine))
                return false;
        }
        return true;
    }

    // {text}: literal, nested braces count unless escaped; backslash-newline
    // becomes a blank.
    bool parseBraced(KcString &word, int startLine)
    {
        ++pos;
        int depth = 1;
        while (pos < s.size()) {
            const char c = s[pos];
            if (c == '\\' && pos + 1 < s.size()) {
                if (s[pos + 1] == '\n') {
                    skipBackslashNewline();
                    word += ' ';
                } else {
                    word += c;
                    word += s[pos + 1];
                    pos += 2;
                }
                continue;
            }
            if (c == '{') {
                ++depth;
            } else if (c == '}') {
                if (--depth == 0) {
                    ++pos;
                    return true;
                }
            }
            word += c;
            consume();
        }
        return fail(startLine, "missing close-brace");
    }

    // One character, escape or variable of a quoted or bare word.
    bool substituteOne(KcString &word, int startLine)
    {
        const char c = s[pos];
        if (c == '\\')
            return backslash(word);
        if (c == '$')
            return variable(word, startLine);
        word += c;
        consume();
        return true;
    }

    bool backslash(KcString &word)
    {
        if (pos + 1 >= s.size()) {
            word += '\\';
            ++pos;
            return true;
        }
        const char c = s[pos + 1];
        if (c == '\n') {
            skipBackslashNewline();
            word += ' ';
            return true;
        }
        pos += 2;
        switch (c) {
        case 'a':
            word += '\a';
            return true;
        case 'b':
            word += '\b';
            return true;
        case 'f':
            word += '\f';
            return true;
        case 'n':
            word += '\n';
            return true;
        case 'r':
            word += '\r';
            return true;
        case 't':
            word += '\t';
            return true;
        case 'v':
            word += '\v';
            return true;
        case 'x': {
            unsigned value = 0;
            int digits = 0;
            while (digits < 2 && hexValue(peek()) >= 0) {
                value = value * 16 + static_cast<unsigned>(hexValue(peek()));
                ++pos;
                ++digits;
            }
            if (digits == 0)
                word += 'x';
            else
                word += static_cast<char>(value);
            return true;
        }
        case 'u': {
            unsigned value = 0;
            int digits = 0;
            while (digits < 4 && hexValue(peek()) >= 0) {
                value = value * 16 + static_cast<unsigned>(hexValue(peek()));
                ++pos;
                ++digits;
            }
            if (digits == 0)
                word += 'u';
            else
                appendUtf8(word, value);
            return true;
        }
        default:
            break;
        }
        if (c >= '0' && c <= '7') {
            unsigned value = static_cast<unsigned>(c - '0');
            for (int digits = 1; digits < 3 && peek() >= '0' && peek() <= '7'; ++digits) {
                value = value * 8 + static_cast<unsigned>(peek() - '0');
                ++pos;
            }
            word += static_cast<char>(value & 0xff);
            return true;
        }
        word += c;
        return true;
    }

    bool variable(KcString &word, int startLine)
    {
        std::string name;
        if (peek(1) == '{') {
            const size_t close = s.find('}', pos + 2);
            if (close == std::string::npos)
                return fail(startLine, "missing close-brace for variable name");
            name = s.substr(pos + 2, close - pos - 2);
            for (size_t i = pos; i < close; ++i)
                if (s[i] == '\n')
                    ++line;
            pos = close + 1;
        } else {
            size_t end = pos + 1;
            for (;;) {
                if (end < s.size() && isNameChar(s[end]))
                    ++end;
                else if (end + 1 < s.size() && s[end] == ':' && s[end + 1] == ':')
                    end += 2;
                else
                    break;
            }
            if (end == pos + 1) {
                // A lone '$' is an ordinary character.
                word += '$';
                ++pos;
                return true;
            }
            name = s.substr(pos + 1, end - pos - 1);
            pos = end;
        }
        const char *value = VxScriptVars::instance()->get(name.c_str());
        if (!value)
            return fail(line, "can't read \"" + name + "\": no such variable");
        word += value;
        return true;
    }

    const std::string &s;
    size_t pos = 0;
    int line = 1;
};

} // namespace

VxScriptInterpreter *VxScriptInterpreter::instance()
{
    static VxScriptInterpreter interp;
    return &interp;
}

VxScriptInterpreter::VxScriptInterpreter()
{
    registerCommand("set", [](const std::vector<KcString> &args, KcString *error) {
        if (args.size() == 3) {
            VxScriptVars::instance()->set(args[1].c_str(), args[2].c_str());
            return 1;
        }
        if (args.size() == 2) {
            if (VxScriptVars::instance()->get(args[1].c_str()))
                return 1;
            *error = "can't read \"" + args[1] + "\": no such variable";
            return 0;
        }
        *error = "wrong # args: should be \"set varName ?newValue?\"";
        return 0;
    });
    registerCommand("unset", [](const std::vector<KcString> &args, KcString *) {
        for (size_t i = 1; i < args.size(); ++i)
            VxScriptVars::instance()->unset(args[i].c_str());
        return 1;
    });
}

void VxScriptInterpreter::registerCommand(const KcString &name, Command command)
{
    std::lock_guard<std::mutex> lock(mutex);
    commands[name] = std::move(command);
}

bool VxScriptInterpreter::unregisterCommand(const KcString &name)
{
    std::lock_guard<std::mutex> lock(mutex);
    return commands.erase(name) > 0;
}

bool VxScriptInterpreter::hasCommand(const KcString &name) const
{
    std::lock_guard<std::mutex> lock(mutex);
    return commands.count(name) > 0;
}

int VxScriptInterpreter::eval(const KcString &script, KcString *error)
{
    return run(script, KcString(), error);
}

int VxScriptInterpreter::evalFile(const char *path, KcString *error)
{
    std::ifstream in(path ? path : "", std::ios::binary);
    if (!path || !in) {
        if (error)
            *error = KcString::format("couldn't read file \"%s\": %s", path ? path : "",
                                      std::strerror(errno ? errno : ENOENT));
        return 0;
    }
    std::ostringstream text;
    text << in.rdbuf();
    return run(text.str(), KcString(path), error);
}

int VxScriptInterpreter::run(const KcString &script, const KcString &where, KcString *error)
{
    const auto report = [&](int line, const KcString &why) {
        if (error)
            *error = where.empty()
                         ? KcString::format("line %d: %s", line, why.c_str())
                         : KcString::format("%s, line %d: %s", where.c_str(), line, why.c_str());
        return 0;
    };

    Parser parser(script);
    std::vector<KcString> words;
    int line = 0;
    while (parser.next(words, line)) {
        if (words.empty())
            continue;
        Command command;
        {
            std::lock_guard<std::mutex> lock(mutex);
            const auto it = commands.find(words[0]);
            if (it != commands.end())
                command = it->second;
        }
        if (!command)
            return report(line, "invalid command name \"" + words[0] + "\"");
        KcString why;
        int result = 0;
        try {
            result = command(words, &why);
        } catch (const std::exception &e) {
            why = e.what();
            result = 0;
        } catch (const char *text) {
            why = text;
            result = 0;
        }
        if (result <= 0)
            return report(line, why.empty() ? KcString(words[0] + " failed")
                                            : KcString(words[0] + ": " + why));
    }
    if (parser.failed)
        return report(parser.errorLine, parser.message);
    return 1;
}

bool VxScriptInterpreter::splitCommands(const KcString &script,
                                        std::vector<std::vector<KcString>> *out, KcString *error)
{
    Parser parser(script);
    std::vector<KcString> words;
    int line = 0;
    while (parser.next(words, line))
        if (!words.empty() && out)
            out->push_back(words);
    if (parser.failed) {
        if (error)
            *error = KcString::format("line %d: %s", parser.errorLine, parser.message.c_str());
        return false;
    }
    return true;
}
