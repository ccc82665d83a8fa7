#include "platform/gui/QxDialog.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QBoxLayout>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTranslator>
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

// Answers the dialog's two texts in German.
class GermanTranslator : public QTranslator
{
public:
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        if (qstrcmp(context, "QxDialog") != 0)
            return QString();
        if (qstrcmp(source, "OK") == 0)
            return QStringLiteral("Gut");
        if (qstrcmp(source, "Cancel") == 0)
            return QStringLiteral("Abbrechen");
        return QString();
    }
    bool isEmpty() const override { return false; }
};

} // namespace

TEST(QxDialog, ButtonSetOneIsASingleDefaultOk)
{
    Laid d(QxDialog::ButtonsOk);
    ASSERT_NE(d.dialog.okButton(), nullptr);
    EXPECT_EQ(d.dialog.cancelButton(), nullptr);
    EXPECT_EQ(describe(d.row), "| OK");
    EXPECT_TRUE(d.dialog.okButton()->isDefault());
    EXPECT_EQ(d.row->spacing(), 5);
}

TEST(QxDialog, ButtonSetNineHasOkAndCancelInEachLayout)
{
    struct Row
    {
        int layout;
        const char *expected;
        const char *why;
    };
    const Row rows[] = {
        {1, "OK Cancel |", "layout 1 aligns left"},
        {2, "| OK Cancel", "layout 2 aligns right"},
        {0, "| OK Cancel |", "any other layout centres"},
        {7, "| OK Cancel |", "any other layout centres"},
    };
    for (const Row &r : rows) {
        Laid d(QxDialog::ButtonsOkCancel, r.layout);
        EXPECT_EQ(describe(d.row), r.expected) << r.why;
        ASSERT_NE(d.dialog.cancelButton(), nullptr);
        EXPECT_FALSE(d.dialog.cancelButton()->isDefault());
        EXPECT_TRUE(d.dialog.okButton()->isDefault());
    }
}

TEST(QxDialog, OkAcceptsAndCancelRejects)
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
}

TEST(QxDialog, ReturnKeyTriggersTheDefaultButton)
{
    Laid d(QxDialog::ButtonsOkCancel);
    QSignalSpy accepted(&d.dialog, &QDialog::accepted);
    d.dialog.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&d.dialog));
    QTest::keyClick(&d.dialog, Qt::Key_Return);
    EXPECT_EQ(accepted.count(), 1);
}

