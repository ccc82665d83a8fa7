#pragma once

// The dicom:: access layer: parses DICOM Part 10 files (and bare data sets)
// into a plain structure of data elements, and decodes pixel data frame by
// frame into a caller's buffer. Implemented over DCMTK and OpenJPEG; no
// DCMTK type appears here, so nothing above this layer depends on it.
//
// Failures never throw: functions return null/false and, where a `why`
// pointer is given, a one-line reason ("(0028,0010) rows is 0", "premature
// end of stream", ...). Callers put the file name in front.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace dicom {

/// Value representations. The numbers are fixed: they travel between the
/// layer and the module and are stored in parameters. 23 is the sequence
/// value, which has no two-letter row in the module's VR table.
enum valRep
{
    AE = 0, AS = 1, AT = 2, CS = 3, DA = 4, DS = 5, DT = 6, FL = 7, FD = 8, IS = 9,
    LO = 10, LT = 11, PN = 12, SH = 13, SL = 14, SS = 15, ST = 16, TM = 17, UI = 18,
    UL = 19, US = 20, OB = 21, OW = 22, SQ = 23, UN = 24, UT = 25
};

/// Byte order and VR form of a data set (the writer's vocabulary).
enum enCoding
{
    ENC_NONE = 0,
    IMPLICIT_LITTLE_ENDIAN = 1,
    EXPLICIT_LITTLE_ENDIAN = 2,
    EXPLICIT_BIG_ENDIAN = 3,
    JPEG_LOSSLESS = 4,
    RLE_LOSSLESS = 7
};

/// How the pixel data of a file is stored. Everything but
/// COMPRESSION_UNSUPPORTED can be decoded by dicomReadImageData.
enum Compression
{
    COMPRESSION_NONE = 0,     ///< native (uncompressed) pixel data, any byte order
    COMPRESSION_RLE = 1,      ///< RLE lossless
    COMPRESSION_JPEG = 2,     ///< JPEG baseline, extended, lossless
    COMPRESSION_JPEGLS = 3,   ///< JPEG-LS lossless and near-lossless
    COMPRESSION_JPEG2000 = 4, ///< JPEG 2000 (through OpenJPEG)
    COMPRESSION_DEFLATE = 5,  ///< deflated data set (pixels native once inflated)
    COMPRESSION_UNSUPPORTED = -1 ///< a transfer syntax this layer cannot decode
};

/// One top-level data element as the file holds it.
struct dicomDataElement
{
    uint16_t group = 0;
    uint16_t element = 0;
    /// The two VR characters as written in the file; two blanks for implicit VR.
    char vr[2] = {' ', ' '};
    /// Length of `data` in bytes (the value length as read; for sequences the
    /// length of the encoded items). 0 for an empty value. For the pixel data
    /// element of a delayed read, the value length in the file while `data`
    /// is null.
    int32_t length = 0;
    /// The value bytes in the file's byte order, exactly as stored (string
    /// padding included). For a sequence (VR "SQ", or implicit VR with a
    /// dictionary VR of SQ) the encoded items: (FFFE,E000) item tags with
    /// their lengths, nested elements, delimitation items where the file used
    /// undefined lengths, all in the data set's byte order and VR form.
    /// Null when length is 0, and for pixel data (7FE0,0010), whose value is
    /// reached through dicomReadImageData only. Owned by the dicomStruct.
    const unsigned char *data = nullptr;
};

struct dicomStructImpl;

/// A parsed file. Created by dicomReadFile, released by dicomFree.
struct dicomStruct
{
    /// All frames decoded, frames x frameSize bytes, when the file was read
    /// with delayed == 0; null for a delayed read (then pixels come from
    /// dicomReadImageData) and for files without pixel data.
    unsigned char *pixelData = nullptr;
    /// True when pixel data exist in the file and can still be read from it
    /// (delayed read); false after a full read and for files without pixels.
    /// A full read of a file whose transfer syntax cannot be decoded
    /// (COMPRESSION_UNSUPPORTED) leaves it true and pixelData null.
    bool pixelsInFile = false;
    /// Bytes of one decoded frame: rows x columns x bytesPerSample x samplesPerPixel.
    int frameSize = 0;
    int frames = 0;  ///< (0028,0008) Number of Frames, 1 when absent and pixels exist, 0 without pixels
    int rows = 0;    ///< (0028,0010)
    int columns = 0; ///< (0028,0011)
    int bitsAllocated = 0;   ///< (0028,0100)
    int bytesPerSample = 0;  ///< bitsAllocated / 8 rounded up (1-bit data gives 1 after unpacking)
    int samplesPerPixel = 0; ///< (0028,0002), 1 when absent
    /// The Photometric Interpretation that decoded frames have. JPEG colour
    /// (YBR_FULL, YBR_FULL_422) and JPEG 2000 YBR_RCT/ICT come back as "RGB";
    /// native YBR_FULL_422 is widened to "YBR_FULL" (chroma repeated for both
    /// pixels of a pair); otherwise the value of (0028,0004).
    std::string photometric;
    /// The planar configuration of decoded frames: 1 (colour by plane) for
    /// RLE colour frames and native data with (0028,0006) = 1, else 0.
    int planarConfiguration = 0;
    Compression compression = COMPRESSION_NONE;
    std::string transferSyntaxUID; ///< (0002,0010), or the detected syntax without meta header
    std::string transferSyntaxName; ///< e.g. "Explicit VR Little Endian"
    bool isDicomDir = false; ///< Media Storage SOP Class is the Media Storage Directory
    bool bigEndian = false;  ///< byte order of the data set
    bool explicitVR = true;  ///< VR form of the data set
    /// Set by the module: when true, elements of VR SQ, OB, OW and UN are left
    /// out of the attribute parameters that are built from this file. The
    /// layer only stores it (false after dicomReadFile).
    bool skipBinaryParameters = false;
    std::string fileName; ///< the path that was parsed

    /// The top-level elements of the data set in ascending tag order (file
    /// meta group 0002 first when present), up to and including Pixel Data;
    /// elements after Pixel Data (trailing padding) are not listed. Owned by
    /// this structure.
    int numElements = 0;
    const dicomDataElement *elements = nullptr;

    dicomStructImpl *impl = nullptr; ///< the layer's own state
};

/// Parses a file. With delayed != 0 the header is parsed up to Pixel Data and
/// the pixels stay in the file (pixelsInFile); otherwise every frame is
/// decoded into pixelData as well. Accepts Part 10 files and bare data sets
/// without preamble; refuses files that are neither ("not a DICOM file").
/// Returns null on failure, with the reason in *why.
dicomStruct *dicomReadFile(const char *path, int delayed, std::string *why = nullptr);

/// Parses a file from memory (the same rules; `name` is only used in reasons).
/// The buffer need not outlive the call. Pixels are decoded at once (no delay).
dicomStruct *dicomReadBuffer(const unsigned char *bytes, size_t size, const char *name,
                             std::string *why = nullptr);

/// Releases a structure from dicomReadFile or dicomReadBuffer (null is fine).
void dicomFree(dicomStruct *d);

/// Decodes frame `frame` (0-based) of a delayed file into buffer, which holds
/// at least bufferSize >= d->frameSize bytes. `path` names the file to read
/// (null: d->fileName); it must hold the same data set as the one parsed
/// (the module passes a freshly unpacked temporary file for ".gz" names).
/// Native data are read with one positioned read; compressed data are
/// decoded frame by frame. Samples arrive in host byte order, with the
/// layout described by photometric and planarConfiguration.
bool dicomReadImageData(const dicomStruct *d, const char *path, int frame, void *buffer,
                        size_t bufferSize, std::string *why = nullptr);

/// The value of a top-level element as text, or null when the element is
/// absent or empty. Strings lose trailing padding; numbers (US, SS, UL, SL,
/// FL, FD, and the numeric strings as stored) are printed as text; multiple
/// values are separated by '\\'. Sequences and pixel data give null; other
/// binary values (OB, OW, UN) give their bytes as hexadecimal words. An
/// element without a VR of its own (implicit VR) that the dictionary does not
/// know gives its bytes as text when they are all 0..127 (private text), else
/// hexadecimal. The text lives as long as d.
const char *dicomGetById(const dicomStruct *d, uint16_t group, uint16_t element);

/// The value of (group, element) for frame `frame` (0-based) of an enhanced
/// multi-frame file, as its item of the Per-frame Functional Groups Sequence
/// (5200,9230) gives it, else the Shared Functional Groups Sequence
/// (5200,9229); the value is looked for in the functional group macros (and
/// one level below). Null when neither holds it (the caller falls back to the
/// top-level element). Text as dicomGetById gives it; lives as long as d.
const char *dicomGetFrameById(const dicomStruct *d, int frame, uint16_t group, uint16_t element);
/// Whether the file carries functional groups (an enhanced multi-frame object).
bool dicomHasFunctionalGroups(const dicomStruct *d);

/// The element with that tag, or null.
const dicomDataElement *dicomFindElement(const dicomStruct *d, uint16_t group, uint16_t element);

/// Dictionary name of a public attribute: the lower-case words of its
/// keyword ("patient name", "slice location", "series instance uid",
/// "sop instance uid"), or null when the public dictionary does not know the
/// tag. Repeating groups (50xx, 60xx) are known. The text lives forever.
const char *dicomDictionaryName(uint16_t group, uint16_t element);
/// Whether the public dictionary knows the tag.
bool dicomDictionaryContains(uint16_t group, uint16_t element);
/// The dictionary's VR of the tag; UN when unknown. Ambiguous dictionary VRs
/// resolve as: US or SS -> US, OB or OW -> OW, US/SS/OW -> OW. VRs newer than
/// the table: UC and UR -> UT, OD/OF/OL/OV -> OB, SV and UV -> UN.
valRep dicomDictionaryType(uint16_t group, uint16_t element);
/// The tag of a dictionary name as dicomDictionaryName prints it; false when unknown.
bool dicomDictionaryFind(const char *name, uint16_t *group, uint16_t *element);

/// Byte-order aware reads from a buffer (bigEndian: most significant byte first).
uint16_t dicomRead16bit(const unsigned char *p, bool bigEndian);
uint32_t dicomRead32bit(const unsigned char *p, bool bigEndian);

/// One element header decoded by dicomReadElementHeader.
struct dicomElementHeader
{
    uint16_t group = 0;
    uint16_t element = 0;
    char vr[2] = {' ', ' '};
    uint32_t length = 0;  ///< value length as written (0xFFFFFFFF: undefined)
    int headerSize = 0;   ///< bytes of tag, VR and length fields
};

/// Decodes the element (or item, or delimiter) header at p. Items and
/// delimiters (group FFFE) never carry a VR. Returns false when the header
/// does not fit in [p, end).
bool dicomReadElementHeader(const unsigned char *p, const unsigned char *end, bool bigEndian,
                            bool explicitVR, dicomElementHeader *out);

/// For a value of undefined length starting at p (just after its header),
/// the number of bytes up to and including the matching delimitation item
/// (sequence delimiter for sequences, item delimiter for items), walking
/// nested items and sequences. `isItem` selects which delimiter ends the
/// value. Returns -1 when the value runs past end, nesting exceeds 64
/// levels, or the walk makes no progress: never reads outside [p, end).
long dicomAdjustLength(const unsigned char *p, const unsigned char *end, bool bigEndian,
                       bool explicitVR, bool isItem);

/// The most memory the layer allocates for one file (all decoded frames of a
/// full read, an inflated data set); by default the physical memory of the
/// machine. A file that would need more is refused with a reason before
/// anything of that size is allocated; a single frame is limited to 2 GiB
/// whatever the limit. Callers that allocate volumes use it too.
uint64_t dicomMemoryLimit();
/// Sets that limit in bytes (0 restores the default). Thread-safe.
void dicomSetMemoryLimit(uint64_t bytes);

/// Transfer syntaxes this layer decodes, as "UID name" lines (for --help and notes).
std::string dicomSupportedTransferSyntaxes();

/// Routes DCMTK's log to the host console at warning level or quieter
/// (called once before first use; dicomReadFile calls it too).
void dicomInitialize();

/// Starts loading DCMTK's data dictionary (a dozen milliseconds of parsing)
/// on a thread of its own, so that a program that reads files next does its
/// other start-up work meanwhile; the first parse waits for it. The thread is
/// joined at exit.
void dicomLoadDictionaryAhead();

} // namespace dicom
