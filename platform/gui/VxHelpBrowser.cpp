#include "platform/gui/VxHelpBrowser.h"

#include "platform/core/VxMessage.h"
#include "platform/gui/ThreadNegotiator.h"
#include "platform/gui/VxWarningDialog.h"

#include <QApplication>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QStringList>
#include <QTextBrowser>
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

// The one help window; it goes with the window it was opened over.
QPointer<QTextBrowser> theWindow;

QString show(const QString &path)
{
    if (!VxWarningDialog::haveDisplay() || !QFileInfo(path).isFile()) {
        VxMessage::getTheMsg()->printf("help: %s\n", path.toLocal8Bit().constData());
        return path;
    }
    ThreadNegotiator::runOnGuiThread([&path] {
        if (!theWindow) {
            // A child of the modal window that asks for help, so that the
            // modal window does not block it.
            theWindow = new QTextBrowser(QApplication::activeModalWidget());
            theWindow->setWindowFlag(Qt::Window);
            theWindow->setAttribute(Qt::WA_DeleteOnClose);
            theWindow->setObjectName(QStringLiteral("VxHelpBrowser"));
            theWindow->setOpenExternalLinks(true);
            theWindow->resize(760, 680);
        }
        theWindow->setSource(QUrl::fromLocalFile(path));
        theWindow->setWindowTitle(theWindow->documentTitle().isEmpty() ? QFileInfo(path).fileName()
                                                                       : theWindow->documentTitle());
        theWindow->show();
        theWindow->raise();
        theWindow->activateWindow();
    });
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

QTextBrowser *VxHelpBrowser::window()
{
    return theWindow.data();
}
