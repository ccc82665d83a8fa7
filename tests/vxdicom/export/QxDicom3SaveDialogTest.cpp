// "Save as DICOM" shown from a worker thread and driven offscreen; dcmdump reads the files.

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
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <fstream>

namespace {

std::string cell(const QxDicom3Table &table, int r, int c)
{
    return r < 0 ? "(no row)" : table.item(r, c)->text().toStdString();
}

int rowOf(const QxDicom3Table &table, const char *group, const char *element)
{
    for (int r = 0; r < table.rowCount(); ++r)
        if (cell(table, r, QxDicom3Table::Group) == group &&
            cell(table, r, QxDicom3Table::Element) == element)
            return r;
    return -1;
}

template <class Editor> Editor *openEditor(QxDicom3Table &table, int r, int c)
{
    table.setCurrentCell(r, c);
    QApplication::processEvents();
    for (Editor *editor : table.viewport()->findChildren<Editor *>())
        if (editor->isVisible()) // closed editors wait to be deleted
            return editor;
    return nullptr;
}

// Opens the editor of a cell as a click does and types the text over its value.
void typeInto(QxDicom3Table &table, int r, int c, const char *text)
{
    auto *edit = openEditor<QxDicom3ValueEdit>(table, r, c);
    ASSERT_NE(edit, nullptr) << "no editor at " << r << "," << c;
    edit->lineEdit()->selectAll(), QTest::keyClicks(edit->lineEdit(), text);
}

} // namespace

TEST(SaveDialog, AttributesFromAFileAndEditedOnesReachTheFilesAndOwnedOnesAreRefused)
{
    VX_REQUIRE_SHARED_DATA();
    registerDicomImportDialog();
    VxObjectPool::instance()->clear();
    const std::vector<std::string> files = vxtest::sharedDicomFiles("dcm_qa_decubitus/In");
    std::vector<const char *> names;
    for (const std::string &f : files)
        names.push_back(f.c_str());
    KcDArray<VxField3 *> fields;
    vxReadDicom(static_cast<int>(names.size()), names.data(), fields, 0, false);
    ASSERT_EQ(fields.size(), 1);
    vxtest::TempDir out;
    std::ofstream(out.file("in.txt")) << "(0008,1030) LO study description: phantom, edited\n";
    std::string error;
    Dicom3SaveOptions options;
    options.attributes = readAttributeFile(out.file("in.txt"), &error);
    ASSERT_TRUE(options.attributes) << error;

    // Shown from the saving worker thread; Cancel is driven in tests/apps/dialog_under_xvfb.sh.
    std::string refused;
    const QPointer<QTimer> waiting =
        uitest::whenShown<QxDicom3SaveDialog>([&](QxDicom3SaveDialog &d) {
            QxDicom3Table &table = *d.table();
            EXPECT_EQ(cell(table, rowOf(table, "0008", "1030"), QxDicom3Table::Content),
                      "phantom, edited");
            const int name = rowOf(table, "0010", "0010");
            EXPECT_EQ(cell(table, name, QxDicom3Table::Content), "Unknown");
            EXPECT_TRUE(table.isRowReadOnly(rowOf(table, "0028", "0010")));
            typeInto(table, name, QxDicom3Table::Content, "Doe^Jane");
            // Rows (0028,0010) set on purpose: refused by name, nothing written.
            QTest::mouseClick(d.addButton(), Qt::LeftButton);
            const int owned = table.rowCount() - 1;
            typeInto(table, owned, QxDicom3Table::Group, "00280010");
            typeInto(table, owned, QxDicom3Table::Content, "12");
            QTest::mouseClick(d.addButton(), Qt::LeftButton);
            const int added = table.rowCount() - 1;
            auto *vr = openEditor<QComboBox>(table, added, QxDicom3Table::VR);
            ASSERT_NE(vr, nullptr);
            vr->setCurrentText("LO");
            emit vr->textActivated("LO");
            typeInto(table, added, QxDicom3Table::Content, "vxdicom edit test");
            table.setCurrentCell(name, QxDicom3Table::Description);
            {
                VxMessageCapture console;
                QTest::mouseClick(d.okButton(), Qt::LeftButton);
                refused = console.text();
            }
            EXPECT_TRUE(d.isVisible());
            // Deleting the owned row moves the private one up in its place.
            table.setCurrentCell(owned, QxDicom3Table::Description);
            QTest::mouseClick(d.deleteButton(), Qt::LeftButton);
            EXPECT_EQ(std::to_string(table.rowCount() - owned) + " " +
                          cell(table, owned, QxDicom3Table::Group) + " " +
                          cell(table, owned, QxDicom3Table::Content),
                      "1 F000 vxdicom edit test");
            QString why;
            EXPECT_TRUE(d.saveAttributesTo(QString::fromStdString(out.file("out.txt")), &why))
                << why.toStdString();
            QTest::mouseClick(d.okButton(), Qt::LeftButton);
            if (d.isVisible()) // refused again: the test fails on what was written, not on a hang
                d.reject();
        });
    int written = -1;
    uitest::runOnWorker([&] {
        written =
            saveFieldThroughDialog(*fields[0], QString::fromStdString(out.file("dcm")), options);
    });
    delete waiting.data();
    EXPECT_NE(refused.find("(0028,0010) rows cannot be set here"), std::string::npos) << refused;
    ASSERT_EQ(written, 256);
    const std::unique_ptr<VxParamBundle> saved = readAttributeFile(out.file("out.txt"), &error);
    ASSERT_TRUE(saved) << error;
    EXPECT_EQ(saved->bundle("All")->getString("G0010-0010"), "patient name [PN]: Doe^Jane");
    EXPECT_EQ(saved->bundle("All")->getString("G0008-1030"),
              "study description [LO]: phantom, edited");
    EXPECT_EQ(saved->bundle("All")->parameter("G0028-0010"), nullptr) << "what the writer owns";

    std::string dump;
    ASSERT_EQ(
        vxtest::runCommand("dcmdump " + vxtest::shellQuote(out.file("dcm/IM00001.dcm")), &dump), 0);
    for (const char *line : {"(0010,0010) PN [Doe^Jane]", "(0008,1030) LO [phantom, edited",
                             "(f000,f000) LO [vxdicom edit test", "(0028,0010) US 256"})
        EXPECT_NE(dump.find(line), std::string::npos) << line << " in " << dump;
    VxObjectPool::instance()->clear();
}
