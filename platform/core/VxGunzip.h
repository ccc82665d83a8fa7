#pragma once

#include "platform/core/KcString.h"

/// The host's gunzip service: unpacks ".gz" (gzip) and ".Z" (Unix compress)
/// files into a temporary file that is removed when this object dies, on
/// every path.
class VxGunzip
{
public:
    /// True when the name ends in ".gz" or ".Z".
    static bool needsUnpacking(const char *name);

    VxGunzip() = default;
    ~VxGunzip(); ///< removes the temporary file
    VxGunzip(const VxGunzip &) = delete;
    VxGunzip &operator=(const VxGunzip &) = delete;

    /// Unpacks `name` into a new temporary file (in $TMPDIR or /tmp). On
    /// failure returns false, leaves no file behind and puts the reason in
    /// *why ("not in gzip or compress format", "truncated gzip input", ...).
    /// Plain (uncompressed) input is refused, as are empty files. A ".Z" file
    /// cut short cannot be recognised (the compress format carries neither a
    /// length nor a checksum; uncompress(1) accepts it too): it unpacks to
    /// the shorter data, which the DICOM parser then finds incomplete.
    bool unpack(const char *name, KcString *why = nullptr);
    /// Path of the unpacked file ("" before a successful unpack).
    const KcString &path() const { return tempPath; }
    /// Removes the temporary file now.
    void remove();

private:
    KcString tempPath;
};
