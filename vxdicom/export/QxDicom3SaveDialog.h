#pragma once

#include "platform/gui/QxDialog.h"
#include "platform/gui/ThreadNegotiator.h"
#include "vxdicom/export/Dicom3FieldWriter.h"

#include <memory>

class QComboBox;
class QLabel;
class QLineEdit;
class QxDicom3Table;
class VxField3;
class VxParamBundle;

/// "Save as DICOM": the storage class (modality), the file-name prefix and
/// the element table, prefilled with the attributes the writer will write
/// for the field (and the lines of an attribute file). Rows the writer owns
/// are shown read-only. Save writes the files with the table's attributes and
/// says how many were written; Cancel writes nothing.
class QxDicom3SaveDialog : public QxDialog, public ForkedObject
{
    Q_OBJECT
public:
    QxDicom3SaveDialog(VxField3 *field, const QString &dir, const Dicom3SaveOptions &options,
                       QWidget *parent = nullptr);
    ~QxDicom3SaveDialog() override;

    /// Fills the table for the chosen modality.
    void putData() override;
    int exec() override;

    /// Files written by Save; 0 before (or after Cancel).
    int filesWritten() const { return written; }
    QxDicom3Table *table() const { return elements; }
    QComboBox *modalityBox() const { return modality; }
    QLineEdit *prefixEdit() const { return prefix; }
    QPushButton *addButton() const { return add; }
    QPushButton *deleteButton() const { return remove; }
    QPushButton *saveAttributesButton() const { return saveList; }

    /// The table's attributes as the writer inserts them: the rows the
    /// writer does not own. Null, with a message naming the element, when a
    /// row sets an element the writer owns to another value.
    std::unique_ptr<VxParamBundle> attributes(QString *why) const;
    /// Writes the table's attributes in the form --attributes reads.
    bool saveAttributesTo(const QString &path, QString *why) const;

public slots:
    /// Save: checks the attributes, writes the files, reports, closes.
    void accept() override;
    void addRow();
    /// Removes the current row; a row the writer owns is refused.
    void deleteRow();
    /// "Save attributes...": asks for a file name and writes the list there.
    void saveAttributes();
    void help();
    /// Another storage class: the table shows its attributes again, with the
    /// rows the user changed or added kept.
    void modalityChanged();

private:
    /// What the writer generates for the modality in the box, as a bundle.
    std::unique_ptr<VxParamBundle> generated(QString *why) const;
    void fill(const VxParamBundle &bundle);

    VxField3 *field;
    QString dir;
    Dicom3SaveOptions options;
    std::unique_ptr<VxParamBundle> base; ///< what the writer generates now
    int written = 0;
    QComboBox *modality = nullptr;
    QLineEdit *prefix = nullptr;
    QxDicom3Table *elements = nullptr;
    QPushButton *add = nullptr;
    QPushButton *remove = nullptr;
    QPushButton *saveList = nullptr;
    QLabel *status = nullptr;
};

/// Runs the save dialog for a field on the GUI thread, from any thread, and
/// waits for it. Returns the number of files written, 0 when the user
/// cancelled.
int saveFieldThroughDialog(VxField3 &field, const QString &dir, const Dicom3SaveOptions &options);
