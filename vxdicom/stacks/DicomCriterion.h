#pragma once

// The rules of stack building on plain values: the policy test of one
// criterion, the whole-stack slice checks, the pixel-size tolerance, the
// ordering of column texts and the text forms the browser compares. Nothing
// here needs a widget or a file, so every rule is tested on literals.

#include "platform/core/KcDArray.h"

#include <QString>

class DicomLoadOption;

/// The policy rule on text values. stackValues[0] is the stack's newest value,
/// stackValues[1] the one inserted before it; the candidate is taken to come
/// before stackValues[0], so the sequence read is value, s[0], s[1]. Texts
/// that both read as numbers compare as numbers, others ordinally
/// (case-sensitive). `tolerance` is the relative tolerance of the linear
/// policy on the option named exactly "slice location"; other names need
/// equal steps within 1e-6.
bool isOptionSatisfied(const QString &value, const KcDArray<QString> &stackValues,
                       const DicomLoadOption &option, float tolerance);

/// Slice locations in child order are monotonous when there are fewer than 3,
/// or when the first step is not ~0 (1e-6) and every later step keeps its sign
/// and is not ~0. Two equal locations count as monotonous.
bool slicesAreMonotonous(const KcDArray<float> &locations);

/// Slice locations in child order are uniform when there are fewer than 3, or
/// when every pair of successive steps a, b has |(a - b) / a| < tolerance
/// (a == 0 needs b == 0).
bool slicesAreUniform(const KcDArray<float> &locations, float tolerance);

/// Whether two pixel sizes (mm) differ: a != b and |a - b| > (a + b) * 5e-5.
bool pixelSizesDiffer(float a, float b);

/// Orders two column texts that are not equal: both numeric, the larger sorts
/// after (equal numbers give 0); otherwise the ordinal text comparison. The
/// result is -1, 0 or 1, before any sort direction is applied.
int compareColumnTexts(const QString &a, const QString &b);

/// The sort key of a column text: a number x becomes x + 100000 printed with
/// "%+015g" (so that numbers above -100000 compare correctly as text); any
/// other text is its own key.
QString dicomColumnKey(const QString &text);

/// Text forms shared by the column display and the criterion test.
QString dicomSliceLocationText(float location); ///< "%1" with 'g', precision 6
QString dicomInstanceNumberText(int number);    ///< decimal
/// The criterion test's form of the load index: one character whose code is
/// the low 8 bits of the index (so it increases with the index up to 255).
QString dicomLoadIndexCriterionText(int loadIndex);

/// The value of a header element as text, decoded as UTF-8 when it is valid
/// UTF-8 and as Latin-1 otherwise (so that distinct values stay distinct);
/// the empty text for a null value.
QString dicomHeaderText(const char *value);
