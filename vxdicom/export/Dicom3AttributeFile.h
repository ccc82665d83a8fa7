#pragma once

#include <memory>
#include <string>

class VxParamBundle;

/// Reads attributes a user wrote by hand, one per line:
///
///     # a comment; blank lines are ignored
///     0008,0060 CS modality: CT
///     (0010,0010) PN patient name: Doe^Jane
///     0020,0037 DS image orientation patient: 1\0\0\0\1\0
///
/// tag (group,element in hexadecimal, parentheses optional), the VR's two
/// letters, an optional description, ':' and the value ('\' separates values).
/// The result is the bundle "DICOM" holding "All" with one parameter
/// "G%04X-%04X" per line, the form the writer inserts. Null, with the file
/// name and line in *error, when a line cannot be read.
std::unique_ptr<VxParamBundle> readAttributeFile(const std::string &path, std::string *error);

/// Writes the parameters of the bundle's "All" in the form readAttributeFile
/// reads, after a comment line that says what the file is. False, with the
/// reason in *error, when the file cannot be written.
bool writeAttributeFile(const std::string &path, const VxParamBundle &bundle, std::string *error);
