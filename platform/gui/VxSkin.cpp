#include "platform/gui/VxSkin.h"

#include <QGuiApplication>

#ifndef VX_VERSION
#define VX_VERSION "0.0.0"
#endif

VxSkin *VxSkin::instance()
{
    static VxSkin skin;
    return &skin;
}

QString VxSkin::manufacturer() const
{
    return QStringLiteral("vxdicom");
}

QString VxSkin::versionText() const
{
    return QStringLiteral("vxdicom " VX_VERSION);
}

QIcon VxSkin::windowIcon() const
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return QIcon();
    return QGuiApplication::windowIcon();
}
