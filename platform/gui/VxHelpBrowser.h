#pragma once

#include <QString>

/// The host's help browser. Pages live under the installation's share
/// directory (<prefix>/share/vxdicom/help or the source tree's doc/help).
/// The environment variable VXDICOM_HELP_DIR, when set, is searched first
/// by open(). The installation directory is the parent of the running
/// program's directory, then the configured install prefix. A page that is
/// found nowhere is reported ("help page %s not found") and its first
/// candidate path is still returned.
class QTextBrowser;

class VxHelpBrowser
{
public:
    /// Opens `page` of `package` (e.g. "vxdicom", "VxFileFormat_DICOM.html")
    /// in the help window when there is a display (one window, raised and
    /// turned to the page when it is open); otherwise, or when the page is
    /// missing, prints the page's path on the console. Returns the path.
    static QString open(const QString &package, const QString &page);
    /// Opens a page given relative to the installation directory
    /// ("/share/usersguide/QxDicom3SaveDialog.html").
    static QString openPath(const QString &relativePath);
    /// The help window while it is open, else null (GUI thread).
    static QTextBrowser *window();
};
