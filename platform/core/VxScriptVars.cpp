#include "platform/core/VxScriptVars.h"

VxScriptVars *VxScriptVars::instance()
{
    static VxScriptVars vars;
    return &vars;
}

const char *VxScriptVars::get(const char *name) const
{
    if (!name)
        return nullptr;
    std::lock_guard<std::mutex> lock(mutex);
    const auto it = vars.find(name);
    return it == vars.end() ? nullptr : it->second.c_str();
}

void VxScriptVars::set(const char *name, const char *value)
{
    if (!name)
        return;
    std::lock_guard<std::mutex> lock(mutex);
    vars[name] = KcString(value);
}

void VxScriptVars::unset(const char *name)
{
    if (!name)
        return;
    std::lock_guard<std::mutex> lock(mutex);
    vars.erase(name);
}
