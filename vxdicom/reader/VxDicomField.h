#pragma once

#include <Inventor/SbMatrix.h>

class VxField3;
class VxRegScalarField3;
class VxDicomImageStack;

/// Turns a stack into a new field: samples slice by slice, the DICOM rescale
/// fitted to the field's sample type (asking the user when the values would
/// overflow), uniform or stacked coordinates, and the DICOM parameters.
/// Returns null when the field cannot be made (the reason is printed).
VxField3 *createField3(VxDicomImageStack &stack);

/// Reorders and mirrors the field's samples so that its axes follow patient
/// space, sets its bounding box from the first image's position, and gives
/// oblique and stacked fields a transformation. Nothing for a null field.
void flipField3(VxField3 *field, const VxDicomImageStack &stack);

/// Gives the field the transformation that takes its coordinates to patient
/// space. `matrix` describes how the samples were reordered: it maps the
/// image frame (row, column, normal) onto the lattice axes (identity when the
/// samples are in image order). Acts only for stacks whose first image is
/// oblique and for stacked fields.
void setTransform(VxRegScalarField3 *field, const VxDicomImageStack &stack, const float *bbox,
                  const SbMatrix &matrix);

/// Registers the field with the host under the stack's name with its load
/// command, or collects it as the next time step of a dynamic series.
void registerField3(VxField3 *field, const VxDicomImageStack &stack);
