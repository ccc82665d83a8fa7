#pragma once

#include <QString>

class VxParameter;
class VxParamBundle;

/// What decodeDicomParam returns of a "G%04X-%04X" parameter whose text is
/// "name [VR]: value" (the " [VR]" part optional).
enum ReturnParamContent {
    ContentName = 0,      ///< text before "[" (or before ":" without one)
    ContentVR = 1,        ///< the two letters after "[", or the dictionary's VR code
    ContentValue = 2,     ///< everything after the first ":"
    ContentValueItem = 3, ///< one blank-separated part of the value
    ContentGroup = 4,     ///< name characters 1..4, upper case
    ContentElement = 5,   ///< name characters 6..9, upper case
};

/// Which elements filterDicomParamBundle keeps; every policy drops element 0
/// (group lengths).
enum DicomParamFilterPolicy {
    FilterAll = 0,              ///< (and any negative value) every element
    FilterPrivate = 1,          ///< odd groups
    FilterPatient = 2,          ///< group 0x0010
    FilterPublicNonPatient = 3, ///< even groups other than 0x0010
};

/// One part of a DICOM parameter, trimmed; a null text for a null parameter,
/// a text without ":", a ":" before the first "[", or an item index out of
/// range. `index` is used by ContentValueItem only (0-based; the value is
/// split at single blanks and empty parts count).
QString decodeDicomParam(const VxParameter *param, ReturnParamContent what, int index = 0);

/// A new bundle "DICOM" holding "All" with copies of the kept entries (nested
/// bundles such as decoded vendor headers are not copied). Null for a null
/// bundle; for a policy above 3 "DICOM" comes back without "All".
VxParamBundle *filterDicomParamBundle(const VxParamBundle *bundle, DicomParamFilterPolicy policy);

/// Cleans every string parameter of the bundle and its sub-bundles in place:
/// characters that C's isprint rejects in the "C" locale (control characters
/// and everything outside ASCII, one blank per character) and double quotes
/// become blanks, then trailing white space and dangling '\\' separators are
/// removed. Other parameter types are left alone.
void fix(VxParamBundle *bundle);
