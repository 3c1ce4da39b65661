// vexa montage IN... -o OUT: images side by side at one height, labelled, maps of more than 8 bits in
// false colour with their range.
#include "cli.h"
#include "depth_colours.h"
#include "image_io.h"

#include <QFileInfo>
#include <QPainter>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vexatool {

namespace {

struct Panel {
    QImage picture;
    QString label;
    bool falseColour = false;
    double low = 0, high = 0;
    bool integer = true;
};

QImage toQImage(const cv::Mat& bgr)
{
    return QImage(bgr.data, bgr.cols, bgr.rows, int(bgr.step), QImage::Format_BGR888).copy();
}

// A gray map of more than 8 bits (a depth map of shot indices, say), stretched from its smallest to its
// largest value and coloured; nearest-neighbour scaling keeps its steps sharp.
Panel falseColour(const VImage& image, int height)
{
    cv::Mat values;
    view(image).convertTo(values, CV_32F);
    Panel panel;
    cv::minMaxLoc(values, &panel.low, &panel.high);
    panel.falseColour = true;
    panel.integer = image.channelType() != VEXA::Channel32f;
    const double range = panel.high - panel.low;
    const int width = std::max(1, int(std::lround(double(image.width()) * height / image.height())));
    panel.picture = turboColours(values, range > 0 ? 255 / range : 0, range > 0 ? -panel.low * 255 / range : 0,
                                 cv::Size(width, height));
    return panel;
}

Panel picture(const VImage& image, int height)
{
    const cv::Mat bgr = toBgr8(image);
    const int width = std::max(1, int(std::lround(double(image.width()) * height / image.height())));
    cv::Mat scaled;
    cv::resize(bgr, scaled, cv::Size(width, height), 0, 0, height < image.height() ? cv::INTER_AREA : cv::INTER_LINEAR);
    Panel panel;
    panel.picture = toQImage(scaled);
    return panel;
}

QString valueText(double value, bool integer)
{
    return integer ? QString::number(qint64(std::llround(value))) : QString::number(value, 'g', 4);
}

// Rows of `columns` panels (all in one row when 0), each row as wide as its panels.
QImage compose(const std::vector<Panel>& panels, int columns = 0)
{
    constexpr int margin = 16, gap = 16, labelHeight = 26, legendHeight = 34;
    const bool legends = std::any_of(panels.begin(), panels.end(), [](const Panel& p) { return p.falseColour; });
    const int perRow = columns > 0 ? columns : int(panels.size());
    const int rows = (int(panels.size()) + perRow - 1) / perRow;
    qint64 width = 0;
    for (size_t first = 0; first < panels.size(); first += size_t(perRow)) {
        qint64 rowWidth = 2 * margin - gap;
        for (size_t i = first; i < std::min(panels.size(), first + size_t(perRow)); ++i)
            rowWidth += panels[i].picture.width() + gap;
        width = std::max(width, rowWidth);
    }
    const int height = panels.front().picture.height();
    const int rowHeight = height + labelHeight + (legends ? legendHeight : 0);
    const qint64 canvasHeight = 2 * margin + qint64(rows) * rowHeight + qint64(rows - 1) * gap;
    QImage canvas = width < (1 << 20) && canvasHeight < (1 << 20) ? QImage(int(width), int(canvasHeight), QImage::Format_RGB32) : QImage();
    if (canvas.isNull())
        runtimeError(QStringLiteral("a montage of %1x%2 pixels is too large").arg(width).arg(canvasHeight));
    canvas.fill(QColor(32, 32, 36));
    QPainter p(&canvas);
    p.setRenderHint(QPainter::Antialiasing);
    QFont font = p.font();
    font.setPixelSize(15);
    p.setFont(font);

    cv::Mat ramp(1, 256, CV_8U);
    for (int i = 0; i < 256; ++i)
        ramp.at<uchar>(i) = uchar(i);
    const QImage rampImage = turboColours(ramp, 1, 0);

    int x = margin, top = margin;
    for (size_t i = 0; i < panels.size(); ++i) {
        const Panel& panel = panels[i];
        if (i > 0 && i % size_t(perRow) == 0) {
            x = margin;
            top += rowHeight + gap;
        }
        const int w = panel.picture.width();
        p.drawImage(x, top, panel.picture);
        p.setPen(QColor(235, 235, 235));
        const QRect labelBox(x, top + height + 4, w, labelHeight - 4);
        p.drawText(labelBox, Qt::AlignHCenter | Qt::AlignTop,
                   p.fontMetrics().elidedText(panel.label, Qt::ElideMiddle, w));
        if (panel.falseColour) {
            // The colour bar: the map's colours from the smallest value (left) to the largest (right).
            const int barWidth = std::min(w, 260);
            const QRect bar(x + (w - barWidth) / 2, labelBox.bottom() + 4, barWidth, 10);
            p.drawImage(bar, rampImage);
            p.setPen(QColor(120, 120, 120));
            p.drawRect(bar.adjusted(0, 0, -1, -1));
            QFont small = font;
            small.setPixelSize(12);
            p.setFont(small);
            p.setPen(QColor(210, 210, 210));
            const QRect under(bar.left(), bar.bottom() + 2, bar.width(), 16);
            p.drawText(under, Qt::AlignLeft | Qt::AlignTop, valueText(panel.low, panel.integer));
            p.drawText(under, Qt::AlignRight | Qt::AlignTop, valueText(panel.high, panel.integer));
            p.setFont(font);
        }
        x += w + gap;
    }
    return canvas;
}

} // namespace

QImage falseColourPicture(const VImage& map, const QString& label)
{
    Panel panel = falseColour(map, map.height());
    panel.label = label;
    return compose({panel});
}

int montageCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Puts images side by side, each scaled to one height and labelled under it. Gray images of "
                       "more than 8 bits (a depth map of shot indices, say) are stretched from their smallest to "
                       "their largest value and shown in false colour, with a colour bar and the two values."));
    parser.addPositionalArgument(QStringLiteral("images"), QStringLiteral("Image files or .vexa files."),
                                 QStringLiteral("IN..."));
    const QCommandLineOption output = outputOption(QStringLiteral("Write the montage to the image file FILE."));
    const QCommandLineOption labels(QStringLiteral("labels"),
                                    QStringLiteral("The labels, separated by commas, one per image (default: the "
                                                   "file names)."),
                                    QStringLiteral("a,b,c"));
    const QCommandLineOption height(QStringLiteral("height"),
                                    QStringLiteral("The images' common height, 16 to 10000 (default: the smallest "
                                                   "input's)."),
                                    QStringLiteral("H"));
    const QCommandLineOption columns(QStringLiteral("columns"),
                                     QStringLiteral("Rows of N images, left to right and top to bottom (default: "
                                                    "all in one row)."),
                                     QStringLiteral("N"));
    parser.addOptions({output, labels, height, columns});
    if (!parseCommandLine(parser, QStringLiteral("montage"), arguments, Writes::ImageFiles))
        return ExitOk;
    const QStringList inputs = parser.positionalArguments();
    if (inputs.isEmpty())
        usageError(QStringLiteral("no images given"));
    const QString out = requiredOutput(parser, output);
    checkOutputName(out);
    const int perRow = intOption(parser, QStringLiteral("columns"), 1, 1000, 0);
    QStringList names;
    for (const QString& in : inputs)
        names << QFileInfo(in).fileName();
    if (parser.isSet(labels)) {
        names = parser.value(labels).split(QLatin1Char(','));
        if (names.size() != inputs.size())
            usageError(QStringLiteral("--labels gives %1 labels for %2 images").arg(names.size()).arg(inputs.size()));
    }
    const int wanted = intOption(parser, QStringLiteral("height"), 16, 10000, 0);

    Task task;
    std::vector<VImage> images;
    for (int i = 0; i < inputs.size(); ++i) {
        task.step(QStringLiteral("reading ") + inputs[i], 0.5 * i / inputs.size());
        images.push_back(readImage(inputs[i]));
    }
    int common = wanted;
    if (common == 0) {
        common = images.front().height();
        for (const VImage& image : images)
            common = std::min(common, image.height());
    }
    std::vector<Panel> panels;
    for (size_t i = 0; i < images.size(); ++i) {
        task.step(QStringLiteral("scaling ") + inputs[int(i)], 0.5 + 0.3 * i / images.size());
        const VImage& image = images[i];
        const bool map = image.format() == VEXA::GrayScale && image.channelType() != VEXA::Channel8u;
        panels.push_back(map ? falseColour(image, common) : picture(image, common));
        panels.back().label = names[int(i)];
        images[i] = VImage(); // its panel is all that is needed from here on
    }
    task.step(QStringLiteral("drawing"), 0.8);
    writeImage(compose(panels, perRow), out, &task);
    endProgress();
    return ExitOk;
}

} // namespace vexatool
