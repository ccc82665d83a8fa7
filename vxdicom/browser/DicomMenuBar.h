#pragma once

#include <QMenuBar>

class QAction;
class QMenu;

/// The menu bar of the import browser: turns menu choices into signals for
/// the dialog and the list, and keeps the unit and anonymise choices in the
/// host's preferences. Items are addressed by the integer ids of their menu.
class DicomMenuBar : public QMenuBar
{
    Q_OBJECT
public:
    /// `reduced` leaves out "Force &Uniform Coordinates", "Attach &Parameters",
    /// "As Time Series" and the "Units" submenu.
    DicomMenuBar(QWidget *parent = nullptr, const char *name = nullptr, bool reduced = false);

    /// The Options menu's item with that id (null when absent); ids: 1 attach
    /// parameters, 2 force uniform, 4 anonymize, 5 as time series, 6 save, 7 reset.
    QAction *optionsItem(int id) const;
    /// The Units submenu's item: 0 "mm", 1 "cm".
    QAction *unitsItem(int id) const;
    /// The Columns menu's item: 0 stack break criteria, 1 add column.
    QAction *columnsItem(int id) const;

    /// The length factor applied to lengths read from DICOM (1.0 mm, 0.1 cm).
    static float unitFactor();

public slots:
    void slotSaveSettings();
    void slotResetSettings();
    void forceUniform();
    void stackOptions();
    void dicomParameters();
    void anonymizeData();
    void asTimeSeries();
    /// Item 8, "Split Repeated Positions into Volumes".
    void splitVolumes();
    void asDynamic() {}
    void unitsMM();
    void unitsCM();
    void dicomHelp();
    void mapMenu(int) {}

signals:
    void saveSettings();
    void resetSettings();
    void forceUniformRequest();
    void stackOptionsRequest();
    void parameterViewRequest();
    void attachDicomParameters(bool on);
    void anonymizeDicomParameters(bool on);
    void asTimeSeriesRequest(bool on);
    void asDynamicRequest(bool on);
    void splitVolumesRequest(bool on);

private:
    QAction *addItem(QMenu *menu, int id, const QString &text, const char *slot, bool checkable,
                     bool checked);

    QMenu *options = nullptr;
    QMenu *units = nullptr;
    QMenu *columns = nullptr;
    QMenu *help = nullptr;
};
