#pragma once

#include "platform/dicom/dicom.h"

#include <QString>

class VxParamBase;
class VxParameter;

/// The module's owning copy of one data element, with the fields of
/// dicom::dicomDataElement in the same order.
class DicomDataElement
{
public:
    /// Group, element and length 0, VR two blanks, no value.
    DicomDataElement() = default;
    /// Copies the element and, when it has a value of at least one byte, its
    /// `length` value bytes; a null source gives the default state.
    explicit DicomDataElement(const dicom::dicomDataElement *source);
    /// The same from the parts; `value` must hold `length` bytes (or be null).
    DicomDataElement(unsigned short group, unsigned short element, int length, char vr0, char vr1,
                     const unsigned char *value);
    DicomDataElement(const DicomDataElement &other);
    DicomDataElement &operator=(const DicomDataElement &other);
    DicomDataElement(DicomDataElement &&other) noexcept;
    DicomDataElement &operator=(DicomDataElement &&other) noexcept;
    ~DicomDataElement();

    /// This copy in the library's form, for the conversion functions below
    /// (valid while this object lives and is not changed).
    dicom::dicomDataElement view() const;

    unsigned short group = 0;
    unsigned short element = 0;
    int length = 0;
    char vr[2] = {' ', ' '};
    unsigned char *data = nullptr; ///< malloc'd copy, released with the element; null without value

private:
    void assign(unsigned short g, unsigned short e, int len, char v0, char v1,
                const unsigned char *value);
};

/// "G%04X-%04X" of a tag (upper-case hexadecimal): the key by which elements
/// are found among a field's parameters.
QString dicomParamName(unsigned short group, unsigned short element);

/// The VR under which an element is shown. The element's own VR when the file
/// wrote one (as decodeVRString reads it: "SQ" has no row and gives UN);
/// otherwise the dictionary's, except that a private element (odd group)
/// whose value bytes are all ASCII is taken as CS so that its text can be
/// read. `annotatable` tells whether the element takes part in the " [VR]"
/// annotation: true for an own VR and for such private text, false when the
/// VR came from the dictionary.
dicom::valRep dicomElementVR(const dicom::dicomDataElement &element, bool *annotatable = nullptr);

/// The element as a new entry owned by the caller, or null for a null element
/// or one without value bytes.
///
/// Usually a string parameter named dicomParamName() whose text is the
/// dictionary name, " [VR]" when plain == 0 and the public dictionary does not
/// know the tag (and the element is annotatable, see dicomElementVR), ": ",
/// and the value:
/// - OB, OW, UN and sequences (23): the value bytes in hexadecimal. A
///   sequence is kept as the hexadecimal text of its encoded items, not as
///   nested bundles, so that every attribute stays one string parameter that
///   the filter, the writer and the element table can handle; its items can be
///   rebuilt from that text.
/// - private text without a VR of its own (CS by dicomElementVR): the value
///   bytes as text, up to the first NUL and without trailing blanks, since the
///   parser, which knows no VR for them, would print them as bytes.
/// - every other VR: valueText (the parser's text of the value) when given,
///   with the value separators '\\' stored as blanks (encodeQString).
/// Value texts are read as UTF-8, or as Latin-1 when they are not valid UTF-8.
///
/// The Siemens CSA headers (0029,1010) and (0029,1020), when binary, become a
/// decoded bundle "CSAImageHeaderInfo" or "CSASeriesHeaderInfo" (decode_csa2
/// for a value starting with "SV10", decode_csa1 otherwise); null when that
/// decoding fails.
VxParamBase *convertDicomByIdToVxParamBase(const dicom::dicomDataElement *element,
                                           const char *valueText, int plain);

/// The same conversion without vendor-header decoding: always a string
/// parameter (the CSA headers in hexadecimal), or null.
VxParameter *convertDicomByIdToVxParameter(const dicom::dicomDataElement *element,
                                           const char *valueText, int plain);
