#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcHandable.h"
#include "platform/core/KcString.h"

/// One stack-break criterion: a DICOM element (or the pseudo-elements
/// "file name" and "load index", with group and element -1), the policy its
/// value must follow inside one stack, and the policies the user may choose.
class DicomLoadOption : public KcHandable
{
public:
    /// Policies; each is one bit of `options`. The underlying type is fixed
    /// because `value` holds whatever number the stored text gives (3, 99, -1
    /// all read back as "unused"), and an enumeration without one has no
    /// values outside its bits.
    enum Id : int {
        Ignore = 1,
        Constant = 2,
        Monotonic = 4,
        StrictlyMonotonic = 8,
        Linear = 16,
    };

    DicomLoadOption();
    /// A null name gives "unknown".
    DicomLoadOption(int group, int element, Id value, const char *name, int options);

    void setValue(Id id) { value = id; }
    void setOptions(int bits) { options = bits; }

    /// Number of allowed policies among the five bits.
    int numAllowedOptions() const;
    /// The n-th allowed policy (lowest bit first); Ignore when there is none.
    Id getOption(int n) const;
    void getOption(int n, Id &id, KcString &text) const;
    /// "ignore", "constant", "monotonic", "strictly monot.", "linear"; "unused"
    /// for any other value.
    static KcString description(int id);

    /// "<group|element|value|options|name>", numbers in decimal.
    KcString toString() const;
    /// Parses one option's text without the angle brackets; false (object
    /// untouched) when fewer than four '|' or a number does not parse. The
    /// dictionary's name wins over the stored one for elements it knows.
    bool fromString(const KcString &text);

    bool isPseudoElement() const { return group == -1 || element == -1; }

    int group = -1;
    int element = -1;
    Id value = Ignore;
    int options = 0;
    KcString name = "unknown";
};

/// The default criteria, in column order. "ZENTA_ZIEHM_RECONSTRUCTION" makes
/// Slice Location ignored; "ZENTA_MHT_STEREOTAXIS" leaves it out. The caller
/// owns the options.
KcDArray<DicomLoadOption *> defaultDicomLoadOptions();

/// The stored text of a list of options: their texts concatenated.
KcString dicomLoadOptionsToString(const KcDArray<DicomLoadOption *> &options);
/// Splits a stored text (first and last character dropped, parts at "><",
/// empty parts skipped) and parses every part; unparseable parts are dropped.
/// The caller owns the options.
KcDArray<DicomLoadOption *> dicomLoadOptionsFromString(const KcString &text);
