#include "vxdicom/params/DicomElementConversion.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "vxdicom/params/CsaHeader.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <cstdlib>
#include <cstring>

DicomDataElement::DicomDataElement(const dicom::dicomDataElement *source)
{
    if (source)
        assign(source->group, source->element, source->length, source->vr[0], source->vr[1],
               source->data);
}

DicomDataElement::DicomDataElement(unsigned short g, unsigned short e, int len, char v0, char v1,
                                   const unsigned char *value)
{
    assign(g, e, len, v0, v1, value);
}

DicomDataElement::DicomDataElement(const DicomDataElement &other)
{
    assign(other.group, other.element, other.length, other.vr[0], other.vr[1], other.data);
}

DicomDataElement &DicomDataElement::operator=(const DicomDataElement &other)
{
    if (this != &other) {
        std::free(data);
        data = nullptr;
        assign(other.group, other.element, other.length, other.vr[0], other.vr[1], other.data);
    }
    return *this;
}

DicomDataElement::~DicomDataElement()
{
    std::free(data);
}

void DicomDataElement::assign(unsigned short g, unsigned short e, int len, char v0, char v1,
                              const unsigned char *value)
{
    group = g;
    element = e;
    length = len;
    vr[0] = v0;
    vr[1] = v1;
    if (value && len >= 1) {
        data = static_cast<unsigned char *>(std::malloc(static_cast<size_t>(len)));
        std::memcpy(data, value, static_cast<size_t>(len));
    }
}

dicom::dicomDataElement DicomDataElement::view() const
{
    dicom::dicomDataElement e{};
    e.group = group;
    e.element = element;
    e.vr[0] = vr[0];
    e.vr[1] = vr[1];
    e.length = length;
    e.data = data;
    return e;
}

QString dicomParamName(unsigned short group, unsigned short element)
{
    return QString::asprintf("G%04X-%04X", group, element);
}

dicom::valRep dicomElementVR(const dicom::dicomDataElement &e, bool *annotatable)
{
    const QString own = QString::fromLocal8Bit(e.vr, 2).trimmed();
    if (own.length() >= 2) {
        if (annotatable)
            *annotatable = true;
        return decodeVRString(own);
    }
    if ((e.group & 1) && e.data && isASCII(e.data, e.length)) {
        if (annotatable)
            *annotatable = true;
        return dicom::CS;
    }
    if (annotatable)
        *annotatable = false;
    return dicom::dicomDictionaryType(e.group, e.element);
}

namespace {

bool isBinary(dicom::valRep vr)
{
    return vr == dicom::OB || vr == dicom::OW || vr == dicom::SQ || vr == dicom::UN;
}

QString parameterText(const dicom::dicomDataElement &e, dicom::valRep vr, bool annotatable,
                      const char *valueText, int plain)
{
    QString text;
    if (const char *name = dicom::dicomDictionaryName(e.group, e.element))
        text = QString::fromUtf8(name);
    if (plain == 0 && annotatable && !dicom::dicomDictionaryContains(e.group, e.element))
        text += QString(" [%1]").arg(encodeVRString(vr));
    text += ": ";
    if (isBinary(vr)) {
        int n = 0;
        char *hex = hexEncode(e.data, e.length, n);
        text += QString::fromLatin1(hex, n);
        std::free(hex);
    } else if (valueText) {
        text += encodeQString(QString::fromUtf8(valueText));
    }
    return text;
}

VxParameter *stringParameter(const dicom::dicomDataElement &e, const char *valueText, int plain)
{
    bool annotatable = false;
    const dicom::valRep vr = dicomElementVR(e, &annotatable);
    const QString name = dicomParamName(e.group, e.element);
    return new VxParameter(name.toUtf8().constData(),
                           parameterText(e, vr, annotatable, valueText, plain).toUtf8().constData());
}

} // namespace

VxParamBase *convertDicomByIdToVxParamBase(const dicom::dicomDataElement *e, const char *valueText,
                                           int plain)
{
    if (!e || !e->data || e->length < 1)
        return nullptr;
    const dicom::valRep vr = dicomElementVR(*e);
    if (isBinary(vr) && e->group == 0x0029 && (e->element == 0x1010 || e->element == 0x1020)) {
        const char *bundleName =
            e->element == 0x1010 ? "CSAImageHeaderInfo" : "CSASeriesHeaderInfo";
        const bool csa2 = e->length >= 4 && std::memcmp(e->data, "SV10", 4) == 0;
        return csa2 ? decode_csa2(e->data, e->length, bundleName)
                    : decode_csa1(e->data, e->length, bundleName);
    }
    return stringParameter(*e, valueText, plain);
}

VxParameter *convertDicomByIdToVxParameter(const dicom::dicomDataElement *e, const char *valueText,
                                           int plain)
{
    if (!e || !e->data || e->length < 1)
        return nullptr;
    return stringParameter(*e, valueText, plain);
}
