// The array kernels against plain element loops, in both the four-lane and the AVX2 version (the
// latter only where the CPU has it): lengths round the vector widths, and words at the ends of
// the int range, where wrapping and signed comparisons go wrong first.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "common/kernels.h"
#include "rtmonitor/CBreathPro.h"

namespace {

namespace k = rtm::kernels;

std::vector<int32_t> words(std::mt19937& g, int n, bool extreme) {
    std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX), small(-3, 3);
    std::vector<int32_t> v(static_cast<size_t>(n) + 2);
    for (auto& x : v) {
        x = extreme ? any(g) : small(g);
        if (extreme && g() % 5 == 0) x = (g() & 1) ? INT32_MAX : INT32_MIN;
    }
    return v;
}

struct Version {
    const char* name;
    k::RangeStats (*rangeStats)(const int32_t*, int);
    uint32_t (*sumSquares)(const int32_t*, int, int32_t);
    uint32_t (*dot)(const int32_t*, const uint32_t*, int);
    bool (*contains)(const int32_t*, int, int32_t);
    int64_t (*nextTurn)(const int32_t*, int64_t, int64_t);
    void (*replaceSorted)(int32_t*, int32_t, int32_t);
    bool (*slideWindow)(int32_t*, int32_t*, const int32_t*, int, int);
    void (*trailingMeans)(const int32_t*, int, int, int, int32_t*);
    int (*countCrossings)(const int32_t*, int64_t, int64_t, int32_t);
    void (*butterflyStage)(float*, float*, int, int, const float*, const float*);
};

std::vector<Version> versions() {
    std::vector<Version> v{{"four-lane", k::portable::rangeStats, k::portable::sumSquares, k::portable::dot,
                            k::portable::contains, k::portable::nextTurn, k::portable::replaceSorted,
                            k::portable::slideWindow, k::portable::trailingMeans, k::portable::countCrossings,
                            k::portable::butterflyStage}};
    if (k::haveAvx2())
        v.push_back({"avx2", k::avx2::rangeStats, k::avx2::sumSquares, k::avx2::dot, k::avx2::contains,
                     k::avx2::nextTurn, k::avx2::replaceSorted, k::avx2::slideWindow, k::avx2::trailingMeans,
                     k::avx2::countCrossings, k::avx2::butterflyStage});
    return v;
}

}  // namespace

TEST(Kernels, IntegerKernelsEqualTheElementLoops) {
    std::mt19937 g(9u);
    for (const Version& ver : versions()) {
        for (int n = 1; n <= 40; ++n) {
            for (bool extreme : {false, true}) {
                const auto a = words(g, n, extreme);
                const auto b = words(g, n, extreme);
                const int32_t off = a[static_cast<size_t>(n)];
                int32_t mx = a[0], mn = a[0];
                uint32_t sum = 0, sq = 0, dp = 0, squares = 0;
                for (int i = 0; i < n; ++i) {
                    mx = std::max(mx, a[i]);
                    mn = std::min(mn, a[i]);
                    sum += static_cast<uint32_t>(a[i]);
                    squares += static_cast<uint32_t>(a[i]) * static_cast<uint32_t>(a[i]);
                    const uint32_t d = static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(off);
                    sq += d * d;
                    dp += static_cast<uint32_t>(a[i]) * static_cast<uint32_t>(b[i]);
                }
                const k::RangeStats r = ver.rangeStats(a.data(), n);
                EXPECT_TRUE(r.mx == mx && r.mn == mn && r.sum == sum && r.squares == squares) << ver.name << " n " << n;
                EXPECT_EQ(ver.sumSquares(a.data(), n, off), sq) << ver.name << " n " << n;
                EXPECT_EQ(ver.dot(a.data(), reinterpret_cast<const uint32_t*>(b.data()), n), dp) << ver.name;
                EXPECT_EQ(ver.contains(a.data(), n, b[0]), std::count(a.begin(), a.begin() + n, b[0]) > 0) << ver.name;
                // Crossings of a level (0 for the small walk, so products of 0 occur), wrapping
                // products for the extreme words.
                const int32_t level = extreme ? off : 0;
                for (int from = 0; from < n; from += 3) {
                    int want = 0;
                    for (int j = from; j < n; ++j) {
                        const uint32_t d0 = static_cast<uint32_t>(a[j]) - static_cast<uint32_t>(level);
                        const auto c1 =
                            static_cast<int32_t>(d0 * (static_cast<uint32_t>(a[j + 1]) - static_cast<uint32_t>(level)));
                        const auto c2 =
                            static_cast<int32_t>(d0 * (static_cast<uint32_t>(a[j + 2]) - static_cast<uint32_t>(level)));
                        want += c1 < 0 || (c1 == 0 && c2 < 0);
                    }
                    EXPECT_EQ(ver.countCrossings(a.data(), from, n - 1, level), want) << ver.name << " n " << n;
                }
                // Turning points: every start and end of a stretch of the walk.
                for (int from = 1; from < n; ++from) {
                    int64_t want = n;
                    for (int i = from; i < n; ++i) {
                        const bool turn =
                            (a[i] > a[i - 1] && a[i] >= a[i + 1]) || (a[i] < a[i - 1] && a[i] <= a[i + 1]);
                        if (turn) {
                            want = i;
                            break;
                        }
                    }
                    ASSERT_EQ(ver.nextTurn(a.data(), from, n), want) << ver.name << " n " << n << " from " << from;
                }
            }
        }
    }
}

// Replacing one value of a sorted, padded window keeps it the sorted multiset, including
// duplicates, the window's ends and values at the ends of the int range.
TEST(Kernels, SortedWindowReplacementKeepsTheSortedValues) {
    std::mt19937 g(8u);
    for (const Version& ver : versions()) {
        for (int n : {1, 2, 9, 51, k::kSortedValues}) {
            for (bool extreme : {false, true}) {
                std::vector<int32_t> values = words(g, n, extreme);
                values.resize(static_cast<size_t>(n));
                std::vector<int32_t> sorted(k::kSortedSlots, INT32_MAX);
                auto resort = [&] {
                    auto v = values;
                    std::sort(v.begin(), v.end());
                    std::copy(v.begin(), v.end(), sorted.begin());
                };
                resort();
                for (int step = 0; step < 200; ++step) {
                    const size_t at = g() % static_cast<unsigned>(n);
                    const int32_t leaving = values[at];
                    values[at] = words(g, 1, extreme)[0];
                    ver.replaceSorted(sorted.data(), leaving, values[at]);
                    auto want = values;
                    std::sort(want.begin(), want.end());
                    want.resize(k::kSortedSlots, INT32_MAX);
                    ASSERT_EQ(sorted, want) << ver.name << " n " << n << " step " << step;
                }
            }
        }
    }
}

// A window step is taken only when the ring moved in the named slot alone; any other change
// must be refused so that the caller rebuilds.
TEST(Kernels, SlidingWindowStepsOnlyOverTheNamedSlot) {
    std::mt19937 g(10u);
    for (const Version& ver : versions()) {
        for (int n : {8, 9, 51, k::kSortedValues}) {
            std::vector<int32_t> ring = words(g, n, true);
            ring.resize(static_cast<size_t>(n));
            std::vector<int32_t> window = ring, sorted(k::kSortedSlots, INT32_MAX);
            std::copy(ring.begin(), ring.end(), sorted.begin());
            std::sort(sorted.begin(), sorted.begin() + n);
            for (int step = 0; step < 100; ++step) {
                const int slot = static_cast<int>(g() % static_cast<unsigned>(n));
                ring[slot] = words(g, 1, step % 2 == 0)[0];
                const bool elsewhere = step % 7 == 3;
                if (elsewhere) ring[(slot + 1 + g() % static_cast<unsigned>(n - 1)) % n] ^= 4;
                const bool taken = ver.slideWindow(window.data(), sorted.data(), ring.data(), n, slot);
                ASSERT_EQ(taken, !elsewhere) << ver.name << " n " << n << " step " << step;
                if (!taken) {
                    window = ring;
                    std::fill(sorted.begin(), sorted.end(), INT32_MAX);
                    std::copy(ring.begin(), ring.end(), sorted.begin());
                    std::sort(sorted.begin(), sorted.begin() + n);
                }
                auto want = ring;
                std::sort(want.begin(), want.end());
                want.resize(k::kSortedValues, INT32_MAX);
                want.resize(k::kSortedSlots, INT32_MAX);
                ASSERT_EQ(sorted, want) << ver.name << " n " << n << " step " << step;
                ASSERT_EQ(window, ring);
            }
        }
    }
}

TEST(Kernels, ButterflyStageMatchesTheElementLoopBitForBit) {
    std::mt19937 g(3u);
    std::uniform_real_distribution<float> d(-1e5f, 1e5f);
    for (const Version& ver : versions()) {
        for (int h = 4; h <= 64; h *= 2) {
            const int n = 4 * h;
            std::vector<float> re(n), im(n), wr(h), wi(h);
            for (auto* v : {&re, &im, &wr, &wi})
                for (float& x : *v) x = d(g);
            auto er = re, ei = im;
            for (int base = 0; base < n; base += 2 * h) {
                for (int j = 0; j < h; ++j) {
                    const int a = base + j, b = a + h;
                    const float tr = wr[j] * er[b] - wi[j] * ei[b], ti = wr[j] * ei[b] + wi[j] * er[b];
                    er[b] = er[a] - tr;
                    ei[b] = ei[a] - ti;
                    er[a] = er[a] + tr;
                    ei[a] = ei[a] + ti;
                }
            }
            ver.butterflyStage(re.data(), im.data(), n, h, wr.data(), wi.data());
            EXPECT_EQ(std::memcmp(re.data(), er.data(), sizeof(float) * n), 0) << ver.name << " h " << h;
            EXPECT_EQ(std::memcmp(im.data(), ei.data(), sizeof(float) * n), 0) << ver.name << " h " << h;
        }
    }
}

// The standard deviation forms the wrapped sum of squared deviations from one pass of plain
// sums; it must equal the two-pass sum of (a - mean)^2 word for word, wrapping included.
TEST(Kernels, OnePassDeviationEqualsTheTwoPassSum) {
    std::mt19937 g(6u);
    CBreathPro b;
    for (int n : {2, 3, 9, 70, 1000}) {
        for (bool extreme : {false, true}) {
            auto a = words(g, n, extreme);
            uint32_t sum = 0;
            for (int i = 0; i < n; ++i) sum += static_cast<uint32_t>(a[i]);
            const int32_t mean = static_cast<int32_t>(sum) / n;
            uint32_t sq = 0;
            for (int i = 0; i < n; ++i) {
                const uint32_t d = static_cast<uint32_t>(a[i]) - static_cast<uint32_t>(mean);
                sq += d * d;
            }
            const double root = std::sqrt(static_cast<double>(static_cast<int32_t>(sq) / (n - 1)));
            const int32_t want = (root > -2147483649.0 && root < 2147483648.0) ? static_cast<int32_t>(root) : INT32_MIN;
            EXPECT_EQ(b.Datastd(a.data(), 0, n), want) << "n " << n;
        }
    }
}

// The trailing mean divides by a fixed width through a multiply; at the ends of the int range
// the truncated quotient must still be that of the hardware division.
TEST(Kernels, TrailingMeanDividesLikeTheHardware) {
    std::mt19937 g(4u);
    CBreathPro b;
    for (int w : {1, 2, 3, 7, 10, 25, 1000, INT32_MAX}) {
        const auto a = words(g, 300, true);
        std::vector<int> out(300), want(300);
        uint32_t sum = 0;
        for (int i = 0; i < 300; ++i) {
            sum += static_cast<uint32_t>(a[i]);
            if (i >= w) sum -= static_cast<uint32_t>(a[i - w]);
            want[i] = static_cast<int32_t>(sum) / std::min(i + 1, w);
        }
        b.moving_average_smooth(const_cast<int*>(a.data()), 300, w, out.data());
        EXPECT_EQ(out, want) << "width " << w;
        if (w > 300) continue;
        for (const Version& ver : versions()) {
            std::vector<int> steady(300, 0);
            ver.trailingMeans(a.data(), w - 1, 300, w, steady.data());
            EXPECT_TRUE(std::equal(steady.begin() + (w - 1), steady.end(), want.begin() + (w - 1)))
                << ver.name << " width " << w;
        }
    }
}
