// One data element, as any file could hold it, turned into a host parameter.
// Input: group (2 bytes), element (2), the two VR characters (2), a flag byte
// (bit 0: plain text, bit 1: pass the value as the parser's text), then the
// value bytes, copied into a buffer of exactly their length.

#include "fuzz/FuzzSupport.h"

#include "platform/data/VxParamBundle.h"
#include "platform/data/VxParameter.h"
#include "vxdicom/params/DicomElementConversion.h"

#include <cstring>
#include <memory>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 7)
        return 0;
    dicom::dicomDataElement e;
    e.group = uint16_t(data[0] | data[1] << 8);
    e.element = uint16_t(data[2] | data[3] << 8);
    e.vr[0] = char(data[4]);
    e.vr[1] = char(data[5]);
    const int flags = data[6];
    const size_t n = size - 7;
    std::unique_ptr<unsigned char[]> value(n ? new unsigned char[n] : nullptr);
    if (n)
        std::memcpy(value.get(), data + 7, n);
    e.data = value.get();
    e.length = int32_t(n);
    const std::string text(reinterpret_cast<const char *>(data + 7), n);
    const char *valueText = (flags & 2) ? text.c_str() : nullptr;
    const int plain = flags & 1;

    bool annotatable = false;
    const dicom::valRep vr = dicomElementVR(e, &annotatable);
    VXFUZZ_CHECK(int(vr) >= 0 && int(vr) <= 25);

    std::unique_ptr<VxParamBase> base(convertDicomByIdToVxParamBase(&e, valueText, plain));
    std::unique_ptr<VxParameter> parameter(convertDicomByIdToVxParameter(&e, valueText, plain));
    if (n == 0) {
        VXFUZZ_CHECK(!base && !parameter);
        return 0;
    }
    VXFUZZ_CHECK(parameter != nullptr);
    const KcString name = KcString::fromQString(dicomParamName(e.group, e.element));
    VXFUZZ_CHECK(parameter->name() == name);
    (void)parameter->stringValue();
    if (base) {
        VXFUZZ_CHECK(base->name() == name || base->isBundle());
        if (const VxParamBundle *bundle = base->asBundle())
            (void)bundle->dump();
        else
            (void)static_cast<VxParameter *>(base.get())->stringValue();
    }

    // The module's own copy of the element converts the same way.
    DicomDataElement copy(&e);
    const dicom::dicomDataElement view = copy.view();
    VXFUZZ_CHECK(view.length == e.length && std::memcmp(view.data, e.data, n) == 0);
    std::unique_ptr<VxParameter> again(convertDicomByIdToVxParameter(&view, valueText, plain));
    VXFUZZ_CHECK(again && again->stringValue() == parameter->stringValue());
    return 0;
}
