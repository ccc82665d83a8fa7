// vxdicom view [options] [FILE|DIR|.nii|.nrrd ...]: the viewer window, the
// host in which a person opens DICOM, looks at it and saves what was loaded.

#include "apps/vxdicom/GuiRuntime.h"
#include "apps/vxdicom/SubCommand.h"
#include "apps/vxdicom/view/OrthoViewer.h"
#include "apps/vxdicom/view/ViewHelp.h"
#include "apps/vxdicom/view/ViewerWindow.h"

#include "platform/core/VxObjectPool.h"
#include "platform/data/VxFieldFile.h"
#include "vxdicom/browser/DicomDialog.h"

#include <QAction>
#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace vxdicom_cli {

namespace {

struct ViewOptions
{
    bool timeSeries = false;
    bool dialog = true;
    std::string screenshot;
    std::string select;
    std::string preset;
    bool haveCursor = false;
    int cursor[3] = {0, 0, 0};
    int step = -1;
    int width = 1500;
    int height = 950;
    QStringList paths;
};

bool displayAvailable()
{
    const char *platform = std::getenv("QT_QPA_PLATFORM");
    if (platform &&
        (std::strcmp(platform, "offscreen") == 0 || std::strcmp(platform, "minimal") == 0))
        return false;
    return std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY");
}

// Returns 0 when the options were read, else the exit status.
int parse(int argc, char **argv, ViewOptions &o)
{
    for (int i = 1; i < argc; ++i) {
        const char *a = argv[i];
        auto value = [&](const char *option) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "vxdicom view: %s needs a value\n", option);
                return nullptr;
            }
            return argv[++i];
        };
        if (std::strcmp(a, "--time-series") == 0) {
            o.timeSeries = true;
        } else if (std::strcmp(a, "-nodialog") == 0 || std::strcmp(a, "--nodialog") == 0) {
            o.dialog = false;
        } else if (std::strcmp(a, "--screenshot") == 0 || std::strcmp(a, "--select") == 0 ||
                   std::strcmp(a, "--preset") == 0 || std::strcmp(a, "--cursor") == 0 ||
                   std::strcmp(a, "--step") == 0 || std::strcmp(a, "--size") == 0) {
            const char *v = value(a);
            if (!v)
                return 2;
            if (std::strcmp(a, "--screenshot") == 0) {
                o.screenshot = v;
            } else if (std::strcmp(a, "--select") == 0) {
                o.select = v;
            } else if (std::strcmp(a, "--preset") == 0) {
                o.preset = v;
            } else if (std::strcmp(a, "--cursor") == 0) {
                char end = 0;
                if (std::sscanf(v, "%d,%d,%d%c", &o.cursor[0], &o.cursor[1], &o.cursor[2], &end) !=
                    3) {
                    std::fprintf(stderr, "vxdicom view: --cursor wants I,J,K, not '%s'\n", v);
                    return 2;
                }
                o.haveCursor = true;
            } else if (std::strcmp(a, "--step") == 0) {
                char end = 0;
                if (std::sscanf(v, "%d%c", &o.step, &end) != 1 || o.step < 0) {
                    std::fprintf(stderr, "vxdicom view: --step wants a step number, not '%s'\n", v);
                    return 2;
                }
            } else {
                char end = 0;
                if (std::sscanf(v, "%dx%d%c", &o.width, &o.height, &end) != 2 || o.width < 200 ||
                    o.height < 200 || o.width > 10000 || o.height > 10000) {
                    std::fprintf(stderr, "vxdicom view: --size wants WxH (200..10000), not '%s'\n",
                                 v);
                    return 2;
                }
            }
        } else if (a[0] == '-' && a[1] != '\0') {
            std::fprintf(stderr, "vxdicom view: unknown option '%s'\n", a);
            return 2;
        } else {
            o.paths << QString::fromLocal8Bit(a);
        }
    }
    return 0;
}

// Shows what the options ask for, grabs the window and saves the picture.
bool takeScreenshot(vxview::ViewerWindow &window, const ViewOptions &o)
{
    if (!o.select.empty()) {
        VxPoolObject *chosen = VxObjectPool::instance()->find(o.select.c_str());
        if (!chosen) {
            std::fprintf(stderr, "vxdicom view: no data object is labelled '%s'\n",
                         o.select.c_str());
            return false;
        }
        window.showObject(chosen);
    }
    vxview::OrthoViewer *viewer = window.viewer();
    if (o.step >= 0 && !viewer->setTimeStep(o.step)) {
        std::fprintf(stderr, "vxdicom view: the data shown has no time step %d\n", o.step);
        return false;
    }
    if (!o.preset.empty() && !viewer->applyPreset(QString::fromStdString(o.preset))) {
        std::fprintf(stderr, "vxdicom view: the data shown has no window preset '%s'\n",
                     o.preset.c_str());
        return false;
    }
    if (o.haveCursor)
        viewer->setCursorVoxel({o.cursor[0], o.cursor[1], o.cursor[2]});
    // A changed text re-lays out one level of widgets per round of events.
    for (int i = 0; i < 8; ++i)
        QApplication::processEvents();
    if (!window.grab().save(QString::fromStdString(o.screenshot))) {
        std::fprintf(stderr, "vxdicom view: cannot write %s\n", o.screenshot.c_str());
        return false;
    }
    std::printf("saved %s\n", o.screenshot.c_str());
    return true;
}

} // namespace

void helpView()
{
    std::fputs(vxview::viewHelpText(), stdout);
}

int runView(int argc, char **argv)
{
    ViewOptions o;
    if (const int status = parse(argc, argv, o))
        return status;
    if (o.screenshot.empty() && !displayAvailable()) {
        std::fprintf(stderr, "vxdicom view: the window needs a display (DISPLAY is not set); "
                             "--screenshot PNG writes a picture without one\n");
        return 2;
    }
    vxdicom_cli::prepareQtEnvironment();

    QApplication app(argc, argv);
    registerDicomImportDialog();
    int status = 0;
    {
        vxview::ViewerWindow window;
        // Nobody answers a dialog while a picture is taken.
        window.setShowImportDialog(o.dialog && o.screenshot.empty());
        window.asTimeSeriesAction()->setChecked(o.timeSeries);
        window.resize(o.width, o.height);
        window.show();

        auto finishScreenshot = [&] {
            if (!o.screenshot.empty()) {
                if (!takeScreenshot(window, o))
                    status = 1;
                app.quit();
            }
        };
        // The exit status follows the opens of the command line, not those
        // the user makes later from the menu.
        bool commandLineOpen = true;
        QObject::connect(&window, &vxview::ViewerWindow::openFinished, &app,
                         [&](const vxview::OpenOutcome &outcome) {
                             if (!commandLineOpen)
                                 return;
                             commandLineOpen = false;
                             if (!outcome.ok || outcome.failures > 0 || outcome.cancelled ||
                                 outcome.added.empty())
                                 status = 1;
                             finishScreenshot();
                         });
        QTimer::singleShot(0, &app, [&] {
            QStringList dicomPaths;
            for (const QString &p : o.paths) {
                if (VxFieldFile::formatOf(p.toLocal8Bit().constData()) == VxFieldFile::Unknown)
                    dicomPaths << p;
                else if (!window.openFieldFile(p))
                    status = 1;
            }
            if (!dicomPaths.isEmpty() && !window.openPaths(dicomPaths))
                status = 1;
            // A DICOM open reports when it ends.
            if (!window.opener()->isRunning()) {
                commandLineOpen = false;
                finishScreenshot();
            }
        });
        const int loop = app.exec();
        if (status == 0)
            status = loop;
    }
    return status;
}

} // namespace vxdicom_cli
