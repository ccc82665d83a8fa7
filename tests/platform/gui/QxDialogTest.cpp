#include "platform/gui/QxDialog.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QBoxLayout>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QVBoxLayout>

#include <string>

namespace {

// What the row holds, in order: "|" for a stretch, else the button text.
std::string describe(QBoxLayout *row)
{
    std::string out;
    for (int i = 0; i < row->count(); ++i) {
        QLayoutItem *item = row->itemAt(i);
        if (!out.empty())
            out += ' ';
        if (auto *button = qobject_cast<QPushButton *>(item->widget()))
            out += button->text().toStdString();
        else if (item->spacerItem())
            out += '|';
        else
            out += '?';
    }
    return out;
}

// A dialog laid out with one button row, as the browser's dialogs do.
struct Laid
{
    QxDialog dialog;
    QBoxLayout *row;
    Laid(int set, int layout = 2, QPushButton *extra = nullptr)
    {
        auto *main = new QVBoxLayout(&dialog);
        row = dialog.createButtons(set, 5, layout, extra);
        main->addLayout(row);
    }
};

} // namespace

TEST(QxDialog, ButtonSetsAreLaidOutWithOkAsTheDefault)
{
    struct Row
    {
        int set, layout;
        const char *expected;
        const char *why;
    };
    const Row rows[] = {
        {QxDialog::ButtonsOk, 2, "| OK", "set 1: OK alone"},
        {QxDialog::ButtonsOkCancel, 1, "OK Cancel |", "layout 1 aligns left"},
        {QxDialog::ButtonsOkCancel, 2, "| OK Cancel", "layout 2 aligns right"},
        {QxDialog::ButtonsOkCancel, 0, "| OK Cancel |", "any other layout centres"},
        {QxDialog::ButtonsOkCancel, 7, "| OK Cancel |", "any other layout centres"},
    };
    for (const Row &r : rows) {
        Laid d(r.set, r.layout);
        EXPECT_EQ(describe(d.row), r.expected) << r.why;
        EXPECT_EQ(d.row->spacing(), 5);
        ASSERT_NE(d.dialog.okButton(), nullptr);
        EXPECT_TRUE(d.dialog.okButton()->isDefault());
        EXPECT_EQ(d.dialog.cancelButton() != nullptr, r.set == QxDialog::ButtonsOkCancel);
        if (d.dialog.cancelButton())
            EXPECT_FALSE(d.dialog.cancelButton()->isDefault());
    }
}

TEST(QxDialog, OkReturnAndCancelEndTheDialog)
{
    {
        Laid d(QxDialog::ButtonsOkCancel);
        QSignalSpy accepted(&d.dialog, &QDialog::accepted);
        d.dialog.okButton()->click();
        EXPECT_EQ(accepted.count(), 1);
        EXPECT_EQ(d.dialog.result(), 1);
    }
    {
        Laid d(QxDialog::ButtonsOkCancel);
        QSignalSpy rejected(&d.dialog, &QDialog::rejected);
        d.dialog.cancelButton()->click();
        EXPECT_EQ(rejected.count(), 1);
        EXPECT_EQ(d.dialog.result(), 0);
    }
    Laid d(QxDialog::ButtonsOkCancel);
    QSignalSpy accepted(&d.dialog, &QDialog::accepted);
    d.dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&d.dialog));
    QTest::keyClick(&d.dialog, Qt::Key_Return);
    EXPECT_EQ(accepted.count(), 1) << "Return triggers the default button";
}
