#pragma once

#include "platform/core/KcPrimType.h"
#include "platform/dicom/dicom.h"

#include <QString>

#include <cstdint>
#include <cstdio>

class KcRawData3D;

/// One data element on the writing side: a tag, a value representation and a
/// value held in one of eight kinds. It encodes itself in explicit VR little
/// or big endian, reports its encoded size without writing, and streams one
/// slice of a borrowed 3D volume as the value of the pixel-data element.
///
/// Deliberate properties of the encoding that readers of the written files
/// rely on, and that must stay:
/// - every pad byte is 0x00, for text VRs too (never a trailing blank);
/// - `write` returns twice the bytes written for every kind but raw data
///   (callers test the result for failure only; sizes come from sizeOnly);
/// - VRs that may hold several values are never clamped by `maxVRLength`;
/// - an AT cell text is read as two decimal pairs, not hexadecimal.
///
/// The reading side (`read`, `print`) only traces a written file.
class Dicom3Element
{
public:
    /// The kinds of value an element holds; the numbers are fixed.
    enum DataKind {
        U8bit = 0,
        U16bit = 1,
        U32bit = 2,
        IS = 3,
        U8bitString = 4,
        CharString = 5,
        RawData = 6,
        Attribute = 7
    };

    /// An empty CharString element (value length 0).
    Dicom3Element(unsigned short group, unsigned short element, dicom::valRep vr);
    ~Dicom3Element();
    Dicom3Element(const Dicom3Element &) = delete;
    Dicom3Element &operator=(const Dicom3Element &) = delete;

    /// Orders by element number only (elements are compared inside one group).
    static int compareElementId(const Dicom3Element *a, const Dicom3Element *b);

    // Setters: each replaces the previous value and returns the new value
    // length, or -1.

    /// One byte; value length 1 and one pad byte.
    int setU8bitData(unsigned char value);
    int setU16bitData(unsigned short value);
    /// Also carries FL values as their IEEE single-precision bit pattern.
    int setU32bitData(unsigned int value);
    /// The "%ld" text of value; the text is produced again at write time.
    int setISData(long value);
    /// n bytes, clamped by maxVRLength. -1 for null bytes or n < 0 (the old
    /// value is kept then).
    int setU8bitStringData(const unsigned char *bytes, int n);
    /// n bytes of text (n = -2: the NUL-terminated length), clamped by
    /// maxVRLength; text must hold n bytes. -1 for a null text or another
    /// negative n (the old value is kept then).
    int setCharStringData(const char *text, int n);
    /// Borrows raw (never freed here) and cuts it into 2D slices
    /// perpendicular to axis. The raw length is width x height x type size x
    /// components of one slice, times the slice count when slice is -1.
    /// Returns the raw length, or -1 for a null volume or a bad axis.
    int setRawDataPtr(KcRawData3D *raw, KcPrimType type, int components, int axis, int slice);
    /// Makes slice k current; returns the raw length of one slice, or -1
    /// (k out of range, not raw data, no volume) leaving everything unchanged.
    int setRawDataSlice(int k);
    /// Value 4 bytes: the attribute's group, then its element.
    int setAttributeData(unsigned short group, unsigned short element);

    /// Fills the element from the text of a table cell, by VR.
    int setTableDataString(const QString &text);
    /// The same for the stored text of a host parameter.
    int setParamDataString(const QString &text);

    /// With sizeOnly != 0: the bytes the element occupies (header, value,
    /// pad); f is not touched and may be null. With sizeOnly == 0: writes to
    /// f and returns the bytes written (twice that for every kind but raw
    /// data). -1 for a null f when writing, an encoding other than 2 or 3, an
    /// allocation failure or a short write.
    int write(FILE *f, dicom::enCoding enc, int sizeOnly);
    /// Writes the current slice in host byte order plus a 0x00 pad byte when
    /// its length is odd. A short write is reported and tolerated. Returns
    /// the bytes expected (+1 with the pad) or -1.
    int writeRawData(FILE *f, dicom::enCoding enc);

    // Byte primitives into a buffer: return the bytes written or -1.
    static int write_u8bit(dicom::enCoding enc, unsigned char *dest, unsigned char value);
    static int write_u16bit(dicom::enCoding enc, unsigned char *dest, unsigned short value);
    static int write_u32bit(dicom::enCoding enc, unsigned char *dest, unsigned int value);
    /// The "%ld" digits without terminator; returns their count.
    static int write_is(unsigned char *dest, long value);
    /// The two VR letters; returns 2.
    static int writeVR(dicom::enCoding enc, unsigned char *dest, dicom::valRep vr);

    // Readers from a file, mirroring the writers: bytes read or -1.
    static int read_u8bit(FILE *f, dicom::enCoding enc, unsigned char &out);
    static int read_u16bit(FILE *f, dicom::enCoding enc, unsigned short &out);
    static int read_u32bit(FILE *f, dicom::enCoding enc, unsigned int &out);
    static int read_VR(FILE *f, dicom::valRep &out);

    /// Tracing: reads one element header at the file position (encodings 2
    /// and 3 only), seeks over the value and reports each step to the
    /// console. Returns the header bytes read, or -1.
    int read(FILE *f, dicom::enCoding enc);
    /// Tracing: one console line with tag, VR, data text and read length.
    void print() const;

    /// The value length after clamping text of n bytes for vr. Never reports
    /// an error; VRs that may hold several values keep n.
    static int maxVRLength(const char *text, dicom::valRep vr, int n);

    // Accessors (tests, tracing and the element table).
    unsigned short getGroupId() const { return groupId; }
    unsigned short getElementId() const { return elementId; }
    dicom::valRep getVR() const { return vr; }
    DataKind getDataKind() const { return dataKind; }
    int getValueLength() const { return valueLength; }
    int getReadLength() const { return readLength; }
    int getPad() const { return pad; }
    /// The held bytes of a string kind (valueLength bytes, NUL after them), or null.
    const unsigned char *getData() const { return data; }
    unsigned int getNumericValue() const { return numericValue; }
    long getISValue() const { return isValue; }
    unsigned short getAttributeGroup() const { return attributeGroup; }
    unsigned short getAttributeElement() const { return attributeElement; }
    int getCurrentSlice() const { return currentSlice; }
    unsigned int getRawLength() const { return rawLength; }
    /// True for the VRs whose explicit header has a 32-bit length (codes 21 to 25).
    static bool isLongLengthVR(dicom::valRep vr);

private:
    void freeData();
    /// Bytes of one slice of the raw volume (0 without one).
    unsigned int sliceBytes() const;

    unsigned short elementId;
    unsigned short groupId;
    int32_t valueLength = 0;
    int32_t readLength = 0;
    int32_t pad = 0;
    dicom::valRep vr;
    DataKind dataKind = CharString;
    unsigned char *data = nullptr; ///< owned, C allocator
    uint32_t numericValue = 0;
    long isValue = 0;
    unsigned short attributeGroup = 0;
    unsigned short attributeElement = 0;
    int componentsPerPixel = 1;
    KcPrimType primType = KcPrimType::UInt8;
    KcRawData3D *rawVolume = nullptr; ///< borrowed
    int slicingAxis = 2;
    int currentSlice = 0;
    uint32_t rawLength = 0;
};
