#include "vxdicom/params/DicomElementConversion.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "vxdicom/params/CsaHeader.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QStringDecoder>

#include <cstdlib>
#include <cstring>
#include <utility>

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
        DicomDataElement copy(other);
        *this = std::move(copy);
    }
    return *this;
}

DicomDataElement::DicomDataElement(DicomDataElement &&other) noexcept
    : group(other.group), element(other.element), length(other.length),
      data(std::exchange(other.data, nullptr))
{
    vr[0] = other.vr[0];
    vr[1] = other.vr[1];
}

DicomDataElement &DicomDataElement::operator=(DicomDataElement &&other) noexcept
{
    if (this != &other) {
        std::free(data);
        group = other.group;
        element = other.element;
        length = other.length;
        vr[0] = other.vr[0];
        vr[1] = other.vr[1];
        data = std::exchange(other.data, nullptr);
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
        if (data)
            std::memcpy(data, value, static_cast<size_t>(len));
    }
}

dicom::dicomDataElement DicomDataElement::view() const
{
    dicom::dicomDataElement e;
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

namespace {

// Where an element's VR came from.
enum class VRSource { Own, PrivateText, Dictionary };

dicom::valRep chooseVR(const dicom::dicomDataElement &e, VRSource &source)
{
    // 1. The element's own VR letters.
    const QString own = QString::fromLocal8Bit(e.vr, 2).trimmed();
    if (own.length() >= 2) {
        source = VRSource::Own;
        return decodeVRString(own);
    }
    // 2. Implicit VR: private text reads as CS, anything else takes the dictionary's VR.
    if ((e.group & 1) != 0 && e.data && e.length >= 1 && isASCII(e.data, e.length)) {
        source = VRSource::PrivateText;
        return dicom::CS;
    }
    source = VRSource::Dictionary;
    return dicom::dicomDictionaryType(e.group, e.element);
}

} // namespace

dicom::valRep dicomElementVR(const dicom::dicomDataElement &e, bool *annotatable)
{
    VRSource source = VRSource::Dictionary;
    const dicom::valRep vr = chooseVR(e, source);
    if (annotatable)
        *annotatable = source != VRSource::Dictionary;
    return vr;
}

namespace {

bool isBinaryVR(dicom::valRep vr)
{
    return vr == dicom::OB || vr == dicom::OW || vr == dicom::SQ || vr == dicom::UN;
}

bool isCsaHeader(const dicom::dicomDataElement &e)
{
    return e.group == 0x0029 && (e.element == 0x1010 || e.element == 0x1020);
}

// Value bytes as text. Files without a Specific Character Set, or with
// ISO_IR 100, hold Latin-1; ISO_IR 192 holds UTF-8. Bytes that are not valid
// UTF-8 are therefore read as Latin-1 rather than shown as replacement marks.
QString valueBytesToQString(const char *bytes, qsizetype n)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = utf8.decode(QByteArrayView(bytes, n));
    return utf8.hasError() ? QString::fromLatin1(bytes, n) : text;
}

// Private text without a VR of its own, from its bytes: up to the first NUL,
// separators as blanks, trailing padding removed.
QString privateText(const dicom::dicomDataElement &e)
{
    const void *nul = std::memchr(e.data, 0, static_cast<size_t>(e.length));
    const int n =
        nul ? static_cast<int>(static_cast<const unsigned char *>(nul) - e.data) : e.length;
    QString text = encodeQString(valueBytesToQString(reinterpret_cast<const char *>(e.data), n));
    while (!text.isEmpty() && text.back().isSpace())
        text.chop(1);
    return text;
}

QString parameterText(const dicom::dicomDataElement &e, const char *valueText, int plain)
{
    VRSource source = VRSource::Dictionary;
    const dicom::valRep vr = chooseVR(e, source);

    // 1. The dictionary name, if there is one.
    QString text;
    if (const char *name = dicom::dicomDictionaryName(e.group, e.element))
        text = QString::fromLatin1(name);
    // 2. " [VR]" for attributes the dictionary does not know.
    if (plain == 0 && source != VRSource::Dictionary &&
        !dicom::dicomDictionaryContains(e.group, e.element))
        text += QString(" [%1]").arg(encodeVRString(vr));
    // 3.
    text += ": ";
    // 4. The value.
    if (isBinaryVR(vr)) {
        int n = 0;
        char *hex = hexEncode(e.data, e.length, n);
        if (hex)
            text += QString::fromLatin1(hex, n);
        std::free(hex);
    } else if (source == VRSource::PrivateText) {
        text += privateText(e);
    } else if (valueText) {
        text += encodeQString(valueBytesToQString(valueText, qsizetype(std::strlen(valueText))));
    }
    return text;
}

VxParameter *stringParameter(const dicom::dicomDataElement &e, const char *valueText, int plain)
{
    const QString name = dicomParamName(e.group, e.element);
    return new VxParameter(name.toLatin1().constData(),
                           parameterText(e, valueText, plain).toUtf8().constData());
}

} // namespace

VxParamBase *convertDicomByIdToVxParamBase(const dicom::dicomDataElement *e, const char *valueText,
                                           int plain)
{
    // 1. Empty elements get no parameter.
    if (!e || !e->data || e->length < 1)
        return nullptr;
    // 3. The vendor headers among the binary elements become bundles.
    if (isCsaHeader(*e) && isBinaryVR(dicomElementVR(*e))) {
        const char *bundleName =
            e->element == 0x1010 ? "CSAImageHeaderInfo" : "CSASeriesHeaderInfo";
        const bool csa2 = e->length >= 4 && std::memcmp(e->data, "SV10", 4) == 0;
        return csa2 ? decode_csa2(e->data, e->length, bundleName)
                    : decode_csa1(e->data, e->length, bundleName);
    }
    // 2 and 4. Everything else is a string parameter.
    return stringParameter(*e, valueText, plain);
}

VxParameter *convertDicomByIdToVxParameter(const dicom::dicomDataElement *e, const char *valueText,
                                           int plain)
{
    if (!e || !e->data || e->length < 1)
        return nullptr;
    return stringParameter(*e, valueText, plain);
}
