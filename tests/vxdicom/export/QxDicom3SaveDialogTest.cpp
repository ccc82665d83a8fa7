// "Save as DICOM" as a user works it: a real series loaded, the dialog shown
// from a worker thread as the program shows it, a name edited, a private
// element added, a writer-owned element refused, Save; the files read back by
// dcmdump and pydicom, tools other than ours.

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
#include "vxdicom/reader/VxDicom.h"

#include <QComboBox>
#include <QDir>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

namespace {

int rowOf(const QxDicom3Table &table, const char *group, const char *element)
{
    for (int r = 0; r < table.rowCount(); ++r)
        if (table.item(r, QxDicom3Table::Group)->text() == group &&
            table.item(r, QxDicom3Table::Element)->text() == element)
            return r;
    return -1;
}

// The open editor of the table (closed ones wait hidden to be deleted).
template <class Editor> Editor *openEditor(QxDicom3Table &table, int r, int c)
{
    table.setCurrentCell(r, c);
    QApplication::processEvents();
    for (Editor *editor : table.viewport()->findChildren<Editor *>())
        if (editor->isVisible())
            return editor;
    return nullptr;
}

// Opens the editor of a cell as a click does, types the text over its value.
void typeInto(QxDicom3Table &table, int r, int c, const char *text)
{
    auto *edit = openEditor<QxDicom3ValueEdit>(table, r, c);
    ASSERT_NE(edit, nullptr);
    edit->lineEdit()->selectAll();
    QTest::keyClicks(edit->lineEdit(), text);
}

// Saves the field through the dialog on a worker thread; `drive` works the
// dialog. The number of files written (0: cancelled).
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

TEST(SaveDialog, EditedAttributesReachTheFilesAndOwnedOnesAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    registerDicomImportDialog();
    VxObjectPool::instance()->clear();
    std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    std::vector<const char *> names;
    for (const std::string &f : files)
        names.push_back(f.c_str());
    KcDArray<VxField3 *> fields;
    vxReadDicom(static_cast<int>(names.size()), names.data(), fields, 0, false);
    ASSERT_EQ(fields.size(), 1);

    // Cancel writes nothing.
    vxtest::TempDir cancelled;
    EXPECT_EQ(saveThroughDialog(fields[0], cancelled.path(),
                                [](QxDicom3SaveDialog &d) { d.cancelButton()->click(); }),
              0);
    EXPECT_TRUE(QDir(QString::fromStdString(cancelled.path())).isEmpty());

    vxtest::TempDir out;
    std::string refused;
    const int written = saveThroughDialog(fields[0], out.path(), [&](QxDicom3SaveDialog &d) {
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
    // The writer pads with 0x00, as it does for every text.
    EXPECT_NE(dump.find("(f000,f000) LO [vxdicom edit test"), std::string::npos) << dump;
    EXPECT_NE(dump.find("(0028,0010) US 256"), std::string::npos) << dump;
    if (!vxtest::havePythonModules({"pydicom"}))
        GTEST_SKIP() << "pydicom is missing";
    std::string seen;
    ASSERT_EQ(vxtest::runCommand("/usr/bin/python3 -c 'import pydicom, sys; "
                                 "d = pydicom.dcmread(sys.argv[1]); "
                                 "print(d.PatientName, d[0xF000F000].value, sep=\"|\")' " +
                                     vxtest::shellQuote(first),
                                 &seen),
              0);
    EXPECT_EQ(seen, "Doe^Jane|vxdicom edit test\n");
    VxObjectPool::instance()->clear();
}

TEST(SaveDialog, AttributeFilesPrefillTheTableAndTheTableSavesWhatMayBeSet)
{
    VX_REQUIRE_SHARED_DATA();
    registerDicomImportDialog();
    VxObjectPool::instance()->clear();
    const std::string ct = vxtest::sharedPath("dcm_qa_ct/In/Philips/S21610/S2010/I10");
    const char *names[] = {ct.c_str()};
    KcDArray<VxField3 *> fields;
    vxReadDicom(1, names, fields, 0, false);
    ASSERT_EQ(fields.size(), 1);

    vxtest::TempDir dir;
    const std::string lines = dir.file("in.txt");
    std::FILE *f = std::fopen(lines.c_str(), "w");
    std::fputs("0010,0010 PN patient name: Roe^Jane\n"
               "(0008,1030) LO study description: phantom, edited\n",
               f);
    std::fclose(f);
    std::string error;
    Dicom3SaveOptions options;
    options.attributes = readAttributeFile(lines, &error);
    ASSERT_TRUE(options.attributes) << error;

    QxDicom3SaveDialog dialog(fields[0], QString::fromStdString(dir.path()), options);
    dialog.putData();
    const QxDicom3Table &table = *dialog.table();
    EXPECT_EQ(dialog.modalityBox()->currentText(), "CT") << "the field's modality";
    EXPECT_EQ(table.item(rowOf(table, "0010", "0010"), QxDicom3Table::Content)->text(), "Roe^Jane");
    const int added = rowOf(table, "0008", "1030");
    ASSERT_GE(added, 0);
    EXPECT_EQ(table.item(added, QxDicom3Table::Content)->text(), "phantom, edited");

    // Another class keeps the rows the file set.
    dialog.modalityBox()->setCurrentText("MR");
    EXPECT_EQ(table.item(rowOf(table, "0008", "0060"), QxDicom3Table::Content)->text(), "MR");
    EXPECT_EQ(table.item(rowOf(table, "0010", "0010"), QxDicom3Table::Content)->text(), "Roe^Jane");

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
