#include "vxdicom/stacks/DicomStackDialog.h"

#include "platform/core/VxMessage.h"
#include "platform/gui/VxWarningDialog.h"
#include "tests/support/TestSupport.h"
#include "tests/vxdicom/stacks/StacksTestSupport.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"
#include "vxdicom/stacks/DicomStackItem.h"

#include <QApplication>
#include <QDoubleValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

using stacktest::LoadedFiles;

namespace {

// A stack of three CT slices whose locations are made 10, 30, 20 (child order).
struct OutOfOrderStack
{
    OutOfOrderStack()
        : files({vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10"),
                 vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I20"),
                 vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I30")})
    {
        const float made[3] = {20, 30, 10}; // appended rows go first: 10, 30, 20
        for (size_t i = 0; i < files.files.size(); ++i) {
            files.files[i]->images[0]->sliceLocation = made[i];
            stack.append(files.files[i]->images[0]);
        }
    }
    LoadedFiles files;
    DicomStackItem stack;
};

QStringList labelTexts(const QWidget &w)
{
    QStringList texts;
    for (const QLabel *label : w.findChildren<QLabel *>())
        texts << label->text();
    return texts;
}

struct DisplayOverride
{
    explicit DisplayOverride(int display) { VxWarningDialog::setDisplayOverride(display); }
    ~DisplayOverride() { VxWarningDialog::setDisplayOverride(-1); }
};

} // namespace

TEST(StackDialog, ConstructionAndSuggestedValues)
{
    DicomStackDialog dialog;
    EXPECT_EQ(dialog.objectName(), "DicomStackDialog");
    EXPECT_EQ(dialog.windowTitle(), "DICOM Stack building");
    EXPECT_TRUE(dialog.isModal());
    EXPECT_EQ(dialog.incrementText(), "1");
    EXPECT_FLOAT_EQ(dialog.incrementValue(), 1);

    VX_REQUIRE_SHARED_DATA();
    OutOfOrderStack s;
    ASSERT_EQ(stacktest::sliceLocations(&s.stack), (std::vector<float>{10, 30, 20}));
    dialog.setDicomStack(&s.stack, DicomStackDialog::RenumberForm);
    EXPECT_EQ(dialog.startLocationText(), "30") << "the stack's largest location";
    EXPECT_FLOAT_EQ(dialog.startLocation(), 30);

    dialog.updateLocation("-12.5");
    dialog.updateIncrement("2.5");
    EXPECT_FLOAT_EQ(dialog.startLocation(), -12.5f);
    EXPECT_FLOAT_EQ(dialog.incrementValue(), 2.5f);
    dialog.updateIncrement("abc");
    EXPECT_FLOAT_EQ(dialog.incrementValue(), 0) << "an invalid text gives 0";
}

TEST(StackDialog, ContentFollowsTheAction)
{
    {
        DicomStackDialog noStack;
        noStack.setDicomStack(nullptr, DicomStackDialog::RenumberForm);
        noStack.putData();
        EXPECT_EQ(noStack.action(), DicomStackDialog::CorruptedNotice) << "no stack";
        EXPECT_EQ(labelTexts(noStack), QStringList{"Stack might contain no images!"});
        EXPECT_NE(noStack.okButton(), nullptr);
        EXPECT_EQ(noStack.cancelButton(), nullptr) << "button set 1";
    }
    VX_REQUIRE_SHARED_DATA();
    OutOfOrderStack s;
    {
        DicomStackDialog flip;
        flip.setDicomStack(&s.stack, DicomStackDialog::FlipNotice);
        flip.putData();
        EXPECT_EQ(labelTexts(flip), QStringList{"Note: Image locations are in descending order.\n\n"
                                                "Stack will be automatically reverted."});
        EXPECT_NE(flip.cancelButton(), nullptr) << "button set 9";
        EXPECT_TRUE(flip.findChildren<QLineEdit *>().isEmpty());
    }
    DicomStackDialog form;
    form.setDicomStack(&s.stack, DicomStackDialog::RenumberForm);
    form.putData();
    EXPECT_EQ(labelTexts(form),
              (QStringList{"WARNING: Image locations are not monotonically ordered.\n"
                           "They must be adjusted.\n\n",
                           "start location [mm]:", "increment in mm:"}));
    auto *start = form.findChild<QLineEdit *>("startLocation");
    auto *step = form.findChild<QLineEdit *>("increment");
    ASSERT_TRUE(start && step);
    EXPECT_EQ(start->text(), "30");
    EXPECT_EQ(step->text(), "1");
    const auto *validator = qobject_cast<const QDoubleValidator *>(start->validator());
    ASSERT_NE(validator, nullptr);
    EXPECT_EQ(validator->decimals(), 1);
    EXPECT_EQ(step->validator(), start->validator()) << "one validator for both edits";
    step->setText("2.5");
    EXPECT_FLOAT_EQ(form.incrementValue(), 2.5f) << "textChanged stores the edited text";
}

TEST(StackDialog, WithoutDisplayExecAnswersTheDefaultAndSaysSo)
{
    VX_REQUIRE_SHARED_DATA();
    OutOfOrderStack s;
    DisplayOverride none(0);
    DicomStackDialog dialog;
    dialog.setDicomStack(&s.stack, DicomStackDialog::RenumberForm);
    dialog.putData();
    VxMessageCapture console;
    EXPECT_EQ(dialog.exec(), 1);
    EXPECT_EQ(console.text(),
              "DICOM Stack building: WARNING: Image locations are not monotonically ordered. "
              "They must be adjusted. start location [mm]: 30, increment in mm: 1\n"
              "-> OK (no display; default answer)\n");
    EXPECT_FLOAT_EQ(dialog.startLocation(), 30);
    EXPECT_FLOAT_EQ(dialog.incrementValue(), 1);
}

TEST(StackDialog, WithADisplayTheUsersAnswerCounts)
{
    VX_REQUIRE_SHARED_DATA();
    OutOfOrderStack s;
    DisplayOverride shown(1);
    DicomStackDialog dialog;
    dialog.setDicomStack(&s.stack, DicomStackDialog::RenumberForm);
    dialog.putData();

    QTimer::singleShot(0, &dialog, [&dialog] {
        dialog.findChild<QLineEdit *>("increment")->setText("0.5");
        dialog.cancelButton()->click();
    });
    EXPECT_EQ(dialog.exec(), 0);

    QTimer::singleShot(0, &dialog, [&dialog] { dialog.okButton()->click(); });
    EXPECT_EQ(dialog.exec(), 1);
    EXPECT_FLOAT_EQ(dialog.incrementValue(), 0.5f);

    stacktest::StackDialogAnswer forced(0);
    EXPECT_EQ(dialog.exec(), 0) << "a forced answer never opens the dialog";
}

TEST(StackDialog, NegotiatorRunsTheDialogForAStack)
{
    VX_REQUIRE_SHARED_DATA();
    OutOfOrderStack s;
    DicomStackDialogNegotiator negotiator(&s.stack, DicomStackDialog::RenumberForm);
    ASSERT_NE(negotiator.createForkedObject(), nullptr);
    ASSERT_NE(negotiator.dialog(), nullptr);
    EXPECT_EQ(negotiator.dialog()->dicomStack(), &s.stack);
    EXPECT_EQ(negotiator.dialog()->action(), DicomStackDialog::RenumberForm);
    negotiator.putData();
    stacktest::StackDialogAnswer cancel(0);
    EXPECT_EQ(negotiator.exec(), 0);
    negotiator.deleteForkedObject();
    EXPECT_EQ(negotiator.dialog(), nullptr);
}
