#pragma once

// Helpers of the writer tests: fields to export, and a walk over the bytes of
// a written file that checks the explicit VR little endian framing.

#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/Dicom3Writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dicom3test {

using Bytes = std::vector<unsigned char>;

/// A uniform field of n0 x n1 x n2 samples copied from values, spanning bbox.
template <typename T>
std::unique_ptr<VxUniformScalarField3>
uniformField(const int dims[3], KcPrimType type, const std::vector<T> &values, const float bbox[6])
{
    void *data = std::malloc(values.size() * sizeof(T));
    std::memcpy(data, values.data(), values.size() * sizeof(T));
    auto field = std::make_unique<VxUniformScalarField3>(dims, type, data);
    field->setBoundingBox(bbox);
    return field;
}

/// Everything `write` puts into a fresh temporary file; `result` gets what
/// it returns.
inline Bytes writtenBytes(const std::function<int(FILE *)> &write, int *result = nullptr)
{
    FILE *f = std::tmpfile();
    EXPECT_NE(f, nullptr);
    if (!f)
        return {};
    const int r = write(f);
    if (result)
        *result = r;
    std::fflush(f);
    const long size = std::ftell(f);
    std::rewind(f);
    Bytes bytes(static_cast<size_t>(size > 0 ? size : 0));
    if (!bytes.empty()) {
        EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), bytes.size());
    }
    std::fclose(f);
    return bytes;
}

/// Everything written for the object's current slice.
inline Bytes writeCurrentSlice(Dicom3Object &object)
{
    int written = 0;
    Bytes bytes = writtenBytes([&](FILE *f) { return writeDicom3File(object, f); }, &written);
    EXPECT_GT(written, 0);
    return bytes;
}

/// One element found in a written file.
struct Element
{
    uint16_t group = 0;
    uint16_t element = 0;
    std::string vr;
    uint32_t length = 0;
    size_t offset = 0; ///< of the tag
    Bytes value;

    std::string text() const { return std::string(value.begin(), value.end()); }
    uint16_t u16() const { return static_cast<uint16_t>(value.at(0) | (value.at(1) << 8)); }
    uint32_t u32() const
    {
        return static_cast<uint32_t>(value.at(0) | (value.at(1) << 8) | (value.at(2) << 16) |
                                     (static_cast<uint32_t>(value.at(3)) << 24));
    }
};

/// The elements of a Part 10 file written in explicit VR little endian, in
/// file order; fails the test when the framing is broken.
inline std::vector<Element> walk(const Bytes &bytes)
{
    std::vector<Element> out;
    if (bytes.size() < 132) {
        ADD_FAILURE() << "shorter than preamble and signature";
        return out;
    }
    size_t p = 132;
    while (p < bytes.size()) {
        if (p + 8 > bytes.size()) {
            ADD_FAILURE() << "element header cut at " << p;
            return out;
        }
        Element e;
        e.offset = p;
        e.group = static_cast<uint16_t>(bytes[p] | (bytes[p + 1] << 8));
        e.element = static_cast<uint16_t>(bytes[p + 2] | (bytes[p + 3] << 8));
        e.vr = std::string(bytes.begin() + static_cast<long>(p) + 4,
                           bytes.begin() + static_cast<long>(p) + 6);
        const bool longLength = e.vr == "OB" || e.vr == "OW" || e.vr == "UN" || e.vr == "UT";
        if (longLength) {
            if (p + 12 > bytes.size()) {
                ADD_FAILURE() << "long header cut at " << p;
                return out;
            }
            e.length =
                static_cast<uint32_t>(bytes[p + 8] | (bytes[p + 9] << 8) | (bytes[p + 10] << 16) |
                                      (static_cast<uint32_t>(bytes[p + 11]) << 24));
            p += 12;
        } else {
            e.length = static_cast<uint32_t>(bytes[p + 6] | (bytes[p + 7] << 8));
            p += 8;
        }
        if (p + e.length > bytes.size()) {
            ADD_FAILURE() << "value of (" << std::hex << e.group << "," << e.element
                          << ") runs past the end";
            return out;
        }
        e.value.assign(bytes.begin() + static_cast<long>(p),
                       bytes.begin() + static_cast<long>(p + e.length));
        p += e.length;
        out.push_back(e);
    }
    return out;
}

inline const Element *find(const std::vector<Element> &elements, uint16_t group, uint16_t element)
{
    for (const Element &e : elements)
        if (e.group == group && e.element == element)
            return &e;
    return nullptr;
}

using vxtest::ScopedEnv;

} // namespace dicom3test
