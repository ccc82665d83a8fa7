#include "platform/gui/VxHelpBrowser.h"

#include "platform/core/VxMessage.h"
#include "platform/gui/ThreadNegotiator.h"
#include "platform/gui/VxWarningDialog.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QStringList>
#include <QUrl>

#ifndef VX_INSTALL_PREFIX
#define VX_INSTALL_PREFIX "/usr/local"
#endif
#ifndef VX_SOURCE_DIR
#define VX_SOURCE_DIR ""
#endif

namespace {

// Installation directories to look in, most specific first: the one the
// running program sits in (<prefix>/bin/..), then the configured prefix.
QStringList installDirs()
{
    QStringList dirs;
    if (QCoreApplication::instance())
        dirs << QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/.."));
    dirs << QStringLiteral(VX_INSTALL_PREFIX);
    dirs.removeDuplicates();
    return dirs;
}

// The first candidate that exists; otherwise the first one, reported missing.
QString firstExisting(const QStringList &candidates)
{
    for (const QString &c : candidates)
        if (QFileInfo(c).isFile())
            return c;
    VxMessage::getTheMsg()->warning("help page %s not found",
                                    candidates.first().toLocal8Bit().constData());
    return candidates.first();
}

QString show(const QString &path)
{
    if (!VxWarningDialog::haveDisplay()) {
        VxMessage::getTheMsg()->printf("help: %s\n", path.toLocal8Bit().constData());
        return path;
    }
    const QUrl url = QUrl::fromLocalFile(path);
    ThreadNegotiator::runOnGuiThread([&url] { QDesktopServices::openUrl(url); });
    return path;
}

} // namespace

QString VxHelpBrowser::open(const QString &package, const QString &page)
{
    QStringList candidates;
    const QString env = qEnvironmentVariable("VXDICOM_HELP_DIR");
    if (!env.isEmpty())
        candidates << env + QLatin1Char('/') + page;
    for (const QString &dir : installDirs())
        candidates << dir + QStringLiteral("/share/") + package + QStringLiteral("/help/") + page;
    if (*VX_SOURCE_DIR)
        candidates << QStringLiteral(VX_SOURCE_DIR "/doc/help/") + page;
    return show(firstExisting(candidates));
}

QString VxHelpBrowser::openPath(const QString &relativePath)
{
    const QString rel =
        relativePath.startsWith(QLatin1Char('/')) ? relativePath : QLatin1Char('/') + relativePath;
    QStringList candidates;
    for (const QString &dir : installDirs())
        candidates << dir + rel;
    if (*VX_SOURCE_DIR)
        candidates << QStringLiteral(VX_SOURCE_DIR) + rel;
    return show(firstExisting(candidates));
}
