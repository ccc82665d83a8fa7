#pragma once

#include <QIcon>

/// The four small state icons of a stack row, drawn in code (16 x 16): one
/// slice; evenly spaced slices; unevenly spaced slices; slices out of order.
/// Needs a QGuiApplication; the icons are made once and shared.
namespace DicomStackIcons {

enum Kind { Slice, Uniform, NonUniform, NonMonotonous };

QIcon icon(Kind kind);

} // namespace DicomStackIcons
