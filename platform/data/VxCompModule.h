#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"
#include "platform/core/VxPoolObject.h"
#include "platform/data/VxData.h"
#include "platform/data/VxTypeId.h"

#include <functional>
#include <vector>

class VxCompModule;

/// A port of a module: a named, labelled piece of its interface. A port
/// registers itself with its module on construction, so that the module
/// lists its ports in the order they were created.
class VxPort
{
public:
    VxPort(VxCompModule *owner, const char *name, const char *label);
    virtual ~VxPort() = default;
    VxPort(const VxPort &) = delete;
    VxPort &operator=(const VxPort &) = delete;

    const KcString &name() const { return portName; }
    const KcString &label() const { return portLabel; }
    void setLabel(const char *label) { portLabel = label; }
    VxCompModule *module() const { return owner; }

    /// True when the port changed since the module last computed.
    bool isNew() const { return changed; }
    /// Called by the module after compute(); ports forget their changes.
    virtual void untouch() { changed = false; }

protected:
    void touch() { changed = true; }

private:
    VxCompModule *owner;
    KcString portName;
    KcString portLabel;
    bool changed = false;
};

/// The input connection of a module: refers to one data object (borrowed,
/// never owned) whose type one of the accepted types allows.
class VxConnectionPort : public VxPort
{
public:
    using Accept = std::function<bool(const VxData *)>;

    VxConnectionPort(VxCompModule *owner, const char *name, const char *label);

    /// Accept objects of class T (or derived from it). Without any accepted
    /// type, every VxData is accepted.
    template <typename T>
    void addType()
    {
        accepted.push_back([](const VxData *d) { return dynamic_cast<const T *>(d) != nullptr; });
    }
    /// Whether the port would take this object (null is always allowed).
    bool accepts(const VxData *data) const;
    /// Connects to data (null disconnects); false and no change when the
    /// object's type is not accepted.
    bool connect(VxData *data);
    void disconnect() { connect(nullptr); }

    VxData *source() const { return object; }
    template <typename T>
    T *source() const
    {
        return dynamic_cast<T *>(object);
    }

private:
    std::vector<Accept> accepted;
    VxData *object = nullptr;
};

/// A row of push buttons. hit(i) presses button i; wasHit(i) is true from
/// the press until the module has computed (once per press).
class VxPortButtonList : public VxPort
{
public:
    VxPortButtonList(VxCompModule *owner, const char *name, const char *label, int nButtons = 1);

    int nButtons() const { return static_cast<int>(buttons.size()); }
    void setNumButtons(int n);
    using VxPort::setLabel;
    /// Sets the text of button i (ignored when out of range).
    void setLabel(int i, const char *text);
    /// The text of button i ("" when out of range).
    KcString buttonLabel(int i) const;

    /// Presses button i (ignored when out of range).
    void hit(int i);
    bool wasHit(int i) const;
    void untouch() override;

private:
    struct Button
    {
        KcString text;
        bool pressed = false;
    };
    std::vector<Button> buttons;
};

/// A compute module of the host: input ports, a compute() the host calls
/// after a port changed, and numbered results. Every module has the input
/// connection "data".
///
/// The host (and tests) run a module with fire(): compute(), then every port
/// forgets its changes, so a button reports a press to exactly one compute().
class VxCompModule : public VxPoolObject
{
    // Declared before any port: ports register themselves here when constructed.
    KcDArray<VxPort *> portList;
    KcDArray<VxData *> results;
    friend class VxPort;

public:
    VxCompModule();
    ~VxCompModule() override;

    static VxTypeId getClassTypeId();
    virtual VxTypeId getTypeId() const { return getClassTypeId(); }
    static void initClass() { getClassTypeId(); }
    static VxCompModule *createInstance();
    bool isOfType(VxTypeId type) const { return getTypeId().isDerivedFrom(type); }

    /// The input connection "data" (label "Data").
    VxConnectionPort portData;

    /// The ports in order of creation ("data" first).
    const KcDArray<VxPort *> &ports() const { return portList; }
    VxPort *port(const char *name) const;

    /// Does the module's work; the base does nothing.
    virtual void compute();
    /// compute(), then clears the ports' changes (button presses included).
    void fire();

    /// Sets result slot i (borrowed: the module does not own its results; new
    /// objects go into the object pool). Negative i is ignored.
    void setResult(int i, VxData *data);
    /// Result slot i, or null.
    VxData *result(int i = 0) const;
    int nResults() const { return results.size(); }

    const char *typeName() const override { return getTypeId().getName(); }
};
