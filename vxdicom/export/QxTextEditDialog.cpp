#include "vxdicom/export/QxTextEditDialog.h"

#include "platform/gui/VxHelpBrowser.h"

#include <QHBoxLayout>
#include <QPushButton>
#include <QTextEdit>
#include <QVBoxLayout>

QxTextEditDialog::QxTextEditDialog(const QString &caption, const QString &text, QWidget *parent,
                                   const char *name, bool modal, Qt::WindowFlags flags)
    : QDialog(parent, flags)
{
    setObjectName(QString::fromLatin1(name ? name : "QxTextEditDialog"));
    setModal(modal);
    setWindowTitle(caption);
    auto *layout = new QVBoxLayout(this);
    edit = new QTextEdit(this);
    edit->setAcceptRichText(false);
    edit->setPlainText(text);
    layout->addWidget(edit, 1);
    auto *buttons = new QHBoxLayout;
    const struct
    {
        const char *name, *label;
    } specs[] = {{"buttonHelp", "&Help"}, {"buttonOk", "&OK"}, {"buttonCancel", "&Cancel"}};
    QPushButton *made[3];
    for (int i = 0; i < 3; ++i) {
        made[i] = new QPushButton(tr(specs[i].label), this);
        made[i]->setObjectName(QString::fromLatin1(specs[i].name));
        made[i]->setAutoDefault(false);
        buttons->addWidget(made[i]);
    }
    buttons->insertStretch(1, 1);
    layout->addLayout(buttons);
    connect(made[1], &QPushButton::clicked, this, &QDialog::accept);
    connect(made[2], &QPushButton::clicked, this, &QDialog::reject);
    resize(520, 360);
}

QString QxTextEditDialog::getMultiText(const QString &caption, const QString &text, bool *ok,
                                       QWidget *parent)
{
    QxTextEditDialog dialog(caption, text, parent);
    const bool accepted = dialog.exec() == QDialog::Accepted;
    if (ok)
        *ok = accepted;
    return accepted ? dialog.getText() : QString();
}

QString QxTextEditDialog::getText() const
{
    return edit->toPlainText();
}

void QxTextEditDialog::help()
{
    VxHelpBrowser::openPath(QStringLiteral("/share/usersguide/QxDicom3SaveDialog.html"));
}
