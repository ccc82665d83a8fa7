#include "platform/core/VxPreferences.h"

#include "platform/core/VxMessage.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>
#include <QStandardPaths>
#include <QString>

#include <cmath>
#include <cstdlib>

// Keys of the INI file; one group for what this module keeps.
namespace {
const char *const kLoadOptionsKey = "DICOM/LoadOptions";
const char *const kLengthUnitKey = "DICOM/LengthUnit";
const char *const kAnonymizeKey = "DICOM/Anonymize";

QString defaultStorageFile()
{
    const char *env = std::getenv("VXDICOM_SETTINGS_FILE");
    if (env && *env)
        return QString::fromLocal8Bit(env);
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/vxdicom/vxdicom.ini");
}
} // namespace

VxSettingsMgr *VxSettingsMgr::getInstance()
{
    static VxSettingsMgr mgr;
    return &mgr;
}

KcString VxSettingsMgr::storageFile() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return file.empty() ? KcString::fromQString(defaultStorageFile()) : file;
}

void VxSettingsMgr::setStorageFile(const KcString &path)
{
    std::lock_guard<std::mutex> lock(mutex);
    file = path;
    loaded = false;
    loadLocked();
}

void VxSettingsMgr::loadLocked()
{
    const QString path = file.empty() ? defaultStorageFile() : file.toQString();
    prefs = VxPreferences();
    loaded = true;
    if (!QFileInfo::exists(path))
        return;
    const QSettings store(path, QSettings::IniFormat);
    if (store.status() != QSettings::NoError) {
        VxMessage::getTheMsg()->warning(
            "reading settings %s failed: not a valid INI file; using the defaults",
            path.toLocal8Bit().constData());
        return;
    }
    prefs.dicomLoadOptions = KcString::fromQString(store.value(kLoadOptionsKey).toString());
    bool ok = false;
    const float unit = store.value(kLengthUnitKey).toString().toFloat(&ok);
    if (ok && std::isfinite(unit) && unit > 0.f)
        prefs.lengthUnit = unit;
    prefs.anonymize = store.value(kAnonymizeKey, false).toBool();
}

VxPreferences VxSettingsMgr::getPreferences()
{
    std::lock_guard<std::mutex> lock(mutex);
    if (!loaded)
        loadLocked();
    return prefs;
}

void VxSettingsMgr::setPreferences(const VxPreferences &newPrefs, bool /*notify*/)
{
    std::lock_guard<std::mutex> lock(mutex);
    prefs = newPrefs;
    loaded = true;

    const QString path = file.empty() ? defaultStorageFile() : file.toQString();
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSettings store(path, QSettings::IniFormat);
    store.setValue(kLoadOptionsKey, prefs.dicomLoadOptions.toQString());
    // Seven significant digits give back the float exactly and write 0.01, not 0.009999999776.
    store.setValue(kLengthUnitKey, QString::number(static_cast<double>(prefs.lengthUnit), 'g', 7));
    store.setValue(kAnonymizeKey, prefs.anonymize);
    store.sync();
    if (store.status() != QSettings::NoError)
        VxMessage::getTheMsg()->warning("writing settings %s failed",
                                        path.toLocal8Bit().constData());
}
