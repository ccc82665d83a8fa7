#pragma once

#include "platform/core/KcString.h"

#include <map>
#include <mutex>

/// Variables of the host's script interpreter ("set NAME VALUE"). Values are
/// texts. Thread-safe.
class VxScriptVars
{
public:
    static VxScriptVars *instance();

    /// The value, or null when the variable is not set. The pointer stays
    /// valid until the variable is set again or unset.
    const char *get(const char *name) const;
    void set(const char *name, const char *value);
    void unset(const char *name);

private:
    VxScriptVars() = default;
    mutable std::mutex mutex;
    std::map<std::string, KcString> vars;
};
