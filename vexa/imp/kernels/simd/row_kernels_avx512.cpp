// Built with -mavx512f -mavx512bw -mavx512vbmi: BGR to gray, where one two-source byte permutation gathers
// what takes the AVX2 build eight shuffles, blends and lane moves, and the exact multiples of 1000 come out
// as a mask register. The sums and the quotient are the AVX2 build's, lane for lane (see row_kernels.inl);
// every other kernel is the AVX2 build's own.
#include <immintrin.h>

#include <vexa/imp/kernels/simd/row_kernels.h>

namespace VEXA::simd {
namespace {

using std::uint8_t;

// Byte indices into 128 bytes of BGR for 32 pixels from byte first - 0 or - 2: (B, G) pairs, or R in even bytes.
__m512i pairIndices(int first)
{
    alignas(64) uint8_t index[64];
    for (int i = 0; i < 32; ++i) {
        index[2 * i] = uint8_t(3 * i + first);
        index[2 * i + 1] = uint8_t(3 * i + first + 1);
    }
    return _mm512_load_si512(index);
}

// floor(S / 1000) of 32 pixels, from their (B, G) pairs and R in 16-bit lanes; exact marks the lanes at a
// multiple of 1000.
struct GrayConstants {
    __m512i c73_14 = _mm512_set1_epi16(73 << 8 | 14), c3_2 = _mm512_set1_epi16(3 << 8 | 2);
    __m512i c37 = _mm512_set1_epi16(37), c3 = _mm512_set1_epi16(3), c7 = _mm512_set1_epi16(7);
    __m512i c125 = _mm512_set1_epi16(125), reciprocal = _mm512_set1_epi16(short(33555));
};

inline __m512i grayQuotients32(const __m512i& bg, const __m512i& r, const GrayConstants& c, __mmask32& exact)
{
    const __m512i u = _mm512_add_epi16(_mm512_maddubs_epi16(bg, c.c73_14), _mm512_mullo_epi16(r, c.c37));
    const __m512i rest = _mm512_add_epi16(_mm512_maddubs_epi16(bg, c.c3_2), _mm512_mullo_epi16(r, c.c3));
    const __m512i t = _mm512_add_epi16(u, _mm512_srli_epi16(rest, 3));
    const __m512i q = _mm512_srli_epi16(_mm512_mulhi_epu16(t, c.reciprocal), 6);
    exact = _mm512_testn_epi16_mask(rest, c.c7) & _mm512_cmpeq_epi16_mask(t, _mm512_mullo_epi16(q, c.c125));
    return q;
}

void bgrToGray(const uint8_t* s, uint8_t* d, int w)
{
    const uint8_t* correction = grayCorrection();
    const GrayConstants c;
    // Pixels 0..31 from bytes 0..127 (a, b), pixels 32..63 from bytes 64..191 (b, c), 32 bytes further on.
    const __m512i bgFirst = pairIndices(0), rFirst = pairIndices(2), bgSecond = pairIndices(32), rSecond = pairIndices(34);
    const __m512i inOrder = _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7); // undoes packus's interleaving by lane
    const __mmask64 evenBytes = 0x5555555555555555ull;
    int x = 0;
    for (; x <= w - 64; x += 64) {
        const uint8_t* p = s + 3 * x;
        const __m512i a = _mm512_loadu_si512(p), b = _mm512_loadu_si512(p + 64), e = _mm512_loadu_si512(p + 128);
        __mmask32 exact[2];
        const __m512i q0 = grayQuotients32(_mm512_permutex2var_epi8(a, bgFirst, b),
                                           _mm512_maskz_permutex2var_epi8(evenBytes, a, rFirst, b), c, exact[0]);
        const __m512i q1 = grayQuotients32(_mm512_permutex2var_epi8(b, bgSecond, e),
                                           _mm512_maskz_permutex2var_epi8(evenBytes, b, rSecond, e), c, exact[1]);
        _mm512_storeu_si512(d + x, _mm512_maskz_permutexvar_epi64(0xFF, inOrder, _mm512_packus_epi16(q0, q1)));
        for (std::uint64_t bits = std::uint64_t(exact[1]) << 32 | exact[0]; bits != 0; bits &= bits - 1) {
            const int k = x + __builtin_ctzll(bits);
            d[k] = uint8_t(d[k] - correction[s[3 * k + 1] << 8 | s[3 * k]]);
        }
    }
    if (x < w)
        avx2Kernels.bgrToGray(s + 3 * x, d + x, w - x);
}

} // namespace

// Built on first use, from AVX2's set whatever order the libraries' statics are set up in.
const RowKernels& avx512Kernels()
{
    static const RowKernels kernels = [] {
        RowKernels k = avx2Kernels;
        k.name = "avx512";
        k.bgrToGray = bgrToGray;
        return k;
    }();
    return kernels;
}

} // namespace VEXA::simd
