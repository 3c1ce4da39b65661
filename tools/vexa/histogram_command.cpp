// vexa histogram IN [-o PLOT] [--json]: the library's histogram of an 8-bit image, as a table, JSON or a plot.
#include "cli.h"
#include "image_io.h"

#include <vexa/gen/gen_histograms.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPainter>
#include <QPainterPath>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <vector>

namespace vexatool {

namespace {

struct Component {
    QString name;
    QColor colour;
    const qint64* counts;
};

// The components the library counted, in the order they are shown: blue, green, red, then luminance
// ("gray" for a gray image, which has nothing else).
std::vector<Component> componentsOf(const VHistogram& histogram, bool gray)
{
    const struct {
        VEXA::Component component;
        const char* name;
        QColor colour;
    } known[] = {
        {VEXA::ComponentBlue, "blue", QColor(40, 90, 255)},
        {VEXA::ComponentGreen, "green", QColor(0, 210, 0)},
        {VEXA::ComponentRed, "red", QColor(235, 0, 0)},
        {VEXA::ComponentLuminance, gray ? "gray" : "luminance", gray ? QColor(190, 190, 190) : QColor(255, 255, 255)},
    };
    std::vector<Component> result;
    for (const auto& k : known)
        if (const qint64* counts = histogram.componentData(k.component))
            result.push_back({QLatin1String(k.name), k.colour, counts});
    return result;
}

// 1, 2 or 5 times a power of ten: the tick step that gives about `ticks` ticks up to `top`.
double niceStep(double top, int ticks)
{
    const double raw = std::max(top / ticks, 1.0);
    const double power = std::pow(10, std::floor(std::log10(raw)));
    for (const double m : {1.0, 2.0, 5.0})
        if (m * power >= raw)
            return m * power;
    return 10 * power;
}

QString shortCount(double value)
{
    if (value >= 1e6)
        return QString::number(value / 1e6, 'g', 3) + QLatin1Char('M');
    if (value >= 1e4)
        return QString::number(value / 1e3, 'g', 3) + QLatin1Char('k');
    return QString::number(qint64(value));
}

// Colour components as additive light on a dark ground, so where all three overlap the bars turn white;
// luminance as an outline over them.
QImage plot(const std::vector<Component>& components, const QString& title)
{
    constexpr int W = 960, H = 540, left = 78, right = 24, top = 56, bottom = 62;
    const QRectF area(left, top, W - left - right, H - top - bottom);
    QImage image(W, H, QImage::Format_RGB32);
    image.fill(QColor(24, 24, 28));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QFont font = p.font();
    font.setPixelSize(13);
    p.setFont(font);

    qint64 most = 1;
    for (const Component& c : components)
        most = std::max(most, *std::max_element(c.counts, c.counts + 256));
    const double step = niceStep(double(most), 5);
    const double yTop = std::ceil(most / step) * step;
    const auto xOf = [&area](double value) { return area.left() + area.width() * value / 256; };
    const auto yOf = [&area, yTop](double count) { return area.bottom() - area.height() * count / yTop; };

    // Grid and y labels.
    const QColor axis(200, 200, 200), grid(60, 60, 66);
    for (double v = 0; v <= yTop + step / 2; v += step) {
        p.setPen(QPen(grid, 1));
        p.drawLine(QPointF(area.left(), yOf(v)), QPointF(area.right(), yOf(v)));
        p.setPen(axis);
        p.drawText(QRectF(0, yOf(v) - 9, left - 10, 18), Qt::AlignRight | Qt::AlignVCenter, shortCount(v));
    }
    for (int v = 0; v <= 256; v += 32) {
        const int label = std::min(v, 255);
        p.setPen(QPen(grid, 1));
        p.drawLine(QPointF(xOf(label + 0.5), area.top()), QPointF(xOf(label + 0.5), area.bottom()));
        p.setPen(axis);
        p.drawLine(QPointF(xOf(label + 0.5), area.bottom()), QPointF(xOf(label + 0.5), area.bottom() + 5));
        p.drawText(QRectF(xOf(label + 0.5) - 30, area.bottom() + 7, 60, 18), Qt::AlignHCenter | Qt::AlignTop,
                   QString::number(label));
    }

    // Bars.
    p.setRenderHint(QPainter::Antialiasing, false);
    p.setCompositionMode(QPainter::CompositionMode_Plus);
    for (const Component& c : components) {
        if (c.name == QLatin1String("luminance"))
            continue;
        for (int v = 0; v < 256; ++v)
            if (c.counts[v] > 0)
                p.fillRect(QRectF(QPointF(xOf(v), yOf(double(c.counts[v]))), QPointF(xOf(v + 1), area.bottom())), c.colour);
    }
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
    p.setRenderHint(QPainter::Antialiasing);
    for (const Component& c : components) {
        if (c.name != QLatin1String("luminance"))
            continue;
        QPainterPath outline(QPointF(xOf(0), area.bottom()));
        for (int v = 0; v < 256; ++v) {
            outline.lineTo(xOf(v), yOf(double(c.counts[v])));
            outline.lineTo(xOf(v + 1), yOf(double(c.counts[v])));
        }
        outline.lineTo(xOf(256), area.bottom());
        // A dark edge keeps the line visible where the bars beneath add up to white.
        p.setPen(QPen(QColor(0, 0, 0, 200), 3.2));
        p.drawPath(outline);
        p.setPen(QPen(c.colour, 1.4));
        p.drawPath(outline);
    }

    // Axes, their names, the title and the legend.
    p.setPen(QPen(axis, 1.2));
    p.drawLine(area.bottomLeft(), area.bottomRight());
    p.drawLine(area.bottomLeft(), area.topLeft());
    p.drawText(QRectF(area.left(), H - 28, area.width(), 20), Qt::AlignHCenter, QStringLiteral("value"));
    p.save();
    p.translate(16, area.center().y());
    p.rotate(-90);
    p.drawText(QRectF(-60, -10, 120, 20), Qt::AlignCenter, QStringLiteral("count"));
    p.restore();
    font.setPixelSize(17);
    font.setBold(true);
    p.setFont(font);
    p.setPen(QColor(240, 240, 240));
    p.drawText(QRectF(left, 12, W - left - right, 28), Qt::AlignLeft | Qt::AlignVCenter,
               p.fontMetrics().elidedText(title, Qt::ElideMiddle, W - left - right - 260));
    font.setPixelSize(13);
    font.setBold(false);
    p.setFont(font);
    double x = W - right;
    for (auto it = components.rbegin(); it != components.rend(); ++it) {
        const double width = p.fontMetrics().horizontalAdvance(it->name) + 22;
        x -= width + 10;
        p.fillRect(QRectF(x, 21, 14, 14), it->colour);
        p.setPen(axis);
        p.drawText(QRectF(x + 20, 18, width, 20), Qt::AlignLeft | Qt::AlignVCenter, it->name);
    }
    return image;
}

} // namespace

int histogramCommand(const QStringList& arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Counts the values 0 to 255 of each component of an 8-bit image (gray: its values; "
                       "colour: blue, green, red and luminance) and prints them as a table of the values that "
                       "occur, or as JSON; -o draws them as a plot instead of the table. Images of other depths are "
                       "counted as the same picture in 8 bits (16-bit 65535 is 255, float 1.0 is 255)."));
    parser.addPositionalArgument(QStringLiteral("in"), QStringLiteral("The image file or .vexa file."), QStringLiteral("IN"));
    const QCommandLineOption output =
        outputOption(QStringLiteral("Draw the histogram to the image file PLOT (e.g. .png)."), QStringLiteral("PLOT"));
    const QCommandLineOption json(QStringLiteral("json"), QStringLiteral("Print the counts as one JSON object."));
    parser.addOptions({output, json});
    if (!parseCommandLine(parser, QStringLiteral("histogram"), arguments, Writes::ImageFiles))
        return ExitOk;
    const QString in = positionalArguments(parser, {QStringLiteral("no input file given")}).first();
    if (parser.isSet(output))
        checkOutputName(parser.value(output));

    Task task;
    task.step(QStringLiteral("reading ") + in, 0);
    const VImage stored = readImage(in);
    VImage image = stored;
    if (stored.channelType() != VEXA::Channel8u || stored.format() == VEXA::YUV422) {
        image = inPair(stored, stored.format() == VEXA::GrayScale ? VEXA::GrayScale : VEXA::XRGB, VEXA::Channel8u);
        if (image.isEmpty())
            runtimeError(QStringLiteral("%1: cannot bring %2 to 8 bits to count it")
                             .arg(in, pairName(stored.format(), stored.channelType())));
    }
    VHistogram histogram;
    task.step(QStringLiteral("counting"), 0.3);
    task.run(in + QStringLiteral(": cannot count the histogram"), 0.3, 0.7,
             [&] { return VEXA::calculateHistogram(image, &histogram); });
    const std::vector<Component> components = componentsOf(histogram, image.format() == VEXA::GrayScale);
    if (parser.isSet(output)) {
        const QString title = QStringLiteral("Histogram of %1 (%2x%3, %4)")
                                  .arg(QFileInfo(in).fileName())
                                  .arg(image.width())
                                  .arg(image.height())
                                  .arg(pairName(stored.format(), stored.channelType()));
        task.step(QStringLiteral("drawing"), 0.8);
        writeImage(plot(components, title), parser.value(output), &task);
    }
    endProgress();

    QTextStream out(stdout);
    if (parser.isSet(json)) {
        QJsonObject counts;
        for (const Component& c : components) {
            QJsonArray values;
            for (int v = 0; v < 256; ++v)
                values.append(c.counts[v]);
            counts.insert(c.name, values);
        }
        const QJsonObject object{{QStringLiteral("file"), in},
                                 {QStringLiteral("width"), image.width()},
                                 {QStringLiteral("height"), image.height()},
                                 {QStringLiteral("format"), formatName(image.format())},
                                 {QStringLiteral("components"), counts}};
        out << QJsonDocument(object).toJson(QJsonDocument::Compact) << "\n";
    } else if (!parser.isSet(output)) {
        out << "value";
        for (const Component& c : components)
            out << "\t" << c.name;
        out << "\n";
        for (int v = 0; v < 256; ++v) {
            const bool any = std::any_of(components.begin(), components.end(), [v](const Component& c) { return c.counts[v] > 0; });
            if (!any)
                continue;
            out << v;
            for (const Component& c : components)
                out << "\t" << c.counts[v];
            out << "\n";
        }
    }
    return ExitOk;
}

} // namespace vexatool
