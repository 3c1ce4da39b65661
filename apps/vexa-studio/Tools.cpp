#include "Tools.h"

#include <vexa/gen/gen_histograms.h>
#include <vexa/gen/gen_image_converters.h>
#include <vexa/gen/gen_morph_image.h>
#include <vexa/gen/gen_normalization.h>
#include <vexa/gen/gen_resize_image.h>
#include <vexa/gen/gen_smooth_image.h>

#include <QDialog>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QInputDialog>
#include <QSlider>

#include <algorithm>
#include <cmath>

namespace studio {

using namespace VEXA;

namespace {

ToolFunction convertTo(Format format, Channel channel)
{
    return [=](const VImage& source, VImage* result) {
        // convertImage writes into the image the destination already is.
        result->create(source.width(), source.height(), format, channel, source.origin(), source.rowsAlignment());
        return convertImage(source, result);
    };
}

ToolFunction morphology(bool erode)
{
    return [=](const VImage& source, VImage* result) {
        const VConvKernel element(3, 3, 1, 1, ConvKernelEllipse);
        return erode ? erodeImage(source, result, element, 1) : dilateImage(source, result, element, 1);
    };
}

template <typename Angle>
ToolFunction rotateBy(Angle angle)
{
    return [=](const VImage& source, VImage* result) {
        VImageHeader header;
        headerForRotate(source.header(), angle, RotateBoundingBox, &header);
        result->create(header);
        return rotateImage(source, result, angle, RotateBoundingBox);
    };
}

ToolFunction flip(int mode)
{
    return [=](const VImage& source, VImage* result) { return flipImage(source, result, mode); };
}

// Brightness and contrast from 0 to 1, a half leaving the image as it is, as the level curve takes them.
class BrightnessContrastDialog : public QDialog {
    Q_OBJECT
public:
    explicit BrightnessContrastDialog(QWidget* parent) : QDialog(parent)
    {
        setWindowTitle(ToolsMenu::tr("Brightness and contrast"));
        auto* form = new QFormLayout(this);
        for (QSlider* slider : {&brightness_, &contrast_}) {
            slider->setOrientation(Qt::Horizontal);
            slider->setRange(0, 100);
            slider->setValue(50);
            slider->setMinimumWidth(240);
        }
        for (QSlider* slider : {&brightness_, &contrast_})
            connect(slider, &QSlider::valueChanged, this, &BrightnessContrastDialog::changed);
        setObjectName(QStringLiteral("brightnessContrastDialog"));
        brightness_.setObjectName(QStringLiteral("brightnessSlider"));
        contrast_.setObjectName(QStringLiteral("contrastSlider"));
        form->addRow(ToolsMenu::tr("Brightness"), &brightness_);
        form->addRow(ToolsMenu::tr("Contrast"), &contrast_);
        auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
        connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
        connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
        form->addRow(buttons);
    }
    double brightness() const { return brightness_.value() / 100.0; }
    double contrast() const { return contrast_.value() / 100.0; }

signals:
    void changed();

private:
    QSlider brightness_, contrast_;
};

unsigned char level(double value) { return static_cast<unsigned char>(std::lround(std::clamp(value, 0.0, 255.0))); }

} // namespace

ToolsMenu::ToolsMenu(QWidget* parent) : QMenu(tr("&Tools"), parent)
{
    setObjectName(QStringLiteral("toolsMenu"));
    QWidget* window = parent;

    QMenu* convert = addMenu(tr("&Convert"));
    addTool(convert, tr("Gray, 8 bits"), "actionToGray8", convertTo(GrayScale, Channel8u));
    addTool(convert, tr("Gray, 16 bits"), "actionToGray16", convertTo(GrayScale, Channel16u));
    addTool(convert, tr("Gray, floating point"), "actionToGray32f", convertTo(GrayScale, Channel32f));
    addTool(convert, tr("Colour (BGR), 8 bits"), "actionToBgr8", convertTo(BGR, Channel8u));
    addTool(convert, tr("Colour (XRGB), 8 bits"), "actionToXrgb8", convertTo(XRGB, Channel8u));
    addTool(convert, tr("Colour with alpha (ARGB), 8 bits"), "actionToArgb8", convertTo(ARGB, Channel8u));

    QMenu* filters = addMenu(tr("&Filters"));
    addTool(filters, tr("Gaussian blur..."), "actionGaussian", [this]() -> ToolFunction {
        return askInt(tr("Gaussian blur"), tr("Kernel size (pixels):"), 5, 1, 99, 2, [](int size) -> ToolFunction {
            return [size](const VImage& source, VImage* result) { return smoothGaussian(source, result, size); };
        });
    });
    addTool(filters, tr("Median..."), "actionMedian", [this]() -> ToolFunction {
        return askInt(tr("Median"), tr("Kernel size (pixels):"), 3, 1, 31, 2, [](int size) -> ToolFunction {
            return [size](const VImage& source, VImage* result) { return smoothMedian(source, result, size); };
        });
    });
    addTool(filters, tr("Sharpen..."), "actionSharpen", [this]() -> ToolFunction {
        return askDouble(tr("Sharpen"), tr("Strength (1 leaves the image as it is):"), 2, 1, 10, 1,
                         [](double amount) -> ToolFunction {
                             return [amount](const VImage& source, VImage* result) {
                                 return sharpImage(source, result, 5, amount, 0, 255);
                             };
                         });
    });
    addTool(filters, tr("Local contrast..."), "actionLocalContrast", [this]() -> ToolFunction {
        return askInt(tr("Local contrast"), tr("Amount (percent):"), 50, 1, 500, 10, [](int amount) -> ToolFunction {
            return [amount](const VImage& source, VImage* result) {
                // The enhancing form of contrastImage is chosen by a destination like the source.
                *result = source.createCompatible();
                return contrastImage(source, result, amount, 15);
            };
        });
    });
    addTool(filters, tr("Erode"), "actionErode", morphology(true));
    addTool(filters, tr("Dilate"), "actionDilate", morphology(false));

    QMenu* rotate = addMenu(tr("&Rotate and flip"));
    addTool(rotate, tr("Rotate left (90°)"), "actionRotateLeft", rotateBy(Angle90));
    addTool(rotate, tr("Rotate right (90°)"), "actionRotateRight", rotateBy(Angle270));
    addTool(rotate, tr("Rotate 180°"), "actionRotate180", rotateBy(Angle180));
    addTool(rotate, tr("Rotate by angle..."), "actionRotateAngle", [window]() -> ToolFunction {
        bool ok = false;
        const double degrees = QInputDialog::getDouble(
            window, tr("Rotate by angle"), tr("Angle in degrees (counter-clockwise):"), 0, -360, 360, 2, &ok);
        if (!ok)
            return {};
        return rotateBy(degrees * M_PI / 180);
    });
    addTool(rotate, tr("Flip horizontally"), "actionFlipHorizontal", flip(1));
    addTool(rotate, tr("Flip vertically"), "actionFlipVertical", flip(0));

    addTool(this, tr("Resize..."), "actionResize", [window]() -> ToolFunction {
        bool ok = false;
        const int percent = QInputDialog::getInt(window, tr("Resize"), tr("New size (percent of the current one):"), 50,
                                                 1, 800, 10, &ok);
        if (!ok)
            return {};
        return [percent](const VImage& source, VImage* result) {
            const long width = std::max(1L, std::lround(source.width() * percent / 100.0));
            const long height = std::max(1L, std::lround(source.height() * percent / 100.0));
            result->create(width, height, source.format(), source.channelType(), source.origin(),
                           source.rowsAlignment());
            if (result->isEmpty())
                return result->status();
            return resizeImage(source, result, percent < 100 ? InterpolationArea : InterpolationCubic);
        };
    });
    addTool(this, tr("Brightness and contrast..."), "actionBrightnessContrast", [this, window]() -> ToolFunction {
        BrightnessContrastDialog dialog(window);
        const auto tool = [&dialog]() -> ToolFunction {
            double x1 = 0, y1 = 0, x2 = 255, y2 = 255;
            calcCoordinatesByBrightnessContrast(dialog.brightness(), dialog.contrast(), &x1, &y1, &x2, &y2);
            return [=](const VImage& source, VImage* result) {
                return adjustHistogram(source, result, level(x1), level(y1), level(x2), level(y2));
            };
        };
        connect(&dialog, &BrightnessContrastDialog::changed, this, [this, &tool] { preview(tool()); });
        const bool accepted = dialog.exec() == QDialog::Accepted;
        preview({});
        return accepted ? tool() : ToolFunction();
    });
}

void ToolsMenu::preview(const ToolFunction& tool)
{
    if (preview_)
        preview_(tool);
}

template <class Value>
ToolFunction ToolsMenu::previewed(const QString& title, const QString& label,
                                  const std::function<void(QInputDialog&)>& configure,
                                  void (QInputDialog::*changed)(Value), Value (QInputDialog::*current)() const,
                                  const std::function<ToolFunction(Value)>& make)
{
    QInputDialog dialog(parentWidget());
    dialog.setObjectName(QStringLiteral("toolDialog"));
    dialog.setWindowTitle(title);
    dialog.setLabelText(label);
    configure(dialog);
    connect(&dialog, changed, this, [&](Value v) { preview(make(v)); });
    preview(make((dialog.*current)()));
    const bool accepted = dialog.exec() == QDialog::Accepted;
    preview({});
    return accepted ? make((dialog.*current)()) : ToolFunction();
}

ToolFunction ToolsMenu::askInt(const QString& title, const QString& label, int value, int min, int max, int step,
                               const std::function<ToolFunction(int)>& make)
{
    const auto configure = [=](QInputDialog& dialog) {
        dialog.setIntRange(min, max);
        dialog.setIntStep(step);
        dialog.setIntValue(value);
    };
    return previewed<int>(title, label, configure, &QInputDialog::intValueChanged, &QInputDialog::intValue, make);
}

ToolFunction ToolsMenu::askDouble(const QString& title, const QString& label, double value, double min, double max,
                                  int decimals, const std::function<ToolFunction(double)>& make)
{
    const auto configure = [=](QInputDialog& dialog) {
        dialog.setDoubleRange(min, max);
        dialog.setDoubleDecimals(decimals);
        dialog.setDoubleValue(value);
    };
    return previewed<double>(title, label, configure, &QInputDialog::doubleValueChanged, &QInputDialog::doubleValue,
                             make);
}

QAction* ToolsMenu::addTool(QMenu* menu, const QString& title, const char* objectName, const ToolFunction& tool)
{
    return addTool(menu, title, objectName, [tool] { return tool; });
}

QAction* ToolsMenu::addTool(QMenu* menu, const QString& title, const char* objectName,
                            const std::function<ToolFunction()>& ask)
{
    QAction* action = menu->addAction(title);
    action->setObjectName(QLatin1String(objectName));
    // The history names the step without the dots that promise a dialog.
    QString name = title;
    name.remove(QStringLiteral("..."));
    connect(action, &QAction::triggered, this, [this, name, ask] {
        if (const ToolFunction tool = ask())
            emit toolRequested(name, tool);
    });
    return action;
}

} // namespace studio

#include "Tools.moc"
