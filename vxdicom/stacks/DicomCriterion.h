#pragma once

#include "platform/core/KcDArray.h"

#include <QString>

class DicomLoadOption;

/// Relative tolerance of the linear rule for "slice location" and of the
/// uniformity test, shared by all stacks (default 0.02).
float dicomUniformTolerance();
void setDicomUniformTolerance(float tolerance);

/// The maximal distance error between slices: the script variable
/// "DicomMaxDistError" read with strtod, 0.05 when it is not set.
float dicomMaxDistError();

/// The policy rule on text values. stackValues[0] is the stack's newest
/// value, stackValues[1] the one before; the candidate is taken to come
/// before stackValues[0]. Texts that both read as numbers compare as numbers.
bool isOptionSatisfied(const QString &value, const KcDArray<QString> &stackValues,
                       const DicomLoadOption &option);

/// Whole-stack checks over slice locations in child order.
/// Monotonous: fewer than 3 is true; the first step must not be ~0 and every
/// later step must keep its sign and not be ~0 (1e-6).
bool slicesAreMonotonous(const KcDArray<float> &locations);
/// Uniform: fewer than 3 is true; successive steps a, b must agree within the
/// relative tolerance (a == 0 needs b == 0).
bool slicesAreUniform(const KcDArray<float> &locations, float tolerance);
