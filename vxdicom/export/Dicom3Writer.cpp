#include "vxdicom/export/Dicom3Writer.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "vxdicom/export/Dicom3Object.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>

int writeDicom3File(Dicom3Object &object, FILE *f)
{
    if (!f)
        return -1;
    if (std::fwrite(object.getPreamble(), 1, 128, f) != 128)
        return -1;
    if (std::fwrite(Dicom3Object::signature, 1, 4, f) != 4)
        return -1;
    int total = 128 + 4;
    for (int i = 0; i < object.numGroups(); ++i) {
        const int n = object.group(i)->write(f);
        if (n < 1)
            return -1;
        total += n;
    }
    return total;
}

QString dicom3SliceFileName(const QString &prefix, int k, int n)
{
    const int digits = std::max(5, static_cast<int>(QString::number(std::max(n, 1)).size()));
    return QStringLiteral("%1%2.dcm").arg(prefix).arg(k + 1, digits, 10, QLatin1Char('0'));
}

namespace {

/// Shows progress in the work area for the lifetime of the object, unless
/// the caller already shows its own (which is then only updated).
class ProgressScope
{
public:
    explicit ProgressScope(bool show)
        : shown(show), owned(show && !VxWorkArea::instance()->isShowingProgress())
    {
        if (owned)
            VxWorkArea::instance()->startProgress();
        if (shown)
            VxWorkArea::instance()->setStatus("Writing DICOM files");
    }
    ~ProgressScope()
    {
        if (owned)
            VxWorkArea::instance()->endProgress();
    }
    ProgressScope(const ProgressScope &) = delete;
    ProgressScope &operator=(const ProgressScope &) = delete;
    bool isShown() const { return shown; }

private:
    bool shown;
    bool owned;
};

} // namespace

int writeDicom3Slices(Dicom3Object &object, const QString &outDir, const QString &prefix,
                      QStringList *written)
{
    VxMessage *msg = VxMessage::getTheMsg();
    const int n = object.getSliceCount();
    if (!object.isGenerated() || n < 1 || !object.getPixelDataElement()) {
        msg->printf("Dicom export: nothing to write to %s (no image was generated)\n",
                    qPrintable(outDir));
        return -1;
    }
    if (!QDir().mkpath(outDir)) {
        msg->printf("Dicom export: cannot create the directory %s; 0 of %d files written\n",
                    qPrintable(outDir), n);
        return -1;
    }

    ProgressScope progress(n > 1);
    const QDir dir(outDir);
    int done = 0;
    for (int k = 0; k < n; ++k) {
        const QString path = dir.filePath(dicom3SliceFileName(prefix, k, n));
        const QByteArray name = QFile::encodeName(path);
        if (progress.isShown() && VxWorkArea::instance()->wasInterrupted()) {
            msg->printf("Dicom export: interrupted before %s; %d of %d files written\n",
                        name.constData(), done, n);
            return -1;
        }
        if (object.setSlice(k) < 0) {
            msg->printf("Dicom export: cannot select slice %d for %s; %d of %d files written\n", k,
                        name.constData(), done, n);
            return -1;
        }
        FILE *f = std::fopen(name.constData(), "wb");
        if (!f) {
            msg->printf("Dicom export: cannot open %s for writing: %s; %d of %d files written\n",
                        name.constData(), std::strerror(errno), done, n);
            return -1;
        }
        errno = 0;
        const bool ok = writeDicom3File(object, f) > 0;
        const int writeErrno = errno;
        // A full disk may only show when the buffered rest is flushed.
        const bool closed = std::fclose(f) == 0;
        if (!ok || !closed) {
            const int err = !ok ? writeErrno : errno;
            msg->printf("Dicom export: writing %s failed: %s; %d of %d files written, the "
                        "incomplete file is left in place\n",
                        name.constData(), err ? std::strerror(err) : "short write", done, n);
            return -1;
        }
        ++done;
        if (written)
            written->append(path);
        if (progress.isShown())
            VxWorkArea::instance()->setProgress(static_cast<float>(done) / static_cast<float>(n));
    }
    return done;
}
