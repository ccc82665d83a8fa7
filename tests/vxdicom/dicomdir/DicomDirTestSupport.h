#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace dicomdirtest {

/// Encodes elements, items and sequences in one byte order and VR form, to
/// build directory record sequences byte by byte.
class Bytes
{
public:
    Bytes(bool bigEndian, bool explicitVR) : big(bigEndian), explicitVr(explicitVR) {}

    Bytes &u16(uint16_t v);
    Bytes &u32(uint32_t v);
    Bytes &raw(const std::string &bytes);
    Bytes &append(const Bytes &other);

    /// An element of defined length (the VR only counts in explicit VR).
    Bytes &element(uint16_t group, uint16_t element, const char *vr, const std::string &value);
    /// An element header of undefined length (a nested sequence, or UN per CP-246).
    Bytes &undefinedHeader(uint16_t group, uint16_t element, const char *vr);
    /// (FFFE,E000) with the content's length, or undefined length and an item delimiter.
    Bytes &item(const Bytes &content, bool undefinedLength = false);
    /// (FFFE,E000) whose length field says `length`, whatever follows.
    Bytes &itemHeader(uint32_t length);
    Bytes &itemDelimiter();
    Bytes &sequenceDelimiter();
    /// A Referenced File ID (0004,1500) element.
    Bytes &fileId(const std::string &id) { return element(0x0004, 0x1500, "CS", id); }

    const std::vector<unsigned char> &data() const { return bytes; }
    size_t size() const { return bytes.size(); }

private:
    bool big;
    bool explicitVr;
    std::vector<unsigned char> bytes;
};

/// A directory record with the usual leading elements and, when id is not
/// empty, a Referenced File ID.
Bytes record(bool bigEndian, bool explicitVR, const std::string &id);

struct WalkResult
{
    bool complete = false;
    std::vector<std::string> ids;
};

/// dicomDirFileIds over a copy of bytes in a heap block of exactly that size,
/// so that AddressSanitizer sees any read past the value.
WalkResult walk(const std::vector<unsigned char> &bytes, bool bigEndian, bool explicitVR);

/// Runs make_dicomdir.py with the arguments; fails the test when it fails.
void makeDicomDir(const std::string &out, const std::vector<std::string> &args);
/// pydicom's Referenced File IDs of a DICOMDIR (make_dicomdir.py --list).
std::vector<std::string> pydicomFileIds(const std::string &dicomDir);
/// The folder of pydicom's own test DICOMDIRs, or "" without pydicom.
std::string pydicomDicomDirFolder();

} // namespace dicomdirtest
