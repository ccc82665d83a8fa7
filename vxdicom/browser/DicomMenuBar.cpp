#include "vxdicom/browser/DicomMenuBar.h"

#include "platform/core/VxPreferences.h"
#include "platform/gui/VxHelpBrowser.h"
#include "vxdicom/reader/DicomReaderSettings.h"

#include <QMenu>

#include <cmath>
#include <cstdlib>

namespace {

bool specialSetup()
{
    return std::getenv("ZENTA_MHT_STEREOTAXIS") || std::getenv("ZENTA_ZIEHM_RECONSTRUCTION");
}

void storeLengthUnit(float unit)
{
    VxSettingsMgr *mgr = VxSettingsMgr::getInstance();
    VxPreferences prefs = mgr->getPreferences();
    prefs.lengthUnit = unit;
    mgr->setPreferences(prefs, false);
}

} // namespace

DicomMenuBar::DicomMenuBar(QWidget *parent, const char *name, bool reduced) : QMenuBar(parent)
{
    if (name)
        setObjectName(QString::fromLatin1(name));
    const VxPreferences prefs = VxSettingsMgr::getInstance()->getPreferences();

    options = addMenu(tr("&Options"));
    if (!reduced)
        addItem(options, 2, tr("Force &Uniform Coordinates"), SLOT(forceUniform()), false, false);
    if (!reduced)
        addItem(options, 1, tr("Attach &Parameters"), SLOT(dicomParameters()), true, true);
    addItem(options, 4, tr("&Anonymize Data"), SLOT(anonymizeData()), true, prefs.anonymize);
    if (!reduced) {
        addItem(options, 5, tr("As Time Series"), SLOT(asTimeSeries()), true, false);
        // A series that repeats its slice positions (fMRI, DTI, multi-echo)
        // is split into its volumes before the criteria are tested.
        addItem(options, 8, tr("Split Repeated Positions into &Volumes"), SLOT(splitVolumes()),
                true, true);
        units = options->addMenu(tr("Units"));
        addItem(units, 0, tr("mm"), SLOT(unitsMM()), true, false);
        addItem(units, 1, tr("cm"), SLOT(unitsCM()), true, false);
    }
    options->addSeparator();
    addItem(options, 6, tr("Save Load Options"), SLOT(slotSaveSettings()), false, false);
    addItem(options, 7, tr("Reset Load Options"), SLOT(slotResetSettings()), false, false);

    columns = addMenu(tr("&Columns"));
    addItem(columns, 0, tr("&Stack Break Criteria..."), SLOT(stackOptions()), false, false);
    addItem(columns, 1, tr("&Add Column..."), SIGNAL(parameterViewRequest()), false, false);

    help = addMenu(tr("&Help"));
    addItem(help, 0, tr("&Help"), SLOT(dicomHelp()), false, false);

    // Units: the special set-ups always work in millimetres.
    if (specialSetup()) {
        setDicomUnitFactor(1.0f);
        if (unitsItem(0)) {
            unitsItem(0)->setChecked(true);
            unitsItem(1)->setEnabled(false);
        }
    } else {
        const bool cm = std::fabs(prefs.lengthUnit - 0.01f) < 1.1920929e-07f;
        setDicomUnitFactor(cm ? 0.1f : 1.0f);
        if (unitsItem(0))
            unitsItem(cm ? 1 : 0)->setChecked(true);
    }

    if (!reduced && specialSetup()) {
        optionsItem(1)->setChecked(true);
        optionsItem(1)->setEnabled(false);
        QAction *uniform = optionsItem(2);
        uniform->setCheckable(true);
        uniform->setChecked(!std::getenv("ZENTA_MHT_STEREOTAXIS"));
        uniform->setEnabled(false);
        optionsItem(5)->setEnabled(false);
    }
}

QAction *DicomMenuBar::addItem(QMenu *menu, int id, const QString &text, const char *slot,
                               bool checkable, bool checked)
{
    QAction *action = menu->addAction(text);
    action->setData(id);
    action->setCheckable(checkable);
    action->setChecked(checked);
    connect(action, SIGNAL(triggered()), this, slot);
    return action;
}

namespace {
QAction *itemOf(const QMenu *menu, int id)
{
    if (!menu)
        return nullptr;
    for (QAction *a : menu->actions())
        if (!a->isSeparator() && !a->menu() && a->data().toInt() == id)
            return a;
    return nullptr;
}
} // namespace

QAction *DicomMenuBar::optionsItem(int id) const
{
    return itemOf(options, id);
}

QAction *DicomMenuBar::unitsItem(int id) const
{
    return itemOf(units, id);
}

QAction *DicomMenuBar::columnsItem(int id) const
{
    return itemOf(columns, id);
}

float DicomMenuBar::unitFactor()
{
    return dicomUnitFactor();
}

void DicomMenuBar::slotSaveSettings()
{
    emit saveSettings();
}

void DicomMenuBar::slotResetSettings()
{
    emit resetSettings();
}

void DicomMenuBar::forceUniform()
{
    emit forceUniformRequest();
}

void DicomMenuBar::stackOptions()
{
    emit stackOptionsRequest();
}

void DicomMenuBar::dicomParameters()
{
    emit attachDicomParameters(optionsItem(1) && optionsItem(1)->isChecked());
}

void DicomMenuBar::anonymizeData()
{
    const bool on = optionsItem(4)->isChecked();
    VxSettingsMgr *mgr = VxSettingsMgr::getInstance();
    VxPreferences prefs = mgr->getPreferences();
    prefs.anonymize = on;
    mgr->setPreferences(prefs, false);
    emit anonymizeDicomParameters(on);
}

void DicomMenuBar::splitVolumes()
{
    emit splitVolumesRequest(optionsItem(8) && optionsItem(8)->isChecked());
}

void DicomMenuBar::asTimeSeries()
{
    emit asTimeSeriesRequest(optionsItem(5) && optionsItem(5)->isChecked());
}

void DicomMenuBar::unitsMM()
{
    unitsItem(0)->setChecked(true);
    unitsItem(1)->setChecked(false);
    storeLengthUnit(0.001f);
    setDicomUnitFactor(1.0f);
}

void DicomMenuBar::unitsCM()
{
    unitsItem(1)->setChecked(true);
    unitsItem(0)->setChecked(false);
    storeLengthUnit(0.01f);
    setDicomUnitFactor(0.1f);
}

void DicomMenuBar::dicomHelp()
{
    VxHelpBrowser::open(QStringLiteral("vxdicom"), QStringLiteral("VxFileFormat_DICOM.html"));
}
