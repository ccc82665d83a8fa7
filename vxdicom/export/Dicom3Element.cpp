#include "vxdicom/export/Dicom3Element.h"

#include "platform/core/KcRawData3D.h"
#include "platform/core/VxMessage.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QByteArray>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeDeleter
{
    void operator()(void *p) const { std::free(p); }
};
using CBuffer = std::unique_ptr<unsigned char, FreeDeleter>;

bool isWritableEncoding(dicom::enCoding enc)
{
    return enc == dicom::EXPLICIT_LITTLE_ENDIAN || enc == dicom::EXPLICIT_BIG_ENDIAN;
}

int setTextOf(Dicom3Element &e, const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    return e.setCharStringData(bytes.constData(), -2);
}

} // namespace

Dicom3Element::Dicom3Element(unsigned short group, unsigned short element, dicom::valRep valueRep)
    : elementId(element), groupId(group), vr(valueRep)
{
}

Dicom3Element::~Dicom3Element()
{
    freeData();
}

int Dicom3Element::compareElementId(const Dicom3Element *a, const Dicom3Element *b)
{
    return static_cast<int>(a->elementId) - static_cast<int>(b->elementId);
}

bool Dicom3Element::isLongLengthVR(dicom::valRep v)
{
    return v >= dicom::OB && v <= dicom::UT;
}

void Dicom3Element::freeData()
{
    std::free(data);
    data = nullptr;
    // A string kind without its buffer holds nothing.
    if (dataKind == CharString || dataKind == U8bitString) {
        valueLength = 0;
        pad = 0;
    }
}

int Dicom3Element::setU8bitData(unsigned char value)
{
    freeData();
    dataKind = U8bit;
    numericValue = value;
    valueLength = 1;
    pad = 1;
    return valueLength;
}

int Dicom3Element::setU16bitData(unsigned short value)
{
    freeData();
    dataKind = U16bit;
    numericValue = value;
    valueLength = 2;
    pad = 0;
    return valueLength;
}

int Dicom3Element::setU32bitData(unsigned int value)
{
    freeData();
    dataKind = U32bit;
    numericValue = value;
    valueLength = 4;
    pad = 0;
    return valueLength;
}

int Dicom3Element::setISData(long value)
{
    freeData();
    char text[32];
    const int n = std::snprintf(text, sizeof text, "%ld", value);
    dataKind = IS;
    isValue = value;
    valueLength = n;
    pad = n & 1;
    return valueLength;
}

int Dicom3Element::setU8bitStringData(const unsigned char *bytes, int n)
{
    if (!bytes || n < 0)
        return -1;
    const int length = maxVRLength(reinterpret_cast<const char *>(bytes), vr, n);
    // One byte more than the value keeps the buffer printable as text.
    CBuffer copy(static_cast<unsigned char *>(std::calloc(static_cast<size_t>(length) + 1, 1)));
    if (!copy)
        return -1;
    std::memcpy(copy.get(), bytes, static_cast<size_t>(length));
    freeData();
    data = copy.release();
    dataKind = U8bitString;
    valueLength = length;
    pad = length & 1;
    return valueLength;
}

int Dicom3Element::setCharStringData(const char *text, int n)
{
    if (!text)
        return -1;
    if (n == -2)
        n = static_cast<int>(std::strlen(text));
    else if (n < 0)
        return -1;
    const int length = maxVRLength(text, vr, n);
    CBuffer copy(static_cast<unsigned char *>(std::calloc(static_cast<size_t>(length) + 1, 1)));
    if (!copy)
        return -1;
    std::memcpy(copy.get(), text, static_cast<size_t>(length));
    freeData();
    data = copy.release();
    dataKind = CharString;
    valueLength = length;
    pad = length & 1;
    return valueLength;
}

int Dicom3Element::setRawDataPtr(KcRawData3D *raw, KcPrimType type, int components, int axis,
                                 int slice)
{
    freeData();
    int width = 0, height = 0, count = 0;
    if (!raw || components < 1 || !raw->sliceDims(axis, width, height, count))
        return -1;
    dataKind = RawData;
    valueLength = 0;
    pad = 0;
    rawVolume = raw;
    primType = type;
    componentsPerPixel = components;
    slicingAxis = axis;
    currentSlice = slice;
    uint64_t length = static_cast<uint64_t>(width) * static_cast<uint64_t>(height) *
                      static_cast<uint64_t>(type.size()) * static_cast<uint64_t>(components);
    if (slice == -1)
        length *= static_cast<uint64_t>(count);
    // A DICOM value length has 32 bits, and the result is an int.
    if (length > static_cast<uint64_t>(INT_MAX - 1)) {
        dataKind = CharString;
        rawVolume = nullptr;
        rawLength = 0;
        return -1;
    }
    rawLength = static_cast<uint32_t>(length);
    return static_cast<int>(rawLength);
}

unsigned int Dicom3Element::sliceBytes() const
{
    int width = 0, height = 0, count = 0;
    if (!rawVolume || !rawVolume->sliceDims(slicingAxis, width, height, count))
        return 0;
    return static_cast<unsigned int>(width) * static_cast<unsigned int>(height) *
           static_cast<unsigned int>(componentsPerPixel) *
           static_cast<unsigned int>(primType.size());
}

int Dicom3Element::setRawDataSlice(int k)
{
    if (k < 0 || dataKind != RawData || !rawVolume)
        return -1;
    int width = 0, height = 0, count = 0;
    if (!rawVolume->sliceDims(slicingAxis, width, height, count) || k >= count)
        return -1;
    currentSlice = k;
    rawLength = sliceBytes();
    return static_cast<int>(rawLength);
}

int Dicom3Element::setAttributeData(unsigned short group, unsigned short element)
{
    freeData();
    dataKind = Attribute;
    attributeGroup = group;
    attributeElement = element;
    valueLength = 4;
    pad = 0;
    return valueLength;
}

int Dicom3Element::setTableDataString(const QString &cellText)
{
    QString text = parseDicomDataString(cellText, vr);
    switch (vr) {
    case dicom::AE:
    case dicom::AS:
    case dicom::CS:
    case dicom::DS:
    case dicom::IS:
    case dicom::LO:
    case dicom::LT:
    case dicom::PN:
    case dicom::SH:
    case dicom::ST:
    case dicom::UI:
    case dicom::UN:
    case dicom::UT:
        return setTextOf(*this, text);
    case dicom::DA:
        return setTextOf(*this, text.remove(QLatin1Char('.')));
    case dicom::DT: {
        // Character 6 (the blank between date and time) is dropped.
        const QString date = text.left(6).remove(QLatin1Char('.'));
        const QString time = text.mid(7).remove(QLatin1Char(':'));
        return setTextOf(*this, date + time);
    }
    case dicom::TM:
        return setTextOf(*this, text.remove(QLatin1Char(':')));
    case dicom::AT: {
        // "gggg,eeee" read as decimal pairs on purpose: "0010,0020" gives
        // group 10 and element 20, not 0x0010 and 0x0020.
        const int group =
            text.mid(0, 2).toInt(nullptr, 10) * 256 + text.mid(2, 2).toInt(nullptr, 10);
        const int element =
            text.mid(5, 2).toInt(nullptr, 10) * 256 + text.mid(7, 2).toInt(nullptr, 10);
        return setAttributeData(static_cast<unsigned short>(group),
                                static_cast<unsigned short>(element));
    }
    case dicom::FL: {
        const float value = text.toFloat();
        uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        return setU32bitData(bits);
    }
    case dicom::SL:
        return setU32bitData(static_cast<unsigned int>(text.toInt(nullptr, 10)));
    case dicom::UL:
        return setU32bitData(text.toUInt(nullptr, 10));
    case dicom::SS:
        return setU16bitData(static_cast<unsigned short>(text.toShort(nullptr, 10)));
    case dicom::US:
        return setU16bitData(text.toUShort(nullptr, 10));
    default: {
        // FD, OB, OW and sequences keep the bytes of the text itself.
        const QByteArray bytes = text.toLocal8Bit();
        return setU8bitStringData(reinterpret_cast<const unsigned char *>(bytes.constData()),
                                  static_cast<int>(bytes.size()));
    }
    }
}

int Dicom3Element::setParamDataString(const QString &text)
{
    return setTableDataString(decodeQString(text));
}

int Dicom3Element::maxVRLength(const char * /*text*/, dicom::valRep valueRep, int n)
{
    switch (valueRep) {
    // VRs that may hold several values: the text would be split at '\', but
    // the values are not measured, so nothing is clamped.
    case dicom::AE:
    case dicom::AS:
    case dicom::CS:
    case dicom::DA:
    case dicom::DS:
    case dicom::DT:
    case dicom::IS:
    case dicom::LO:
    case dicom::SH:
    case dicom::SL:
    case dicom::TM:
    case dicom::UI:
        return n;
    case dicom::AT:
    case dicom::FL:
    case dicom::UL:
        return std::min(n, 4);
    case dicom::FD:
        return std::min(n, 8);
    case dicom::LT:
        return std::min(n, 10240);
    case dicom::ST:
        return std::min(n, 1024);
    case dicom::US:
        return std::min(n, 2);
    default:
        return n;
    }
}

int Dicom3Element::write_u8bit(dicom::enCoding, unsigned char *dest, unsigned char value)
{
    if (!dest)
        return -1;
    dest[0] = value;
    return 1;
}

int Dicom3Element::write_u16bit(dicom::enCoding enc, unsigned char *dest, unsigned short value)
{
    if (!dest || !isWritableEncoding(enc))
        return -1;
    if (enc == dicom::EXPLICIT_LITTLE_ENDIAN) {
        dest[0] = static_cast<unsigned char>(value & 0xff);
        dest[1] = static_cast<unsigned char>(value >> 8);
    } else {
        dest[0] = static_cast<unsigned char>(value >> 8);
        dest[1] = static_cast<unsigned char>(value & 0xff);
    }
    return 2;
}

int Dicom3Element::write_u32bit(dicom::enCoding enc, unsigned char *dest, unsigned int value)
{
    if (!dest || !isWritableEncoding(enc))
        return -1;
    for (int i = 0; i < 4; ++i) {
        const int shift = enc == dicom::EXPLICIT_LITTLE_ENDIAN ? 8 * i : 8 * (3 - i);
        dest[i] = static_cast<unsigned char>((value >> shift) & 0xff);
    }
    return 4;
}

int Dicom3Element::write_is(unsigned char *dest, long value)
{
    if (!dest)
        return -1;
    char text[32];
    const int n = std::snprintf(text, sizeof text, "%ld", value);
    std::memcpy(dest, text, static_cast<size_t>(n));
    return n;
}

int Dicom3Element::writeVR(dicom::enCoding, unsigned char *dest, dicom::valRep valueRep)
{
    if (!dest)
        return -1;
    const QByteArray letters = encodeVRString(valueRep).toLatin1();
    dest[0] = static_cast<unsigned char>(letters.size() > 0 ? letters[0] : 'U');
    dest[1] = static_cast<unsigned char>(letters.size() > 1 ? letters[1] : 'N');
    return 2;
}

int Dicom3Element::write(FILE *f, dicom::enCoding enc, int sizeOnly)
{
    // 1. Writing for real needs a file.
    if (!f && !sizeOnly)
        return -1;

    // 2. Raw data: the header carries the length of the current slice.
    int64_t length = valueLength;
    if (dataKind == RawData) {
        length = rawLength;
        pad = static_cast<int32_t>(rawLength & 1u);
    }

    // 3. Work buffer for header, value and pad (raw samples are streamed
    //    separately, so only their header goes through it).
    const size_t bufferSize = static_cast<size_t>(dataKind == RawData ? 0 : length) + 16;
    CBuffer buffer(static_cast<unsigned char *>(std::calloc(bufferSize, 1)));
    if (!buffer)
        return -1;
    unsigned char *p = buffer.get();

    // 4. Tag; fails for every encoding but explicit little and big endian.
    if (write_u16bit(enc, p, groupId) < 0 || write_u16bit(enc, p + 2, elementId) < 0)
        return -1;
    int header = 4;

    // 5. VR and length. The implicit form (32-bit length, no VR) is never
    //    reached: step 4 has already refused encoding 1.
    header += writeVR(enc, p + header, vr);
    if (isLongLengthVR(vr)) {
        header += 2; // reserved, 0x00 0x00
        header += write_u32bit(enc, p + header, static_cast<unsigned int>(length + pad));
    } else {
        header += write_u16bit(enc, p + header, static_cast<unsigned short>(length + pad));
    }

    // 6. Value; pad bytes stay 0x00 from the zero-filled buffer.
    unsigned char *value = p + header;
    int64_t valueBytes = 0;
    switch (dataKind) {
    case U8bit:
        valueBytes = write_u8bit(enc, value, static_cast<unsigned char>(numericValue & 0xff));
        break;
    case U16bit:
        valueBytes = write_u16bit(enc, value, static_cast<unsigned short>(numericValue & 0xffff));
        break;
    case U32bit:
        valueBytes = write_u32bit(enc, value, numericValue);
        break;
    case IS:
        valueBytes = write_is(value, isValue);
        break;
    case Attribute:
        pad = 0;
        write_u16bit(enc, value, attributeGroup);
        write_u16bit(enc, value + 2, attributeElement);
        valueBytes = 4;
        break;
    case CharString:
        if (data && valueLength > 0)
            std::memcpy(value, data, static_cast<size_t>(valueLength));
        valueBytes = data ? valueLength : 0;
        break;
    case U8bitString:
        if (data && valueLength > 0 && vr == dicom::OW) {
            // 16-bit words held in host order, written in the encoding's order;
            // an odd trailing byte becomes one more word.
            for (int i = 0; i < valueLength; i += 2) {
                const unsigned char pair[2] = {
                    data[i], static_cast<unsigned char>(i + 1 < valueLength ? data[i + 1] : 0)};
                unsigned short word = 0;
                std::memcpy(&word, pair, sizeof word);
                write_u16bit(enc, value + i, word);
            }
        } else if (data && valueLength > 0) {
            std::memcpy(value, data, static_cast<size_t>(valueLength));
        }
        valueBytes = data ? valueLength : 0;
        break;
    case RawData:
        break;
    }

    // 7. Total without the raw samples.
    const int64_t total = header + pad + valueBytes;

    // 8. Size only.
    if (sizeOnly) {
        const int64_t size = total + (dataKind == RawData ? static_cast<int64_t>(rawLength) : 0);
        return size > INT_MAX ? -1 : static_cast<int>(size);
    }

    // 9. Write header and value in one go, then the raw samples.
    const size_t toWrite = static_cast<size_t>(dataKind == RawData ? header : total);
    const size_t written = std::fwrite(buffer.get(), 1, toWrite, f);
    if (written != toWrite)
        return -1;
    if (dataKind == RawData) {
        const int raw = writeRawData(f, enc);
        if (raw < 0)
            return -1;
        return static_cast<int>(written) + raw;
    }
    // Twice the bytes written, deliberately: callers test the result for
    // failure only, and group lengths come from sizeOnly.
    return static_cast<int>(written + written);
}

int Dicom3Element::writeRawData(FILE *f, dicom::enCoding)
{
    if (!f || dataKind != RawData || !rawVolume)
        return -1;
    int width = 0, height = 0, count = 0;
    if (!rawVolume->sliceDims(slicingAxis, width, height, count) || width < 0 || height < 0)
        return -1;

    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    const size_t sampleBytes =
        static_cast<size_t>(primType.size()) * static_cast<size_t>(componentsPerPixel);
    const size_t slice = pixels * sampleBytes;
    // The volume's own element size decides how much extraction copies.
    const size_t extracted = pixels * static_cast<size_t>(std::max(rawVolume->elementBytes(), 0));
    CBuffer buffer(static_cast<unsigned char *>(std::calloc(std::max(slice, extracted) + 1, 1)));
    if (!buffer)
        return -1;

    // Slice -1 streams the whole volume, slice after slice.
    const int first = currentSlice == -1 ? 0 : currentSlice;
    const int last = currentSlice == -1 ? count - 1 : currentSlice;
    const size_t expected = slice * static_cast<size_t>(last - first + 1);
    if (expected > static_cast<size_t>(INT_MAX - 1))
        return -1;
    size_t written = 0;
    for (int k = first; k <= last; ++k) {
        if (!rawVolume->extractSlice(slicingAxis, k, buffer.get()))
            return -1;
        // Samples go out in host byte order, whatever the encoding.
        written += std::fwrite(buffer.get(), 1, slice, f);
    }
    if (written != expected)
        VxMessage::getTheMsg()->printf("Dicom export: only %d of %d bytes written\n",
                                       static_cast<int>(written), static_cast<int>(expected));
    int result = static_cast<int>(expected);
    if (expected & 1u) {
        const unsigned char zero = 0;
        if (std::fwrite(&zero, 1, 1, f) != 1)
            return -1;
        ++result;
    }
    return result;
}

int Dicom3Element::read_u8bit(FILE *f, dicom::enCoding, unsigned char &out)
{
    if (!f)
        return -1;
    const int c = std::fgetc(f);
    if (c == EOF)
        return -1;
    out = static_cast<unsigned char>(c);
    return 1;
}

int Dicom3Element::read_u16bit(FILE *f, dicom::enCoding enc, unsigned short &out)
{
    unsigned char b[2];
    if (!f || !isWritableEncoding(enc) || std::fread(b, 1, 2, f) != 2)
        return -1;
    out = enc == dicom::EXPLICIT_LITTLE_ENDIAN ? static_cast<unsigned short>(b[0] | (b[1] << 8))
                                               : static_cast<unsigned short>((b[0] << 8) | b[1]);
    return 2;
}

int Dicom3Element::read_u32bit(FILE *f, dicom::enCoding enc, unsigned int &out)
{
    unsigned char b[4];
    if (!f || !isWritableEncoding(enc) || std::fread(b, 1, 4, f) != 4)
        return -1;
    out = 0;
    for (int i = 0; i < 4; ++i) {
        const int shift = enc == dicom::EXPLICIT_LITTLE_ENDIAN ? 8 * i : 8 * (3 - i);
        out |= static_cast<unsigned int>(b[i]) << shift;
    }
    return 4;
}

int Dicom3Element::read_VR(FILE *f, dicom::valRep &out)
{
    char letters[3] = {0, 0, 0};
    if (!f || std::fread(letters, 1, 2, f) != 2)
        return -1;
    out = decodeVRString(QString::fromLatin1(letters, 2));
    return 2;
}

int Dicom3Element::read(FILE *f, dicom::enCoding enc)
{
    if (!f || !isWritableEncoding(enc))
        return -1;
    VxMessage *msg = VxMessage::getTheMsg();
    int bytes = 0;
    msg->printf("begin Element\n");
    msg->printf("reading groupId\n");
    if (read_u16bit(f, enc, groupId) < 0)
        return -1;
    msg->printf("reading elementId\n");
    if (read_u16bit(f, enc, elementId) < 0)
        return -1;
    bytes += 4;
    msg->printf("reading VR\n");
    if (read_VR(f, vr) < 0)
        return -1;
    bytes += 2;
    if (isLongLengthVR(vr)) {
        unsigned short reserved = 0;
        unsigned int length = 0;
        msg->printf("skip 16 bits\n");
        if (read_u16bit(f, enc, reserved) < 0)
            return -1;
        msg->printf("reading 32 bit length\n");
        if (read_u32bit(f, enc, length) < 0)
            return -1;
        readLength = static_cast<int32_t>(length);
        bytes += 6;
    } else {
        unsigned short length = 0;
        msg->printf("reading 16 bit length\n");
        if (read_u16bit(f, enc, length) < 0)
            return -1;
        readLength = length;
        bytes += 2;
    }
    msg->printf("reading data\n");
    const int sought = std::fseek(f, readLength, SEEK_CUR);
    msg->printf("fseeked returned %d\n", sought);
    if (sought != 0) {
        std::perror("fseek error");
        return -1;
    }
    msg->printf("end Element\n");
    return bytes;
}

void Dicom3Element::print() const
{
    const QByteArray letters = encodeVRString(vr).toLatin1();
    VxMessage::getTheMsg()->printf("(%4X, %4X) %2s  len(%s) = %d\n", groupId, elementId,
                                   letters.constData(),
                                   data ? reinterpret_cast<const char *>(data) : "", readLength);
}
