#include "tests/support/TestSupport.h"
#include "vxdicom/reader/DicomReaderSettings.h"

#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    const vxtest::IsolatedEnvironment environment;
    setDicomUnitFactor(0.1f);

    QApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
