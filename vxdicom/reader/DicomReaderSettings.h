#pragma once

/// Module-wide settings that the reader and the stack builder share.

/// The maximal distance error between slices: the host script variable
/// "DicomMaxDistError" read with strtod, 0.05 when it is not set.
float dicomMaxDistError();

/// The factor applied to lengths read from DICOM (millimetres): 0.1 makes
/// centimetres (the default), 1.0 keeps millimetres.
float dicomUnitFactor();
void setDicomUnitFactor(float factor);
/// Sets the factor from the preferences' length unit (0.01 m gives 0.1,
/// anything else 1.0), or 1.0 when "ZENTA_MHT_STEREOTAXIS" or
/// "ZENTA_ZIEHM_RECONSTRUCTION" is set.
void setDicomUnitFactorFromPreferences();
