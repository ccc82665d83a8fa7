#pragma once

#include "vxdicom/export/Dicom3Element.h"

#include <cstdio>
#include <memory>
#include <vector>

/// One group of a data set being written: its elements sorted by element
/// number, written after a group length element that `write` makes itself.
class Dicom3Group
{
public:
    explicit Dicom3Group(unsigned short groupId);
    ~Dicom3Group();
    Dicom3Group(const Dicom3Group &) = delete;
    Dicom3Group &operator=(const Dicom3Group &) = delete;

    /// Takes ownership of e in every case (a refused element is destroyed).
    /// Refuses (-1) null and element number 0 (group lengths are made by
    /// write), and an element that cannot be sized ("Element not inserted
    /// %X-%X"). An element of the same number leaves the array (it stays
    /// alive until the group dies, so references to it never dangle) and e
    /// takes its sorted place. Returns 1.
    int insertElement(Dicom3Element *e);

    /// Writes the group length (except for 7FE0 and when
    /// "ZENTA_ZIEHM_RECONSTRUCTION" is set) and every element in ascending
    /// order. Group 0002 is always explicit VR little endian. Returns the sum
    /// of the element write results, or -1.
    int write(FILE *f);

    static int compareGroupId(const Dicom3Group *a, const Dicom3Group *b);

    unsigned short getGroupId() const { return groupId; }
    dicom::enCoding getEncoding() const { return encoding; }
    /// The encoding this group's elements are written in.
    dicom::enCoding writeEncoding() const;
    int numElements() const { return static_cast<int>(elements.size()); }
    Dicom3Element *element(int i) const { return elements[static_cast<size_t>(i)].get(); }
    /// The element with that number, or null.
    Dicom3Element *findElement(unsigned short elementId) const;
    /// Sum of the sizes of the elements inserted so far (replaced ones included).
    long getTotalSize() const { return totalSize; }

private:
    unsigned short groupId;
    dicom::enCoding encoding;
    std::vector<std::unique_ptr<Dicom3Element>> elements;
    long totalSize = 0;
    /// Elements replaced by a later insertion of the same tag.
    std::vector<std::unique_ptr<Dicom3Element>> replaced;
};

/// True when the environment variable "ZENTA_ZIEHM_RECONSTRUCTION" is set:
/// the writer then leaves out group lengths, identities and UIDs.
bool dicom3ZiehmReconstruction();
