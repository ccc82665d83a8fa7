#include "apps/vxdicom/view/OrthoViewer.h"

#include "apps/vxdicom/view/DataSummary.h"
#include "apps/vxdicom/view/SliceRender.h"
#include "apps/vxdicom/view/SliceView.h"

#include "platform/core/VxPoolObject.h"
#include "platform/data/VxDynamicSeriesCtrl.h"
#include "platform/data/VxField3.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QSlider>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace vxview {

namespace {

QString number(double v)
{
    return QString::number(v, 'g', 6);
}

} // namespace

OrthoViewer::OrthoViewer(QWidget *parent) : QWidget(parent)
{
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(2, 2, 2, 2);
    grid->setSpacing(4);
    const View order[3] = {View::Axial, View::Coronal, View::Sagittal};
    const int cell[3][2] = {{0, 0}, {0, 1}, {1, 0}};
    for (int n = 0; n < 3; ++n) {
        const View v = order[n];
        const int i = static_cast<int>(v);
        auto *box = new QWidget(this);
        auto *column = new QVBoxLayout(box);
        column->setContentsMargins(0, 0, 0, 0);
        column->setSpacing(2);
        views[i] = new SliceView(v, box);
        sliders[i] = new QSlider(Qt::Horizontal, box);
        sliders[i]->setObjectName(QStringLiteral("%1Slider").arg(QString::fromLatin1(viewName(v))));
        sliders[i]->setEnabled(false);
        column->addWidget(views[i], 1);
        column->addWidget(sliders[i]);
        grid->addWidget(box, cell[n][0], cell[n][1]);

        connect(views[i], &SliceView::voxelPicked, this, [this](int a, int b, int c) {
            setCursorVoxel({a, b, c});
        });
        connect(views[i], &SliceView::sliceStepped, this,
                [this, v](int delta) { stepSlice(v, delta); });
        connect(views[i], &SliceView::windowDragged, this, &OrthoViewer::dragWindow);
        connect(sliders[i], &QSlider::valueChanged, this, [this, v](int value) {
            if (!shown)
                return;
            std::array<int, 3> c = cursor;
            c[static_cast<size_t>(views[static_cast<int>(v)]->plane().normalAxis)] = value;
            setCursorVoxel(c);
        });
    }

    auto *panel = new QWidget(this);
    auto *panelLayout = new QVBoxLayout(panel);
    panelLayout->setContentsMargins(6, 6, 6, 6);

    auto *cursorBox = new QGroupBox(tr("Cross-hair"), panel);
    auto *cursorLayout = new QVBoxLayout(cursorBox);
    cursorText = new QLabel(cursorBox);
    cursorText->setObjectName(QStringLiteral("CursorText"));
    cursorText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    cursorText->setTextFormat(Qt::PlainText);
    cursorLayout->addWidget(cursorText);
    panelLayout->addWidget(cursorBox);

    auto *windowBox = new QGroupBox(tr("Window"), panel);
    auto *windowLayout = new QFormLayout(windowBox);
    presets = new QComboBox(windowBox);
    presets->setObjectName(QStringLiteral("Presets"));
    windowText = new QLabel(windowBox);
    windowText->setObjectName(QStringLiteral("WindowText"));
    windowLayout->addRow(tr("Preset:"), presets);
    windowLayout->addRow(tr("Width/centre:"), windowText);
    panelLayout->addWidget(windowBox);
    connect(presets, &QComboBox::activated, this, [this](int index) {
        if (index >= 0)
            applyPreset(presets->itemText(index));
    });

    auto *timeBox = new QGroupBox(tr("Time series"), panel);
    auto *timeLayout = new QVBoxLayout(timeBox);
    time = new QSlider(Qt::Horizontal, timeBox);
    time->setObjectName(QStringLiteral("TimeSlider"));
    timeText = new QLabel(tr("no time series"), timeBox);
    timeLayout->addWidget(time);
    timeLayout->addWidget(timeText);
    time->setEnabled(false);
    panelLayout->addWidget(timeBox);
    connect(time, &QSlider::valueChanged, this, [this](int step) { setTimeStep(step); });

    geometryText = new QLabel(panel);
    geometryText->setObjectName(QStringLiteral("GeometryText"));
    geometryText->setWordWrap(true);
    panelLayout->addWidget(geometryText);
    panelLayout->addStretch(1);
    grid->addWidget(panel, 1, 1);
    grid->setRowStretch(0, 1);
    grid->setRowStretch(1, 1);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(1, 1);
    setData(nullptr);
}

void OrthoViewer::setData(VxPoolObject *newObject)
{
    object = newObject;
    series = dynamic_cast<VxDynamicSeriesCtrl *>(newObject);
    time->blockSignals(true);
    time->setEnabled(series && series->nSteps() > 1);
    time->setRange(0, series ? std::max(series->nSteps() - 1, 0) : 0);
    time->setValue(series ? std::max(series->currentStep(), 0) : 0);
    time->blockSignals(false);
    timeText->setText(series
                          ? tr("step %1 of %2").arg(series->currentStep() + 1).arg(series->nSteps())
                          : tr("no time series"));
    showField(displayedField(newObject), false);
}

bool OrthoViewer::setTimeStep(int step)
{
    if (!series || !series->setCurrentStep(step))
        return false;
    time->blockSignals(true);
    time->setValue(step);
    time->blockSignals(false);
    timeText->setText(tr("step %1 of %2").arg(step + 1).arg(series->nSteps()));
    showField(displayedField(series), true);
    emit timeStepChanged(step);
    return true;
}

void OrthoViewer::showField(VxField3 *field, bool keepState)
{
    FieldFrame newFrame;
    std::string why;
    if (field && !frameOf(*field, newFrame, &why)) {
        emit problem(tr("%1 cannot be shown: %2")
                         .arg(field->label().toQString(), QString::fromStdString(why)));
        field = nullptr;
    }
    const bool sameShape = keepState && shown && field &&
                           std::equal(newFrame.dims, newFrame.dims + 3, fieldFrame.dims);
    shown = field;
    fieldFrame = newFrame;
    for (SliceView *v : views)
        v->setField(shown, shown ? &fieldFrame : nullptr, sameShape);
    if (!shown) {
        for (QSlider *s : sliders)
            s->setEnabled(false);
        presets->clear();
        cursorText->setText(tr("no data"));
        windowText->clear();
        geometryText->clear();
        return;
    }
    scale = valueScaleOf(shown->parameters());
    for (int i = 0; i < 3; ++i) {
        QSlider *s = sliders[i];
        s->blockSignals(true);
        s->setRange(0, fieldFrame.dims[views[i]->plane().normalAxis] - 1);
        s->setEnabled(s->maximum() > 0);
        s->blockSignals(false);
    }
    if (!sameShape) {
        const std::vector<WindowPreset> list = windowPresets(*shown);
        presets->clear();
        for (const WindowPreset &p : list)
            presets->addItem(QString::fromStdString(p.name));
        Window w;
        if (!list.empty())
            w = list.front().window;
        double low = 0, high = 1;
        if (shown->getRange(low, high))
            valuesPerPixel = std::max(std::fabs(high - low) * std::fabs(scale.scale), 1e-6) / 512.0;
        cursor = {fieldFrame.dims[0] / 2, fieldFrame.dims[1] / 2, fieldFrame.dims[2] / 2};
        current = w;
    }

    QString text = tr("Drawn in the field's own planes (not resampled).");
    const double oblique = obliquityDeg(fieldFrame);
    if (oblique > 0.01)
        text += tr(" Oblique: its axes are up to %1\u00b0 off the patient axes.")
                    .arg(oblique, 0, 'f', 1);
    const double shear = shearDeg(fieldFrame);
    if (shear > 0.01)
        text += tr(" Sheared by %1\u00b0 (drawn as parallelograms).").arg(shear, 0, 'f', 1);
    if (!fieldFrame.axis[2].isUniform())
        text += tr(" Stacked: uneven slice distances are kept.");
    geometryText->setText(text);
    updateStyle();
    updateCursor();
}

void OrthoViewer::setCursorVoxel(const std::array<int, 3> &voxel)
{
    if (!shown)
        return;
    for (int a = 0; a < 3; ++a)
        cursor[static_cast<size_t>(a)] =
            std::clamp(voxel[static_cast<size_t>(a)], 0, fieldFrame.dims[a] - 1);
    updateCursor();
}

Vec3 OrthoViewer::cursorPatientMm() const
{
    return fieldFrame.patientMm(cursor[0], cursor[1], cursor[2]);
}

double OrthoViewer::cursorValue() const
{
    if (!shown)
        return 0;
    return scale.value(sampleOf(*shown->lattice(), cursor[0], cursor[1], cursor[2]));
}

void OrthoViewer::updateCursor()
{
    if (!shown)
        return;
    for (int i = 0; i < 3; ++i) {
        views[i]->setCursorVoxel(cursor);
        sliders[i]->blockSignals(true);
        sliders[i]->setValue(cursor[static_cast<size_t>(views[i]->plane().normalAxis)]);
        sliders[i]->blockSignals(false);
    }
    const Vec3 p = cursorPatientMm();
    QString value;
    const int components = shown->lattice()->nComponents();
    if (components > 1) {
        QStringList parts;
        for (int c = 0; c < components; ++c)
            parts << number(
                scale.value(sampleOf(*shown->lattice(), cursor[0], cursor[1], cursor[2], c)));
        value = parts.join(QLatin1Char(' '));
    } else {
        value = number(cursorValue());
    }
    cursorText->setText(tr("voxel (%1, %2, %3)  value %4\n%5, %6, %7 mm (LPS)")
                            .arg(cursor[0])
                            .arg(cursor[1])
                            .arg(cursor[2])
                            .arg(value)
                            .arg(p[0], 0, 'f', 2)
                            .arg(p[1], 0, 'f', 2)
                            .arg(p[2], 0, 'f', 2));
    emit cursorChanged();
}

void OrthoViewer::updateStyle()
{
    RenderStyle style;
    style.window = current;
    style.scale = scale;
    for (SliceView *v : views)
        v->setStyle(style);
    windowText->setText(
        QStringLiteral("%1 / %2").arg(number(current.width), number(current.centre)));
}

void OrthoViewer::setWindow(const Window &w)
{
    current = w;
    if (!(current.width > 0))
        current.width = 1e-6;
    updateStyle();
}

bool OrthoViewer::applyPreset(const QString &name)
{
    if (!shown)
        return false;
    for (const WindowPreset &p : windowPresets(*shown))
        if (QString::fromStdString(p.name) == name) {
            presets->setCurrentText(name);
            setWindow(p.window);
            return true;
        }
    return false;
}

void OrthoViewer::stepSlice(View view, int delta)
{
    if (!shown)
        return;
    std::array<int, 3> c = cursor;
    c[static_cast<size_t>(views[static_cast<int>(view)]->plane().normalAxis)] += delta;
    setCursorVoxel(c);
}

void OrthoViewer::dragWindow(int dx, int dy, bool starting)
{
    if (!shown)
        return;
    if (starting) {
        dragStartWindow = current;
        return;
    }
    setWindow(draggedWindow(dragStartWindow, dx, dy, valuesPerPixel));
}

} // namespace vxview
