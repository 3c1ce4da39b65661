// The row kernels, included once per instruction set with VEXA_SIMD_NAME naming the build. Over 500 lines
// because every vectorised row kernel must be compiled in each instruction set from one source.
//
// Gray: the sum S = 587 G + 114 B + 299 R splits as 8 (73 G + 14 B + 37 R) + (3 G + 2 B + 3 R), so
// t = floor(S / 8) and S mod 8 come out of 16-bit lanes, and floor(t / 125) = (t * 33555) >> 22 exactly for
// every t below 31875. The double-precision rule gives that quotient except at some exact multiples of
// 1000, where its sum rounds just below the integer: those lanes take one off by grayCorrection().
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

namespace VEXA::simd {
namespace VEXA_SIMD_NAME {
namespace {

using std::uint8_t;

// Elements of the given size from p to the first address aligned to alignment (a power of two).
template <class T>
inline std::size_t untilAligned(const T* p, std::size_t alignment)
{
    return ((std::size_t(0) - reinterpret_cast<std::uintptr_t>(p)) & (alignment - 1)) / sizeof(T);
}

inline uint8_t graySum(uint8_t b, uint8_t g, uint8_t r, const uint8_t* correction)
{
    const unsigned sum = 587u * g + 114u * b + 299u * r;
    const unsigned q = sum / 1000u;
    return uint8_t(sum % 1000u == 0 ? q - correction[g << 8 | b] : q);
}

#if CV_SIMD
// Bytes widened to 16-bit lanes without crossing lanes: even-indexed bytes (a mask) and odd-indexed bytes (a
// shift). narrowEvenOdd puts two such halves (each value below 256) back in byte order.
inline void widenEvenOdd(const cv::v_uint8& v, cv::v_uint16 (&halves)[2])
{
    const cv::v_uint16 pairs = cv::v_reinterpret_as_u16(v);
    halves[0] = pairs & cv::vx_setall_u16(0x00FF);
    halves[1] = pairs >> 8;
}

inline cv::v_uint8 narrowEvenOdd(const cv::v_uint16 (&halves)[2])
{
    return cv::v_reinterpret_as_u8(halves[0] | (halves[1] << 8));
}

// The gray values of one vector of pixels; lanes at exact multiples of 1000 corrected afterwards.
inline void grayVector(const cv::v_uint8& b, const cv::v_uint8& g, const cv::v_uint8& r, uint8_t* dst,
                       const uint8_t* correction)
{
    using namespace cv;
    const v_uint16 c73 = vx_setall_u16(73), c14 = vx_setall_u16(14), c37 = vx_setall_u16(37);
    const v_uint16 c7 = vx_setall_u16(7), c125 = vx_setall_u16(125), reciprocal = vx_setall_u16(33555);
    const v_uint16 zero = vx_setzero_u16(), lowByte = vx_setall_u16(0x00FF), highByte = vx_setall_u16(0xFF00);
    v_uint16 bh[2], gh[2], rh[2], q[2], exact[2];
    widenEvenOdd(b, bh);
    widenEvenOdd(g, gh);
    widenEvenOdd(r, rh);
    for (int h = 0; h < 2; ++h) {
        const v_uint16 u = v_mul_wrap(gh[h], c73) + v_mul_wrap(bh[h], c14) + v_mul_wrap(rh[h], c37);
        const v_uint16 gr = gh[h] + rh[h];
        const v_uint16 rest = gr + ((gr + bh[h]) << 1); // 3 G + 2 B + 3 R
        const v_uint16 t = u + (rest >> 3);
        q[h] = v_mul_hi(t, reciprocal) >> 6;
        exact[h] = ((rest & c7) == zero) & (t == v_mul_wrap(q[h], c125));
    }
    v_store(dst, narrowEvenOdd(q));
    const v_uint8 anyExact = v_reinterpret_as_u8((exact[0] & lowByte) | (exact[1] & highByte));
    if (!v_check_any(anyExact))
        return;
    uint8_t bs[v_uint8::nlanes], gs[v_uint8::nlanes];
    v_store(bs, b);
    v_store(gs, g);
    for (unsigned bits = unsigned(v_signmask(anyExact)); bits != 0; bits &= bits - 1) {
        const int k = __builtin_ctz(bits);
        dst[k] = uint8_t(dst[k] - correction[gs[k] << 8 | bs[k]]);
    }
}
#endif

#if CV_AVX2
// The gray sums of 16 BGR pixels (48 bytes from s) in 16-bit lanes: u = 73 G + 14 B + 37 R and
// rest = 3 G + 2 B + 3 R, as in grayVector. Each 128-bit half gathers its 8 pixels by byte shuffles of two
// loads into (B, G) byte pairs, multiplied and added by maddubs, and R widened to 16 bits.
// 48 bytes from s as two vectors whose 128-bit halves byte shuffles can take 8 BGR pixels each from:
// p = bytes 0..15 | 32..47, q = bytes 16..31 | 16..31.
inline void bgrHalves(const uint8_t* s, __m256i& p, __m256i& q)
{
    const __m256i v0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s));      // bytes 0..31
    const __m256i v1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 16)); // bytes 16..47
    p = _mm256_blend_epi32(v0, v1, 0xF0);
    q = _mm256_permute2x128_si256(v0, v1, 0x21);
}

inline void graySums16(const uint8_t* s, __m256i& u, __m256i& rest)
{
    __m256i p, q;
    bgrHalves(s, p, q);
    // Half 0 takes pixels 0..7: bytes 0..15 from p, 16..23 from q (at 0..7). Half 1 takes pixels 8..15:
    // bytes 24..31 from q (at 8..15), 32..47 from p (at 0..15).
    const __m256i bgFromP = _mm256_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 12, 13, 15, -1, -1, -1, -1, -1, //
                                             -1, -1, -1, -1, -1, -1, 1, 2, 4, 5, 7, 8, 10, 11, 13, 14);
    const __m256i bgFromQ = _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 2, 3, 5, 6, //
                                             8, 9, 11, 12, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i rFromP = _mm256_setr_epi8(2, -1, 5, -1, 8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1, //
                                            -1, -1, -1, -1, 0, -1, 3, -1, 6, -1, 9, -1, 12, -1, 15, -1);
    const __m256i rFromQ = _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 1, -1, 4, -1, 7, -1, //
                                            10, -1, 13, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i bg = _mm256_or_si256(_mm256_shuffle_epi8(p, bgFromP), _mm256_shuffle_epi8(q, bgFromQ));
    const __m256i r = _mm256_or_si256(_mm256_shuffle_epi8(p, rFromP), _mm256_shuffle_epi8(q, rFromQ));
    const __m256i three = _mm256_set1_epi16(3);
    u = _mm256_add_epi16(_mm256_maddubs_epi16(bg, _mm256_set1_epi16(73 << 8 | 14)), _mm256_mullo_epi16(r, _mm256_set1_epi16(37)));
    rest = _mm256_add_epi16(_mm256_maddubs_epi16(bg, _mm256_set1_epi16(3 << 8 | 2)), _mm256_mullo_epi16(r, three));
}

// floor(S / 1000) of 16 pixels from their sums, and a mask of the lanes at an exact multiple of 1000.
inline __m256i grayQuotients16(const __m256i& u, const __m256i& rest, __m256i& exact)
{
    const __m256i t = _mm256_add_epi16(u, _mm256_srli_epi16(rest, 3));
    const __m256i q = _mm256_srli_epi16(_mm256_mulhi_epu16(t, _mm256_set1_epi16(short(33555))), 6);
    const __m256i restExact = _mm256_cmpeq_epi16(_mm256_and_si256(rest, _mm256_set1_epi16(7)), _mm256_setzero_si256());
    exact = _mm256_and_si256(restExact, _mm256_cmpeq_epi16(t, _mm256_mullo_epi16(q, _mm256_set1_epi16(125))));
    return q;
}
#endif

void bgrToGray(const uint8_t* s, uint8_t* d, int w)
{
    const uint8_t* correction = grayCorrection();
    int x = 0;
#if CV_AVX2
    for (; x <= w - 32; x += 32) {
        __m256i u[2], rest[2], q[2], exact[2];
        for (int h = 0; h < 2; ++h) {
            graySums16(s + 3 * (x + 16 * h), u[h], rest[h]);
            q[h] = grayQuotients16(u[h], rest[h], exact[h]);
        }
        // packus interleaves the halves by 128-bit lane: the 64-bit permutation puts them back in order.
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + x), _mm256_permute4x64_epi64(_mm256_packus_epi16(q[0], q[1]), 0xD8));
        // About one pixel in a thousand sits on a multiple of 1000: only those lanes are looked up.
        const __m256i exactBytes = _mm256_permute4x64_epi64(_mm256_packs_epi16(exact[0], exact[1]), 0xD8);
        for (unsigned bits = unsigned(_mm256_movemask_epi8(exactBytes)); bits != 0; bits &= bits - 1) {
            const int k = x + __builtin_ctz(bits);
            d[k] = uint8_t(d[k] - correction[s[3 * k + 1] << 8 | s[3 * k]]);
        }
    }
#elif CV_SIMD
    for (const int n = cv::v_uint8::nlanes; x <= w - n; x += n) {
        cv::v_uint8 b, g, r;
        cv::v_load_deinterleave(s + 3 * x, b, g, r);
        grayVector(b, g, r, d + x, correction);
    }
#endif
    for (; x < w; ++x)
        d[x] = graySum(s[3 * x], s[3 * x + 1], s[3 * x + 2], correction);
}

void bgraToGray(const uint8_t* s, uint8_t* d, int w)
{
    const uint8_t* correction = grayCorrection();
    int x = 0;
#if CV_SIMD
    for (const int n = cv::v_uint8::nlanes; x <= w - n; x += n) {
        cv::v_uint8 b, g, r, a;
        cv::v_load_deinterleave(s + 4 * x, b, g, r, a);
        grayVector(b, g, r, d + x, correction);
    }
#endif
    for (; x < w; ++x)
        d[x] = graySum(s[4 * x], s[4 * x + 1], s[4 * x + 2], correction);
}

void bgraToBgr(const uint8_t* s, uint8_t* d, int w)
{
    int x = 0;
#if CV_AVX2
    // 32 pixels a round: each 8-pixel load has its fourth bytes squeezed out within its 128-bit halves
    // (12 bytes each), and one dword permutation a load both joins the halves and puts the 24 bytes where
    // they go in the three 32-byte stores, which blends then assemble.
    {
        const __m256i squeeze = _mm256_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1, 0, 1, 2, 4, 5, 6,
                                                 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
        const __m256i p0 = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0), p1 = _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 1);
        const __m256i p2 = _mm256_setr_epi32(5, 6, 0, 0, 0, 1, 2, 4), p3 = _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6);
        for (; x <= w - 32; x += 32) {
            const auto load = [&](int k, const __m256i& order) {
                const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 4 * x + 32 * k));
                return _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(v, squeeze), order);
            };
            const __m256i c0 = load(0, p0), c1 = load(1, p1), c2 = load(2, p2), c3 = load(3, p3);
            auto* out = reinterpret_cast<__m256i*>(d + 3 * x);
            _mm256_storeu_si256(out, _mm256_blend_epi32(c0, c1, 0xC0));
            _mm256_storeu_si256(out + 1, _mm256_blend_epi32(c1, c2, 0xF0));
            _mm256_storeu_si256(out + 2, _mm256_blend_epi32(c2, c3, 0xFC));
        }
    }
#elif CV_SIMD
    for (const int n = cv::v_uint8::nlanes; x <= w - n; x += n) {
        cv::v_uint8 b, g, r, a;
        cv::v_load_deinterleave(s + 4 * x, b, g, r, a);
        cv::v_store_interleave(d + 3 * x, b, g, r);
    }
#endif
    for (; x < w; ++x)
        for (int c = 0; c < 3; ++c)
            d[3 * x + c] = s[4 * x + c];
}

void bgrToBgra(const uint8_t* s, uint8_t* d, int w, bool keepFourth)
{
    int x = 0;
#if CV_AVX2
    // 8 pixels a round: the 24 source bytes split 12 and 12 into the two 128-bit halves by a dword
    // permutation, then spread to 4 bytes a pixel by a byte shuffle within each half. The 32-byte load reads
    // 8 bytes past the pixels it uses, so the loop stops 11 pixels before the end of the row.
    {
        const __m256i split = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
        const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1, 0, 1, 2, -1, 3, 4, 5,
                                                -1, 6, 7, 8, -1, 9, 10, 11, -1);
        const __m256i fourth = _mm256_set1_epi32(int(0xFF000000u));
        for (; x <= w - 11; x += 8) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 3 * x));
            const __m256i bgr = _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(v, split), spread);
            auto* out = reinterpret_cast<__m256i*>(d + 4 * x);
            const __m256i top = keepFourth ? _mm256_and_si256(_mm256_loadu_si256(out), fourth) : fourth;
            _mm256_storeu_si256(out, _mm256_or_si256(bgr, top));
        }
    }
#elif CV_SIMD
    using namespace cv;
    // Interleaved by two zips (b with g, r with a zero byte, then the pairs) into 32-bit pixels whose
    // fourth byte is or-ed in: 255, or the destination's own, read as whole words (no four-way split).
    const v_uint32 fourth = vx_setall_u32(0xFF000000u);
    const v_uint8 zero = vx_setzero_u8();
    for (const int n = v_uint8::nlanes; x <= w - n; x += n) {
        v_uint8 b, g, r, bg[2], r0[2];
        v_load_deinterleave(s + 3 * x, b, g, r);
        v_zip(b, g, bg[0], bg[1]);
        v_zip(r, zero, r0[0], r0[1]);
        v_uint16 p[4];
        v_zip(v_reinterpret_as_u16(bg[0]), v_reinterpret_as_u16(r0[0]), p[0], p[1]);
        v_zip(v_reinterpret_as_u16(bg[1]), v_reinterpret_as_u16(r0[1]), p[2], p[3]);
        for (int k = 0; k < 4; ++k) {
            auto* out = reinterpret_cast<unsigned*>(d + 4 * x + k * n);
            const v_uint32 top = keepFourth ? vx_load(out) & fourth : fourth;
            v_store(out, v_reinterpret_as_u32(p[k]) | top);
        }
    }
#endif
    for (; x < w; ++x) {
        for (int c = 0; c < 3; ++c)
            d[4 * x + c] = s[3 * x + c];
        if (!keepFourth)
            d[4 * x + 3] = 255;
    }
}

void bytesToFloats(const uint8_t* s, float* d, int n, bool stream)
{
    int x = 0;
#if CV_SIMD
    using namespace cv;
    const int lanes = v_uint8::nlanes, quarter = lanes / 4;
    if (stream) // floats up to a vector-aligned one, then aligned streaming stores
        for (const int head = std::min(n, int(untilAligned(d, sizeof(v_float32)))); x < head; ++x)
            d[x] = float(s[x]);
    for (; x <= n - lanes; x += lanes) {
        v_uint16 half[2];
        v_expand(vx_load(s + x), half[0], half[1]);
        v_uint32 q[4];
        v_expand(half[0], q[0], q[1]);
        v_expand(half[1], q[2], q[3]);
        for (int k = 0; k < 4; ++k) {
            const v_float32 f = v_cvt_f32(v_reinterpret_as_s32(q[k]));
            if (stream)
                v_store_aligned_nocache(d + x + k * quarter, f);
            else
                v_store(d + x + k * quarter, f);
        }
    }
#else
    (void)stream;
#endif
    for (; x < n; ++x)
        d[x] = float(s[x]);
}

// Without AVX2 a flat run of independent scalar lookups (vectorising them without a byte shuffle or
// gathers only slows them down). With it, the table is sixteen rows of sixteen entries, each row in both
// 128-bit halves: a byte takes, by shuffle, the entry its low nibble names in every row, and keeps the one of
// the row its high nibble names. Sixteen shuffles for 32 bytes, against a store for every byte.
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("no-tree-vectorize")))
#endif
void lookUpBytes(const uint8_t* s, uint8_t* d, std::size_t n, const uint8_t* table)
{
    std::size_t i = 0;
#if CV_AVX2
    if (n >= 32) {
        __m256i rows[16];
        for (int j = 0; j < 16; ++j)
            rows[j] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * j)));
        const __m256i nibble = _mm256_set1_epi8(0x0F), one = _mm256_set1_epi8(1);
        for (; i + 32 <= n; i += 32) {
            const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + i));
            const __m256i low = _mm256_and_si256(v, nibble);
            __m256i row = _mm256_and_si256(_mm256_srli_epi16(v, 4), nibble); // counts down to 0 at its own row
            __m256i out = _mm256_shuffle_epi8(rows[0], low);
            for (int j = 1; j < 16; ++j) {
                row = _mm256_sub_epi8(row, one);
                out = _mm256_blendv_epi8(out, _mm256_shuffle_epi8(rows[j], low), _mm256_cmpeq_epi8(row, _mm256_setzero_si256()));
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + i), out);
        }
    }
#endif
    for (; i + 4 <= n; i += 4) {
        const uint8_t a = table[s[i]], b = table[s[i + 1]], c = table[s[i + 2]], e = table[s[i + 3]];
        d[i] = a;
        d[i + 1] = b;
        d[i + 2] = c;
        d[i + 3] = e;
    }
    for (; i < n; ++i)
        d[i] = table[s[i]];
}

void invertBytes(const uint8_t* s, uint8_t* d, std::size_t n, bool stream)
{
    std::size_t x = 0;
#if CV_SIMD
    const std::size_t lanes = std::size_t(cv::v_uint8::nlanes);
    if (stream) {
        for (const std::size_t head = std::min(n, untilAligned(d, lanes)); x < head; ++x)
            d[x] = uint8_t(255 - s[x]);
        for (; x + lanes <= n; x += lanes)
            cv::v_store_aligned_nocache(d + x, ~cv::vx_load(s + x));
    }
    for (; x + lanes <= n; x += lanes)
        cv::v_store(d + x, ~cv::vx_load(s + x));
#else
    (void)stream;
#endif
    for (; x < n; ++x)
        d[x] = uint8_t(255 - s[x]);
}

#if CV_AVX2
// (76 R + 150 G + 29 B) >> 8 of 16 BGR pixels (48 bytes from s) in 16-bit lanes, gathered as in graySums16
// but as (G, R) byte pairs and B: 2 (75 G + 38 R) + 29 B, at most 65025.
inline __m256i luminance16(const uint8_t* s)
{
    __m256i p, q;
    bgrHalves(s, p, q);
    const __m256i grFromP = _mm256_setr_epi8(1, 2, 4, 5, 7, 8, 10, 11, 13, 14, -1, -1, -1, -1, -1, -1, //
                                             -1, -1, -1, -1, -1, 0, 2, 3, 5, 6, 8, 9, 11, 12, 14, 15);
    const __m256i grFromQ = _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 1, 3, 4, 6, 7, //
                                             9, 10, 12, 13, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i bFromP = _mm256_setr_epi8(0, -1, 3, -1, 6, -1, 9, -1, 12, -1, 15, -1, -1, -1, -1, -1, //
                                            -1, -1, -1, -1, -1, -1, 1, -1, 4, -1, 7, -1, 10, -1, 13, -1);
    const __m256i bFromQ = _mm256_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 2, -1, 5, -1, //
                                            8, -1, 11, -1, 14, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m256i gr = _mm256_or_si256(_mm256_shuffle_epi8(p, grFromP), _mm256_shuffle_epi8(q, grFromQ));
    const __m256i b = _mm256_or_si256(_mm256_shuffle_epi8(p, bFromP), _mm256_shuffle_epi8(q, bFromQ));
    const __m256i twice = _mm256_slli_epi16(_mm256_maddubs_epi16(gr, _mm256_set1_epi16(38 << 8 | 75)), 1);
    return _mm256_srli_epi16(_mm256_add_epi16(twice, _mm256_mullo_epi16(b, _mm256_set1_epi16(29))), 8);
}
#endif

void luminance(const uint8_t* s, uint8_t* d, int w, int pixelBytes)
{
    int x = 0;
#if CV_AVX2
    if (pixelBytes == 3)
        for (; x <= w - 32; x += 32) {
            const __m256i packed = _mm256_packus_epi16(luminance16(s + 3 * x), luminance16(s + 3 * x + 48));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(d + x), _mm256_permute4x64_epi64(packed, 0xD8));
        }
#endif
#if CV_SIMD
    using namespace cv;
    const v_uint16 c76 = vx_setall_u16(76), c150 = vx_setall_u16(150), c29 = vx_setall_u16(29);
    for (const int n = v_uint8::nlanes; x <= w - n; x += n) {
        v_uint8 b, g, r, a;
        if (pixelBytes == 3)
            v_load_deinterleave(s + 3 * x, b, g, r);
        else
            v_load_deinterleave(s + 4 * x, b, g, r, a);
        v_uint16 bh[2], gh[2], rh[2], l[2];
        widenEvenOdd(b, bh);
        widenEvenOdd(g, gh);
        widenEvenOdd(r, rh);
        for (int h = 0; h < 2; ++h) // at most 255 * 255: no 16-bit overflow
            l[h] = (v_mul_wrap(rh[h], c76) + v_mul_wrap(gh[h], c150) + v_mul_wrap(bh[h], c29)) >> 8;
        v_store(d + x, narrowEvenOdd(l));
    }
#endif
    for (; x < w; ++x) {
        const uint8_t* p = s + pixelBytes * x;
        d[x] = uint8_t((p[2] * 76 + p[1] * 150 + p[0] * 29) >> 8);
    }
}

std::uint64_t sumBytes(const uint8_t* s, int count)
{
    std::uint64_t total = 0;
    int x = 0;
#if CV_AVX2
    // Sums of absolute differences against zero: four 64-bit sums of 8 bytes each per instruction.
    {
        __m256i acc[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
        const __m256i zero = _mm256_setzero_si256();
        for (; x <= count - 64; x += 64)
            for (int k = 0; k < 2; ++k)
                acc[k] = _mm256_add_epi64(
                    acc[k], _mm256_sad_epu8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + x + 32 * k)), zero));
        alignas(32) std::uint64_t lanes[4];
        _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), _mm256_add_epi64(acc[0], acc[1]));
        total = lanes[0] + lanes[1] + lanes[2] + lanes[3];
    }
#elif CV_SIMD
    using namespace cv;
    const int n = v_uint8::nlanes;
    while (x <= count - n) {
        // Each 16-bit lane takes the two bytes above it, at most 510 a vector: 128 vectors stay below 65536.
        v_uint16 acc = vx_setzero_u16();
        for (int k = 0; k < 128 && x <= count - n; ++k, x += n) {
            v_uint16 halves[2];
            widenEvenOdd(vx_load(s + x), halves);
            acc += halves[0] + halves[1];
        }
        v_uint32 a0, a1;
        v_expand(acc, a0, a1);
        total += v_reduce_sum(a0 + a1);
    }
#endif
    for (; x < count; ++x)
        total += s[x];
    return total;
}

inline uint8_t clamp8(int v) { return uint8_t(v < 0 ? 0 : v > 255 ? 255 : v); }

void yuvToBgra(const uint8_t* s, uint8_t* d, int w, bool keepFourth)
{
    int x = 0; // pixels; pairs are x / 2
#if CV_SIMD
    using namespace cv;
    const v_int16 c1435 = vx_setall_s16(1435), c1814 = vx_setall_s16(1814), c128 = vx_setall_s16(128);
    const v_int16 greenWeights = v_reinterpret_as_s16(vx_setall_u32(std::uint32_t(std::uint16_t(-733)) << 16 |
                                                                   std::uint16_t(-352)));
    const v_uint8 opaque = vx_setall_u8(255);
    for (const int n = v_uint8::nlanes; x <= w - 2 * n; x += 2 * n) {
        v_uint8 y0, u, y1, v;
        v_load_deinterleave(s + 2 * x, y0, u, y1, v);
        v_uint16 y0h[2], uh[2], y1h[2], vh[2];
        v_expand(y0, y0h[0], y0h[1]);
        v_expand(u, uh[0], uh[1]);
        v_expand(y1, y1h[0], y1h[1]);
        v_expand(v, vh[0], vh[1]);
        v_uint8 out[2][3]; // [first, second pixel of the pairs][b, g, r]
        v_int16 parts[2][2][3];
        for (int h = 0; h < 2; ++h) {
            const v_int16 uu = v_reinterpret_as_s16(uh[h]) - c128, vv = v_reinterpret_as_s16(vh[h]) - c128;
            const v_int16 dr = v_mul_hi(vv << 6, c1435); // (v * 1435) >> 10, floored
            const v_int16 db = v_mul_hi(uu << 6, c1814);
            v_int16 uv0, uv1;
            v_zip(uu, vv, uv0, uv1);
            const v_int16 dg = v_pack(v_dotprod(uv0, greenWeights) >> 10, v_dotprod(uv1, greenWeights) >> 10);
            const v_int16 ya = v_reinterpret_as_s16(y0h[h]), yb = v_reinterpret_as_s16(y1h[h]);
            parts[0][h][0] = ya + db;
            parts[0][h][1] = ya + dg;
            parts[0][h][2] = ya + dr;
            parts[1][h][0] = yb + db;
            parts[1][h][1] = yb + dg;
            parts[1][h][2] = yb + dr;
        }
        for (int p = 0; p < 2; ++p)
            for (int c = 0; c < 3; ++c)
                out[p][c] = v_pack_u(parts[p][0][c], parts[p][1][c]); // clamped to 0..255
        for (int half = 0; half < 2; ++half) {
            v_uint8 channel[3], a = opaque;
            for (int c = 0; c < 3; ++c) {
                v_uint8 lo, hi;
                v_zip(out[0][c], out[1][c], lo, hi); // first and second pixels in turn
                channel[c] = half == 0 ? lo : hi;
            }
            uint8_t* target = d + 4 * (x + half * n);
            if (keepFourth) {
                v_uint8 ob, og, orr;
                v_load_deinterleave(target, ob, og, orr, a);
            }
            v_store_interleave(target, channel[0], channel[1], channel[2], a);
        }
    }
#endif
    for (; x < w; x += 2) {
        const int u = s[2 * x + 1] - 128;
        const int v = (x + 1 < w ? s[2 * x + 3] : 128) - 128;
        const int dr = (v * 1435) >> 10, dg = (u * -352 - v * 733) >> 10, db = (u * 1814) >> 10;
        for (int k = x; k < x + 2 && k < w; ++k) {
            const int y = s[2 * k];
            d[4 * k] = clamp8(y + db);
            d[4 * k + 1] = clamp8(y + dg);
            d[4 * k + 2] = clamp8(y + dr);
            if (!keepFourth)
                d[4 * k + 3] = 255;
        }
    }
}

void streamBytes(uint8_t* d, const uint8_t* s, std::size_t n)
{
    std::size_t k = 0;
#if CV_SIMD
    // Ordinary stores up to the first vector-aligned byte, then whole vectors that skip the caches.
    const std::size_t lanes = std::size_t(cv::v_uint8::nlanes);
    k = std::min(n, untilAligned(d, lanes));
    std::memcpy(d, s, k);
    for (; k + lanes <= n; k += lanes)
        cv::v_store_aligned_nocache(d + k, cv::vx_load(s + k));
#endif
    std::memcpy(d + k, s + k, n - k);
}

// The unsharp mask's decision and pixel by the double-precision rule itself (tails and exact bounds).
void contrastRow(const uint8_t* s, const uint8_t* b, float* d, int w, float factor)
{
    int x = 0;
#if CV_AVX2
    const __m256i weights = _mm256_setr_epi16(114, 587, 299, 0, 114, 587, 299, 0, 114, 587, 299, 0, 114, 587, 299, 0);
    const __m256 scale = _mm256_set1_ps(factor);
    for (; x <= w - 8; x += 8) {
        const auto half = [&](int at) { // 4 pixels: two 32-bit sums each, (114 dB + 587 dG), (299 dR)
            const __m256i sw = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 4 * (x + at))));
            const __m256i bw = _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(b + 4 * (x + at))));
            return _mm256_madd_epi16(_mm256_sub_epi16(sw, bw), weights);
        };
        // hadd leaves pixels 0, 1, 4, 5 | 2, 3, 6, 7: the 64-bit permutation puts them in order.
        const __m256i sums = _mm256_permute4x64_epi64(_mm256_hadd_epi32(half(0), half(4)), 0xD8);
        _mm256_storeu_ps(d + x, _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_abs_epi32(sums)), scale));
    }
#endif
    for (; x < w; ++x) {
        const uint8_t* p = s + 4 * x;
        const uint8_t* q = b + 4 * x;
        const int difference = 114 * (p[0] - q[0]) + 587 * (p[1] - q[1]) + 299 * (p[2] - q[2]);
        d[x] = float(difference < 0 ? -difference : difference) * factor;
    }
}

inline bool sharpenInside(const uint8_t* s, const uint8_t* b, const SharpenRule& rule)
{
    const double lumBlur = 0.114 * b[0] + 0.587 * b[1] + 0.299 * b[2];
    const double lumSrc = 0.114 * s[0] + 0.587 * s[1] + 0.299 * s[2];
    const double difference = std::abs(lumBlur - lumSrc);
    return rule.low <= difference && difference <= rule.high;
}

inline uint8_t bound8(double v) { return !(v > 0.0) ? 0 : v >= 255.0 ? 255 : uint8_t(v); }

inline void sharpenPixel(const uint8_t* s, uint8_t* d, const SharpenRule& rule)
{
    if (!sharpenInside(s, d, rule)) {
        std::memcpy(d, s, 4);
        return;
    }
    for (int c = 0; c < 3; ++c)
        d[c] = bound8(double(s[c] - d[c]) * rule.amount + double(d[c]));
}

void sharpenRow(const uint8_t* s, uint8_t* d, int w, const SharpenRule& rule)
{
    int x = 0;
#if CV_SIMD
    using namespace cv;
    const int n = v_uint8::nlanes;
    // 1000 * (lum(src) - lum(blur)) = 114 dB + 587 dG + 299 dR exactly, d = s - b: (dB, dG) pairs by a dot
    // product, dR by a widening multiply, each giving the pixels in order.
    const v_int16 blueGreen = v_reinterpret_as_s16(vx_setall_u32(587u << 16 | 114u)), red = vx_setall_s16(299);
    const v_int32 lowSum = vx_setall_s32(rule.lowSum), highSum = vx_setall_s32(rule.highSum);
    const v_int32 factor = vx_setall_s32(rule.factor), bias = vx_setall_s32(rule.bias);
    for (; x <= w - n; x += n) {
        v_uint8 sv[4], bv[4];
        v_load_deinterleave(s + 4 * x, sv[0], sv[1], sv[2], sv[3]);
        v_load_deinterleave(d + 4 * x, bv[0], bv[1], bv[2], bv[3]);
        v_int16 diff[3][2], blur[3][2]; // [component][half of the pixels]
        for (int c = 0; c < 3; ++c) {
            v_uint16 s16[2], b16[2];
            v_expand(sv[c], s16[0], s16[1]);
            v_expand(bv[c], b16[0], b16[1]);
            for (int h = 0; h < 2; ++h) {
                blur[c][h] = v_reinterpret_as_s16(b16[h]);
                diff[c][h] = v_reinterpret_as_s16(s16[h]) - blur[c][h];
            }
        }
        v_int16 inside[2], onBound[2];
        for (int h = 0; h < 2; ++h) {
            v_int16 bg[2];
            v_zip(diff[0][h], diff[1][h], bg[0], bg[1]);
            v_int32 r[2];
            v_mul_expand(diff[2][h], red, r[0], r[1]);
            v_int32 in[2], on[2];
            for (int q = 0; q < 2; ++q) {
                const v_int32 sum = v_reinterpret_as_s32(v_abs(v_dotprod(bg[q], blueGreen) + r[q]));
                in[q] = (sum >= lowSum) & (sum <= highSum);
                on[q] = (sum == lowSum) | (sum == highSum);
            }
            inside[h] = v_pack(in[0], in[1]);
            onBound[h] = v_pack(on[0], on[1]);
        }
        v_uint8 mask = v_reinterpret_as_u8(v_pack(inside[0], inside[1]));
        const v_uint8 bound = v_reinterpret_as_u8(v_pack(onBound[0], onBound[1]));
        if (v_check_any(bound)) {
            // On a bound the double-precision sums may fall either side of it: ask the rule.
            uint8_t m[v_uint8::nlanes];
            v_store(m, mask);
            for (unsigned bits = unsigned(v_signmask(bound)); bits != 0; bits &= bits - 1) {
                const int k = __builtin_ctz(bits);
                m[k] = sharpenInside(s + 4 * (x + k), d + 4 * (x + k), rule) ? 0xFF : 0;
            }
            mask = vx_load(m);
        }
        v_uint8 out[4];
        for (int c = 0; c < 3; ++c) {
            v_int16 r[2];
            for (int h = 0; h < 2; ++h) {
                v_int32 lo, hi;
                v_expand(diff[c][h], lo, hi);
                r[h] = v_pack((lo * factor + bias) >> rule.shift, (hi * factor + bias) >> rule.shift) + blur[c][h]; // saturating
            }
            out[c] = v_select(mask, v_pack_u(r[0], r[1]), sv[c]);
        }
        out[3] = v_select(mask, bv[3], sv[3]);
        v_store_interleave(d + 4 * x, out[0], out[1], out[2], out[3]);
    }
#endif
    for (; x < w; ++x)
        sharpenPixel(s + 4 * x, d + 4 * x, rule);
}

} // namespace

} // namespace VEXA_SIMD_NAME
} // namespace VEXA::simd
