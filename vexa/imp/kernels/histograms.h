// Histogram counting and level-curve kernels over 8-bit images.
//
// Two walks exist, chosen per format exactly as the table of the family requires:
// - the region walk visits every pixel of the roi with the image's own stride;
// - the buffer walk ignores the roi and visits rows 0, step, 2 step ... and in each row pixels 0, step ...
//   of the whole buffer, the stride computed from the width.
// In 24- and 32-bit pixels byte 0 is blue, 1 green, 2 red. Luminance is (76 R + 150 G + 29 B) >> 8; the
// weights sum to 255, so white lands in bin 254.
#pragma once

#include <vexa/imp/VHistogram.h>
#include <vexa/imp/detail/dispatch.h>
#include <vexa/imp/kernels/copy_image.h>
#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/kernels/luminance.h>

#include <vcore/MathUtils.h>

#include <array>
#include <cstring>
#include <vector>

namespace VEXA {

using HistogramPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelARGB<quint8>, PixelXRGB<quint8>, PixelARGBP<quint8>>;
using FastHistogramPixels = PixelList<PixelBGR<quint8>, PixelXRGB<quint8>, PixelARGBP<quint8>>;
using BgrHistogramPixels = FastHistogramPixels;
using AdjustPixels = PixelList<PixelGray<quint8>, PixelBGR<quint8>, PixelARGB<quint8>, PixelXRGB<quint8>>;
using AdjustComponentPixels = PixelList<PixelBGR<quint8>, PixelARGB<quint8>, PixelXRGB<quint8>, PixelARGBP<quint8>>;

using LevelTable = std::array<quint8, 256>;

// The curve through (x1, y1) and (x2, y2): y1 up to x1, y2 from x2 on, a straight line truncated between;
// then outputs at or below cutLow, or above cutHigh, become 0.
LevelTable levelTable(double x1, double y1, double x2, double y2, double cutLow, double cutHigh);

namespace kernel {

inline int luminance(const quint8* bgr) { return luma8(bgr[0], bgr[1], bgr[2]); }

// Resets the histogram to exactly the listed components, zeroed and enabled.
struct HistogramCounts {
    qint64* luminance = nullptr;
    qint64* red = nullptr;
    qint64* green = nullptr;
    qint64* blue = nullptr;

    HistogramCounts(VHistogram& h, bool withLuminance, bool withColours)
    {
        h.disableAllComponents();
        const auto take = [&h](Component c) {
            h.setEnabled(c, true);
            qint64* counts = h.ensureCreated(c);
            std::memset(counts, 0, 256 * sizeof(qint64));
            return counts;
        };
        if (withLuminance)
            luminance = take(ComponentLuminance);
        if (withColours) {
            red = take(ComponentRed);
            green = take(ComponentGreen);
            blue = take(ComponentBlue);
        }
    }

    void count(const quint8* bgr)
    {
        if (luminance)
            ++luminance[kernel::luminance(bgr)];
        ++red[bgr[2]];
        ++green[bgr[1]];
        ++blue[bgr[0]];
    }
};

template <class P, class Visit>
void regionWalk(const RasterT<P>& raster, Visit visit)
{
    for (qint32 y = 0; y < raster.roi.height; ++y) {
        const P* row = raster.row(raster.roi.y + y) + raster.roi.x;
        for (qint32 x = 0; x < raster.roi.width; ++x)
            visit(reinterpret_cast<const quint8*>(row + x));
    }
}

template <class P, class Visit>
void bufferWalk(const RasterT<P>& raster, int step, Visit visit)
{
    constexpr qint64 pixelBytes = sizeof(P);
    const qint64 stride = ((raster.width * pixelBytes * 8 + 31) >> 3) & ~qint64(3);
    const auto* base = reinterpret_cast<const quint8*>(raster.data);
    for (qint64 y = 0; y < raster.height; y += step)
        for (qint64 x = 0; x < raster.width; x += step)
            visit(base + y * stride + x * pixelBytes);
}

// Counting every pixel of runs of rows at speed: each component goes to tables of 32-bit counts taken in
// turn (a run of equal values then does not wait on its own increments), the luminance of a row is
// computed in one vectorised pass first, and the tables are added into the histogram's 64-bit counts
// before they could overflow.
class RowCounter {
public:
    explicit RowCounter(HistogramCounts& counts) : counts_(counts) {}
    ~RowCounter() { flush(); }

    void countGray(const quint8* p, qint32 w)
    {
        reserve(w);
        qint32 x = 0;
        for (; x + 7 < w; x += 8) {
            const quint64 v = load64(p + x);
            for (int k = 0; k < 8; ++k)
                ++t_[k & 3][0][quint8(v >> (8 * k))];
        }
        for (; x < w; ++x)
            ++t_[0][0][p[x]];
    }

    // pixelBytes 3 or 4, blue first. Bytes are loaded one by one: a count is one load, one add and one
    // store whatever way its byte is fetched, and fetching by byte loads leaves the arithmetic units free.
    // The counts retire at one store a cycle and leave the memory idle: with ahead > 0 they fetch the row
    // that far on meanwhile, so that the next row's luminance pass finds it in cache.
    void countColour(const quint8* p, qint32 w, int pixelBytes, qint64 ahead = 0)
    {
        reserve(w);
        if (counts_.luminance == nullptr) {
            countPairs<false>(p, w, pixelBytes, ahead);
            return;
        }
        if (lum_.size() < size_t(w))
            lum_.resize(size_t(w));
        simd::rowKernels().luminance(p, lum_.data(), w, pixelBytes);
        countPairs<true>(p, w, pixelBytes, ahead);
    }

private:
    static quint64 load64(const quint8* p)
    {
        quint64 v;
        std::memcpy(&v, p, sizeof v);
        return v; // little-endian: byte k is bits 8k..8k+7
    }

    // Two pixels at a time, one to each of two turns.
    template <bool WithLuminance>
    void countPairs(const quint8* p, qint32 w, int pixelBytes, qint64 ahead)
    {
        const quint8* lum = lum_.data();
        const auto count = [&](qint32 x, int turn) {
            const quint8* a = p + qint64(x) * pixelBytes;
            ++t_[turn][1][a[2]];
            ++t_[turn][2][a[1]];
            ++t_[turn][3][a[0]];
            if constexpr (WithLuminance)
                ++t_[turn][0][lum[x]];
        };
        qint32 x = 0;
        for (; x + 1 < w; x += 2) {
            if (ahead > 0 && (x & 15) == 0) // 48 or 64 bytes on: about a cache line each time
                __builtin_prefetch(p + qint64(x) * pixelBytes + ahead);
            count(x, 0);
            count(x + 1, 1);
        }
        if (x < w)
            count(x, 0);
    }

    void reserve(qint32 w)
    {
        if (pending_ + w > (qint64(1) << 31))
            flush();
        pending_ += w;
    }
    void flush()
    {
        qint64* targets[4] = {counts_.luminance, counts_.red, counts_.green, counts_.blue};
        for (int c = 0; c < 4; ++c)
            for (int i = 0; i < 256; ++i)
                if (targets[c])
                    targets[c][i] += qint64(t_[0][c][i]) + t_[1][c][i] + t_[2][c][i] + t_[3][c][i];
        std::memset(t_, 0, sizeof t_);
        pending_ = 0;
    }

    HistogramCounts& counts_;
    quint32 t_[4][4][256] = {}; // [turn][luminance, red, green, blue][value]
    std::vector<quint8> lum_;
    qint64 pending_ = 0;
};

template <class P>
VStatus calculateHistogram(const RasterT<P>& raster, VHistogram& h)
{
    constexpr Format format = PixelTraits<P>::format;
    const bool gray = format == GrayScale;
    HistogramCounts counts(h, true, !gray);
    RowCounter counter(counts);
    const auto* base = reinterpret_cast<const quint8*>(raster.data);
    if constexpr (format == BGR || format == XRGB) {
        // The whole buffer: the stride computed from the width equals bytesPerLine.
        for (qint32 y = 0; y < raster.height; ++y)
            counter.countColour(base + qint64(y) * raster.bytesPerLine, raster.width, int(sizeof(P)),
                                y + 1 < raster.height ? raster.bytesPerLine : 0);
    } else {
        for (qint32 y = 0; y < raster.roi.height; ++y) {
            const auto* row = reinterpret_cast<const quint8*>(raster.row(raster.roi.y + y) + raster.roi.x);
            if constexpr (format == GrayScale)
                counter.countGray(row, raster.roi.width);
            else
                counter.countColour(row, raster.roi.width, int(sizeof(P)), y + 1 < raster.roi.height ? raster.bytesPerLine : 0);
        }
    }
    return VStatus::Ok;
}

template <class P>
VStatus calculateHistogramFast(const RasterT<P>& raster, VHistogram& h)
{
    const int step = h.skipData() < 1 ? 1 : h.skipData();
    if constexpr (PixelTraits<P>::format == ARGB_Premultiplied) {
        // Bytes counted in the reverse order of every other kernel: 0 as red, 2 as blue.
        HistogramCounts counts(h, false, true);
        bufferWalk(raster, step, [&counts](const quint8* p) {
            ++counts.red[p[0]];
            ++counts.green[p[1]];
            ++counts.blue[p[2]];
        });
    } else {
        HistogramCounts counts(h, true, true);
        bufferWalk(raster, step, [&counts](const quint8* p) { counts.count(p); });
    }
    return VStatus::Ok;
}

template <class P>
VStatus calculateHistogramBGR(const RasterT<P>& raster, VHistogram& h)
{
    HistogramCounts counts(h, false, true);
    bufferWalk(raster, 1, [&counts](const quint8* p) { counts.count(p); });
    return VStatus::Ok;
}

// Colour bytes through the tables (gray: its one byte through red's), in memory order blue, green, red.
// The fourth byte of 32-bit pixels is the destination's own, except in one the call has just made
// (`made`): its buffer may be recycled from another image, so the fourth byte is copied from the source.
template <class P, class Map>
void adjustBytes(const RasterT<P>& src, const RasterT<P>& dst, bool made, Map map)
{
    forEachPixelPair(src, src.roi, dst, dst.roi, [&map, made](const P& s, P& d) {
        const auto* sb = reinterpret_cast<const quint8*>(&s);
        auto* db = reinterpret_cast<quint8*>(&d);
        if constexpr (PixelTraits<P>::format == GrayScale) {
            db[0] = map(sb[0], 2);
        } else {
            for (int i = 0; i < 3; ++i)
                db[i] = map(sb[i], i);
            if constexpr (sizeof(P) == 4)
                if (made)
                    db[3] = sb[3];
        }
    });
}

template <class P>
VStatus adjustHistogram(const RasterT<P>& src, const RasterT<P>& dst, const LevelTable& lut, bool made)
{
    if constexpr (sizeof(P) <= 3) { // GrayScale and BGR rows are colour bytes only
        forEachRowPair(src, src.roi, dst, dst.roi, [&lut](const P* s, P* d, qint32 w) {
            simd::rowKernels().lookUpBytes(reinterpret_cast<const quint8*>(s), reinterpret_cast<quint8*>(d),
                                           size_t(w) * sizeof(P), lut.data());
        });
    } else {
        adjustBytes(src, dst, made, [&lut](quint8 v, int) { return lut[v]; });
    }
    return VStatus::Ok;
}

template <class P>
VStatus adjustHistogramComponent(const RasterT<P>& src, const RasterT<P>& dst, const LevelTable& lut,
                                 Component component, bool made)
{
    const int byte = component == ComponentRed ? 2 : component == ComponentGreen ? 1 : component == ComponentBlue ? 0 : -1;
    if (byte < 0) // luminance and the unused keys map nothing, on purpose: a destination just made is the source
        return made ? copyRect(src, dst, src.roi, dst.roi) : VStatus::Ok;
    adjustBytes(src, dst, made, [&lut, byte](quint8 v, int i) { return i == byte ? MathUtils::bound8u(lut[v]) : v; });
    return VStatus::Ok;
}

template <class P>
VStatus adjustHistogramByComponents(const RasterT<P>& src, const RasterT<P>& dst, const LevelTable* tables, bool made)
{
    const LevelTable& master = tables[0];
    const LevelTable* byByte[3] = {&tables[3], &tables[2], &tables[1]}; // blue, green, red curves
    adjustBytes(src, dst, made, [&](quint8 v, int i) { return master[MathUtils::bound8u((*byByte[i])[v])]; });
    return VStatus::Ok;
}

} // namespace kernel
} // namespace VEXA
