#pragma once

#include "platform/core/KcDArray.h"

#include <QStringList>

#include <string>
#include <vector>

class DicomListView;
class DicomStackItem;
class VxDicomFile;
class VxDicomImage;

namespace stacktest {

/// Real files read as the reader reads them (header only, delayed pixels),
/// each with its position in `paths` as load index. Files that give no image
/// (a DICOMDIR) are left out; a file that fails to read fails the test.
class LoadedFiles
{
public:
    explicit LoadedFiles(const std::vector<std::string> &paths);
    ~LoadedFiles();
    LoadedFiles(const LoadedFiles &) = delete;
    LoadedFiles &operator=(const LoadedFiles &) = delete;

    KcDArray<VxDicomImage *> images() const;
    int size() const { return static_cast<int>(files.size()); }

    std::vector<VxDicomFile *> files;
};

/// The files of a folder below ../shared/data, sorted by name.
std::vector<std::string> folderFiles(const std::string &relativeDir);
/// Those whose last path component contains `part`.
std::vector<std::string> filesContaining(const std::vector<std::string> &paths,
                                         const std::string &part);

/// Instance numbers of a stack's image rows in child order.
std::vector<int> instanceNumbers(const DicomStackItem *stack);
/// Slice locations of a stack's image rows in child order.
std::vector<float> sliceLocations(const DicomStackItem *stack);
/// Number of image rows of every stack, in build order.
std::vector<int> stackSizes(const DicomListView &view);
/// The header labels by section.
QStringList columnLabels(const DicomListView &view);
/// List index of the option with that name, or -1.
int optionIndex(const DicomListView &view, const char *name);

/// Empties the stored criteria (defaults) and restores the uniformity
/// tolerance 0.02, at construction and again at the end.
class DefaultCriteria
{
public:
    DefaultCriteria();
    ~DefaultCriteria();
};

/// Forces the answer of every stack dialog for the lifetime of the object.
class StackDialogAnswer
{
public:
    explicit StackDialogAnswer(int result);
    ~StackDialogAnswer();
};

} // namespace stacktest
