#pragma once

#include <QString>
#include <QStringList>

#include <cstdio>

class Dicom3Object;

/// Writes one DICOM Part 10 file for the object's current slice: the
/// 128-byte preamble, "DICM" and every group in ascending order. Returns the
/// sum of the write results (see Dicom3Element::write), or -1; bytes already
/// written stay in the file.
int writeDicom3File(Dicom3Object &object, FILE *f);

/// The file name of slice k (0-based) of n: prefix, the 1-based slice number
/// with at least five digits (more when n needs them, so that names always
/// sort in slice order), ".dcm": "IM00001.dcm".
QString dicom3SliceFileName(const QString &prefix, int k, int n);

/// Writes one file per slice of a generated object into outDir (created when
/// missing), selecting each slice with setSlice. Files that exist are
/// overwritten. Shows progress in the work area when more than one file is
/// written, and stops when the user interrupts.
///
/// Returns the number of files written, or -1. On failure the console names
/// the file and says how many files were written; files already written,
/// and the incomplete one, are left in place. `written` (when given)
/// receives the paths of the complete files.
int writeDicom3Slices(Dicom3Object &object, const QString &outDir, const QString &prefix = "IM",
                      QStringList *written = nullptr);
