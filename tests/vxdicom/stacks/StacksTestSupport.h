#pragma once

#include "platform/core/VxObjectPool.h"
#include "platform/core/VxPreferences.h"
#include "tests/vxdicom/reader/ReaderTestSupport.h"
#include "vxdicom/stacks/DicomListItem.h"
#include "vxdicom/stacks/DicomListView.h"
#include "vxdicom/stacks/DicomLoadOption.h"
#include "vxdicom/stacks/DicomStackDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <gtest/gtest.h>

namespace stacktest {

using LoadedFiles = readertest::OpenedFiles;

inline std::string ctFile(const char *name)
{
    return vxtest::sharedPath(readertest::kCtSeries + std::string("/") + name);
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
    for (int k = view.loadOptions().size() - 1;; --k)
        if (k < 0 || view.loadOptions()[k]->name == name)
            return k;
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
