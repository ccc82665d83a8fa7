#include "vxdicom/export/QxDicom3ValueEdit.h"

#include "vxdicom/export/QxTextEditDialog.h"
#include "vxdicom/params/DicomValueCodec.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>

namespace {

const char kUnitLetters[] = "YMWD";

bool isLongText(dicom::valRep vr)
{
    return vr == dicom::LO || vr == dicom::LT || vr == dicom::OB || vr == dicom::OW ||
           vr == dicom::ST || vr == dicom::UT;
}

} // namespace

QxDicom3ValueEdit::QxDicom3ValueEdit(dicom::valRep vr, QWidget *parent, const char *name)
    : QxDicom3ValueEdit(QString(), vr, parent, name)
{
}

QxDicom3ValueEdit::QxDicom3ValueEdit(const QString &text, dicom::valRep vr, QWidget *parent,
                                     const char *name)
    : QWidget(parent), valueRep(vr)
{
    if (name)
        setObjectName(QString::fromLatin1(name));
    init();
    setText(text, false);
}

void QxDicom3ValueEdit::init()
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    edit = new QLineEdit(this);
    edit->setAlignment(Qt::AlignLeft);
    layout->addWidget(edit, 1);
    connect(edit, &QLineEdit::returnPressed, this, &QxDicom3ValueEdit::parseText);
    edit->installEventFilter(this);
    if (isLongText(valueRep)) {
        more = new QPushButton(QStringLiteral("..."), this);
        more->setMaximumWidth(25);
        more->setToolTip(tr("Edit the value as multi-line text"));
        layout->addWidget(more);
        connect(more, &QPushButton::clicked, this, &QxDicom3ValueEdit::createDialog);
    }
    if (valueRep == dicom::AS) {
        unit = new QComboBox(this);
        unit->addItems({tr("Years"), tr("Months"), tr("Weeks"), tr("Days")});
        unit->setMaximumWidth(80);
        layout->addWidget(unit);
    }
    setFocusProxy(edit);
}

void QxDicom3ValueEdit::setText(const QString &text, bool keepSaved)
{
    if (!keepSaved)
        saved = text;
    if (valueRep != dicom::AS) {
        edit->setText(parseDicomDataString(text, valueRep));
        return;
    }
    // An age: the last of the unit letters Y, M, W, D found chooses the
    // unit; the number is shown without it, below 1000.
    QString age = text.toUpper();
    for (int i = 0; i < 4; ++i)
        if (age.contains(QLatin1Char(kUnitLetters[i])))
            unit->setCurrentIndex(i);
    static const QRegularExpression letter(QStringLiteral("[YMWD]"));
    age.replace(letter, QStringLiteral(" "));
    const unsigned number = age.trimmed().toUInt();
    edit->setText(QString::number(number % 1000));
}

QString QxDicom3ValueEdit::text() const
{
    if (valueRep == dicom::AS)
        return QString::asprintf("%03u", edit->text().trimmed().toUInt() % 1000) +
               QLatin1Char(kUnitLetters[qBound(0, unit->currentIndex(), 3)]);
    return parseDicomDataString(edit->text(), valueRep);
}

void QxDicom3ValueEdit::parseText()
{
    setText(text(), true);
}

void QxDicom3ValueEdit::createDialog()
{
    edit->setEnabled(false);
    bool ok = false;
    const QString result = QxTextEditDialog::getMultiText(
        tr("Editing: ") + getVRDescription(valueRep), text(), &ok, this);
    if (ok && !result.isEmpty())
        setText(result, false);
    edit->setEnabled(true);
    edit->setFocus();
}

void QxDicom3ValueEdit::keyReleaseEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape && !edit->hasFocus())
        setText(saved, true);
    QWidget::keyReleaseEvent(event);
}

bool QxDicom3ValueEdit::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == edit && event->type() == QEvent::KeyRelease &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape)
        setText(saved, true);
    return QWidget::eventFilter(watched, event);
}

void QxDicom3ValueEdit::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    edit->setFocus();
}
