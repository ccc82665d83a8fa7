#pragma once

#include "platform/gui/QxDialog.h"
#include "platform/gui/ThreadNegotiator.h"
#include "vxdicom/reader/DicomImportDialog.h"

#include <QString>

class DicomDialogView;
class DicomMenuBar;
class QLabel;
class QPushButton;
class VxDicomImage;
class VxDicomImageStack;

/// The import dialog: the user sees the images found and their grouping into
/// stacks, changes the criteria and chooses which stacks to load. It lives on
/// the GUI thread and is driven from the loading thread through a
/// QxDicomDialogNegotiator.
class DicomDialog : public QxDialog, public ForkedObject, public DicomImportDialog
{
    Q_OBJECT
public:
    explicit DicomDialog(QWidget *parent = nullptr);

    /// Title from the caption, then the view loads the images (building the stacks).
    void putData() override;
    /// Runs the dialog modally and keeps its result.
    int exec() override;
    void setVisible(bool visible) override;

    void setCaption(const QString &text) override { caption = text; }
    void setImages(const KcDArray<VxDicomImage *> *list) override { images = list; }
    void setStacks(KcDArray<VxDicomImageStack *> *list) override { stacks = list; }
    int result() const override { return dialogResult; }
    bool exportImageStacks() override;
    bool getAsTimeSeries() const override;

    DicomDialogView *view() const { return dialogView; }
    DicomMenuBar *menuBar() const { return menu; }
    /// The button that asks for the criteria dialog.
    QPushButton *criteriaButton() const { return criteria; }
    /// The line that says what OK loads.
    QLabel *loadSummaryLabel() const { return loadLabel; }

    /// Reduced mode in which exactly one stack may be loaded.
    static void setLoaderLite(bool on);

public slots:
    /// OK: exports the stacks that the view's choices give; stays open when
    /// none would load or the export is refused.
    void accept() override;
    /// Updates the line that says what OK loads; in the reduced mode enables
    /// OK exactly when one loadable stack is selected.
    void stackSelectionChanged(int selected);

signals:
    void stackOptionsRequest();
    void attachDicomParameters(bool on);
    void loadOptionsRequest();

private:
    int dialogResult = 0;
    const KcDArray<VxDicomImage *> *images = nullptr;
    DicomDialogView *dialogView = nullptr;
    KcDArray<VxDicomImageStack *> *stacks = nullptr;
    QString caption;
    DicomMenuBar *menu = nullptr;
    QPushButton *criteria = nullptr;
    QLabel *loadLabel = nullptr;
};

/// Creates the import dialog on the GUI thread for the load pipeline.
class QxDicomDialogNegotiator : public ThreadNegotiator
{
protected:
    ForkedObject *create() override;
};

/// Choices of a load that the command line makes instead of the menu: they
/// are applied to every import dialog made from now on without touching the
/// stored preferences.
struct DicomLoadChoices
{
    bool anonymize = false;    ///< as "Anonymize Data" checked
    bool asTimeSeries = false; ///< as "As Time Series" checked
    bool splitVolumes = true;  ///< as "Split Repeated Positions into Volumes" checked
};
void setDicomLoadChoices(const DicomLoadChoices &choices);

/// Makes the load pipeline use this dialog (call once before loading).
void registerDicomImportDialog();
