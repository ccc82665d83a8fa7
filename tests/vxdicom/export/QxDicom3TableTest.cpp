// The element table, its value editors and the text dialog, as a user edits
// them: real widgets offscreen, editors opened by making a cell current.

#include "vxdicom/export/QxDicom3Table.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"
#include "vxdicom/export/QxDicom3ValueEdit.h"
#include "vxdicom/export/QxTextEditDialog.h"

#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <gtest/gtest.h>

#include <memory>

namespace {

using Row = std::vector<std::string>;

Row rowTexts(const QxDicom3Table &table, int r)
{
    Row texts;
    for (int c = 0; c < table.columnCount(); ++c)
        texts.push_back(table.item(r, c)->text().toStdString());
    return texts;
}

// A table of three rows from a bundle as the writer and the loader make it.
std::unique_ptr<QxDicom3Table> threeRows()
{
    VxParamBundle bundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->insert(new VxParameter("G0010-0010", "patient name [PN]: Doe^John"));
    all->insert(new VxParameter("G0010-1010", "patient age [AS]: 045Y"));
    all->insert(new VxParameter("G0008-103E", "series description [LO]: T1 axial"));
    bundle.insert(all);
    auto table = std::make_unique<QxDicom3Table>();
    table->replaceContentWithBundle(&bundle);
    table->show();
    return table;
}

// Makes the cell current, which opens its editor, and returns the editor.
template <class Editor> Editor *openEditor(QxDicom3Table &table, int r, int c)
{
    if (table.currentRow() == r && table.currentColumn() == c)
        table.editItem(table.item(r, c)); // a click on the current cell
    else
        table.setCurrentCell(r, c);
    QApplication::processEvents();
    for (Editor *editor : table.viewport()->findChildren<Editor *>())
        if (editor->isVisible()) // closed editors wait to be deleted
            return editor;
    return nullptr;
}

} // namespace

TEST(ElementTable, RowsComeFromBundlesAndGoBackAsTheWritersParameters)
{
    const auto table = threeRows();
    ASSERT_EQ(table->rowCount(), 3);
    EXPECT_EQ(rowTexts(*table, 0), (Row{"0010", "0010", "PN", "8", "patient name", "Doe^John"}));

    // A bundle without "All" changes nothing.
    VxParamBundle empty("DICOM");
    table->replaceContentWithBundle(&empty);
    table->replaceContentWithBundle(nullptr);
    EXPECT_EQ(table->rowCount(), 3);

    // A new row: the private element, and its parameter GF000-F000.
    table->addNewItem();
    const Row added = rowTexts(*table, 3);
    EXPECT_EQ(Row(added.begin(), added.begin() + 3), (Row{"F000", "F000", "DT"}));
    EXPECT_EQ(added[4], "new Private Element");
    EXPECT_EQ(added[3], std::to_string(added[5].size()));
    EXPECT_EQ(added[5].size(), 19u) << "date, a blank, time with milliseconds: " << added[5];
    const std::unique_ptr<VxParamBundle> bundle(table->getContentAsDicomParamBundle());
    const VxParamBundle *all = bundle->bundle("All");
    ASSERT_NE(all, nullptr);
    ASSERT_EQ(all->size(), 4);
    EXPECT_EQ(all->getString("G0010-0010"), "patient name [PN]:Doe^John");
    EXPECT_NE(all->parameter("GF000-F000"), nullptr);

    // Deleting the first row moves the others up in order; then all go.
    table->setCurrentCell(0, QxDicom3Table::Description);
    table->delCurrentItem();
    EXPECT_EQ(table->item(0, QxDicom3Table::Description)->text(), "patient age");
    EXPECT_EQ(table->item(1, QxDicom3Table::Description)->text(), "series description");
    EXPECT_EQ(table->rowCount(), 3);
    while (table->rowCount() > 0) {
        table->setCurrentCell(0, QxDicom3Table::Description);
        table->delCurrentItem();
    }
    EXPECT_EQ(table->rowCount(), 0);
}

TEST(ElementTable, EditorsNormaliseWhatIsTyped)
{
    const auto table = threeRows();

    // An age: 45y is shown as 45 Years and stored as 045Y; 1234D as 234D.
    auto *age = openEditor<QxDicom3ValueEdit>(*table, 1, QxDicom3Table::Content);
    ASSERT_NE(age, nullptr);
    for (const auto &[typed, shown, unit, stored] :
         {std::tuple{"45y", "45", "Years", "045Y"}, std::tuple{"1234D", "234", "Days", "234D"}}) {
        age->setText(typed);
        EXPECT_EQ(age->lineEdit()->text(), shown);
        EXPECT_EQ(age->unitBox()->currentText(), unit);
        EXPECT_EQ(age->text(), stored);
    }
    table->setCurrentCell(0, QxDicom3Table::Description); // leaving the cell stores it
    EXPECT_EQ(table->item(1, QxDicom3Table::Content)->text().toStdString(), "234D");
    EXPECT_EQ(table->item(1, QxDicom3Table::Length)->text().toStdString(), "4");

    // The tag in one go: 00100020 gives group 0010 and element 0020.
    auto *tag = openEditor<QxDicom3ValueEdit>(*table, 0, QxDicom3Table::Group);
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(tag->text().toStdString(), "0010-0010");
    tag->lineEdit()->selectAll();
    QTest::keyClicks(tag->lineEdit(), "00100020");
    table->setCurrentCell(2, QxDicom3Table::Description);
    EXPECT_EQ(rowTexts(*table, 0)[0] + rowTexts(*table, 0)[1], "00100020");

    // Another VR from the VR box stores the value again for it.
    table->item(2, QxDicom3Table::Content)->setText("  T1    axial ");
    auto *vr = openEditor<QComboBox>(*table, 2, QxDicom3Table::VR);
    ASSERT_NE(vr, nullptr);
    vr->setCurrentText("SH");
    emit vr->textActivated("SH");
    EXPECT_EQ(rowTexts(*table, 2)[2], "SH");
    EXPECT_EQ(rowTexts(*table, 2)[5], "T1 axial");
    EXPECT_EQ(rowTexts(*table, 2)[3], "8");
}

TEST(ElementTable, EscapeAndACancelledTextDialogKeepTheValue)
{
    const auto table = threeRows();
    // Escape leaves the value as it was; Return stores the typed text.
    auto *edit = openEditor<QxDicom3ValueEdit>(*table, 2, QxDicom3Table::Content);
    ASSERT_NE(edit, nullptr);
    edit->lineEdit()->selectAll();
    QTest::keyClicks(edit->lineEdit(), "typed over");
    QTest::keyClick(edit->lineEdit(), Qt::Key_Escape);
    EXPECT_EQ(table->item(2, QxDicom3Table::Content)->text().toStdString(), "T1 axial");
    edit = openEditor<QxDicom3ValueEdit>(*table, 2, QxDicom3Table::Content);
    ASSERT_NE(edit, nullptr);
    edit->lineEdit()->selectAll();
    QTest::keyClicks(edit->lineEdit(), "  typed   over ");
    QTest::keyClick(edit->lineEdit(), Qt::Key_Return);
    QApplication::processEvents(); // the table takes the value when the editor has closed
    EXPECT_EQ(table->item(2, QxDicom3Table::Content)->text().toStdString(), "typed over");

    edit = openEditor<QxDicom3ValueEdit>(*table, 0, QxDicom3Table::Content);
    ASSERT_NE(edit, nullptr);
    edit->setText("Doe^John"); // the text Escape brings back
    edit->lineEdit()->setText("Roe^Richard");
    QTest::keyRelease(edit->lineEdit(), Qt::Key_Escape);
    EXPECT_EQ(edit->lineEdit()->text().toStdString(), "Doe^John");

    edit = openEditor<QxDicom3ValueEdit>(*table, 2, QxDicom3Table::Content);
    ASSERT_NE(edit, nullptr);
    ASSERT_NE(edit->dialogButton(), nullptr) << "LO has the \"...\" button";
    // "...": the text dialog shows the value; Cancel leaves it, OK takes it.
    for (const bool accept : {false, true}) {
        QTimer::singleShot(0, [accept] {
            auto *dialog = qobject_cast<QxTextEditDialog *>(QApplication::activeModalWidget());
            ASSERT_NE(dialog, nullptr);
            EXPECT_EQ(dialog->windowTitle(), "Editing: Long String");
            EXPECT_EQ(dialog->getText().toStdString(), "typed over");
            dialog->editor()->setPlainText("T2\ncoronal");
            QTest::mouseClick(
                dialog->findChild<QPushButton *>(accept ? "buttonOk" : "buttonCancel"),
                Qt::LeftButton);
        });
        QTest::mouseClick(edit->dialogButton(), Qt::LeftButton);
        EXPECT_EQ(edit->text().toStdString(), accept ? "T2 coronal" : "typed over");
        EXPECT_TRUE(edit->lineEdit()->isEnabled());
    }
}
