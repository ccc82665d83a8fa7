#pragma once

#include <QIcon>
#include <QString>

/// The host's global appearance object.
class VxSkin
{
public:
    static VxSkin *instance();
    /// Manufacturer text written into DICOM files: "vxdicom".
    QString manufacturer() const;
    /// Version text, e.g. "vxdicom 0.1.0".
    QString versionText() const;
    /// The "DataWindow" option: when set, fields keep the host's own window.
    bool dataWindowOption() const { return dataWindow; }
    void setDataWindowOption(bool on) { dataWindow = on; }
    /// The application icon for dialogs (may be null).
    QIcon windowIcon() const;

private:
    VxSkin() = default;
    bool dataWindow = false;
};
