// Four-lane and AVX2 versions of the array kernels, and the run-time choice between them.
#include "common/kernels.h"

#include <cstring>

#include "common/vec4.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define RTM_HAVE_AVX2_KERNELS 1
#include <immintrin.h>
#endif

namespace rtm {
namespace kernels {

namespace {
// The wrapped sum read as a signed word and divided as the hardware does (w >= 1).
inline int32_t truncDiv(uint32_t sum, int w) { return static_cast<int32_t>(sum) / w; }

// Folds a[i, n) into range statistics gathered over the elements before i.
inline RangeStats finishStats(RangeStats r, const int32_t* a, int i, int n) {
    for (; i < n; ++i) {
        const uint32_t u = static_cast<uint32_t>(a[i]);
        if (a[i] > r.mx) r.mx = a[i];
        if (a[i] < r.mn) r.mn = a[i];
        r.sum += u;
        r.squares += u * u;
    }
    return r;
}

// The sorted window with the leaving value at kOut and kIn values below the entering one: the
// values between the two places move by one and the entering value takes the freed place.
inline void slide(int32_t* s, int kOut, int kIn, int32_t leaving, int32_t entering) {
    if (entering > leaving) {
        std::memmove(s + kOut, s + kOut + 1, sizeof(int32_t) * static_cast<size_t>(kIn - kOut - 1));
        s[kIn - 1] = entering;
    } else {
        std::memmove(s + kIn + 1, s + kIn, sizeof(int32_t) * static_cast<size_t>(kOut - kIn));
        s[kIn] = entering;
    }
}
}  // namespace

namespace portable {

RangeStats rangeStats(const int32_t* a, int n) {
    int i = 0;
    RangeStats r{a[0], a[0], 0u, 0u};
    if (n >= 4) {
        i32x4 mx = load4<i32x4>(a);
        i32x4 mn = mx;
        u32x4 sum = reinterpret_cast<u32x4>(mx);
        u32x4 squares = sum * sum;
        for (i = 4; i + 4 <= n; i += 4) {
            const i32x4 v = load4<i32x4>(a + i);
            const u32x4 u = reinterpret_cast<u32x4>(v);
            mx = max4(mx, v);
            mn = min4(mn, v);
            sum += u;
            squares += u * u;
        }
        r = RangeStats{hmax4(mx), hmin4(mn), hsum4(sum), hsum4(squares)};
    }
    return finishStats(r, a, i, n);
}

uint32_t sumSquares(const int32_t* a, int n, int32_t offset) {
    int i = 0;
    u32x4 acc = splat4u(0);
    const u32x4 o = splat4u(static_cast<uint32_t>(offset));
    for (; i + 4 <= n; i += 4) {
        const u32x4 d = load4<u32x4>(a + i) - o;
        acc += d * d;
    }
    uint32_t sq = hsum4(acc);
    for (; i < n; ++i) {
        const uint32_t d = static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(offset);
        sq += d * d;
    }
    return sq;
}

uint32_t dot(const int32_t* a, const uint32_t* b, int n) {
    int i = 0;
    u32x4 acc = splat4u(0);
    for (; i + 4 <= n; i += 4) acc += load4<u32x4>(a + i) * load4<u32x4>(b + i);
    uint32_t sum = hsum4(acc);
    for (; i < n; ++i) sum += static_cast<uint32_t>(a[i]) * b[i];
    return sum;
}

bool contains(const int32_t* a, int n, int32_t v) {
    int i = 0;
    const i32x4 vv = splat4(v);
    i32x4 hit = splat4(0);
    for (; i + 4 <= n; i += 4) hit |= load4<i32x4>(a + i) == vv;
    bool found = any4(hit);
    for (; i < n; ++i) found = found || a[i] == v;
    return found;
}

namespace {
bool isTurn(const int32_t* a, int64_t i) {
    const int32_t x = a[i];
    return (x > a[i - 1] && x >= a[i + 1]) || (x < a[i - 1] && x <= a[i + 1]);
}
}  // namespace

int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop) {
    int64_t i = from;
    for (; i + 4 <= stop; i += 4) {
        const i32x4 x = load4<i32x4>(a + i);
        const i32x4 p = load4<i32x4>(a + i - 1);
        const i32x4 n = load4<i32x4>(a + i + 1);
        const i32x4 turn = ((x > p) & (x >= n)) | ((x < p) & (x <= n));
        if (any4(turn)) break;
    }
    for (; i < stop; ++i)
        if (isTurn(a, i)) return i;
    return stop;
}

namespace {
// How many of a[0, n) are below v and how many below u; n a multiple of 4.
void countBelow(const int32_t* a, int n, int32_t v, int32_t u, int* belowV, int* belowU) {
    // A true comparison lane is -1, so subtracting the masks counts.
    i32x4 cv = splat4(0);
    i32x4 cu = splat4(0);
    const i32x4 vv = splat4(v);
    const i32x4 uu = splat4(u);
    for (int i = 0; i < n; i += 4) {
        const i32x4 x = load4<i32x4>(a + i);
        cv -= x < vv;
        cu -= x < uu;
    }
    *belowV = static_cast<int>(hsum4(reinterpret_cast<u32x4>(cv)));
    *belowU = static_cast<int>(hsum4(reinterpret_cast<u32x4>(cu)));
}
}  // namespace

void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out) {
    if (from >= n) return;
    uint32_t sum = 0;
    for (int j = from - w + 1; j <= from; ++j) sum += static_cast<uint32_t>(a[j]);
    out[from] = truncDiv(sum, w);
    for (int i = from + 1; i < n; ++i) {
        sum += static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(a[i - w]);
        out[i] = truncDiv(sum, w);
    }
}

int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level) {
    int crossings = 0;
    for (int64_t j = from; j <= last; ++j) {
        const uint32_t d0 = static_cast<uint32_t>(a[j]) - static_cast<uint32_t>(level);
        const int32_t c1 = static_cast<int32_t>(d0 * (static_cast<uint32_t>(a[j + 1]) - static_cast<uint32_t>(level)));
        if (c1 < 0 || (c1 == 0 &&
                       static_cast<int32_t>(d0 * (static_cast<uint32_t>(a[j + 2]) - static_cast<uint32_t>(level))) < 0))
            ++crossings;
    }
    return crossings;
}

void replaceSorted(int32_t* s, int32_t leaving, int32_t entering) {
    if (leaving == entering) return;
    // A rank (values below) is the index of the first value not below, found by counting.
    int kOut = 0;
    int kIn = 0;
    countBelow(s, kSortedValues, leaving, entering, &kOut, &kIn);
    slide(s, kOut, kIn, leaving, entering);
}

bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot) {
    const int32_t leaving = window[slot];
    window[slot] = ring[slot];
    if (std::memcmp(window, ring, sizeof(int32_t) * static_cast<size_t>(n)) != 0) return false;
    replaceSorted(sorted, leaving, ring[slot]);
    return true;
}

void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim) {
    for (int base = 0; base < n; base += 2 * h) {
        float* ar = re + base;
        float* ai = im + base;
        float* br = ar + h;
        float* bi = ai + h;
        for (int k = 0; k < h; k += 4) {
            const f32x4 wr = load4<f32x4>(wre + k);
            const f32x4 wi = load4<f32x4>(wim + k);
            const f32x4 xr = load4<f32x4>(br + k);
            const f32x4 xi = load4<f32x4>(bi + k);
            const f32x4 tr = wr * xr - wi * xi;
            const f32x4 ti = wr * xi + wi * xr;
            const f32x4 yr = load4<f32x4>(ar + k);
            const f32x4 yi = load4<f32x4>(ai + k);
            store4(br + k, yr - tr);
            store4(bi + k, yi - ti);
            store4(ar + k, yr + tr);
            store4(ai + k, yi + ti);
        }
    }
}

}  // namespace portable

#ifdef RTM_HAVE_AVX2_KERNELS

namespace avx2 {

#define RTM_AVX2 __attribute__((target("avx2")))

namespace {
RTM_AVX2 inline int32_t hmax8(__m256i v) {
    __m128i m = _mm_max_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_max_epi32(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_max_epi32(m, _mm_shuffle_epi32(m, 0xB1));
    return _mm_cvtsi128_si32(m);
}
RTM_AVX2 inline int32_t hmin8(__m256i v) {
    __m128i m = _mm_min_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_min_epi32(m, _mm_shuffle_epi32(m, 0xB1));
    return _mm_cvtsi128_si32(m);
}
RTM_AVX2 inline uint32_t hsum8(__m256i v) {
    __m128i m = _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    m = _mm_add_epi32(m, _mm_shuffle_epi32(m, 0x4E));
    m = _mm_add_epi32(m, _mm_shuffle_epi32(m, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(m));
}
RTM_AVX2 inline __m256i load8(const int32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
RTM_AVX2 inline __m256i load8(const uint32_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
}  // namespace

RTM_AVX2 RangeStats rangeStats(const int32_t* a, int n) {
    if (n < 8) return portable::rangeStats(a, n);
    __m256i mx = load8(a);
    __m256i mn = mx;
    __m256i sum = mx;
    __m256i squares = _mm256_mullo_epi32(mx, mx);
    int i = 8;
    for (; i + 8 <= n; i += 8) {
        const __m256i v = load8(a + i);
        mx = _mm256_max_epi32(mx, v);
        mn = _mm256_min_epi32(mn, v);
        sum = _mm256_add_epi32(sum, v);
        squares = _mm256_add_epi32(squares, _mm256_mullo_epi32(v, v));
    }
    RangeStats r{hmax8(mx), hmin8(mn), hsum8(sum), hsum8(squares)};
    return finishStats(r, a, i, n);
}

RTM_AVX2 uint32_t sumSquares(const int32_t* a, int n, int32_t offset) {
    int i = 0;
    __m256i acc = _mm256_setzero_si256();
    const __m256i o = _mm256_set1_epi32(offset);
    for (; i + 8 <= n; i += 8) {
        const __m256i d = _mm256_sub_epi32(load8(a + i), o);
        acc = _mm256_add_epi32(acc, _mm256_mullo_epi32(d, d));
    }
    uint32_t sq = hsum8(acc);
    for (; i < n; ++i) {
        const uint32_t d = static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(offset);
        sq += d * d;
    }
    return sq;
}

RTM_AVX2 int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop) {
    int64_t i = from;
    for (; i + 8 <= stop; i += 8) {
        const __m256i x = load8(a + i);
        const __m256i p = load8(a + i - 1);
        const __m256i n = load8(a + i + 1);
        // x >= n is not (n > x); the peak side is (x > p) and not (n > x), the trough side
        // (p > x) and not (x > n).
        const __m256i peak = _mm256_andnot_si256(_mm256_cmpgt_epi32(n, x), _mm256_cmpgt_epi32(x, p));
        const __m256i trough = _mm256_andnot_si256(_mm256_cmpgt_epi32(x, n), _mm256_cmpgt_epi32(p, x));
        const __m256i turn = _mm256_or_si256(peak, trough);
        if (!_mm256_testz_si256(turn, turn)) break;
    }
    return portable::nextTurn(a, i, stop);
}

RTM_AVX2 void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out) {
    if (from >= n) return;
    uint32_t sum = 0;
    for (int j = from - w + 1; j <= from; ++j) sum += static_cast<uint32_t>(a[j]);
    out[from] = static_cast<int32_t>(sum) / w;
    // Eight sums at a time: the differences entering minus leaving, their running sum within
    // the block, plus the sum carried from the block before. A quotient of two ints is exact in
    // double (the rounding error stays below the 1/w gap to the next integer), so truncating
    // the double quotient gives the integer division's word.
    const __m256d width = _mm256_set1_pd(static_cast<double>(w));
    __m256i carry = _mm256_set1_epi32(static_cast<int32_t>(sum));
    int i = from + 1;
    for (; i + 8 <= n; i += 8) {
        __m256i x = _mm256_sub_epi32(load8(a + i), load8(a + i - w));
        x = _mm256_add_epi32(x, _mm256_slli_si256(x, 4));
        x = _mm256_add_epi32(x, _mm256_slli_si256(x, 8));
        // The low half's total carries into the high half.
        const __m256i lowTotal =
            _mm256_permute2x128_si256(_mm256_shuffle_epi32(x, 0xFF), _mm256_shuffle_epi32(x, 0xFF), 0x08);
        x = _mm256_add_epi32(_mm256_add_epi32(x, lowTotal), carry);
        const __m128i q0 = _mm256_cvttpd_epi32(_mm256_div_pd(_mm256_cvtepi32_pd(_mm256_castsi256_si128(x)), width));
        const __m128i q1 =
            _mm256_cvttpd_epi32(_mm256_div_pd(_mm256_cvtepi32_pd(_mm256_extracti128_si256(x, 1)), width));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), q0);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 4), q1);
        carry = _mm256_permutevar8x32_epi32(x, _mm256_set1_epi32(7));
    }
    sum = static_cast<uint32_t>(_mm256_cvtsi256_si32(carry));
    for (; i < n; ++i) {
        sum += static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(a[i - w]);
        out[i] = static_cast<int32_t>(sum) / w;
    }
}

RTM_AVX2 bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot) {
    const int32_t leaving = window[slot];
    window[slot] = ring[slot];
    // Whole blocks, the last one overlapping its predecessor so nothing past n is read.
    __m256i differ = _mm256_setzero_si256();
    for (int i = 0; i + 8 < n; i += 8)
        differ = _mm256_or_si256(differ, _mm256_xor_si256(load8(window + i), load8(ring + i)));
    differ = _mm256_or_si256(differ, _mm256_xor_si256(load8(window + n - 8), load8(ring + n - 8)));
    if (!_mm256_testz_si256(differ, differ)) return false;
    replaceSorted(sorted, leaving, ring[slot]);
    return true;
}

RTM_AVX2 int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level) {
    const __m256i lv = _mm256_set1_epi32(level);
    const __m256i zero = _mm256_setzero_si256();
    int crossings = 0;
    int64_t j = from;
    for (; j + 8 <= last + 1; j += 8) {
        const __m256i d0 = _mm256_sub_epi32(load8(a + j), lv);
        const __m256i c1 = _mm256_mullo_epi32(d0, _mm256_sub_epi32(load8(a + j + 1), lv));
        const __m256i c2 = _mm256_mullo_epi32(d0, _mm256_sub_epi32(load8(a + j + 2), lv));
        const __m256i cross = _mm256_or_si256(
            _mm256_cmpgt_epi32(zero, c1), _mm256_and_si256(_mm256_cmpeq_epi32(c1, zero), _mm256_cmpgt_epi32(zero, c2)));
        crossings += __builtin_popcount(static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(cross))));
    }
    return crossings + portable::countCrossings(a, j, last, level);
}

RTM_AVX2 void replaceSorted(int32_t* s, int32_t leaving, int32_t entering) {
    if (leaving == entering) return;
    __m256i cOut = _mm256_setzero_si256();
    __m256i cIn = _mm256_setzero_si256();
    const __m256i vOut = _mm256_set1_epi32(leaving);
    const __m256i vIn = _mm256_set1_epi32(entering);
    for (int i = 0; i < kSortedValues; i += 8) {
        const __m256i x = load8(s + i);
        cOut = _mm256_sub_epi32(cOut, _mm256_cmpgt_epi32(vOut, x));
        cIn = _mm256_sub_epi32(cIn, _mm256_cmpgt_epi32(vIn, x));
    }
    // A rank (values below) is the index of the first value not below.
    const int kOut = static_cast<int>(hsum8(cOut));
    const int kIn = static_cast<int>(hsum8(cIn));
    slide(s, kOut, kIn, leaving, entering);
}

RTM_AVX2 uint32_t dot(const int32_t* a, const uint32_t* b, int n) {
    int i = 0;
    __m256i acc = _mm256_setzero_si256();
    for (; i + 8 <= n; i += 8) acc = _mm256_add_epi32(acc, _mm256_mullo_epi32(load8(a + i), load8(b + i)));
    if (i < n) {
        // The last partial block through masked loads, which read only the lanes in range.
        const __m256i mask = _mm256_cmpgt_epi32(_mm256_set1_epi32(n - i), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
        const __m256i va = _mm256_maskload_epi32(a + i, mask);
        const __m256i vb = _mm256_maskload_epi32(reinterpret_cast<const int*>(b + i), mask);
        acc = _mm256_add_epi32(acc, _mm256_mullo_epi32(va, vb));
    }
    return hsum8(acc);
}

RTM_AVX2 bool contains(const int32_t* a, int n, int32_t v) {
    int i = 0;
    const __m256i vv = _mm256_set1_epi32(v);
    __m256i hit = _mm256_setzero_si256();
    for (; i + 8 <= n; i += 8) hit = _mm256_or_si256(hit, _mm256_cmpeq_epi32(load8(a + i), vv));
    bool found = !_mm256_testz_si256(hit, hit);
    for (; i < n; ++i) found = found || a[i] == v;
    return found;
}

RTM_AVX2 void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim) {
    if (h == 4 && n % 16 == 0) {
        // Two blocks of eight per step: their first halves side by side in one register and
        // their second halves in another, against the four factors twice.
        const __m128 w4r = _mm_loadu_ps(wre);
        const __m128 w4i = _mm_loadu_ps(wim);
        const __m256 wr = _mm256_set_m128(w4r, w4r);
        const __m256 wi = _mm256_set_m128(w4i, w4i);
        for (int base = 0; base < n; base += 16) {
            const __m256 r0 = _mm256_loadu_ps(re + base);
            const __m256 r1 = _mm256_loadu_ps(re + base + 8);
            const __m256 i0 = _mm256_loadu_ps(im + base);
            const __m256 i1 = _mm256_loadu_ps(im + base + 8);
            const __m256 yr = _mm256_permute2f128_ps(r0, r1, 0x20);
            const __m256 xr = _mm256_permute2f128_ps(r0, r1, 0x31);
            const __m256 yi = _mm256_permute2f128_ps(i0, i1, 0x20);
            const __m256 xi = _mm256_permute2f128_ps(i0, i1, 0x31);
            const __m256 tr = _mm256_sub_ps(_mm256_mul_ps(wr, xr), _mm256_mul_ps(wi, xi));
            const __m256 ti = _mm256_add_ps(_mm256_mul_ps(wr, xi), _mm256_mul_ps(wi, xr));
            const __m256 sr = _mm256_add_ps(yr, tr);
            const __m256 dr = _mm256_sub_ps(yr, tr);
            const __m256 si = _mm256_add_ps(yi, ti);
            const __m256 di = _mm256_sub_ps(yi, ti);
            _mm256_storeu_ps(re + base, _mm256_permute2f128_ps(sr, dr, 0x20));
            _mm256_storeu_ps(re + base + 8, _mm256_permute2f128_ps(sr, dr, 0x31));
            _mm256_storeu_ps(im + base, _mm256_permute2f128_ps(si, di, 0x20));
            _mm256_storeu_ps(im + base + 8, _mm256_permute2f128_ps(si, di, 0x31));
        }
        return;
    }
    if (h < 8) {
        portable::butterflyStage(re, im, n, h, wre, wim);
        return;
    }
    for (int base = 0; base < n; base += 2 * h) {
        float* ar = re + base;
        float* ai = im + base;
        float* br = ar + h;
        float* bi = ai + h;
        for (int k = 0; k < h; k += 8) {
            const __m256 wr = _mm256_loadu_ps(wre + k);
            const __m256 wi = _mm256_loadu_ps(wim + k);
            const __m256 xr = _mm256_loadu_ps(br + k);
            const __m256 xi = _mm256_loadu_ps(bi + k);
            const __m256 tr = _mm256_sub_ps(_mm256_mul_ps(wr, xr), _mm256_mul_ps(wi, xi));
            const __m256 ti = _mm256_add_ps(_mm256_mul_ps(wr, xi), _mm256_mul_ps(wi, xr));
            const __m256 yr = _mm256_loadu_ps(ar + k);
            const __m256 yi = _mm256_loadu_ps(ai + k);
            _mm256_storeu_ps(br + k, _mm256_sub_ps(yr, tr));
            _mm256_storeu_ps(bi + k, _mm256_sub_ps(yi, ti));
            _mm256_storeu_ps(ar + k, _mm256_add_ps(yr, tr));
            _mm256_storeu_ps(ai + k, _mm256_add_ps(yi, ti));
        }
    }
}

#undef RTM_AVX2

}  // namespace avx2

namespace {
bool detectAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}
// Read once at load. Should a kernel ever run before this is set, it takes the four-lane
// version, which gives the same results.
const bool kAvx2 = detectAvx2();
}  // namespace

bool haveAvx2() { return kAvx2; }

#define RTM_PICK(call) (kAvx2 ? avx2::call : portable::call)

#else

namespace avx2 {
int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop) { return portable::nextTurn(a, from, stop); }
void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out) {
    portable::trailingMeans(a, from, n, w, out);
}
int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level) {
    return portable::countCrossings(a, from, last, level);
}
void replaceSorted(int32_t* sorted, int32_t leaving, int32_t entering) {
    portable::replaceSorted(sorted, leaving, entering);
}
bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot) {
    return portable::slideWindow(window, sorted, ring, n, slot);
}
RangeStats rangeStats(const int32_t* a, int n) { return portable::rangeStats(a, n); }
uint32_t sumSquares(const int32_t* a, int n, int32_t offset) { return portable::sumSquares(a, n, offset); }
uint32_t dot(const int32_t* a, const uint32_t* b, int n) { return portable::dot(a, b, n); }
bool contains(const int32_t* a, int n, int32_t v) { return portable::contains(a, n, v); }
void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim) {
    portable::butterflyStage(re, im, n, h, wre, wim);
}
}  // namespace avx2

constexpr bool kAvx2 = false;
bool haveAvx2() { return false; }

#define RTM_PICK(call) portable::call

#endif

int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop) { return RTM_PICK(nextTurn(a, from, stop)); }
void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out) {
    RTM_PICK(trailingMeans(a, from, n, w, out));
}
int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level) {
    return RTM_PICK(countCrossings(a, from, last, level));
}
void replaceSorted(int32_t* sorted, int32_t leaving, int32_t entering) {
    RTM_PICK(replaceSorted(sorted, leaving, entering));
}
bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot) {
    return RTM_PICK(slideWindow(window, sorted, ring, n, slot));
}
RangeStats rangeStats(const int32_t* a, int n) { return RTM_PICK(rangeStats(a, n)); }
uint32_t sumSquares(const int32_t* a, int n, int32_t offset) { return RTM_PICK(sumSquares(a, n, offset)); }
uint32_t dot(const int32_t* a, const uint32_t* b, int n) { return RTM_PICK(dot(a, b, n)); }
bool contains(const int32_t* a, int n, int32_t v) { return RTM_PICK(contains(a, n, v)); }
void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim) {
    RTM_PICK(butterflyStage(re, im, n, h, wre, wim));
}

#undef RTM_PICK

}  // namespace kernels
}  // namespace rtm
