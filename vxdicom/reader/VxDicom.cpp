#include "vxdicom/reader/VxDicom.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxWorkArea.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

bool dicomDelayedReadEnabled()
{
    const char *env = std::getenv("DICOM_DELAYED_READ");
    if (!env)
        return true;
    return std::strtol(env, nullptr, 10) != 0;
}

void readDicomFiles(KcDArray<KcString> &names, int delayed, bool verbose,
                    KcDArray<VxDicomFile *> &files, KcDArray<VxDicomImage *> &images)
{
    VxMessage *msg = VxMessage::getTheMsg();
    VxWorkArea &work = *VxWorkArea::instance();
    int n = names.size();
    bool progress = n > 9;
    if (progress) {
        work.startProgress();
        work.setStatus("loading files...");
    }

    int i = 0;
    for (; i < n; ++i) {
        const KcString name = names[i];
        VxDicomFile *file = nullptr;
        try {
            file = new VxDicomFile(name.c_str(), i, delayed);
        } catch (const char *text) {
            msg->printf("reading %s failed: %s\n", name.c_str(), text);
        } catch (const std::exception &e) {
            msg->printf("reading %s failed: %s\n", name.c_str(), e.what());
        }

        if (file && file->isDicomDir()) {
            if (!progress) {
                progress = true;
                work.startProgress();
                work.setStatus("processing DICOMDIR...");
            }
            n = extractDicomDir(file, names);
            delete file;
        } else if (file) {
            files.append(file);
            if (verbose) {
                if (!file->canDecode())
                    msg->printf("Warning: File %s was not loaded because its UID (DICOM image type "
                                "definition) is not recognized\n",
                                file->fileName.c_str());
                else
                    msg->printf("+ %s\n", file->fileName.c_str());
            }
            for (VxDicomImage *image : file->images)
                images.append(image);
        }

        if (progress) {
            work.setProgress(static_cast<float>(i) / static_cast<float>(n));
            work.setStatus(KcString::format("%3d. of %d.", i + 1, n).c_str());
            if (work.wasInterrupted()) {
                work.setStatus("interrupted.");
                break;
            }
        }
    }
    if (progress)
        work.endProgress();

    if (verbose) {
        const int count = images.size();
        msg->printf("%d %s%s loaded from %d file%s\n", count, delayed ? "header" : "image",
                    count == 1 ? "" : "s", n, n == 1 ? "" : "s");
    }
}
