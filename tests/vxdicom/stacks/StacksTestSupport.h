#pragma once

#include "platform/core/VxObjectPool.h"
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

#include <filesystem>

namespace stacktest {

/// Files read as the reader reads them, the position in `paths` as load index.
struct LoadedFiles
{
    explicit LoadedFiles(const std::vector<std::string> &paths)
    {
        for (size_t i = 0; i < paths.size(); ++i)
            if (auto f = std::make_unique<VxDicomFile>(paths[i].c_str(), int(i), 1);
                !f->images.isEmpty())
                files.push_back(std::move(f));
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

/// The files of a folder (below ../shared/data unless absolute), sorted by name.
inline std::vector<std::string> folderFiles(const std::string &dir)
{
    std::vector<std::string> paths;
    for (const auto &entry :
         std::filesystem::directory_iterator(dir.front() == '/' ? dir : vxtest::sharedPath(dir)))
        paths.push_back(entry.path().string());
    std::sort(paths.begin(), paths.end());
    return paths;
}

inline std::string ctFile(const char *name)
{
    return vxtest::sharedPath(std::string("dcm_qa_ct/In/Philips/S21610/S2010/") + name);
}

/// A field of each image of a stack, in child order.
template <class T> std::vector<T> ofImages(const DicomStackItem *stack, T VxDicomImage::*field)
{
    std::vector<T> out;
    for (int i = 0; i < stack->childCount(); ++i)
        out.push_back(static_cast<DicomListItem *>(stack->child(i))->image()->*field);
    return out;
}
inline std::vector<int> instanceNumbers(const DicomStackItem *stack)
{
    return ofImages(stack, &VxDicomImage::imageNumber);
}

inline std::vector<int> stackSizes(const DicomListView &view)
{
    std::vector<int> sizes;
    for (const DicomStackItem *stack : view.stackList())
        sizes.push_back(stack->childCount());
    return sizes;
}

inline int optionIndex(const DicomListView &view, const char *name)
{
    for (int k = 0; k < view.loadOptions().size(); ++k)
        if (view.loadOptions()[k]->name == name)
            return k;
    return -1;
}

inline void storeCriteria(const char *text)
{
    VxPreferences prefs = VxSettingsMgr::getInstance()->getPreferences();
    prefs.dicomLoadOptions = text;
    VxSettingsMgr::getInstance()->setPreferences(prefs, false);
}

/// Default criteria, tolerance and answers, an empty pool; needs ../shared/data.
class RealSeries : public ::testing::Test
{
protected:
    void SetUp() override
    {
        TearDown();
        VX_REQUIRE_SHARED_DATA();
    }
    void TearDown() override
    {
        storeCriteria("");
        DicomStackItem::uniformTolerance = 0.02f;
        DicomStackDialog::setAnswerOverride(-1);
        VxObjectPool::instance()->clear();
    }
};

} // namespace stacktest
