#include "vxdicom/export/Dicom3FieldWriter.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "vxdicom/export/Dicom3Element.h"
#include "vxdicom/export/Dicom3Group.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/Dicom3Writer.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QStringList>

#include <cstring>

namespace {

struct ModalityName
{
    const char *name;
    int sopClassIndex;
};

// The storage classes the writer builds, by the name a user gives.
const ModalityName kModalities[] = {
    {"CT", 1}, {"MR", 2}, {"NM", 3}, {"CR", 0}, {"SC", 4}, {"US", 9}, {"US-MF", 10},
};

// The value of a generated element as the user reads it.
QString valueText(const Dicom3Element &e)
{
    switch (e.getDataKind()) {
    case Dicom3Element::U8bit:
    case Dicom3Element::U16bit:
        return QString::number(e.getNumericValue());
    case Dicom3Element::U32bit:
        if (e.getVR() == dicom::FL) {
            const unsigned int bits = e.getNumericValue();
            float value;
            std::memcpy(&value, &bits, sizeof value);
            return QString::number(value, 'g', 7);
        }
        return QString::number(e.getNumericValue());
    case Dicom3Element::IS:
        return QString::number(e.getISValue());
    case Dicom3Element::Attribute:
        return QString::asprintf("%04X-%04X", e.getAttributeGroup(), e.getAttributeElement());
    case Dicom3Element::U8bitString:
        if (e.getVR() == dicom::OB || e.getVR() == dicom::OW || e.getVR() == dicom::UN) {
            int n = 0;
            char *hex = hexEncode(e.getData(), e.getValueLength(), n);
            const QString text = QString::fromLatin1(hex, n);
            std::free(hex);
            return text;
        }
        [[fallthrough]];
    case Dicom3Element::CharString: {
        QByteArray bytes(reinterpret_cast<const char *>(e.getData()), e.getValueLength());
        while (!bytes.isEmpty() && (bytes.endsWith('\0') || bytes.endsWith(' ')))
            bytes.chop(1);
        return QString::fromLatin1(bytes);
    }
    case Dicom3Element::RawData:
        break;
    }
    return QString();
}

} // namespace

int dicom3SopClassOf(const QString &modality)
{
    for (const ModalityName &m : kModalities)
        if (modality == QLatin1String(m.name))
            return m.sopClassIndex;
    return -1;
}

QStringList dicom3ModalityNames()
{
    QStringList names;
    for (const ModalityName &m : kModalities)
        names << QString::fromLatin1(m.name);
    return names;
}

int dicom3DefaultSopClass(const VxField3 &field)
{
    const int index = dicom3SopClassOf(field.parameters().getString("Modality").toQString());
    return index >= 0 ? index : 2;
}

std::unique_ptr<Dicom3Object> makeDicom3Object(VxField3 &field, const Dicom3SaveOptions &options,
                                               QString *why)
{
    const QString label = QString::fromStdString(field.label());
    const VxLattice3 *lat = field.lattice();
    if (!lat) {
        *why = QStringLiteral("field \"%1\" has no regular lattice").arg(label);
        return nullptr;
    }
    std::unique_ptr<Dicom3Object> object;
    const KcPrimType type = lat->primType();
    if (lat->nComponents() > 1) {
        if (lat->dim(2) != 1 || type != KcPrimType::UInt8 || lat->nComponents() != 3) {
            *why = QStringLiteral("field \"%1\": colour is written as one 2D RGB image of unsigned "
                                  "8-bit samples; this one has %2 slices of %3 %4 components")
                       .arg(label)
                       .arg(lat->dim(2))
                       .arg(lat->nComponents())
                       .arg(QString::fromLatin1(type.name()));
            return nullptr;
        }
        const int dims[3] = {lat->dim(0), lat->dim(1), lat->nComponents()};
        object =
            std::make_unique<Dicom3Object>(dims, static_cast<const unsigned char *>(lat->data()));
    } else {
        if (type != KcPrimType::UInt8 && type != KcPrimType::Int16 && type != KcPrimType::UInt16) {
            *why = QStringLiteral("field \"%1\" holds %2 samples; DICOM images are written from "
                                  "unsigned 8-bit and signed or unsigned 16-bit samples")
                       .arg(label, QString::fromLatin1(type.name()));
            return nullptr;
        }
        if (auto *uniform = dynamic_cast<VxUniformScalarField3 *>(&field))
            object = std::make_unique<Dicom3Object>(uniform);
        else if (auto *stacked = dynamic_cast<VxStackedScalarField3 *>(&field))
            object = std::make_unique<Dicom3Object>(stacked);
        else {
            *why = QStringLiteral("field \"%1\" is neither uniform nor stacked").arg(label);
            return nullptr;
        }
        object->setSOPClassIndex(options.sopClassIndex >= 0 ? options.sopClassIndex
                                                            : dicom3DefaultSopClass(field));
        // Lengths are written in millimetres.
        object->setLengthUnitFactor(static_cast<float>(field.unitLength() * 1000.0));
    }
    if (!options.patientName.isEmpty())
        object->setPatientName(options.patientName);
    if (object->generate() < 0) {
        *why = QStringLiteral("field \"%1\" could not be made a DICOM object").arg(label);
        return nullptr;
    }
    if (lat->nComponents() == 3) {
        // Colour images need their sample arrangement stated; the pixels are
        // interleaved.
        VxParamBundle colour("DICOM");
        auto *all = new VxParamBundle("All");
        all->insert(new VxParameter("G0028-0006", "planar configuration [US]: 0"));
        colour.insert(all);
        object->insertDicomParamBundle(&colour);
    }
    if (options.attributes)
        object->insertDicomParamBundle(options.attributes.get());
    return object;
}

int saveFieldAsDicom(VxField3 &field, const QString &dir, const Dicom3SaveOptions &options)
{
    QString why;
    const std::unique_ptr<Dicom3Object> object = makeDicom3Object(field, options, &why);
    if (!object) {
        VxMessage::getTheMsg()->printf("save-dicom: %s\n", why.toLocal8Bit().constData());
        return -1;
    }
    const int n = writeDicom3Slices(*object, dir, options.prefix);
    if (n < 0)
        return -1;
    std::printf("field \"%s\": %d file%s written to %s (%s)\n", field.label().c_str(), n,
                n == 1 ? "" : "s", dir.toLocal8Bit().constData(),
                Dicom3Object::theModality[object->getSOPClassIndex()]);
    std::fflush(stdout);
    return n;
}

bool dicom3WriterOwns(int group, int element, QString *why)
{
    auto owned = [why](const char *reason) {
        if (why)
            *why = QString::fromLatin1(reason);
        return true;
    };
    if (element == 0x0000)
        return owned("group lengths are counted when the file is written");
    if (group == 0x0002)
        return owned("the file meta information describes the written file");
    if (group == 0x0028 || group == 0x7FE0)
        return owned("the image and its pixel description come from the field");
    static const struct
    {
        int group, element;
        const char *reason;
    } tags[] = {
        {0x0008, 0x0016, "the storage class is chosen with the modality"},
        {0x0008, 0x0018, "every slice gets a UID of its own"},
        {0x0008, 0x0060, "it is chosen with the modality"},
        {0x0018, 0x0050, "the geometry comes from the field"},
        {0x0020, 0x0012, "it numbers the slices"},
        {0x0020, 0x0013, "it numbers the slices"},
        {0x0020, 0x0032, "the geometry comes from the field"},
        {0x0020, 0x0037, "the geometry comes from the field"},
        {0x0020, 0x1041, "the geometry comes from the field"},
    };
    for (const auto &tag : tags)
        if (tag.group == group && tag.element == element)
            return owned(tag.reason);
    return false;
}

std::unique_ptr<VxParamBundle> dicom3AttributeBundle(const Dicom3Object &object)
{
    auto bundle = std::make_unique<VxParamBundle>("DICOM");
    auto *all = new VxParamBundle("All");
    for (int g = 0; g < object.numGroups(); ++g) {
        const Dicom3Group *group = object.group(g);
        for (int i = 0; i < group->numElements(); ++i) {
            const Dicom3Element &e = *group->element(i);
            if (e.getElementId() == 0x0000 || e.getDataKind() == Dicom3Element::RawData)
                continue;
            const char *name = dicom::dicomDictionaryName(e.getGroupId(), e.getElementId());
            const QString text = QStringLiteral("%1 [%2]: %3")
                                     .arg(QString::fromUtf8(name ? name : "unknown"),
                                          encodeVRString(e.getVR()), encodeQString(valueText(e)));
            const QByteArray tag =
                QString::asprintf("G%04X-%04X", e.getGroupId(), e.getElementId()).toLatin1();
            all->insert(new VxParameter(tag.constData(), text.toUtf8().constData()));
        }
    }
    bundle->insert(all);
    return bundle;
}
