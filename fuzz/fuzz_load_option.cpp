// The stack-break criteria as the preferences store them: one option's text
// (fromString) and a whole list ("<...><...>"), on any text. An option that
// reads must read back the same from its own text.

#include "fuzz/FuzzSupport.h"

#include "vxdicom/stacks/DicomLoadOption.h"

#include <memory>
#include <string>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    vxfuzz::quietConsole();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 1 << 16)
        return 0;
    const KcString text(std::string(reinterpret_cast<const char *>(data), size));

    DicomLoadOption option;
    if (option.fromString(text)) {
        (void)option.numAllowedOptions();
        for (int i = 0; i < 6; ++i)
            (void)option.getOption(i);
        (void)DicomLoadOption::description(option.value);
        const KcString stored = option.toString();
        VXFUZZ_CHECK(stored.size() >= 2 && stored.front() == '<' && stored.back() == '>');
        DicomLoadOption again;
        VXFUZZ_CHECK(again.fromString(KcString(stored.substr(1, stored.size() - 2))));
        VXFUZZ_CHECK(again.group == option.group && again.element == option.element &&
                     again.value == option.value && again.options == option.options);
    }

    KcDArray<DicomLoadOption *> list = dicomLoadOptionsFromString(text);
    for (DicomLoadOption *o : list)
        delete o;
    return 0;
}
