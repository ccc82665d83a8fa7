#include "platform/gui/QxDialog.h"

#include <QHBoxLayout>
#include <QPushButton>

QxDialog::QxDialog(QWidget *parent, const char *name, bool modal, Qt::WindowFlags flags)
    : QDialog(parent, flags)
{
    if (name)
        setObjectName(QString::fromLatin1(name));
    setModal(modal);
}

QBoxLayout *QxDialog::createButtons(int set, int spacing, int layout, QPushButton *extra)
{
    auto *row = new QHBoxLayout;
    row->setSpacing(spacing);
    if (layout != 1)
        row->addStretch(1);
    if (extra)
        row->addWidget(extra);

    // The sets are bit masks: 1 the confirming button, 8 the cancelling one.
    if (set & ButtonsOk) {
        if (!ok) {
            ok = new QPushButton(tr("OK"), this);
            ok->setObjectName(QStringLiteral("ok"));
            connect(ok, &QPushButton::clicked, this, &QDialog::accept);
        }
        ok->setDefault(true);
        ok->setAutoDefault(true);
        row->addWidget(ok);
    }
    if (set & (ButtonsOkCancel & ~ButtonsOk)) {
        if (!cancel) {
            cancel = new QPushButton(tr("Cancel"), this);
            cancel->setObjectName(QStringLiteral("cancel"));
            cancel->setAutoDefault(false);
            connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
        }
        row->addWidget(cancel);
    }
    if (layout != 2)
        row->addStretch(1);
    return row;
}
