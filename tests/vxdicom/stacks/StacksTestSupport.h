#pragma once

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

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace stacktest {

/// Real files read as the reader reads them (header only), each with its
/// position in `paths` as load index; files without an image are left out.
struct LoadedFiles
{
    explicit LoadedFiles(const std::vector<std::string> &paths)
    {
        for (size_t i = 0; i < paths.size(); ++i) {
            try {
                auto file = std::make_unique<VxDicomFile>(paths[i].c_str(), int(i), 1);
                if (!file->images.isEmpty())
                    files.push_back(std::move(file));
            } catch (const char *why) {
                ADD_FAILURE() << "reading " << paths[i] << " failed: " << why;
            }
        }
    }
    KcDArray<VxDicomImage *> images() const
    {
        KcDArray<VxDicomImage *> all;
        for (const auto &file : files)
            for (VxDicomImage *image : file->images)
                all.append(image);
        return all;
    }
    VxDicomImage *image(size_t i) const { return files[i]->images[0]; }
    int size() const { return int(files.size()); }
    std::vector<std::unique_ptr<VxDicomFile>> files;
};

inline std::vector<std::string> folderFiles(const std::string &relativeDir)
{
    std::vector<std::string> paths;
    for (const auto &entry : std::filesystem::directory_iterator(vxtest::sharedPath(relativeDir)))
        if (entry.is_regular_file())
            paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    return paths;
}

inline std::string ctFile(const char *name)
{
    return vxtest::sharedPath(std::string("dcm_qa_ct/In/Philips/S21610/S2010/") + name);
}

inline std::vector<int> instanceNumbers(const DicomStackItem *stack)
{
    std::vector<int> numbers;
    for (int i = 0; i < stack->childCount(); ++i)
        numbers.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->imageNumber);
    return numbers;
}

inline std::vector<float> sliceLocations(const DicomStackItem *stack)
{
    std::vector<float> locations;
    for (int i = 0; i < stack->childCount(); ++i)
        locations.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->sliceLocation);
    return locations;
}

inline std::vector<int> stackSizes(const DicomListView &view)
{
    std::vector<int> sizes;
    for (const DicomStackItem *stack : view.stackList())
        sizes.push_back(stack->childCount());
    return sizes;
}

inline QStringList columnLabels(const DicomListView &view)
{
    QStringList labels;
    for (int section = 0; section < view.columnCount(); ++section)
        labels << view.headerItem()->text(section);
    return labels;
}

inline int optionIndex(const DicomListView &view, const char *name)
{
    for (int k = 0; k < view.loadOptions().size(); ++k)
        if (view.loadOptions()[k]->name == name)
            return k;
    return -1;
}

inline void storeCriteria(const KcString &text)
{
    VxPreferences prefs = VxSettingsMgr::getInstance()->getPreferences();
    prefs.dicomLoadOptions = text;
    VxSettingsMgr::getInstance()->setPreferences(prefs, false);
}

/// The default criteria and the uniformity tolerance 0.02, at construction
/// and again at the end.
struct DefaultCriteria
{
    DefaultCriteria() { reset(); }
    ~DefaultCriteria() { reset(); }
    static void reset()
    {
        storeCriteria(KcString());
        DicomStackItem::uniformTolerance = 0.02f;
    }
};

/// Forces the answer of every stack dialog for the lifetime of the object.
struct StackDialogAnswer
{
    explicit StackDialogAnswer(int result) { DicomStackDialog::setAnswerOverride(result); }
    ~StackDialogAnswer() { DicomStackDialog::setAnswerOverride(-1); }
};

/// Skips a test of real series when ../shared/data is missing.
class RealSeries : public ::testing::Test
{
protected:
    void SetUp() override
    {
        if (vxtest::sharedDataDir().empty())
            GTEST_SKIP() << "../shared/data is not beside this checkout; real scanner files are "
                            "needed for this test";
    }
    DefaultCriteria criteria;
};

} // namespace stacktest
