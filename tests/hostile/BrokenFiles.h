#pragma once

// Byte-level surgery on real explicit VR little endian Part 10 files, for
// the broken-file suite. The element walk here is the test's own (PS3.5 7.1.2
// headers, top level only), so that the edits do not depend on the reader
// they are meant to break.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hostile {

using Bytes = std::vector<unsigned char>;

/// The intact series loaded beside every broken file: five sagittal Siemens
/// slices, 64 x 42 (one stack), below ../shared/data.
inline const char *const kSeriesDir = "dcm_qa_sag/In/2_gre_field_mapping";
/// The real file the broken copies are made from: a Siemens slice of another
/// series (CSA headers, explicit VR little endian, 256 x 256 x 16 bits).
inline const char *const kSource = "dcm_qa_decubitus/In/HFDR/2_t1_fl2d_sag/"
                                   "0001_1.3.12.2.1107.5.2.43.67060.2022040715140258030663181.dcm";

/// One top-level element of the data set (or meta group) of a file.
struct Element
{
    uint16_t group = 0;
    uint16_t element = 0;
    char vr[2] = {' ', ' '};
    size_t offset = 0;      ///< first byte of the tag
    size_t lengthField = 0; ///< first byte of the length field
    size_t lengthSize = 0;  ///< 2 or 4
    size_t value = 0;       ///< first byte of the value
    uint32_t length = 0;
};

/// The top-level elements from the meta group on, up to and including Pixel
/// Data (explicit VR little endian files only; throws std::runtime_error when
/// the file is not one or its elements cannot be walked).
std::vector<Element> topLevelElements(const Bytes &file);

/// The element with that tag; throws std::runtime_error when absent.
Element findElement(const Bytes &file, uint16_t group, uint16_t element);

/// The file with the length field of an element replaced (the value bytes
/// stay as they are).
Bytes withLength(Bytes file, uint16_t group, uint16_t element, uint32_t length);

/// The file with the value of a text element (short VR form) replaced,
/// padded with a blank to an even length.
Bytes withText(Bytes file, uint16_t group, uint16_t element, const std::string &value);

/// The file with the 16-bit value of a US element replaced.
Bytes withUS(Bytes file, uint16_t group, uint16_t element, uint16_t value);

/// The file with encoded elements inserted before the first top-level
/// element whose tag is not below (group, element), so that tags stay in
/// ascending order.
Bytes insertedBefore(Bytes file, uint16_t group, uint16_t element, const Bytes &encoded);

/// One explicit VR little endian element: tag, VR, length, value. Sequences
/// and the long VRs get the 4-byte length form; `undefinedLength` writes
/// 0xFFFFFFFF and the value as given (no delimiter is added).
Bytes encodeElement(uint16_t group, uint16_t element, const char *vr, const Bytes &value,
                    bool undefinedLength = false);
/// An item (FFFE,E000) holding `content`; with undefinedLength no item
/// delimiter is added.
Bytes encodeItem(const Bytes &content, bool undefinedLength = false);
/// The item delimiter (FFFE,E00D) and the sequence delimiter (FFFE,E0DD).
Bytes itemDelimiter();
Bytes sequenceDelimiter();

/// The private creator (0071,0010) "VXTEST HOSTILE" and, at `depth` levels,
/// a private sequence (0071,1001) whose one item holds the next one; the
/// innermost item holds a short text. Defined or undefined lengths
/// throughout (undefined ones properly delimited).
Bytes nestedSequences(int depth, bool undefinedLengths);

/// The private creator and a sequence (0071,1001) of undefined length
/// holding one item of undefined length with a text, and neither delimiter:
/// inserted before Pixel Data, the rest of the file becomes part of the item.
Bytes sequenceWithoutDelimiters();

/// A Part 10 file: preamble, "DICM", a meta group with the given media
/// storage SOP class and transfer syntax, then `dataSet` as it is.
Bytes part10File(const std::string &sopClass, const std::string &transferSyntax,
                 const Bytes &dataSet);

/// The data set of an explicit VR little endian file (everything after its
/// meta group).
Bytes dataSetOf(const Bytes &file);

/// Raw deflate (RFC 1951, as PS3.5 A.5 stores a deflated data set).
Bytes deflate(const Bytes &data);

uint16_t read16(const Bytes &b, size_t at);
uint32_t read32(const Bytes &b, size_t at);
void put16(Bytes &b, size_t at, uint16_t v);
void put32(Bytes &b, size_t at, uint32_t v);

} // namespace hostile
