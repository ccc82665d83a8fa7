#include "vxdicom/export/Dicom3Group.h"

#include "platform/core/VxMessage.h"
#include "vxdicom/export/Dicom3Object.h"

#include <algorithm>
#include <cstdlib>

bool dicom3ZiehmReconstruction()
{
    return std::getenv("ZENTA_ZIEHM_RECONSTRUCTION") != nullptr;
}

Dicom3Group::Dicom3Group(unsigned short id)
    : groupId(id), encoding(Dicom3Object::getArchitecture() == 0 ? dicom::EXPLICIT_LITTLE_ENDIAN
                                                                 : dicom::EXPLICIT_BIG_ENDIAN)
{
}

Dicom3Group::~Dicom3Group() = default;

int Dicom3Group::compareGroupId(const Dicom3Group *a, const Dicom3Group *b)
{
    return static_cast<int>(a->groupId) - static_cast<int>(b->groupId);
}

dicom::enCoding Dicom3Group::writeEncoding() const
{
    // The file meta group is explicit VR little endian whatever the data set uses.
    return groupId == 0x0002 ? dicom::EXPLICIT_LITTLE_ENDIAN : encoding;
}

Dicom3Element *Dicom3Group::findElement(unsigned short elementId) const
{
    for (const auto &e : elements)
        if (e->getElementId() == elementId)
            return e.get();
    return nullptr;
}

int Dicom3Group::insertElement(Dicom3Element *raw)
{
    std::unique_ptr<Dicom3Element> e(raw);
    // 1. Group lengths are never inserted; write makes them.
    if (!e || e->getElementId() == 0)
        return -1;

    // 2. Size the element.
    const int size = e->write(nullptr, writeEncoding(), 1);
    if (size < 0) {
        VxMessage::getTheMsg()->printf("Element not inserted %X-%X", e->getGroupId(),
                                       e->getElementId());
        return -1;
    }

    // 3. A later insertion of a tag replaces the earlier one.
    auto byElement = [](const std::unique_ptr<Dicom3Element> &a, const Dicom3Element *b) {
        return Dicom3Element::compareElementId(a.get(), b) < 0;
    };
    auto it = std::lower_bound(elements.begin(), elements.end(), e.get(), byElement);
    while (it != elements.end() && Dicom3Element::compareElementId(it->get(), e.get()) == 0) {
        if (it->get() == e.get()) {
            // The same element again: take it out without destroying it twice.
            it->release();
        } else {
            replaced.push_back(std::move(*it));
        }
        it = elements.erase(it);
    }

    // 4. Sorted insertion.
    elements.insert(it, std::move(e));
    totalSize += size;
    return 1;
}

int Dicom3Group::write(FILE *f)
{
    // 1.
    if (!f)
        return -1;
    const dicom::enCoding enc = writeEncoding();
    int result = 0;

    // 2. Group length first, except for pixel data and Ziehm reconstructions.
    if (groupId != 0x7FE0 && !dicom3ZiehmReconstruction()) {
        long sum = 0;
        for (const auto &e : elements) {
            const int size = e->write(nullptr, enc, 1);
            if (size < 0)
                return -1;
            sum += size;
        }
        Dicom3Element length(groupId, 0x0000, dicom::UL);
        length.setU32bitData(static_cast<unsigned int>(sum));
        const int n = length.write(f, enc, 0);
        if (n < 1)
            return -1;
        result += n;
    }

    // 3. The elements in ascending order.
    for (const auto &e : elements) {
        const int n = e->write(f, enc, 0);
        if (n < 1)
            return -1;
        result += n;
    }
    return result;
}
