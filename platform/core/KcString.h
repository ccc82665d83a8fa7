#pragma once

#include <string>

class QString;

/// The host's string: a std::string that accepts a null C string as empty and
/// converts to and from QString (UTF-8).
class KcString : public std::string
{
public:
    KcString() = default;
    KcString(const char *s) : std::string(s ? s : "") {}
    KcString(const char *s, size_t n) : std::string(s ? s : "", s ? n : 0) {}
    KcString(const std::string &s) : std::string(s) {}
    KcString(std::string &&s) : std::string(std::move(s)) {}

    bool isEmpty() const { return empty(); }
    int length() const { return static_cast<int>(size()); }

    bool startsWith(const char *prefix) const;
    bool endsWith(const char *suffix) const;

    QString toQString() const;
    static KcString fromQString(const QString &s);

    /// printf-style formatting into a new string.
    static KcString format(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
};
