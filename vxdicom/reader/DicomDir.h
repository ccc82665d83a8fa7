#pragma once

#include "platform/core/KcDArray.h"
#include "platform/core/KcString.h"

#include <cstddef>

class VxDicomFile;

/// Appends the files that a DICOMDIR references to `names` and returns the new
/// number of names (the reader's new file count).
///
/// Every directory record with a Referenced File ID (0004,1500) contributes
/// one name, in record order, whatever the record type: the ID without its
/// leading and trailing padding, joined to the directory of the *last* name in
/// `names` at the time of the call (with the usual single DICOMDIR argument
/// that is the DICOMDIR's own folder), with the ID's backslashes turned into
/// '/'. When that file does not exist but one whose path differs only in
/// letter case does (a CD mounted with lower-case names), that one is taken.
/// IDs that are empty or climb out of the file set ("..") are left out.
///
/// A File-set Consistency Flag (0004,1212) of 1 contributes nothing; so does a
/// file without a Directory Record Sequence (0004,1220) or one whose sequence
/// does not begin with an item. A malformed or hostile sequence ends the walk
/// silently with the names found so far. The DICOMDIR is only read; the
/// caller destroys it.
int extractDicomDir(VxDicomFile *dicomDir, KcDArray<KcString> &names);

/// The walk itself, over an encoded Directory Record Sequence value (the
/// items, as dicomDataElement::data holds them) in the data set's byte order
/// and VR form. Appends each Referenced File ID as stored, without padding
/// and with its backslashes kept. Returns true when the walk reached the end
/// of the value (or its sequence delimiter), false when it stopped early on a
/// malformed record or when the value does not begin with an item. Never
/// reads outside [value, value + length), and ends after at most
/// length / 8 records.
bool dicomDirFileIds(const unsigned char *value, size_t length, bool bigEndian, bool explicitVR,
                     KcDArray<KcString> &ids);
