#pragma once

#include <QDialog>

class QLabel;
class VxDicomImage;

/// A small window with the preview of one image: its 8-bit picture made by
/// DicomPGMConverter (rescale and the file's display window), titled with the
/// image's file name. Pictures larger than 768 pixels are shown scaled down.
class QxDicomImageView : public QDialog
{
    Q_OBJECT
public:
    QxDicomImageView(VxDicomImage *image, QWidget *parent = nullptr);

    /// Nothing for a null image or one whose samples are not in memory.
    void setImage(VxDicomImage *image);
    QLabel *pictureLabel() const { return label; }

private:
    QLabel *label = nullptr;
};
