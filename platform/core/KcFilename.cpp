#include "platform/core/KcFilename.h"

KcString KcFilename::directory() const
{
    const size_t slash = rfind('/');
    if (slash == npos)
        return ".";
    if (slash == 0)
        return "/";
    return substr(0, slash);
}

KcString KcFilename::lastComponent() const
{
    const size_t slash = rfind('/');
    return slash == npos ? KcString(*this) : KcString(substr(slash + 1));
}

void KcFilename::fixSlashes()
{
    for (char &c : *this)
        if (c == '\\')
            c = '/';
}

KcFilename KcFilename::join(const KcString &dir, const KcString &name)
{
    if (dir.empty())
        return KcFilename(name);
    if (name.empty())
        return KcFilename(dir);
    KcFilename out(dir);
    const bool dirSlash = out.back() == '/';
    const bool nameSlash = name.front() == '/';
    if (dirSlash && nameSlash)
        out.pop_back();
    else if (!dirSlash && !nameSlash)
        out += '/';
    out += name;
    return out;
}
