#include "vxdicom/export/QxDicom3SaveDialog.h"

#include "platform/core/VxMessage.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "platform/gui/VxHelpBrowser.h"
#include "platform/gui/VxSkin.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/export/Dicom3AttributeFile.h"
#include "vxdicom/export/Dicom3Object.h"
#include "vxdicom/export/QxDicom3Table.h"
#include "vxdicom/params/DicomParamFilter.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace {

QString tagOf(const VxParameter &p)
{
    return decodeDicomParam(&p, ContentGroup) + QLatin1Char(',') +
           decodeDicomParam(&p, ContentElement);
}

// "VR and value" of a parameter, what must match for a row to be unchanged.
QString contentOf(const VxParameter &p)
{
    return decodeDicomParam(&p, ContentVR) + QLatin1Char(' ') +
           decodeDicomParam(&p, ContentValue).trimmed();
}

const VxParameter *findTag(const VxParamBundle *all, const QString &tag)
{
    for (int i = 0; all && i < all->size(); ++i)
        if (const VxParamBase *e = all->entry(i); e && !e->isBundle())
            if (tagOf(*static_cast<const VxParameter *>(e)) == tag)
                return static_cast<const VxParameter *>(e);
    return nullptr;
}

// base with every parameter of overrides in place of the one of its tag
// (or appended).
std::unique_ptr<VxParamBundle> overlay(const VxParamBundle &base, const VxParamBundle *overrides)
{
    auto result = std::make_unique<VxParamBundle>(base);
    VxParamBundle *all = result->bundle("All");
    const VxParamBundle *extra = overrides ? overrides->bundle("All") : nullptr;
    for (int i = 0; all && extra && i < extra->size(); ++i) {
        const VxParamBase *e = extra->entry(i);
        if (!e || e->isBundle())
            continue;
        // Same tag, same name: it takes the generated one's place.
        all->insert(e->clone().release(), true);
    }
    return result;
}

} // namespace

QxDicom3SaveDialog::QxDicom3SaveDialog(VxField3 *f, const QString &folder,
                                       const Dicom3SaveOptions &opts, QWidget *parent)
    : QxDialog(parent, "QxDicom3SaveDialog", true), field(f), dir(folder), options(opts)
{
    setWindowTitle(tr("Save as DICOM"));
    setWindowIcon(VxSkin::instance()->windowIcon());
    auto *layout = new QVBoxLayout(this);
    auto *form = new QFormLayout;
    modality = new QComboBox(this);
    modality->addItems(dicom3ModalityNames());
    const int sop = options.sopClassIndex >= 0 ? options.sopClassIndex
                                               : (field ? dicom3DefaultSopClass(*field) : 2);
    modality->setCurrentText(QString::fromLatin1(Dicom3Object::theModality[sop]));
    form->addRow(tr("Modality:"), modality);
    prefix = new QLineEdit(options.prefix, this);
    form->addRow(tr("File name prefix:"), prefix);
    form->addRow(tr("Folder:"), new QLabel(dir, this));
    layout->addLayout(form);

    elements = new QxDicom3Table(this, "QxDicom3Table");
    layout->addWidget(elements, 1);
    status = new QLabel(this);
    layout->addWidget(status);

    auto *rowButtons = new QHBoxLayout;
    add = new QPushButton(tr("Add"), this);
    remove = new QPushButton(tr("Delete"), this);
    saveList = new QPushButton(tr("Save attributes..."), this);
    auto *helpButton = new QPushButton(tr("Help"), this);
    for (QPushButton *b : {add, remove, saveList, helpButton}) {
        b->setAutoDefault(false);
        rowButtons->addWidget(b);
    }
    rowButtons->addStretch(1);
    layout->addLayout(rowButtons);
    layout->addLayout(createButtons(ButtonsOkCancel));
    okButton()->setText(tr("&Save"));
    resize(820, 640);

    connect(add, &QPushButton::clicked, this, &QxDicom3SaveDialog::addRow);
    connect(remove, &QPushButton::clicked, this, &QxDicom3SaveDialog::deleteRow);
    connect(saveList, &QPushButton::clicked, this, &QxDicom3SaveDialog::saveAttributes);
    connect(helpButton, &QPushButton::clicked, this, &QxDicom3SaveDialog::help);
    connect(modality, &QComboBox::currentTextChanged, this, &QxDicom3SaveDialog::modalityChanged);
}

QxDicom3SaveDialog::~QxDicom3SaveDialog() = default;

std::unique_ptr<VxParamBundle> QxDicom3SaveDialog::generated(QString *why) const
{
    if (!field) {
        *why = tr("no field to save");
        return nullptr;
    }
    Dicom3SaveOptions plain = options;
    plain.sopClassIndex = dicom3SopClassOf(modality->currentText());
    plain.attributes.reset();
    const std::unique_ptr<Dicom3Object> object = makeDicom3Object(*field, plain, why);
    return object ? dicom3AttributeBundle(*object) : nullptr;
}

void QxDicom3SaveDialog::fill(const VxParamBundle &bundle)
{
    elements->replaceContentWithBundle(&bundle);
    for (int r = 0; r < elements->rowCount(); ++r) {
        bool group = false, element = false;
        const int g = elements->item(r, QxDicom3Table::Group)->text().toInt(&group, 16);
        const int e = elements->item(r, QxDicom3Table::Element)->text().toInt(&element, 16);
        elements->setRowReadOnly(r, group && element && dicom3WriterOwns(g, e));
    }
}

void QxDicom3SaveDialog::putData()
{
    QString why;
    base = generated(&why);
    if (!base) {
        status->setText(why);
        okButton()->setEnabled(false);
        return;
    }
    fill(*overlay(*base, options.attributes.get()));
    status->setText(tr("Grey rows are written by the writer itself. %1 slices.")
                        .arg(field->lattice() ? field->lattice()->dim(2) : 0));
}

int QxDicom3SaveDialog::exec()
{
    return QDialog::exec();
}

std::unique_ptr<VxParamBundle> QxDicom3SaveDialog::attributes(QString *why) const
{
    const std::unique_ptr<VxParamBundle> table(elements->getContentAsDicomParamBundle());
    auto result = std::make_unique<VxParamBundle>("DICOM");
    auto *kept = new VxParamBundle("All");
    result->insert(kept);
    const VxParamBundle *rows = table->bundle("All");
    const VxParamBundle *generatedAll = base ? base->bundle("All") : nullptr;
    for (int i = 0; rows && i < rows->size(); ++i) {
        const auto *p = static_cast<const VxParameter *>(rows->entry(i));
        bool okGroup = false, okElement = false;
        const int g = decodeDicomParam(p, ContentGroup).toInt(&okGroup, 16);
        const int e = decodeDicomParam(p, ContentElement).toInt(&okElement, 16);
        QString reason;
        if (!okGroup || !okElement) {
            *why = tr("\"%1\" is no tag of four hexadecimal digits each").arg(tagOf(*p));
            return nullptr;
        }
        if (!dicom3WriterOwns(g, e, &reason)) {
            kept->insert(p->clone().release(), false);
            continue;
        }
        const VxParameter *written = findTag(generatedAll, tagOf(*p));
        if (!written || contentOf(*written) != contentOf(*p)) {
            const char *name =
                dicom::dicomDictionaryName(static_cast<uint16_t>(g), static_cast<uint16_t>(e));
            *why = tr("(%1) %2 cannot be set here: %3.")
                       .arg(tagOf(*p),
                            name ? QString::fromUtf8(name)
                                 : decodeDicomParam(p, ContentName).trimmed(),
                            reason);
            return nullptr;
        }
    }
    return result;
}

void QxDicom3SaveDialog::accept()
{
    // What is being typed counts, as when the cell is left.
    elements->commitEdit();
    QString why;
    std::unique_ptr<VxParamBundle> chosen = attributes(&why);
    if (!chosen) {
        VxWarningDialog::information(windowTitle(), why);
        return;
    }
    Dicom3SaveOptions save = options;
    save.sopClassIndex = dicom3SopClassOf(modality->currentText());
    save.prefix =
        prefix->text().trimmed().isEmpty() ? QStringLiteral("IM") : prefix->text().trimmed();
    save.attributes = std::move(chosen);
    const int n = saveFieldAsDicom(*field, dir, save);
    if (n < 0) {
        VxWarningDialog::information(windowTitle(),
                                     tr("Writing to %1 failed; the console says why.").arg(dir));
        return;
    }
    written = n;
    VxWarningDialog::information(
        tr("DICOM files written"),
        tr("%1 file%2 written to %3").arg(n).arg(n == 1 ? "" : "s").arg(dir));
    QDialog::accept();
}

void QxDicom3SaveDialog::addRow()
{
    elements->commitEdit();
    elements->addNewItem();
    elements->setCurrentCell(elements->rowCount() - 1, QxDicom3Table::Content);
}

void QxDicom3SaveDialog::deleteRow()
{
    const int r = elements->currentRow();
    if (r < 0)
        return;
    if (elements->isRowReadOnly(r)) {
        const int g = elements->item(r, QxDicom3Table::Group)->text().toInt(nullptr, 16);
        const int e = elements->item(r, QxDicom3Table::Element)->text().toInt(nullptr, 16);
        QString reason;
        dicom3WriterOwns(g, e, &reason);
        VxWarningDialog::information(
            windowTitle(), tr("(%1,%2) %3 is written by the writer: %4.")
                               .arg(elements->item(r, QxDicom3Table::Group)->text(),
                                    elements->item(r, QxDicom3Table::Element)->text(),
                                    elements->item(r, QxDicom3Table::Description)->text(), reason));
        return;
    }
    elements->delCurrentItem();
}

bool QxDicom3SaveDialog::saveAttributesTo(const QString &path, QString *why) const
{
    const std::unique_ptr<VxParamBundle> chosen = attributes(why);
    if (!chosen)
        return false;
    std::string error;
    if (!writeAttributeFile(path.toStdString(), *chosen, &error)) {
        *why = QString::fromStdString(error);
        return false;
    }
    return true;
}

void QxDicom3SaveDialog::saveAttributes()
{
    elements->commitEdit();
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Save attributes"), dir + QStringLiteral("/attributes.txt"),
        tr("Attribute lists (*.txt);;All files (*)"), nullptr, QFileDialog::DontUseNativeDialog);
    if (path.isEmpty())
        return;
    QString why;
    if (saveAttributesTo(path, &why))
        status->setText(tr("Attributes saved to %1").arg(path));
    else
        VxWarningDialog::information(windowTitle(), why);
}

void QxDicom3SaveDialog::help()
{
    VxHelpBrowser::openPath(QStringLiteral("/share/usersguide/QxDicom3SaveDialog.html"));
}

void QxDicom3SaveDialog::modalityChanged()
{
    if (!base)
        return;
    elements->commitEdit();
    // The user's rows: those that differ from what the writer generated.
    const std::unique_ptr<VxParamBundle> table(elements->getContentAsDicomParamBundle());
    VxParamBundle changes("DICOM");
    auto *changed = new VxParamBundle("All");
    changes.insert(changed);
    const VxParamBundle *rows = table->bundle("All");
    for (int i = 0; rows && i < rows->size(); ++i) {
        const auto *p = static_cast<const VxParameter *>(rows->entry(i));
        const VxParameter *old = findTag(base->bundle("All"), tagOf(*p));
        if (!old || contentOf(*old) != contentOf(*p))
            changed->insert(p->clone().release(), false);
    }
    QString why;
    std::unique_ptr<VxParamBundle> fresh = generated(&why);
    if (!fresh) {
        status->setText(why);
        return;
    }
    base = std::move(fresh);
    fill(*overlay(*base, &changes));
}

namespace {

class SaveDialogNegotiator : public ThreadNegotiator
{
public:
    SaveDialogNegotiator(VxField3 &field, const QString &dir, const Dicom3SaveOptions &options)
        : field(field), dir(dir), options(options)
    {
    }

protected:
    ForkedObject *create() override { return new QxDicom3SaveDialog(&field, dir, options); }

private:
    VxField3 &field;
    QString dir;
    Dicom3SaveOptions options;
};

} // namespace

int saveFieldThroughDialog(VxField3 &field, const QString &dir, const Dicom3SaveOptions &options)
{
    SaveDialogNegotiator negotiator(field, dir, options);
    negotiator.createForkedObject();
    negotiator.putData();
    const int accepted = negotiator.exec();
    const auto *dialog = dynamic_cast<QxDicom3SaveDialog *>(negotiator.forkedObject());
    const int n = accepted == QDialog::Accepted && dialog ? dialog->filesWritten() : 0;
    negotiator.deleteForkedObject();
    return n;
}
