#include "platform/data/VxCompModule.h"

VxPort::VxPort(VxCompModule *module, const char *name, const char *label)
    : owner(module), portName(name), portLabel(label)
{
    if (owner)
        owner->portList.append(this);
}

VxConnectionPort::VxConnectionPort(VxCompModule *owner, const char *name, const char *label)
    : VxPort(owner, name, label)
{
}

bool VxConnectionPort::accepts(const VxData *data) const
{
    if (!data || accepted.empty())
        return true;
    for (const Accept &a : accepted)
        if (a(data))
            return true;
    return false;
}

bool VxConnectionPort::connect(VxData *data)
{
    if (!accepts(data))
        return false;
    if (data != object) {
        object = data;
        touch();
    }
    return true;
}

VxPortButtonList::VxPortButtonList(VxCompModule *owner, const char *name, const char *label,
                                   int n)
    : VxPort(owner, name, label)
{
    setNumButtons(n);
}

void VxPortButtonList::setNumButtons(int n)
{
    buttons.resize(n > 0 ? static_cast<size_t>(n) : 0);
}

void VxPortButtonList::setLabel(int i, const char *text)
{
    if (i >= 0 && i < nButtons())
        buttons[static_cast<size_t>(i)].text = text;
}

KcString VxPortButtonList::buttonLabel(int i) const
{
    return i >= 0 && i < nButtons() ? buttons[static_cast<size_t>(i)].text : KcString();
}

void VxPortButtonList::hit(int i)
{
    if (i < 0 || i >= nButtons())
        return;
    buttons[static_cast<size_t>(i)].pressed = true;
    touch();
}

bool VxPortButtonList::wasHit(int i) const
{
    return i >= 0 && i < nButtons() && buttons[static_cast<size_t>(i)].pressed;
}

void VxPortButtonList::untouch()
{
    for (Button &b : buttons)
        b.pressed = false;
    VxPort::untouch();
}

VxCompModule::VxCompModule() : portData(this, "data", "Data") {}

VxCompModule::~VxCompModule() = default;

VxTypeId VxCompModule::getClassTypeId()
{
    static const VxTypeId id = VxTypeId::create(
        "VxCompModule", VxTypeId(), []() -> VxPoolObject * { return new VxCompModule; });
    return id;
}

VxCompModule *VxCompModule::createInstance()
{
    return new VxCompModule;
}

VxPort *VxCompModule::port(const char *name) const
{
    for (VxPort *p : portList)
        if (name && p->name() == name)
            return p;
    return nullptr;
}

void VxCompModule::compute() {}

void VxCompModule::fire()
{
    compute();
    for (VxPort *p : portList)
        p->untouch();
}

void VxCompModule::setResult(int i, VxData *data)
{
    if (i < 0)
        return;
    if (i >= results.size())
        results.resize(i + 1);
    results[i] = data;
}

VxData *VxCompModule::result(int i) const
{
    return i >= 0 && i < results.size() ? results[i] : nullptr;
}
