#pragma once

#include <QString>
#include <QStringList>

#include <memory>

class Dicom3Object;
class VxField3;
class VxParamBundle;

/// What the host's "save as DICOM" needs besides the field.
struct Dicom3SaveOptions
{
    /// Index into Dicom3Object::theModality; -1: the field's "Modality" when
    /// the writer knows it, MR otherwise.
    int sopClassIndex = -1;
    QString patientName; ///< empty: the writer's default
    QString prefix = QStringLiteral("IM");
    /// Attributes inserted after the generated ones ("DICOM"/"All"), or null.
    std::shared_ptr<VxParamBundle> attributes;
};

/// The storage class index of a modality name a user gives (CR, CT, MR, NM,
/// SC, US, US-MF); -1 for any other.
int dicom3SopClassOf(const QString &modality);
/// The names dicom3SopClassOf knows, in the order they are offered.
QStringList dicom3ModalityNames();
/// The class a field is written as when the user names none.
int dicom3DefaultSopClass(const VxField3 &field);

/// The writer's object for the field, generated (header, meta group and the
/// modules of the class) and ready for writeDicom3Slices. Null, with the
/// reason in *why, for a field the writer cannot write.
std::unique_ptr<Dicom3Object> makeDicom3Object(VxField3 &field, const Dicom3SaveOptions &options,
                                               QString *why);

/// Writes the field as one file per slice into dir. Returns the number of
/// files written, or -1 (the console says why).
int saveFieldAsDicom(VxField3 &field, const QString &dir, const Dicom3SaveOptions &options);

/// Whether the writer owns the element: the file meta group, group lengths,
/// the pixel description and pixel data, the geometry and what changes from
/// slice to slice (SOP class and instance UIDs, instance and acquisition
/// numbers, positions) and the modality. A value given for it is never
/// written; *why (when given) says where the written value comes from.
bool dicom3WriterOwns(int group, int element, QString *why = nullptr);

/// The attributes the object will write, as the bundle "DICOM" holding
/// "All" with one "G%04X-%04X" parameter per element ("name [VR]: value",
/// the value as text with encodeQString), pixel data and group lengths left
/// out. The caller owns it.
std::unique_ptr<VxParamBundle> dicom3AttributeBundle(const Dicom3Object &object);
