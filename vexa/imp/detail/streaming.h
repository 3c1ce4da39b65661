// Writing large results past the caches.
//
// A destination of more than StreamingBytes does not stay in any one core's share of the last-level cache:
// written through the cache, every line is first read from memory (to be overwritten). Streaming stores
// write whole lines without reading them, a third less memory traffic for a copy. Plain copies, the
// negative of bytes (one byte written per byte read) and the widening of bytes to floats (four written per
// one read) use them; measured here, the re-layouts of three- and four-byte pixels gained nothing from
// streaming, directly or through a buffer, and write through the cache.
// Smaller destinations are written directly, where the next reader will find them in cache.
#pragma once

#include <vexa/imp/kernels/simd/row_kernels.h>
#include <vexa/imp/raster.h>

#include <algorithm>
#include <cstdint>

namespace VEXA {

constexpr qint64 StreamingBytes = qint64(16) << 20;

// Whether a kernel that walks the common size of two rectangles (each inside its own raster) should write
// the destination with streaming stores: it is large, and no byte of it is also a byte of the source.
template <class S, class D>
bool streamsInto(const RasterT<S>& src, const Rect& from, const RasterT<D>& dst, const Rect& to)
{
    const qint64 written = qint64(std::min(from.width, to.width)) * std::min(from.height, to.height) * qint64(sizeof(D));
    const auto begin = [](const auto& r) { return reinterpret_cast<std::uintptr_t>(r.data); };
    const auto end = [&begin](const auto& r) { return begin(r) + std::uintptr_t(qint64(r.bytesPerLine) * r.height); };
    return written >= StreamingBytes && (end(src) <= begin(dst) || end(dst) <= begin(src));
}

} // namespace VEXA
