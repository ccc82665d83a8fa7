#pragma once

#include "platform/dicom/dicom.h"

#include <QString>

class VxParamBase;
class VxParameter;

/// The module's owning copy of one data element of a parsed file.
class DicomDataElement
{
public:
    DicomDataElement() = default;
    /// Copies the element; a null source gives the default state.
    explicit DicomDataElement(const dicom::dicomDataElement *source);
    DicomDataElement(unsigned short group, unsigned short element, int length, char vr0, char vr1,
                     const unsigned char *value);
    DicomDataElement(const DicomDataElement &other);
    DicomDataElement &operator=(const DicomDataElement &other);
    ~DicomDataElement();

    /// A view of this copy in the library's form (valid while this object lives).
    dicom::dicomDataElement view() const;

    unsigned short group = 0;
    unsigned short element = 0;
    int length = 0;
    char vr[2] = {' ', ' '};
    unsigned char *data = nullptr; ///< malloc'd copy; null when length < 1

private:
    void assign(unsigned short g, unsigned short e, int len, char v0, char v1,
                const unsigned char *value);
};

/// "G%04X-%04X" of a tag: the key by which elements are found in parameters.
QString dicomParamName(unsigned short group, unsigned short element);

/// The VR used for an element: its own when the file wrote one, else the
/// dictionary's, and CS for printable private values without a VR of their
/// own. ownVr tells whether the element took part in the " [VR]" annotation.
dicom::valRep dicomElementVR(const dicom::dicomDataElement &element, bool *annotatable = nullptr);

/// The element as a new parameter owned by the caller: a string parameter
/// named "G%04X-%04X" holding "name [VR]: value" (the annotation only with
/// plain == 0 and for attributes the dictionary does not know), or, for the
/// Siemens CSA headers (0029,1010) and (0029,1020), a decoded bundle named
/// "CSAImageHeaderInfo" or "CSASeriesHeaderInfo". Binary values are shown in
/// hexadecimal; valueText is the value of every other element, as the parser
/// prints it ('\\' between values, stored with blanks). Null for an element
/// without a value.
VxParamBase *convertDicomByIdToVxParamBase(const dicom::dicomDataElement *element,
                                           const char *valueText, int plain);

/// The same, but never decodes vendor headers: always a string parameter (or null).
VxParameter *convertDicomByIdToVxParameter(const dicom::dicomDataElement *element,
                                           const char *valueText, int plain);
