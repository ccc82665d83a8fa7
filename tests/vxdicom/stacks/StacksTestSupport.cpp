#include "tests/vxdicom/stacks/StacksTestSupport.h"

#include "platform/core/VxPreferences.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <gtest/gtest.h>

#include <QHeaderView>

#include <algorithm>
#include <filesystem>

namespace stacktest {

LoadedFiles::LoadedFiles(const std::vector<std::string> &paths)
{
    for (size_t i = 0; i < paths.size(); ++i) {
        try {
            auto *file = new VxDicomFile(paths[i].c_str(), static_cast<int>(i), 1);
            if (file->images.isEmpty()) {
                delete file;
                continue;
            }
            files.push_back(file);
        } catch (const char *why) {
            ADD_FAILURE() << "reading " << paths[i] << " failed: " << why;
        }
    }
}

LoadedFiles::~LoadedFiles()
{
    for (VxDicomFile *file : files)
        delete file;
}

KcDArray<VxDicomImage *> LoadedFiles::images() const
{
    KcDArray<VxDicomImage *> all;
    for (const VxDicomFile *file : files)
        for (VxDicomImage *image : file->images)
            all.append(image);
    return all;
}

std::vector<std::string> folderFiles(const std::string &relativeDir)
{
    std::vector<std::string> paths;
    for (const auto &entry : std::filesystem::directory_iterator(vxtest::sharedPath(relativeDir)))
        if (entry.is_regular_file())
            paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::vector<std::string> filesContaining(const std::vector<std::string> &paths,
                                         const std::string &part)
{
    std::vector<std::string> out;
    for (const std::string &p : paths)
        if (std::filesystem::path(p).filename().string().find(part) != std::string::npos)
            out.push_back(p);
    return out;
}

std::vector<int> instanceNumbers(const DicomStackItem *stack)
{
    std::vector<int> numbers;
    for (int i = 0; i < stack->childCount(); ++i)
        numbers.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->imageNumber);
    return numbers;
}

std::vector<float> sliceLocations(const DicomStackItem *stack)
{
    std::vector<float> locations;
    for (int i = 0; i < stack->childCount(); ++i)
        locations.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->sliceLocation);
    return locations;
}

std::vector<int> stackSizes(const DicomListView &view)
{
    std::vector<int> sizes;
    for (const DicomStackItem *stack : view.stackList())
        sizes.push_back(stack->childCount());
    return sizes;
}

QStringList columnLabels(const DicomListView &view)
{
    QStringList labels;
    for (int section = 0; section < view.columnCount(); ++section)
        labels << view.headerItem()->text(section);
    return labels;
}

int optionIndex(const DicomListView &view, const char *name)
{
    const KcDArray<DicomLoadOption *> &options = view.loadOptions();
    for (int k = 0; k < options.size(); ++k)
        if (options[k]->name == name)
            return k;
    return -1;
}

namespace {
void storeCriteria(const KcString &text)
{
    VxPreferences prefs = VxSettingsMgr::getInstance()->getPreferences();
    prefs.dicomLoadOptions = text;
    VxSettingsMgr::getInstance()->setPreferences(prefs, false);
}
} // namespace

DefaultCriteria::DefaultCriteria()
{
    storeCriteria(KcString());
    DicomStackItem::uniformTolerance = 0.02f;
}

DefaultCriteria::~DefaultCriteria()
{
    storeCriteria(KcString());
    DicomStackItem::uniformTolerance = 0.02f;
}

StackDialogAnswer::StackDialogAnswer(int result)
{
    DicomStackDialog::setAnswerOverride(result);
}

StackDialogAnswer::~StackDialogAnswer()
{
    DicomStackDialog::setAnswerOverride(-1);
}

} // namespace stacktest
