// Array kernels of the hot loops: range statistics, wrapping sums of squares and products, a
// value search, and one stage of split-format radix-2 butterflies. Each has a four-lane version
// for any processor and, on x86-64, an eight-lane AVX2 version picked at run time when the CPU
// has it. The integer kernels use order-free wrapping arithmetic; the butterfly keeps each
// element's operations and their order, and AVX2 without fused multiply-add rounds exactly as
// SSE does, so every version gives the same bits.
#pragma once

#include <cstdint>

namespace rtm {
namespace kernels {

struct RangeStats {
    int32_t mx;
    int32_t mn;
    uint32_t sum;      // wrapping sum
    uint32_t squares;  // wrapping sum of squares
};

// Largest, smallest, wrapping sum and wrapping sum of squares of a[0, n); n >= 1.
RangeStats rangeStats(const int32_t* a, int n);
// Wrapping sum of (a[i] - offset)^2 over [0, n).
uint32_t sumSquares(const int32_t* a, int n, int32_t offset);
// Wrapping sum of a[i] * b[i] over [0, n).
uint32_t dot(const int32_t* a, const uint32_t* b, int n);
// True when a[0, n) holds v.
bool contains(const int32_t* a, int n, int32_t v);
// First i in [from, stop) where a[i] is a turning point, a[i] > a[i-1] && a[i] >= a[i+1] or
// a[i] < a[i-1] && a[i] <= a[i+1]; stop when none. Reads a[from - 1 .. stop].
int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop);
// Trailing means of the steady part of a moving average: for i in [from, n) (from >= w - 1,
// w >= 1),
// sum = the wrapping sum of a[i - w + 1 .. i] and out[i] = sum / w truncated toward zero.
void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out);
// How many j in [from, last] have a crossing of `level`: (a[j] - level) * (a[j+1] - level) < 0,
// or that product 0 and (a[j] - level) * (a[j+2] - level) < 0, in wrapping 32-bit products.
// Reads a[from .. last + 2].
int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level);
// A sorted window of at most kSortedValues values, ascending, followed by INT32_MAX up to
// kSortedSlots entries. Replaces one occurrence of `leaving` (which must be present) by
// `entering` and keeps the order and the padding.
constexpr int kSortedValues = 56;
constexpr int kSortedSlots = 64;
void replaceSorted(int32_t* sorted, int32_t leaving, int32_t entering);
// One step of a sliding window kept with a sorted copy: `window` holds the previous n values of
// `ring` (8 <= n <= kSortedValues) and `sorted` the same values as above. When ring differs from
// window at most in slot `slot`, takes that slot's new value into both and returns true;
// otherwise returns false, and the caller must rebuild both from the ring.
bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot);
// One stage (half size h >= 4, a multiple of 4 dividing n / 2) of butterflies on split parts:
// for each block and offset k, t = w[k] * x[k + h]; x[k + h] = x[k] - t; x[k] = x[k] + t.
void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim);

// The versions themselves, for the test that holds them to each other.
bool haveAvx2();
#define RTM_KERNEL_VERSION_DECLARATIONS                                                       \
    void trailingMeans(const int32_t* a, int from, int n, int w, int32_t* out);               \
    int countCrossings(const int32_t* a, int64_t from, int64_t last, int32_t level);          \
    void replaceSorted(int32_t* sorted, int32_t leaving, int32_t entering);                   \
    bool slideWindow(int32_t* window, int32_t* sorted, const int32_t* ring, int n, int slot); \
    int64_t nextTurn(const int32_t* a, int64_t from, int64_t stop);                           \
    RangeStats rangeStats(const int32_t* a, int n);                                           \
    uint32_t sumSquares(const int32_t* a, int n, int32_t offset);                             \
    uint32_t dot(const int32_t* a, const uint32_t* b, int n);                                 \
    bool contains(const int32_t* a, int n, int32_t v);                                        \
    void butterflyStage(float* re, float* im, int n, int h, const float* wre, const float* wim);
namespace portable {
RTM_KERNEL_VERSION_DECLARATIONS
}  // namespace portable
namespace avx2 {
RTM_KERNEL_VERSION_DECLARATIONS
}  // namespace avx2
#undef RTM_KERNEL_VERSION_DECLARATIONS

}  // namespace kernels
}  // namespace rtm
