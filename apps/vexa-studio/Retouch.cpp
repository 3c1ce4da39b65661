#include "Retouch.h"

#include "StackWorker.h"

#include <vexa/gen/gen_copy_image.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

namespace studio {

namespace {

template <class T>
T mixed(T base, T source, float cover)
{
    if (cover >= 1.0f)
        return source;
    const float v = float(base) + cover * (float(source) - float(base));
    if constexpr (std::is_floating_point_v<T>)
        return T(v);
    else
        return T(std::lround(v)); // between two values of T: never out of its range
}

template <class T>
void blendRows(const VImage& base, const VImage& source, VImage& out, const QVector<float>& cover, const QRect& area,
               int components)
{
    const int width = out.width();
    for (int y = area.top(); y <= area.bottom(); ++y) {
        const auto* b = reinterpret_cast<const T*>(base.rawData() + y * base.bytesPerLine());
        const auto* s = reinterpret_cast<const T*>(source.rawData() + y * source.bytesPerLine());
        auto* o = reinterpret_cast<T*>(out.rawData() + y * out.bytesPerLine());
        for (int x = area.left(); x <= area.right(); ++x) {
            const float c = cover[y * width + x];
            for (int k = 0; k < components; ++k) {
                const int i = x * components + k;
                o[i] = c > 0 ? mixed(b[i], s[i], c) : b[i];
            }
        }
    }
}

} // namespace

RetouchStroke::RetouchStroke(const VImage& base, const VImage& source, const Brush& brush)
    : base_(base), source_(source), brush_(brush)
{
    const bool layout = !base.isEmpty() && base.header() == source.header() &&
                        (base.format() == VEXA::XRGB || base.format() == VEXA::GrayScale) &&
                        (base.channelType() == VEXA::Channel8u || base.channelType() == VEXA::Channel16u ||
                         base.channelType() == VEXA::Channel32f);
    if (!layout || brush.radius <= 0)
        return;
    image_ = base.copy();
    cover_.fill(0.0f, qsizetype(base.width()) * base.height());
}

QRect RetouchStroke::dabAt(QPointF centre)
{
    last_ = centre;
    started_ = true;
    if (!isValid())
        return {};
    const double r = brush_.radius, full = r * std::clamp(brush_.hardness, 0.0, 1.0);
    const QRect area = QRectF(centre.x() - r, centre.y() - r, 2 * r + 1, 2 * r + 1)
                           .toAlignedRect()
                           .intersected(QRect(0, 0, image_.width(), image_.height()));
    if (area.isEmpty())
        return {};
    const int width = image_.width();
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x) {
            // Pixel centres: a dab at (10.5, 10.5) of radius 1 covers pixel (10, 10) alone, fully.
            const double d = std::hypot(x + 0.5 - centre.x(), y + 0.5 - centre.y());
            const double c = d <= full ? 1.0 : d >= r ? 0.0 : (r - d) / (r - full);
            float& kept = cover_[y * width + x];
            kept = std::max(kept, float(c));
        }
    blend(area);
    touched_ |= area;
    return area;
}

QRect RetouchStroke::lineTo(QPointF to)
{
    if (!started_)
        return dabAt(to);
    const QPointF from = last_;
    const double length = std::hypot(to.x() - from.x(), to.y() - from.y());
    const int steps = std::max(1, int(std::ceil(length / std::max(1.0, brush_.radius / 5))));
    QRect changed;
    for (int i = 1; i <= steps; ++i)
        changed |= dabAt(from + (to - from) * (double(i) / steps));
    return changed;
}

void RetouchStroke::blend(const QRect& area)
{
    const int components = image_.format() == VEXA::GrayScale ? 1 : 4;
    switch (image_.channelType()) {
    case VEXA::Channel8u: blendRows<std::uint8_t>(base_, source_, image_, cover_, area, components); break;
    case VEXA::Channel16u: blendRows<std::uint16_t>(base_, source_, image_, cover_, area, components); break;
    default: blendRows<float>(base_, source_, image_, cover_, area, components); break;
    }
}

QImage shownPart(const VImage& image, const QRect& area)
{
    VImage part;
    part.create(area.width(), area.height(), image.format(), image.channelType(), image.origin(),
                image.rowsAlignment());
    if (part.isEmpty() || !VEXA::copyImageUsingRois(image, &part, {area.x(), area.y(), area.width(), area.height()},
                                                    {0, 0, area.width(), area.height()}))
        return QImage();
    return displayImage(part);
}

} // namespace studio
