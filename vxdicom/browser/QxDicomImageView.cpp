#include "vxdicom/browser/QxDicomImageView.h"

#include "vxdicom/reader/DicomPGMConverter.h"
#include "vxdicom/reader/VxDicomFile.h"
#include "vxdicom/reader/VxDicomImage.h"

#include <QLabel>
#include <QPixmap>
#include <QVBoxLayout>

namespace {
constexpr int kLargestShown = 768;
}

QxDicomImageView::QxDicomImageView(VxDicomImage *image, QWidget *parent) : QDialog(parent)
{
    setObjectName(QStringLiteral("QxDicomImageView"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(4, 4, 4, 4);
    label = new QLabel(this);
    label->setAlignment(Qt::AlignCenter);
    layout->addWidget(label);
    setImage(image);
}

void QxDicomImageView::setImage(VxDicomImage *image)
{
    if (!image || !image->hasPixels())
        return;
    if (image->file)
        setWindowTitle(QString::fromStdString(image->file->fileName));
    DicomPGMConverter converter(image);
    if (!converter.convert())
        return;
    QPixmap picture;
    if (!picture.loadFromData(converter.data(), static_cast<uint>(converter.numBytes())))
        return;
    if (picture.width() > kLargestShown || picture.height() > kLargestShown)
        picture = picture.scaled(kLargestShown, kLargestShown, Qt::KeepAspectRatio,
                                 Qt::SmoothTransformation);
    label->setPixmap(picture);
    adjustSize();
}
