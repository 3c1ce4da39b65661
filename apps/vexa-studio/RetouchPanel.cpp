#include "RetouchPanel.h"

#include "ImageViewer.h"
#include "StackWorker.h"

#include <vexa/imp/VImageBlender.h>

#include <QAction>
#include <QComboBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QLabel>
#include <QSpinBox>
#include <QStandardItemModel>
#include <QToolButton>

#include <cmath>
#include <cstdint>

namespace studio {

namespace {
constexpr int kKeptShots = 3;
}

RetouchPanel::RetouchPanel(ImageViewer* viewer, QWidget* parent) : QWidget(parent), viewer_(viewer)
{
    brushAction_ = new QAction(tr("Retouch &brush"), this);
    brushAction_->setObjectName(QStringLiteral("actionRetouch"));
    brushAction_->setCheckable(true);
    brushAction_->setShortcut(QKeySequence(Qt::Key_B));
    brushAction_->setToolTip(tr("Paint the result from a single shot (B). The middle button pans meanwhile."));
    auto* button = new QToolButton;
    button->setDefaultAction(brushAction_);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    button->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);

    sourceBox_ = new QComboBox;
    sourceBox_->setObjectName(QStringLiteral("retouchSourceBox"));
    sourceBox_->addItem(tr("The selected shot"), SelectedShot);
    sourceBox_->addItem(tr("The shot sharpest here"), SharpestHere);
    sourceBox_->setToolTip(tr("Where the brush paints from: the shot selected in the list, or the shot the depth "
                              "map chose where the stroke starts."));
    sizeBox_ = new QSpinBox;
    sizeBox_->setObjectName(QStringLiteral("brushSizeBox"));
    sizeBox_->setRange(1, 2000);
    sizeBox_->setValue(24);
    sizeBox_->setSuffix(tr(" px"));
    sizeBox_->setToolTip(tr("The brush's radius, in pixels of the image"));
    hardnessBox_ = new QSpinBox;
    hardnessBox_->setObjectName(QStringLiteral("brushHardnessBox"));
    hardnessBox_->setRange(0, 100);
    hardnessBox_->setValue(80);
    hardnessBox_->setSuffix(QStringLiteral(" %"));
    hardnessBox_->setToolTip(tr("How much of the radius paints fully; the rest fades out. At 100 % the painted "
                                "pixels are the shot's exactly."));
    stateLabel_ = new QLabel;
    stateLabel_->setObjectName(QStringLiteral("retouchState"));
    stateLabel_->setWordWrap(true);

    auto* form = new QFormLayout(this);
    form->setContentsMargins(0, 0, 0, 0);
    form->addRow(button);
    form->addRow(tr("From:"), sourceBox_);
    form->addRow(tr("Size:"), sizeBox_);
    form->addRow(tr("Hardness:"), hardnessBox_);
    form->addRow(stateLabel_);

    connect(brushAction_, &QAction::toggled, this, &RetouchPanel::setActive);
    connect(sizeBox_, qOverload<int>(&QSpinBox::valueChanged), this, [this] {
        if (isActive())
            viewer_->setBrushRadius(brush().radius);
    });
    connect(sourceBox_, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        if (isActive() && source() == SelectedShot)
            setSelectedFile(selectedFile_);
    });
    connect(viewer_, &ImageViewer::brushPressed, this, &RetouchPanel::pressed);
    connect(viewer_, &ImageViewer::brushMoved, this, &RetouchPanel::moved);
    connect(viewer_, &ImageViewer::brushReleased, this, &RetouchPanel::released);
    setStack(nullptr, {}, {});
}

bool RetouchPanel::isActive() const { return brushAction_->isChecked() && blender_; }

Brush RetouchPanel::brush() const { return {double(sizeBox_->value()), hardnessBox_->value() / 100.0}; }

void RetouchPanel::setBrush(const Brush& brush)
{
    sizeBox_->setValue(int(std::lround(brush.radius)));
    hardnessBox_->setValue(int(std::lround(brush.hardness * 100)));
}

RetouchPanel::Source RetouchPanel::source() const { return Source(sourceBox_->currentData().toInt()); }

QString RetouchPanel::shotName(int index) const
{
    return tr("shot %1, %2").arg(index + 1).arg(QFileInfo(files_.value(index)).fileName());
}

void RetouchPanel::setStack(const std::shared_ptr<const VImageBlender>& blender, const QStringList& files,
                            const VImage& depth)
{
    blender_ = blender;
    files_ = files;
    depth_ = depth;
    sources_.clear();
    recent_.clear();
    wantedShot_ = -1;
    queued_.clear();
    stroke_.reset();
    if (auto* model = qobject_cast<QStandardItemModel*>(sourceBox_->model()))
        model->item(SharpestHere)->setEnabled(!depth.isEmpty()); // the depth map's choice needs a depth map
    if (depth.isEmpty())
        sourceBox_->setCurrentIndex(SelectedShot);
    stateLabel_->setText(blender ? QString() : tr("Stack the shots to retouch the result from them."));
    if (!blender)
        brushAction_->setChecked(false);
    else if (isActive())
        setActive(true);
}

void RetouchPanel::setActive(bool active)
{
    if (active && !blender_) {
        brushAction_->setChecked(false);
        emit message(tr("Stack the shots first: the brush paints the result from them."));
        return;
    }
    viewer_->setBrushRadius(active ? brush().radius : 0);
    if (active && source() == SelectedShot)
        setSelectedFile(selectedFile_);
}

void RetouchPanel::setSelectedFile(const QString& file)
{
    selectedFile_ = file;
    if (!isActive() || source() != SelectedShot || stroke_)
        return;
    const int index = files_.indexOf(file);
    if (index < 0)
        stateLabel_->setText(tr("The selected shot is not one of the stack's."));
    else
        want(index);
}

bool RetouchPanel::want(int index)
{
    recent_.removeAll(index);
    recent_.append(index);
    const bool asked = wantedShot_ == index && !sources_.contains(index);
    wantedShot_ = index;
    if (sources_.contains(index)) {
        stateLabel_->setText(tr("Painting from %1.").arg(shotName(index)));
        return true;
    }
    stateLabel_->setText(tr("Preparing %1...").arg(shotName(index)));
    if (!asked)
        emit sourceWanted(files_.value(index), index);
    return false;
}

void RetouchPanel::sourceReady(int index, const VImage& aligned, const QString& error)
{
    if (!error.isEmpty() || aligned.isEmpty()) {
        if (index == wantedShot_) {
            wantedShot_ = -1;
            queued_.clear();
            stateLabel_->setText(error);
        }
        emit message(error);
        return;
    }
    sources_.insert(index, aligned);
    while (sources_.size() > kKeptShots && !recent_.isEmpty())
        sources_.remove(recent_.takeFirst());
    if (index != wantedShot_)
        return;
    stateLabel_->setText(tr("Painting from %1.").arg(shotName(index)));
    if (!queued_.isEmpty())
        beginStroke();
}

void RetouchPanel::pressed(QPointF at)
{
    if (!isActive() || stroke_)
        return;
    if (paused_) {
        emit message(tr("Wait for the current work to finish, or cancel it."));
        return;
    }
    int index = -1;
    if (source() == SharpestHere) {
        const int x = int(std::floor(at.x())), y = int(std::floor(at.y()));
        if (depth_.isEmpty() || x < 0 || y < 0 || x >= depth_.width() || y >= depth_.height())
            return;
        index = reinterpret_cast<const std::uint16_t*>(depth_.rawData() + y * depth_.bytesPerLine())[x];
    } else {
        index = files_.indexOf(selectedFile_);
        if (index < 0) {
            emit message(tr("The selected shot is not one of the stack's."));
            return;
        }
    }
    queued_ = {at};
    queuedRelease_ = false;
    if (want(index))
        beginStroke();
}

void RetouchPanel::moved(QPointF at)
{
    if (stroke_)
        show(stroke_->lineTo(at));
    else if (!queued_.isEmpty())
        queued_ << at;
}

void RetouchPanel::released()
{
    if (!stroke_) {
        queuedRelease_ = !queued_.isEmpty();
        return;
    }
    const std::unique_ptr<RetouchStroke> done = std::move(stroke_);
    if (done->changed())
        emit strokeFinished(tr("Retouch from %1").arg(shotName(wantedShot_)), done->base(), done->image());
}

void RetouchPanel::beginStroke()
{
    const QList<QPointF> points = std::exchange(queued_, {});
    const VImage& shot = sources_[wantedShot_];
    stroke_ = std::make_unique<RetouchStroke>(result_, shot, brush());
    if (!stroke_->isValid()) {
        stroke_.reset();
        emit message(tr("The brush paints only on the stack's own result: this result is %1 and the shot %2.")
                         .arg(describeImage(result_), describeImage(shot)));
        return;
    }
    QRect changed = stroke_->dabAt(points.first());
    for (int i = 1; i < points.size(); ++i)
        changed |= stroke_->lineTo(points[i]);
    show(changed);
    if (std::exchange(queuedRelease_, false))
        released();
}

void RetouchPanel::show(const QRect& changed)
{
    if (stroke_ && !changed.isEmpty())
        viewer_->patchImage(shownPart(stroke_->image(), changed), changed.topLeft());
}

} // namespace studio
