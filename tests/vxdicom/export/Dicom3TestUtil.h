#pragma once

// Helpers of the writer tests: fields to export, and a walk over the bytes of
// a written file that checks the explicit VR little endian framing.

#include "platform/data/VxField3.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/Dicom3Writer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace dicom3test {

using Bytes = std::vector<unsigned char>;

inline Bytes text(const std::string &s)
{
    return Bytes(s.begin(), s.end());
}

inline Bytes cat(Bytes a, const Bytes &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

/// A text value as written: padded with one 0x00 to an even length.
inline std::string padded(std::string s)
{
    if (s.size() % 2)
        s.push_back('\0');
    return s;
}

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

/// Everything `write` puts into a fresh temporary file; `result` gets what it returns.
inline Bytes writtenBytes(const std::function<int(FILE *)> &write, int *result = nullptr)
{
    FILE *f = std::tmpfile();
    const int r = write(f);
    if (result)
        *result = r;
    std::fflush(f);
    Bytes bytes(static_cast<size_t>(std::max(0L, std::ftell(f))));
    std::rewind(f);
    EXPECT_EQ(std::fread(bytes.data(), 1, bytes.size(), f), bytes.size());
    std::fclose(f);
    return bytes;
}

inline Bytes writeCurrentSlice(Dicom3Object &object)
{
    return writtenBytes([&](FILE *f) { return writeDicom3File(object, f); });
}

struct Element
{
    uint16_t group = 0, element = 0;
    std::string vr;
    uint32_t length = 0;
    size_t offset = 0; ///< of the tag
    Bytes value;

    std::string text() const { return std::string(value.begin(), value.end()); }
    uint32_t number() const
    {
        uint32_t n = 0;
        for (size_t i = value.size(); i-- > 0;)
            n = n << 8 | value[i];
        return n;
    }
};

/// The elements of a file written in explicit VR little endian, in file
/// order; fails the test when the framing is broken.
inline std::vector<Element> walk(const Bytes &bytes)
{
    std::vector<Element> out;
    auto le = [&](size_t p, int n) {
        uint32_t v = 0;
        for (int i = n; i-- > 0;)
            v = v << 8 | bytes[p + static_cast<size_t>(i)];
        return v;
    };
    for (size_t p = 132; p < bytes.size();) {
        Element e;
        e.offset = p;
        if (p + 8 > bytes.size()) {
            ADD_FAILURE() << "element header cut at " << p;
            return out;
        }
        e.group = static_cast<uint16_t>(le(p, 2));
        e.element = static_cast<uint16_t>(le(p + 2, 2));
        e.vr = std::string(bytes.begin() + static_cast<long>(p) + 4,
                           bytes.begin() + static_cast<long>(p) + 6);
        const bool longLength = e.vr == "OB" || e.vr == "OW" || e.vr == "UN" || e.vr == "UT";
        if (longLength && p + 12 > bytes.size()) {
            ADD_FAILURE() << "long element header cut at " << p;
            return out;
        }
        e.length = longLength ? le(p + 8, 4) : le(p + 6, 2);
        p += longLength ? 12 : 8;
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

/// The element of that tag; a test failure and an empty element when absent.
inline Element find(const std::vector<Element> &elements, uint16_t group, uint16_t element)
{
    for (const Element &e : elements)
        if (e.group == group && e.element == element)
            return e;
    ADD_FAILURE() << "no (" << std::hex << group << "," << element << ")";
    return Element();
}

inline bool has(const std::vector<Element> &elements, uint16_t group, uint16_t element)
{
    for (const Element &e : elements)
        if (e.group == group && e.element == element)
            return true;
    return false;
}

} // namespace dicom3test
