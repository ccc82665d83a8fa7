#pragma once

// DCMTK-facing internals of the dicom:: layer (included by its .cpp files only).

#include "platform/dicom/DicomInternal.h"

#include "dcmtk/config/osconfig.h"
#include "dcmtk/dcmdata/dcfilefo.h"
#include "dcmtk/dcmdata/dcistrma.h"

#include <memory>
#include <string>
#include <vector>

namespace dicom {

/// Parses the whole data set of a source with DCMTK; values longer than a
/// few kilobytes stay in the source until they are used (a memory source
/// must outlive the result). With `inflated`, the source is the image of a
/// deflated file made by inflateDeflatedFile. Null on failure.
std::unique_ptr<DcmFileFormat> loadWholeDataSet(const ByteSource &source, std::string *why,
                                                bool inflated = false);

/// DCMTK's input stream over a source from byte `start` on. DCMTK may leave
/// long values in the source and read them when they are used (files are
/// reopened by name then), so a length field never makes it allocate more
/// than the source holds; nesting deeper than the stack allows fails the
/// parse instead of overflowing the stack. With
/// `inflated`, DCMTK's request to inflate a deflated data set is ignored (the
/// source holds it inflated already).
std::unique_ptr<DcmInputStream> openSourceStream(const ByteSource &source, uint64_t start,
                                                 bool inflated);
/// True when a parse through that stream failed because its sequences were
/// nested deeper than the stack allows DCMTK to recurse.
bool sourceStreamTooDeep(const DcmInputStream &stream);

/// Whether the source is a Part 10 file whose meta header names the
/// Deflated Explicit VR Little Endian transfer syntax.
bool isDeflatedFile(const ByteSource &source);

/// The image of a deflated file with its data set inflated: the bytes up to
/// the data set as they are, then the inflated data set, which DCMTK parses
/// like any other source (openSourceStream with `inflated`). False, with the
/// reason, when the data set cannot be inflated or would not fit in the
/// layer's memory limit.
bool inflateDeflatedFile(const ByteSource &source, std::vector<unsigned char> &image,
                         std::string *why);

/// A DCMTK condition as a reason text.
std::string conditionText(const OFCondition &condition);

struct DecoderState
{
    /// A deflated file inflated (see inflateDeflatedFile); `file` reads from it.
    std::vector<unsigned char> image;
    std::unique_ptr<DcmFileFormat> file;
    std::string key;    ///< the path the data set came from; empty for a buffer
    int nextFrame = -1; ///< the frame the fragment below belongs to
    Uint32 nextFragment = 0;
};

} // namespace dicom
