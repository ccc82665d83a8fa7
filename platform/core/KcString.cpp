#include "platform/core/KcString.h"

#include <QString>

#include <cstdarg>
#include <cstdio>
#include <cstring>

bool KcString::startsWith(const char *prefix) const
{
    const size_t n = prefix ? std::strlen(prefix) : 0;
    return size() >= n && compare(0, n, prefix ? prefix : "") == 0;
}

bool KcString::endsWith(const char *suffix) const
{
    const size_t n = suffix ? std::strlen(suffix) : 0;
    return size() >= n && compare(size() - n, n, suffix ? suffix : "") == 0;
}

QString KcString::toQString() const
{
    return QString::fromUtf8(data(), static_cast<qsizetype>(size()));
}

KcString KcString::fromQString(const QString &s)
{
    return KcString(s.toUtf8().toStdString());
}

KcString KcString::format(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    va_list ap2;
    va_copy(ap2, ap);
    const int n = std::vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    KcString out;
    if (n > 0) {
        out.resize(static_cast<size_t>(n));
        std::vsnprintf(out.data(), static_cast<size_t>(n) + 1, fmt, ap2);
    }
    va_end(ap2);
    return out;
}
