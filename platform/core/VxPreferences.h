#pragma once

#include "platform/core/KcString.h"

#include <mutex>

/// The host's preferences record (the fields this module uses).
struct VxPreferences
{
    /// Stack-break criteria in their text form ("<g|e|v|o|name><...>"); empty
    /// means the defaults.
    KcString dicomLoadOptions;
    /// Length unit in metres: 0.01 (cm, the default) or 0.001 (mm).
    float lengthUnit = 0.01f;
    /// Anonymise DICOM attributes at load.
    bool anonymize = false;
};

/// Keeps the preferences record, persisted with QSettings (INI) under the
/// user's configuration directory ("vxdicom/vxdicom.ini"), or in the file
/// named by the environment variable VXDICOM_SETTINGS_FILE when that is set.
/// Tests call setStorageFile() with a temporary file first, so the user's
/// settings are never touched. Thread-safe.
///
/// INI layout (group [DICOM]): LoadOptions = the criteria text,
/// LengthUnit = the unit in metres ("0.01" or "0.001"), Anonymize = true/false.
/// Missing keys, or a length unit that is not a positive number, give the
/// defaults of VxPreferences.
class VxSettingsMgr
{
public:
    static VxSettingsMgr *getInstance();

    /// A copy of the current record (read from the store on first use).
    VxPreferences getPreferences();
    /// Replaces the record and writes it to the store. `notify` is kept for
    /// the host's interface (observers are not used by this module).
    void setPreferences(const VxPreferences &prefs, bool notify = true);

    /// Uses this INI file from now on (and re-reads it); empty restores the default location.
    void setStorageFile(const KcString &path);
    KcString storageFile() const;

private:
    VxSettingsMgr() = default;
    void loadLocked();
    mutable std::mutex mutex;
    bool loaded = false;
    KcString file;
    VxPreferences prefs;
};
