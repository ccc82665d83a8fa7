// "Save as DICOM" as a user works it: the element table, its value editors
// and the text dialog edited as real widgets offscreen; the dialog shown from
// a worker thread as the program shows it, over a real series, and the files
// it writes read back by dcmdump and pydicom.

#include "vxdicom/export/QxDicom3SaveDialog.h"
#include "platform/core/VxMessage.h"
#include "platform/core/VxObjectPool.h"
#include "platform/data/VxField3.h"
#include "platform/data/VxParamBundle.h"
#include "tests/support/TestSupport.h"
#include "tests/support/WidgetDriver.h"
#include "vxdicom/browser/DicomDialog.h"
#include "vxdicom/export/Dicom3AttributeFile.h"
#include "vxdicom/export/QxDicom3Table.h"
#include "vxdicom/export/QxDicom3ValueEdit.h"
#include "vxdicom/export/QxTextEditDialog.h"
#include "vxdicom/reader/VxDicom.h"

#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>
#include <QTimer>

#include <fstream>

#include <gtest/gtest.h>

namespace {

using Row = std::vector<std::string>;

Row rowTexts(const QxDicom3Table &table, int r)
{
    Row texts;
    for (int c = 0; c < table.columnCount(); ++c)
        texts.push_back(table.item(r, c)->text().toStdString());
    return texts;
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

int rowOf(const QxDicom3Table &table, const char *group, const char *element)
{
    for (int r = 0; r < table.rowCount(); ++r)
        if (table.item(r, QxDicom3Table::Group)->text() == group &&
            table.item(r, QxDicom3Table::Element)->text() == element)
            return r;
    return -1;
}

void typeInto(QxDicom3Table &table, int r, int c, const char *text)
{
    auto *edit = openEditor<QxDicom3ValueEdit>(table, r, c);
    ASSERT_NE(edit, nullptr);
    edit->lineEdit()->selectAll();
    QTest::keyClicks(edit->lineEdit(), text);
}

/// The files of a real series as one field.
VxField3 *load(const std::vector<std::string> &files)
{
    std::vector<const char *> names;
    for (const std::string &f : files)
        names.push_back(f.c_str());
    KcDArray<VxField3 *> fields;
    vxReadDicom(static_cast<int>(names.size()), names.data(), fields, 0, false);
    EXPECT_EQ(fields.size(), 1);
    return fields.size() == 1 ? fields[0] : nullptr;
}

/// Saves the field through the dialog on a worker thread; `drive` works the
/// dialog. The number of files written (0: cancelled).
int saveThroughDialog(VxField3 *field, const std::string &dir,
                      const std::function<void(QxDicom3SaveDialog &)> &drive)
{
    const QPointer<QTimer> waiting =
        uitest::when([] { return uitest::visibleWindow<QxDicom3SaveDialog>() != nullptr; },
                     [drive] { drive(*uitest::visibleWindow<QxDicom3SaveDialog>()); });
    auto written = std::make_shared<int>(-1);
    const QString folder = QString::fromStdString(dir);
    uitest::runOnWorker(
        [field, folder, written] { *written = saveFieldThroughDialog(*field, folder, {}); });
    delete waiting.data();
    return *written;
}

} // namespace

TEST(ElementTable, RowsComeFromBundlesAreEditedAndGoBackAsTheWritersParameters)
{
    VxParamBundle bundle("DICOM");
    auto *all = new VxParamBundle("All");
    all->insert(new VxParameter("G0010-0010", "patient name [PN]: Doe^John"));
    all->insert(new VxParameter("G0010-1010", "patient age [AS]: 045Y"));
    all->insert(new VxParameter("G0008-103E", "series description [LO]: T1 axial"));
    bundle.insert(all);
    QxDicom3Table table;
    table.replaceContentWithBundle(&bundle);
    table.show();
    ASSERT_EQ(table.rowCount(), 3);
    EXPECT_EQ(rowTexts(table, 0), (Row{"0010", "0010", "PN", "8", "patient name", "Doe^John"}));
    VxParamBundle empty("DICOM");
    table.replaceContentWithBundle(&empty);
    table.replaceContentWithBundle(nullptr);
    EXPECT_EQ(table.rowCount(), 3) << "a bundle without \"All\" changes nothing";

    // An age: 45y is shown as 45 Years and stored as 045Y; 1234D as 234D.
    auto *age = openEditor<QxDicom3ValueEdit>(table, 1, QxDicom3Table::Content);
    ASSERT_NE(age, nullptr);
    for (const auto &[typed, shown, unit, stored] :
         {std::tuple{"45y", "45", "Years", "045Y"}, std::tuple{"1234D", "234", "Days", "234D"}}) {
        age->setText(typed);
        EXPECT_EQ(age->lineEdit()->text(), shown);
        EXPECT_EQ(age->unitBox()->currentText(), unit);
        EXPECT_EQ(age->text(), stored);
    }
    table.setCurrentCell(0, QxDicom3Table::Description); // leaving the cell stores it
    EXPECT_EQ(rowTexts(table, 1)[5] + "|" + rowTexts(table, 1)[3], "234D|4");

    // Escape leaves the value as it was; Return stores the typed text, normalised.
    for (const auto &[key, typed, stored] :
         {std::tuple{Qt::Key_Escape, "typed over", "T1 axial"},
          std::tuple{Qt::Key_Return, "  typed   over ", "typed over"}}) {
        auto *edit = openEditor<QxDicom3ValueEdit>(table, 2, QxDicom3Table::Content);
        ASSERT_NE(edit, nullptr);
        edit->lineEdit()->selectAll();
        QTest::keyClicks(edit->lineEdit(), typed);
        QTest::keyClick(edit->lineEdit(), key);
        QApplication::processEvents(); // the table takes the value when the editor has closed
        EXPECT_EQ(rowTexts(table, 2)[5], stored);
    }

    // "...": the text dialog shows the value; Cancel leaves it, OK takes it.
    auto *edit = openEditor<QxDicom3ValueEdit>(table, 2, QxDicom3Table::Content);
    ASSERT_NE(edit, nullptr);
    ASSERT_NE(edit->dialogButton(), nullptr) << "LO has the \"...\" button";
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
    }

    // Another VR from the VR box stores the value again for it.
    table.setCurrentCell(0, QxDicom3Table::Description);
    table.item(2, QxDicom3Table::Content)->setText("  T1    axial ");
    auto *vr = openEditor<QComboBox>(table, 2, QxDicom3Table::VR);
    ASSERT_NE(vr, nullptr);
    vr->setCurrentText("SH");
    emit vr->textActivated("SH");
    EXPECT_EQ(rowTexts(table, 2)[2] + "|" + rowTexts(table, 2)[5] + "|" + rowTexts(table, 2)[3],
              "SH|T1 axial|8");

    // The tag in one go: 00100020 gives group 0010 and element 0020.
    auto *tag = openEditor<QxDicom3ValueEdit>(table, 0, QxDicom3Table::Group);
    ASSERT_NE(tag, nullptr);
    EXPECT_EQ(tag->text().toStdString(), "0010-0010");
    tag->lineEdit()->selectAll();
    QTest::keyClicks(tag->lineEdit(), "00100020");
    table.setCurrentCell(2, QxDicom3Table::Description);
    EXPECT_EQ(rowTexts(table, 0)[0] + rowTexts(table, 0)[1], "00100020");

    // A new row: the private element GF000-F000, a date and time of 19 characters.
    table.addNewItem();
    const Row added = rowTexts(table, 3);
    EXPECT_EQ(Row(added.begin(), added.begin() + 3), (Row{"F000", "F000", "DT"}));
    EXPECT_EQ(added[4], "new Private Element");
    EXPECT_EQ(added[3], "19");
    EXPECT_EQ(added[5].size(), 19u) << added[5];
    const std::unique_ptr<VxParamBundle> back(table.getContentAsDicomParamBundle());
    ASSERT_NE(back->bundle("All"), nullptr);
    ASSERT_EQ(back->bundle("All")->size(), 4);
    EXPECT_EQ(back->bundle("All")->getString("G0010-0020"), "patient name [PN]:Doe^John");
    EXPECT_NE(back->bundle("All")->parameter("GF000-F000"), nullptr);

    // Deleting the first row moves the others up in order; then all go.
    table.setCurrentCell(0, QxDicom3Table::Description);
    table.delCurrentItem();
    ASSERT_EQ(table.rowCount(), 3);
    EXPECT_EQ(rowTexts(table, 0)[4] + "|" + rowTexts(table, 1)[4] + "|" + rowTexts(table, 2)[4],
              "patient age|series description|new Private Element");
    while (table.rowCount() > 0) {
        table.setCurrentCell(0, QxDicom3Table::Description);
        table.delCurrentItem();
    }
    EXPECT_EQ(table.rowCount(), 0);
}

TEST(SaveDialog, EditedAttributesReachTheFilesAndOwnedOnesAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    registerDicomImportDialog();
    VxObjectPool::instance()->clear();
    VxField3 *field = load(vxtest::sharedDicomFiles("dcm_qa_decubitus/In"));
    ASSERT_NE(field, nullptr);
    vxtest::TempDir cancelled;
    EXPECT_EQ(saveThroughDialog(field, cancelled.path(),
                                [](QxDicom3SaveDialog &d) { d.cancelButton()->click(); }),
              0);
    EXPECT_TRUE(QDir(QString::fromStdString(cancelled.path())).isEmpty())
        << "Cancel writes nothing";

    vxtest::TempDir out;
    std::string refused;
    const int written = saveThroughDialog(field, out.path(), [&](QxDicom3SaveDialog &d) {
        QxDicom3Table &table = *d.table();
        const int name = rowOf(table, "0010", "0010");
        ASSERT_GE(name, 0);
        EXPECT_EQ(table.item(name, QxDicom3Table::Content)->text(), "Unknown");
        EXPECT_TRUE(table.isRowReadOnly(rowOf(table, "0028", "0010")));
        typeInto(table, name, QxDicom3Table::Content, "Doe^Jane");
        // A private element, made a long string.
        QTest::mouseClick(d.addButton(), Qt::LeftButton);
        const int added = table.rowCount() - 1;
        auto *vr = openEditor<QComboBox>(table, added, QxDicom3Table::VR);
        ASSERT_NE(vr, nullptr);
        vr->setCurrentText("LO");
        emit vr->textActivated("LO");
        typeInto(table, added, QxDicom3Table::Content, "vxdicom edit test");
        // Rows (0028,0010) set on purpose: refused by name, nothing written.
        QTest::mouseClick(d.addButton(), Qt::LeftButton);
        const int owned = table.rowCount() - 1;
        typeInto(table, owned, QxDicom3Table::Group, "00280010");
        typeInto(table, owned, QxDicom3Table::Content, "12");
        table.setCurrentCell(name, QxDicom3Table::Description);
        {
            VxMessageCapture console;
            QTest::mouseClick(d.okButton(), Qt::LeftButton);
            refused = console.text();
        }
        EXPECT_TRUE(d.isVisible());
        table.setCurrentCell(owned, QxDicom3Table::Description);
        QTest::mouseClick(d.deleteButton(), Qt::LeftButton);
        QTest::mouseClick(d.okButton(), Qt::LeftButton);
    });
    EXPECT_NE(refused.find("(0028,0010) rows cannot be set here"), std::string::npos) << refused;
    ASSERT_EQ(written, 256);

    const std::string first = out.file("IM00001.dcm");
    std::string dump;
    ASSERT_EQ(vxtest::runCommand("dcmdump " + vxtest::shellQuote(first), &dump), 0);
    EXPECT_NE(dump.find("(0010,0010) PN [Doe^Jane]"), std::string::npos) << dump;
    EXPECT_NE(dump.find("(f000,f000) LO [vxdicom edit test"), std::string::npos) << dump;
    EXPECT_NE(dump.find("(0028,0010) US 256"), std::string::npos) << dump;
    VxObjectPool::instance()->clear();
    if (!vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "pydicom is missing";
    std::string seen;
    ASSERT_EQ(vxtest::runCommand(std::string(VX_PYTHON) +
                                     " -c 'import pydicom, sys; d = pydicom.dcmread(sys.argv[1]); "
                                     "print(d.PatientName, d[0xF000F000].value, sep=\"|\")' " +
                                     vxtest::shellQuote(first),
                                 &seen),
              0);
    EXPECT_EQ(seen, "Doe^Jane|vxdicom edit test\n");
}

TEST(SaveDialog, AttributeFilesPrefillTheTableAndTheTableSavesWhatMayBeSet)
{
    VX_REQUIRE_SHARED_DATA();
    registerDicomImportDialog();
    VxObjectPool::instance()->clear();
    VxField3 *field = load({vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10")});
    ASSERT_NE(field, nullptr);
    vxtest::TempDir dir;
    std::ofstream(dir.file("in.txt")) << "0010,0010 PN patient name: Roe^Jane\n"
                                         "(0008,1030) LO study description: phantom, edited\n";
    std::string error;
    Dicom3SaveOptions options;
    options.attributes = readAttributeFile(dir.file("in.txt"), &error);
    ASSERT_TRUE(options.attributes) << error;

    QxDicom3SaveDialog dialog(field, QString::fromStdString(dir.path()), options);
    dialog.putData();
    const QxDicom3Table &table = *dialog.table();
    auto content = [&](const char *g, const char *e) {
        const int r = rowOf(table, g, e);
        return r < 0 ? QString("(no row)") : table.item(r, QxDicom3Table::Content)->text();
    };
    EXPECT_EQ(dialog.modalityBox()->currentText(), "CT") << "the field's modality";
    EXPECT_EQ(content("0010", "0010"), "Roe^Jane");
    EXPECT_EQ(content("0008", "1030"), "phantom, edited");
    dialog.modalityBox()->setCurrentText("MR");
    EXPECT_EQ(content("0008", "0060"), "MR");
    EXPECT_EQ(content("0010", "0010"), "Roe^Jane") << "another class keeps the rows the file set";

    QString why;
    const QString saved = QString::fromStdString(dir.file("out.txt"));
    ASSERT_TRUE(dialog.saveAttributesTo(saved, &why)) << why.toStdString();
    const std::unique_ptr<VxParamBundle> back = readAttributeFile(saved.toStdString(), &error);
    ASSERT_TRUE(back) << error;
    const VxParamBundle *all = back->bundle("All");
    EXPECT_EQ(all->getString("G0010-0010"), "patient name [PN]: Roe^Jane");
    EXPECT_EQ(all->getString("G0008-1030"), "study description [LO]: phantom, edited");
    EXPECT_EQ(all->parameter("G0028-0010"), nullptr) << "what the writer owns is not listed";
    VxObjectPool::instance()->clear();
}
