#include "vxdicom/stacks/DicomStackDialog.h"

#include "platform/core/VxMessage.h"
#include "platform/gui/VxWarningDialog.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QBoxLayout>
#include <QDoubleValidator>
#include <QFrame>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>

#include <atomic>

namespace {

std::atomic<int> answerOverride{-1};

float toFloat(const QString &text)
{
    bool ok = false;
    const float value = text.toFloat(&ok);
    return ok ? value : 0.0f;
}

} // namespace

DicomStackDialog::DicomStackDialog(QWidget *parent)
    : QxDialog(parent, "DicomStackDialog", true), stepText(QString::number(1.0, 'g', 6)),
      frameStyle(QFrame::StyledPanel | QFrame::Sunken)
{
    setObjectName(QStringLiteral("DicomStackDialog"));
    setModal(true);
    setWindowTitle(QStringLiteral("DICOM Stack building"));
}

void DicomStackDialog::setDicomStack(DicomStackItem *s, Action action)
{
    stack = s;
    act = action;
    if (stack)
        startText = QString::number(stack->getMinSliceLocation(), 'g', 6);
}

QString DicomStackDialog::message() const
{
    switch (act) {
    case FlipNotice:
        return QStringLiteral("Note: Image locations are in descending order.\n\n"
                              "Stack will be automatically reverted.");
    case RenumberForm:
        return QStringLiteral("WARNING: Image locations are not monotonically ordered.\n"
                              "They must be adjusted.\n\n");
    case CorruptedNotice:
    default:
        return QStringLiteral("Stack might contain no images!");
    }
}

void DicomStackDialog::putData()
{
    if (!stack)
        act = CorruptedNotice;
    if (content)
        return;

    content = new QFrame(this);
    content->setFrameStyle(frameStyle);
    auto *contentLayout = new QVBoxLayout(content);
    contentLayout->setContentsMargins(margin, margin, margin, margin);
    contentLayout->addWidget(new QLabel(message(), content));

    if (act == RenumberForm) {
        auto *grid = new QGridLayout();
        grid->setSpacing(4);
        auto *validator = new QDoubleValidator(content);
        validator->setDecimals(1);
        validator->setNotation(QDoubleValidator::StandardNotation);
        validator->setLocale(QLocale::c());
        auto *startEdit = new QLineEdit(startText, content);
        startEdit->setObjectName(QStringLiteral("startLocation"));
        startEdit->setValidator(validator);
        auto *stepEdit = new QLineEdit(stepText, content);
        stepEdit->setObjectName(QStringLiteral("increment"));
        stepEdit->setValidator(validator);
        grid->addWidget(new QLabel(QStringLiteral("start location [mm]:"), content), 0, 0);
        grid->addWidget(startEdit, 0, 1);
        grid->addWidget(new QLabel(QStringLiteral("increment in mm:"), content), 1, 0);
        grid->addWidget(stepEdit, 1, 1);
        contentLayout->addLayout(grid);
        connect(startEdit, &QLineEdit::textChanged, this, &DicomStackDialog::updateLocation);
        connect(stepEdit, &QLineEdit::textChanged, this, &DicomStackDialog::updateIncrement);
    }

    auto *top = new QVBoxLayout(this);
    top->setContentsMargins(margin, margin, margin, margin);
    top->setSpacing(margin);
    top->addWidget(content);
    const int set = act == CorruptedNotice ? ButtonsOk : ButtonsOkCancel;
    top->addLayout(createButtons(set, 5, 2));
}

int DicomStackDialog::exec()
{
    const int forced = answerOverride.load();
    if (forced >= 0) {
        printAnswer(forced, "answer set in advance");
        return forced;
    }
    if (!VxWarningDialog::haveDisplay()) {
        printAnswer(Accepted, "no display; default answer");
        return Accepted;
    }
    return QxDialog::exec();
}

void DicomStackDialog::printAnswer(int result, const char *why) const
{
    QString question = message().simplified();
    if (act == RenumberForm)
        question += QStringLiteral(" start location [mm]: %1, increment in mm: %2")
                        .arg(startText, stepText);
    const char *answer = result == Accepted ? "OK" : "Cancel";
    VxMessage::getTheMsg()->printf("%s: %s\n-> %s (%s)\n", windowTitle().toUtf8().constData(),
                                   question.toUtf8().constData(), answer, why);
}

float DicomStackDialog::startLocation() const
{
    return toFloat(startText);
}

float DicomStackDialog::incrementValue() const
{
    return toFloat(stepText);
}

void DicomStackDialog::updateLocation(const QString &text)
{
    startText = text;
}

void DicomStackDialog::updateIncrement(const QString &text)
{
    stepText = text;
}

void DicomStackDialog::setAnswerOverride(int result)
{
    answerOverride.store(result);
}

DicomStackDialog *DicomStackDialogNegotiator::dialog() const
{
    return dynamic_cast<DicomStackDialog *>(forkedObject());
}

ForkedObject *DicomStackDialogNegotiator::create()
{
    auto *d = new DicomStackDialog();
    d->setDicomStack(stack, action);
    return d;
}
