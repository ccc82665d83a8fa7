#include "vxdicom/reader/VxDicom.h"

#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/core/VxWorkArea.h"
#include "platform/data/VxField3.h"
#include "platform/gui/ThreadNegotiator.h"
#include "vxdicom/reader/DicomDir.h"
#include "vxdicom/reader/DicomImportDialog.h"
#include "vxdicom/reader/VxDicomField.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/reader/VxDicomImageStack.h"
#include "vxdicom/reader/VxDynamicDicomSeriesCtrl.h"

#include <malloc.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

bool useDynamicSeriesCtrl = false;
bool dicomImportCancelled = false;
int dicomReadFailures = 0;
KcDArray<VxDynamicSeriesCtrl::TimeStep> timeSteps;

namespace {
DicomDialogNegotiatorFactory theDialogFactory = nullptr;
}

void setDicomDialogNegotiatorFactory(DicomDialogNegotiatorFactory factory)
{
    theDialogFactory = factory;
}

DicomDialogNegotiatorFactory dicomDialogNegotiatorFactory()
{
    return theDialogFactory;
}

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

    std::set<std::pair<dev_t, ino_t>> dicomDirsRead;
    for (int i = 0; i < n; ++i) {
        const KcString name = names[i];
        VxDicomFile *file = nullptr;
        try {
            file = new VxDicomFile(name.c_str(), i, delayed);
        } catch (const char *text) {
            msg->failure("reading %s failed: %s\n", name.c_str(), text);
            ++dicomReadFailures;
        } catch (const std::exception &e) {
            msg->failure("reading %s failed: %s\n", name.c_str(), e.what());
            ++dicomReadFailures;
        }

        if (file && file->isDicomDir()) {
            if (!progress) {
                progress = true;
                work.startProgress();
                work.setStatus("processing DICOMDIR...");
            }
            // A DICOMDIR that lists itself, or two that list each other,
            // would otherwise grow the list without end.
            struct stat st;
            if (stat(name.c_str(), &st) == 0 && !dicomDirsRead.emplace(st.st_dev, st.st_ino).second)
                msg->printf("DICOMDIR %s was read before; its files are not added again\n",
                            name.c_str());
            else
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
            // Said aloud, since an image file cut short between two elements
            // reads as a valid data set without its image.
            if (file->images.isEmpty() && file->data && !file->data->pixelsInFile &&
                !file->data->pixelData)
                msg->warning("%s holds no pixel data; no image is loaded from it\n",
                             file->fileName.c_str());
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

int vxReadDicom(int n, const char **names)
{
    if (n == 0)
        return 0;
    int showDialog = 1;
    if (names && names[n - 1] && std::strcmp(names[n - 1], "-nodialog") == 0) {
        --n;
        showDialog = 0;
    }
    return vxReadDicom(n, names, showDialog, true);
}

int vxReadDicom(int n, const char **names, int showDialog, bool verbose)
{
    KcDArray<VxField3 *> fields;
    return vxReadDicom(n, names, fields, showDialog, verbose);
}

namespace {

struct FileList
{
    KcDArray<VxDicomFile *> files;
    ~FileList()
    {
        for (VxDicomFile *f : files)
            delete f;
    }
};

// One use less of every file of the stack (one per image); a file that no
// stack waits for any more is deleted and its slot emptied. Returns how many
// files were deleted.
int releaseFilesOf(const VxDicomImageStack &stack,
                   std::unordered_map<const VxDicomFile *, int> &stacksUsing,
                   const std::unordered_map<const VxDicomFile *, int> &slotOf,
                   KcDArray<VxDicomFile *> &files)
{
    int released = 0;
    for (const VxDicomImage *image : stack.images) {
        const auto use = stacksUsing.find(image->file);
        if (use == stacksUsing.end() || --use->second > 0)
            continue;
        const auto slot = slotOf.find(use->first);
        stacksUsing.erase(use);
        if (slot == slotOf.end() || files[slot->second] == nullptr)
            continue;
        delete files[slot->second];
        files[slot->second] = nullptr;
        ++released;
    }
    return released;
}

// The stereotaxis and reconstruction set-ups load without asking:
// "ZENTA_MHT_STEREOTAXIS" alone decides when it is set.
bool silentModeByEnvironment()
{
    if (const char *mht = std::getenv("ZENTA_MHT_STEREOTAXIS"))
        return std::strcmp(mht, "1") == 0;
    const char *ziehm = std::getenv("ZENTA_ZIEHM_RECONSTRUCTION");
    return ziehm && std::strcmp(ziehm, "1") == 0;
}

} // namespace

int vxReadDicom(int n, const char **names, KcDArray<VxField3 *> &fields, int showDialog,
                bool verbose)
{
    dicomImportCancelled = false;
    dicomReadFailures = 0;
    if (n < 1 || !names || !names[0])
        return 0;

    const int delayed = dicomDelayedReadEnabled() ? 1 : 0;

    KcDArray<KcString> nameList;
    for (int i = 0; i < n; ++i)
        nameList.append(KcString(names[i]));

    FileList opened;
    KcDArray<VxDicomImage *> images;
    readDicomFiles(nameList, delayed, verbose, opened.files, images);
    if (opened.files.isEmpty() || images.isEmpty())
        return 1;

    // Without a dialog implementation (a reader-only build) no stacks can be
    // built; reading alone was asked for.
    DicomDialogNegotiatorFactory factory = dicomDialogNegotiatorFactory();
    if (!factory)
        return 1;

    std::unique_ptr<ThreadNegotiator> negotiator = factory();
    auto *dialog = dynamic_cast<DicomImportDialog *>(negotiator->createForkedObject());
    if (!dialog) {
        negotiator->deleteForkedObject();
        VxMessage::getTheMsg()->printf("Internal error in %s, line %d.\n", "VxDicom", __LINE__);
        return 0;
    }
    KcDArray<VxDicomImageStack *> stacks;
    ThreadNegotiator::runOnGuiThread([&] {
        dialog->setCaption("DICOM Loader");
        dialog->setImages(&images);
        dialog->setStacks(&stacks);
    });
    negotiator->putData();

    bool silent = silentModeByEnvironment();
    bool create = true;
    if (!silent) {
        if (showDialog == 1) {
            negotiator->exec();
            int dialogResult = 0;
            ThreadNegotiator::runOnGuiThread([&] { dialogResult = dialog->result(); });
            create = dialogResult == 1;
            dicomImportCancelled = !create;
        } else {
            silent = true;
        }
    }
    if (silent)
        ThreadNegotiator::runOnGuiThread([&] { dialog->exportImageStacks(); });

    int result = 1;
    if (create)
        ThreadNegotiator::runOnGuiThread([&] { useDynamicSeriesCtrl = dialog->getAsTimeSeries(); });
    // The dialog's rows point at the images: it goes before any file does.
    negotiator->deleteForkedObject();

    // A file is released once the fields of every stack that uses it are
    // made, so that the headers of a large folder do not all stay in memory
    // beside its volumes; files no stack uses go at once.
    std::unordered_map<const VxDicomFile *, int> stacksUsing;
    if (create)
        for (const VxDicomImageStack *stack : stacks)
            for (const VxDicomImage *image : stack->images)
                ++stacksUsing[image->file];
    for (VxDicomFile *&f : opened.files) {
        if (f && stacksUsing.find(f) == stacksUsing.end()) {
            delete f;
            f = nullptr;
        }
    }
    std::unordered_map<const VxDicomFile *, int> slotOf;
    for (int i = 0; i < opened.files.size(); ++i)
        if (opened.files[i])
            slotOf.emplace(opened.files[i], i);

    if (create) {
        if (verbose)
            VxMessage::getTheMsg()->printf("creating %d stack%s of DICOM images\n", stacks.size(),
                                           stacks.size() == 1 ? "" : "s");

        // Stacks of one series share the first stack's name; their second
        // label tells them apart.
        KcString firstName, firstLabel;
        int released = 0;
        for (int s = 0; s < stacks.size(); ++s) {
            std::unique_ptr<VxDicomImageStack> stack(stacks[s]);
            stacks[s] = nullptr;
            if (s == 0) {
                firstName = stack->name;
                firstLabel = stack->label;
            }
            VxField3 *field = createField3(*stack);
            const float shear = stack->isSheared();
            if (shear != 0)
                VxMessage::getTheMsg()->printf("stack %s is sheared by %g degrees!\n",
                                               stack->name.c_str(), static_cast<double>(shear));
            if (!stack->images.isEmpty() && stack->images[0]->hasRowDirection())
                flipField3(field, *stack);
            if (!field) {
                result = 0;
                ++dicomReadFailures;
                released += releaseFilesOf(*stack, stacksUsing, slotOf, opened.files);
                continue;
            }
            registerField3(field, *stack);
            fields.append(field);
            if (s > 0 && stack->name == firstName && stack->label != firstLabel)
                field->setLabel(stack->label);
            released += releaseFilesOf(*stack, stacksUsing, slotOf, opened.files);
            // The headers are many small blocks; their pages go back to the
            // system now and then, or the volumes made next would come on
            // top of them and raise the peak.
            if (released >= 256) {
                malloc_trim(0);
                released = 0;
            }
        }
    }
    for (VxDicomImageStack *stack : stacks)
        delete stack;
    stacks.clear();

    for (VxDicomFile *f : opened.files)
        delete f;
    opened.files.clear();

    // A cancelled dialog creates nothing, not even the series control.
    if (create && useDynamicSeriesCtrl) {
        auto *ctrl = new VxDynamicDicomSeriesCtrl(nameList);
        ctrl->setLabel("TimeSeriesCtrl");
        ctrl->init(timeSteps);
        timeSteps.clear();
        VxObjectPool::instance()->add(ctrl);
    }
    return result;
}
