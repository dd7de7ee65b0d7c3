// Beat-by-beat scoring (see beat_scoring.h). Matching pairs every detected and reference beat
// closer than the window, then accepts pairs nearest first, so each beat is used once and a
// doubled detection counts as one match and one false beat.
#include "beat_scoring.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <tuple>

namespace rtmtool {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kMinIntervalMs = 200, kMaxIntervalMs = 3000;  // intervals HRV keeps

// Nearest-rank percentile of a sorted list.
double percentile(const std::vector<double>& sorted, double p) {
    if (sorted.empty()) return kNaN;
    const size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * static_cast<double>(sorted.size())));
    return sorted[std::min(sorted.size(), std::max<size_t>(rank, 1)) - 1];
}

double sampleSd(const std::vector<double>& v) {
    if (v.size() < 2) return kNaN;
    double mean = 0;
    for (double x : v) mean += x;
    mean /= static_cast<double>(v.size());
    double ss = 0;
    for (double x : v) ss += (x - mean) * (x - mean);
    return std::sqrt(ss / static_cast<double>(v.size() - 1));
}

// Root mean square of the successive differences of consecutive intervals; `consecutive[k]`
// says whether interval k directly follows interval k - 1.
double rmssd(const std::vector<double>& v, const std::vector<bool>& consecutive) {
    double ss = 0;
    size_t n = 0;
    for (size_t k = 1; k < v.size(); ++k) {
        if (!consecutive[k]) continue;
        ss += (v[k] - v[k - 1]) * (v[k] - v[k - 1]);
        ++n;
    }
    return n < 2 ? kNaN : std::sqrt(ss / static_cast<double>(n));
}

struct Series {
    std::vector<double> intervals;
    std::vector<bool> consecutive;
};

// Detected and reference intervals ending in [from, to).
void hrvWindow(const std::vector<DetectedBeat>& det, const std::vector<double>& ref, double from, double to,
               HrvWindow& w) {
    Series d, r;
    bool last = false;
    for (const DetectedBeat& b : det) {
        const bool keep = b.time >= from && b.time < to && b.rrMs >= kMinIntervalMs && b.rrMs <= kMaxIntervalMs;
        if (keep) {
            d.intervals.push_back(b.rrMs);
            d.consecutive.push_back(last);
        }
        last = keep;
    }
    last = false;
    for (size_t j = 1; j < ref.size(); ++j) {
        const double ms = (ref[j] - ref[j - 1]) * 1000.0;
        const bool keep = ref[j] >= from && ref[j] < to && ms >= kMinIntervalMs && ms <= kMaxIntervalMs;
        if (keep) {
            r.intervals.push_back(ms);
            r.consecutive.push_back(last);
        }
        last = keep;
    }
    w.start = from;
    w.detectedIntervals = d.intervals.size();
    w.referenceIntervals = r.intervals.size();
    w.sdnnDetected = sampleSd(d.intervals);
    w.sdnnReference = sampleSd(r.intervals);
    w.rmssdDetected = rmssd(d.intervals, d.consecutive);
    w.rmssdReference = rmssd(r.intervals, r.consecutive);
}

}  // namespace

BeatScore scoreBeats(const std::vector<DetectedBeat>& detectedIn, const std::vector<double>& referenceIn,
                     double seconds) {
    BeatScore s;
    s.scored = true;
    s.seconds = seconds;
    std::vector<DetectedBeat> det = detectedIn;
    std::stable_sort(det.begin(), det.end(),
                     [](const DetectedBeat& a, const DetectedBeat& b) { return a.time < b.time; });
    std::vector<double> ref;
    for (double t : referenceIn)
        if (t < seconds) ref.push_back(t);
    std::sort(ref.begin(), ref.end());
    s.detected = det.size();
    s.reference = ref.size();

    // Candidate pairs within the window, nearest first.
    std::vector<std::tuple<double, size_t, size_t>> pairs;
    size_t lo = 0;
    for (size_t i = 0; i < det.size(); ++i) {
        while (lo < ref.size() && ref[lo] < det[i].time - kBeatMatchWindow) ++lo;
        for (size_t j = lo; j < ref.size() && ref[j] <= det[i].time + kBeatMatchWindow; ++j)
            pairs.emplace_back(std::fabs(ref[j] - det[i].time), i, j);
    }
    std::sort(pairs.begin(), pairs.end());
    const size_t none = std::numeric_limits<size_t>::max();
    std::vector<size_t> refOf(det.size(), none), detOf(ref.size(), none);
    for (const auto& [distance, i, j] : pairs) {
        (void)distance;
        if (refOf[i] != none || detOf[j] != none) continue;
        refOf[i] = j;
        detOf[j] = i;
        ++s.matched;
    }
    s.missed = s.reference - s.matched;
    s.falseBeats = s.detected - s.matched;
    s.sensitivity = s.reference ? static_cast<double>(s.matched) / static_cast<double>(s.reference) : kNaN;
    s.predictivity = s.detected ? static_cast<double>(s.matched) / static_cast<double>(s.detected) : kNaN;
    const double hours = seconds / 3600.0;
    s.missedPerHour = hours > 0 ? static_cast<double>(s.missed) / hours : kNaN;
    s.falsePerHour = hours > 0 ? static_cast<double>(s.falseBeats) / hours : kNaN;

    // RR intervals and delays of the matched beats.
    double sumAbs = 0, sumSq = 0, sum = 0;
    std::vector<double> delays;
    for (size_t i = 0; i < det.size(); ++i) {
        const size_t j = refOf[i];
        if (j == none) continue;
        delays.push_back(det[i].reportedAt - ref[j]);
        if (i == 0 || j == 0 || refOf[i - 1] != j - 1) continue;
        const double err = det[i].rrMs - (ref[j] - ref[j - 1]) * 1000.0;
        sumAbs += std::fabs(err);
        sumSq += err * err;
        sum += err;
        ++s.rrPairs;
    }
    if (s.rrPairs > 0) {
        const double n = static_cast<double>(s.rrPairs);
        s.rrMeanAbsErrorMs = sumAbs / n;
        s.rrRmsErrorMs = std::sqrt(sumSq / n);
        s.rrBiasMs = sum / n;
    } else {
        s.rrMeanAbsErrorMs = s.rrRmsErrorMs = s.rrBiasMs = kNaN;
    }
    std::sort(delays.begin(), delays.end());
    s.delayMedian = percentile(delays, 50);
    s.delayP95 = percentile(delays, 95);

    // Heart-rate variability per whole 5-minute window.
    double sums[4] = {0, 0, 0, 0};
    size_t counts[2] = {0, 0};
    for (double from = 0; from + kHrvWindow <= seconds; from += kHrvWindow) {
        HrvWindow w;
        hrvWindow(det, ref, from, from + kHrvWindow, w);
        if (!std::isnan(w.sdnnDetected) && !std::isnan(w.sdnnReference)) {
            sums[0] += w.sdnnDetected;
            sums[1] += w.sdnnReference;
            ++counts[0];
        }
        if (!std::isnan(w.rmssdDetected) && !std::isnan(w.rmssdReference)) {
            sums[2] += w.rmssdDetected;
            sums[3] += w.rmssdReference;
            ++counts[1];
        }
        s.windows.push_back(w);
    }
    s.meanSdnnDetected = counts[0] ? sums[0] / static_cast<double>(counts[0]) : kNaN;
    s.meanSdnnReference = counts[0] ? sums[1] / static_cast<double>(counts[0]) : kNaN;
    s.meanRmssdDetected = counts[1] ? sums[2] / static_cast<double>(counts[1]) : kNaN;
    s.meanRmssdReference = counts[1] ? sums[3] / static_cast<double>(counts[1]) : kNaN;
    return s;
}

}  // namespace rtmtool
