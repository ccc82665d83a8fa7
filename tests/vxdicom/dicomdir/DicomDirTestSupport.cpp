#include "tests/vxdicom/dicomdir/DicomDirTestSupport.h"

#include "tests/support/TestSupport.h"
#include "vxdicom/reader/DicomDir.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>

namespace dicomdirtest {

namespace {

bool isLongVr(const char *vr)
{
    static const char *const longVrs[] = {"OB", "OD", "OF", "OL", "OV", "OW", "SQ",
                                          "SV", "UC", "UN", "UR", "UT", "UV"};
    for (const char *v : longVrs)
        if (std::strncmp(vr, v, 2) == 0)
            return true;
    return false;
}

std::string shellQuote(const std::string &s)
{
    std::string q = "'";
    for (char c : s)
        q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

std::string script()
{
    return std::string(VX_DICOMDIR_TEST_DIR) + "/make_dicomdir.py";
}

} // namespace

Bytes &Bytes::u16(uint16_t v)
{
    if (big) {
        bytes.push_back(static_cast<unsigned char>(v >> 8));
        bytes.push_back(static_cast<unsigned char>(v));
    } else {
        bytes.push_back(static_cast<unsigned char>(v));
        bytes.push_back(static_cast<unsigned char>(v >> 8));
    }
    return *this;
}

Bytes &Bytes::u32(uint32_t v)
{
    return big ? u16(static_cast<uint16_t>(v >> 16)).u16(static_cast<uint16_t>(v))
               : u16(static_cast<uint16_t>(v)).u16(static_cast<uint16_t>(v >> 16));
}

Bytes &Bytes::raw(const std::string &s)
{
    bytes.insert(bytes.end(), s.begin(), s.end());
    return *this;
}

Bytes &Bytes::append(const Bytes &other)
{
    bytes.insert(bytes.end(), other.bytes.begin(), other.bytes.end());
    return *this;
}

Bytes &Bytes::element(uint16_t group, uint16_t elem, const char *vr, const std::string &value)
{
    u16(group).u16(elem);
    if (!explicitVr)
        u32(static_cast<uint32_t>(value.size()));
    else if (isLongVr(vr))
        raw(std::string(vr, 2)).u16(0).u32(static_cast<uint32_t>(value.size()));
    else
        raw(std::string(vr, 2)).u16(static_cast<uint16_t>(value.size()));
    return raw(value);
}

Bytes &Bytes::undefinedHeader(uint16_t group, uint16_t elem, const char *vr)
{
    u16(group).u16(elem);
    if (explicitVr)
        raw(std::string(vr, 2)).u16(0);
    return u32(0xFFFFFFFFu);
}

Bytes &Bytes::item(const Bytes &content, bool undefinedLength)
{
    itemHeader(undefinedLength ? 0xFFFFFFFFu : static_cast<uint32_t>(content.size()));
    append(content);
    if (undefinedLength)
        itemDelimiter();
    return *this;
}

Bytes &Bytes::itemHeader(uint32_t length)
{
    return u16(0xFFFE).u16(0xE000).u32(length);
}

Bytes &Bytes::itemDelimiter()
{
    return u16(0xFFFE).u16(0xE00D).u32(0);
}

Bytes &Bytes::sequenceDelimiter()
{
    return u16(0xFFFE).u16(0xE0DD).u32(0);
}

Bytes record(bool bigEndian, bool explicitVR, const std::string &id)
{
    Bytes r(bigEndian, explicitVR);
    Bytes offset(bigEndian, false);
    offset.u32(0);
    Bytes inUse(bigEndian, false);
    inUse.u16(0xFFFF);
    const std::string offsetValue(offset.data().begin(), offset.data().end());
    r.element(0x0004, 0x1400, "UL", offsetValue);
    r.element(0x0004, 0x1410, "US", std::string(inUse.data().begin(), inUse.data().end()));
    r.element(0x0004, 0x1420, "UL", offsetValue);
    r.element(0x0004, 0x1430, "CS", id.empty() ? "PATIENT " : "IMAGE ");
    if (!id.empty())
        r.fileId(id);
    return r;
}

WalkResult walk(const std::vector<unsigned char> &bytes, bool bigEndian, bool explicitVR)
{
    // Exactly the value's size: one byte read past it is a heap overflow.
    std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.empty() ? 1 : bytes.size()]);
    if (!bytes.empty())
        std::memcpy(copy.get(), bytes.data(), bytes.size());
    KcDArray<KcString> ids;
    WalkResult r;
    r.complete = dicomDirFileIds(bytes.empty() ? nullptr : copy.get(), bytes.size(), bigEndian,
                                 explicitVR, ids);
    for (const KcString &id : ids)
        r.ids.push_back(id);
    return r;
}

void makeDicomDir(const std::string &out, const std::vector<std::string> &args)
{
    std::string command =
        std::string(VX_PYTHON) + " " + shellQuote(script()) + " " + shellQuote(out);
    for (const std::string &a : args)
        command += " " + shellQuote(a);
    std::string output;
    const int rc = vxtest::runCommand(command, &output, true);
    ASSERT_EQ(rc, 0) << command << "\n" << output;
}

std::vector<std::string> pydicomFileIds(const std::string &dicomDir)
{
    std::string output;
    const int rc = vxtest::runCommand(std::string(VX_PYTHON) + " " + shellQuote(script()) +
                                          " --list " + shellQuote(dicomDir) + " 2>/dev/null",
                                      &output);
    EXPECT_EQ(rc, 0) << "make_dicomdir.py --list " << dicomDir;
    std::vector<std::string> ids;
    std::istringstream in(output);
    for (std::string line; std::getline(in, line);)
        ids.push_back(line);
    return ids;
}

std::string pydicomDicomDirFolder()
{
    std::string output;
    if (vxtest::runCommand(std::string(VX_PYTHON) +
                               " -c 'import os, pydicom; print(os.path.dirname(pydicom.__file__))'"
                               " 2>/dev/null",
                           &output) != 0)
        return {};
    while (!output.empty() && (output.back() == '\n' || output.back() == '\r'))
        output.pop_back();
    const std::string folder = output + "/data/test_files/dicomdirtests";
    std::error_code ec;
    return std::filesystem::is_regular_file(folder + "/DICOMDIR", ec) ? folder : std::string();
}

} // namespace dicomdirtest
