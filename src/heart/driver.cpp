// Heart driver: one packet of 200 ECG counts (one second at 200 samples/s) per call. Conditions
// the packet into the detection rings, judges disturbed packets, keeps the detection thresholds
// learnt second by second, runs the main-peak search and turns the beat history into a heart
// rate in beats per minute (0, or 30..300). Also returns the display waveform (offset 512) and a
// signal-quality flag (1 good, 0 noisy).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "common/exact_math.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

using rtm::heart::ringAt;
using rtm::heart::slotAt;
using rtm::heart::wrapModulo;

namespace {

constexpr int kMaxPacketSamples = 3950;
constexpr int kPacketSamples = 200;      // samples per packet the driver is built around
constexpr int kOverRangeCounts = 950;    // packet peak-to-peak above this is over range
constexpr int kDisplayOffset = 512;      // the display waveform sits on this offset
constexpr int kStartupCalls = 60;        // the first minute of packets
constexpr int kLearnSpanSamples = 600;   // start-up thresholds: maxima of the last 3 s
constexpr int kLargePacketsAccepted = 6; // this many large packets in a row become the new normal
constexpr int kMinCountedRR = 40;        // RR intervals below 40 samples (200 ms) are not counted

bool inRange(int v, int lo, int hi) { return v >= lo && v <= hi; }

int clampRate(int r) {
    if (r > 0) r = std::min(300, std::max(30, r));
    return r;
}

// Ascending sort of at most 20 ints (for ints any correct sort gives the same order as the
// exchange sort hosts know).
void sortAscending(int* v, int n) {
    for (int i = 1; i < n; ++i) {
        const int x = v[i];
        int j = i - 1;
        while (j >= 0 && v[j] > x) {
            v[j + 1] = v[j];
            --j;
        }
        v[j + 1] = x;
    }
}

// Threshold learning at each whole second of the detection pass.
void learnThresholdsOnSecond(CBeatMeasure& m) {
    const int lead = 0;
    const bool settlingShort = inRange(m.nSettleCount, 1, 5);
    const bool settlingLong = inRange(m.nSettleCount, 1, 7);
    bool early = false;
    if (m.nThresholdReady == 0) {
        if (m.nSecondsCount < 2) {
            // too little signal yet
        } else if (m.nCallCount <= kStartupCalls) {
            if (!settlingShort) {
                // Start-up: plain maxima of the last 3 s, so detection begins at once.
                const int from = ringAt(m.nRingPos, -(kLearnSpanSamples - 1));
                const int to = ringAt(m.nRingPos, 1);
                int where = 0;
                m.nRPeakThreshold[lead] =
                    m.lngFindLocalMaxLocation(m.nConvexRing[lead], from, to, CBeatMeasure::kRingLength, where);
                m.nRHeightThreshold[lead] =
                    m.lngFindLocalMaxLocation(m.nAbsRing[lead], from, to, CBeatMeasure::kRingLength, where);
                m.nThresholdReady = 1;
            }
            early = true;
        } else if (m.nSecondsCount >= 5 && !settlingLong) {
            m.GetRPeakHeightInitValue(5);
            if (m.GetRHeightInitValue(5)) m.nThresholdReady = 1;
        }
    } else if (m.nCallCount <= kStartupCalls) {
        early = true;
    }

    if (early && !settlingLong && m.nSecondsCount > 4) {
        m.GetRPeakHeightInitValue(5);
        if (m.GetRHeightInitValue(5)) m.nThresholdReady = 1;
    }

    if (m.nSecondsCount % 10 == 0 && (m.nSettleCount == 0 || m.nSettleCount > 13)) {
        m.GetRPeakHeightInitValue(10);
        m.GetRHeightInitValue(10);
    }
    if (m.nSecondsCount > 3999) m.nSecondsCount = 0;
}

// The packet's heart rate from the beat history, the start-up median and the held rate.
int rateFromBeats(CBeatMeasure& m, bool newBeat) {
    if (m.nLargeWaveFlag != 0) return clampRate(m.nLastHeartRate);

    enum class Next { Established, NoBeat, Median };
    Next next;
    int r = 0;
    if (newBeat) {
        r = m.CountMeanHR();
        if (r >= 1) {
            m.nRateValid = 1;
            m.nNoNewBeatCount = 0;
            return clampRate(r);
        }
        m.nNoNewBeatCount = 0;
        if (m.nCallCount > kStartupCalls || m.nRateValid == 1) {
            next = Next::Established;
        } else {
            // Start-up with too few intervals for the mean: the newest interval alone.
            const int rr = m.stBeatRing[slotAt(m.nBeatRingPos, -1)].nRRInterval;
            r = inRange(rr, 40, 400) ? static_cast<int>(std::floor(12000.0 / rr + 0.5)) : 0;
            next = Next::Median;
        }
    } else if (m.nBeatRingStarted != 0) {
        m.nNoNewBeatCount = rtm::wrapAdd32(m.nNoNewBeatCount, 1);
        if (m.nNoNewBeatCount > 5) {
            m.GetRPeakHeightInitValue(5);
            if (m.GetRHeightInitValue(5)) m.nThresholdReady = 1;
            std::fill(m.nPeakPosRing, m.nPeakPosRing + 5, 0);
            m.nPeakPosRingPos = 0;
        }
        if (m.nNoNewBeatCount > 9) {
            m.nNoNewBeatCount = 0;
            m.Init_NOBeat(m.stReinitSetting);
            next = Next::NoBeat;
        } else {
            r = m.CountMeanHR();
            next = Next::Established;
        }
    } else {
        next = Next::NoBeat;
    }

    const bool established = m.nRateValid != 0 || m.nCallCount > kStartupCalls;
    if (next == Next::Established) {
        if (established) return clampRate(r == 0 ? m.nLastHeartRate : r);
        next = Next::Median;
    } else if (next == Next::NoBeat) {
        if (established) return clampRate(m.nLastHeartRate);
        r = 0;
        next = Next::Median;
    }

    // Start-up median of the last five rates: any of the middle three at 0 gives 0.
    const int hslot = wrapModulo(m.nRateHistoryPos, 5);
    m.nRateHistory[hslot] = r;
    m.nRateHistoryPos = hslot == 4 ? 0 : hslot + 1;
    int sorted[5];
    std::copy(m.nRateHistory, m.nRateHistory + 5, sorted);
    sortAscending(sorted, 5);
    if (sorted[2] == 0 || sorted[3] == 0 || sorted[1] == 0) {
        r = 0;
    } else {
        r = rtm::wrapAdd32(rtm::wrapAdd32(sorted[1], sorted[2]), sorted[3]) / 3;
    }
    return clampRate(r);
}

}  // namespace

void CBeatMeasure::ProcessingHeart(int nChannel, int nPacketNo, int nMode, int* pSamples,
                                   int nDefaultRate, int* pWaveOut, int* pHeartRate,
                                   int* pReserved, int* pQuality) {
    int rate = 0;
    if (nMode == 1) {
        EcgAnalysisInit(nChannel);
        if (pQuality != nullptr) *pQuality = 0;
    } else if (nMode == 0) {
        const int64_t step = static_cast<int64_t>(nPacketNo) - static_cast<int64_t>(nLastPacketNo);
        if (step != 1 && step != -1 && nPacketNo != 0) {
            // A gap in the numbering: restart the input conditioning, still analyse the packet,
            // but report the rate from before the gap (read after the packet step, which may
            // itself have reset it).
            HeartProInit();
            GetHeartRate(nChannel, nPacketNo, pSamples, kPacketSamples, pWaveOut, pQuality);
            rate = nLastHeartRate;
        } else {
            rate = GetHeartRate(nChannel, nPacketNo, pSamples, kPacketSamples, pWaveOut, pQuality);
            nLastHeartRate = rate;
        }
    } else {
        rate = nDefaultRate;
    }
    if (pHeartRate != nullptr) *pHeartRate = rate;
    if (pReserved != nullptr) *pReserved = 0;
    nLastPacketNo = nPacketNo;
}

int CBeatMeasure::GetHeartRate(int nChannel, int, int* pSamples, int nCount, int* pWaveOut,
                               int* pQuality) {
    nCallCount = rtm::wrapAdd32(nCallCount, 1);
    if (nCount < 1 || nCount > kMaxPacketSamples || pSamples == nullptr) return 0;

    // Beat typing lowers this limit while it works; every packet starts from the full limit.
    nArtifactLimit = 24000;
    const int amplitude = GetWavePeak(pSamples, kPacketSamples);

    // Typical amplitude: mean of the positive values among the 3rd..8th smallest of the last ten.
    int typical = 0;
    {
        int sorted[10];
        std::copy(nWavePeakRing, nWavePeakRing + 10, sorted);
        sortAscending(sorted, 10);
        int sum = 0;
        int n = 0;
        for (int k = 2; k <= 7; ++k) {
            if (sorted[k] > 0) {
                sum = rtm::wrapAdd32(sum, sorted[k]);
                ++n;
            }
        }
        if (n >= 5) typical = sum / n;
    }

    auto restartSearch = [this]() {
        nSecondsCount = 0;
        nThresholdReady = 0;
        std::fill(nPeakPosRing, nPeakPosRing + 5, 0);
        nPeakPosRingPos = 0;
    };

    bool hold = false;
    if (amplitude > kOverRangeCounts) {
        nLargeWaveCount = 0;
        nOverRangeFlag = 1;
        restartSearch();
        nSettleCount = 2;
        hold = true;
    } else {
        const int slot = wrapModulo(nWavePeakRingPos, 10);
        nWavePeakRing[slot] = amplitude;
        nWavePeakRingPos = slot == 9 ? 0 : slot + 1;
        if (typical == 0 || static_cast<double>(typical) * 2.2 > static_cast<double>(amplitude)) {
            nLargeWaveCount = 0;
            nLargeWaveFlag = 0;
            if (inRange(nSettleCount, 1, 19)) {
                ++nSettleCount;
                if (nSettleCount == 16) nSettleCount = 0;
            }
            hold = nOverRangeFlag == 1;
        } else {
            nLargeWaveFlag = 1;
            nOverRangeFlag = 1;
            nSettleCount = 1;
            restartSearch();
            nLargeWaveCount = rtm::wrapAdd32(nLargeWaveCount, 1);
            if (nLargeWaveCount >= kLargePacketsAccepted) {
                // The larger amplitude has lasted long enough to be the new normal.
                nNoNewBeatCount = 0;
                std::fill(nWavePeakRing, nWavePeakRing + 10, 0);
                nThresholdReady = 1;
                nOverRangeFlag = 0;
                nSettleCount = 0;
                nLargeWaveFlag = 0;
            } else {
                nSettleCount = 2;
                hold = true;
            }
        }
    }
    if (hold) {
        nLargeWaveFlag = 1;
        nNoNewBeatCount = 0;
        nHoldCount = rtm::wrapAdd32(nHoldCount, 1);
        if (nHoldCount > 5) {
            nThresholdReady = 1;
            nHoldCount = 0;
            nOverRangeFlag = 0;
        }
    }

    // First pass: conditioning, detection rings, energy and the threshold crossings.
    const int lead = 0;
    int* filtered = nFilteredRing[lead];
    int* absolute = nAbsRing[lead];
    int* convex = nConvexRing[lead];
    int energyCrossings = 0;
    int heightCrossings = 0;  // counted for parity with the convex test; nothing reads them yet
    int convexPeaks = 0;
    for (int i = 0; i < nCount; ++i) {
        nRingPos = (nRingPos >= kRingLength - 1 || nRingPos < -1) ? 0 : nRingPos + 1;
        const int pos = nRingPos;

        int display = 0;
        Processingheartdata(nChannel, pSamples[i], &display);
        if (pWaveOut != nullptr) pWaveOut[i] = display;

        const int low = LowFilterHeart(rtm::wrapSub32(display, kDisplayOffset));
        const int s = rtm::floatToIntX86(static_cast<double>(static_cast<float>(low)) * 1000.0 /
                                         static_cast<double>(fSignalGain));
        filtered[pos] = s;
        absolute[pos] = rtm::wrapAbs32(s);
        Convexpointoperator(lead);

        // Short-time energy of the convex value just completed (three samples behind).
        const int wslot = wrapModulo(nEnergyWindowPos, 10);
        nEnergyWindow[wslot] = convex[ringAt(pos, -3)];
        nEnergyWindowPos = wslot == 9 ? 0 : wslot + 1;
        uint32_t acc = 0;
        for (int k = 0; k < 10; ++k) {
            const uint32_t e = static_cast<uint32_t>(nEnergyWindow[k]);
            acc += (e * e) / 10000u;
        }
        const int eslot = ringAt(nEnergyRingPos);
        nEnergyRing[eslot] = static_cast<int>(acc / 10u);
        nEnergyRingPos = eslot == kRingLength - 1 ? 0 : eslot + 1;

        const int energyThr = nEnergyThreshold[lead];
        if (energyThr > 0) {
            const double half = 0.5 * static_cast<double>(energyThr);
            const double last = static_cast<double>(nEnergyRing[eslot]) - half;
            const double before = static_cast<double>(nEnergyRing[ringAt(eslot, -1)]) - half;
            if (last * before < 0.0) ++energyCrossings;
        }
        const int heightThr = nRHeightThreshold[lead];
        if (heightThr > 0) {
            const double level = 0.6 * static_cast<double>(heightThr);
            const double now = static_cast<double>(absolute[pos]) - level;
            const double before = static_cast<double>(absolute[ringAt(pos, -1)]) - level;
            if (now * before <= 0.0) ++heightCrossings;
        }
        const int peakThr = nRPeakThreshold[lead];
        if (peakThr > 0) {
            // The index pos - 3 is not wrapped: for pos 0..2 the value read is the tail of the
            // absolute ring, which sits directly before the convex ring. Existing detections
            // depend on that value, so it is reproduced here without the out-of-range read.
            const int value = pos >= 3 ? convex[pos - 3] : absolute[kRingLength + pos - 3];
            if (value > rtm::wrapMul32(5, peakThr)) ++convexPeaks;
        }
    }
    (void)heightCrossings;
    (void)convexPeaks;

    nEnergyLearnCount = rtm::wrapAdd32(nEnergyLearnCount, 1);
    if (nEnergyLearnCount > 9) {
        nEnergyLearnCount = 0;
        GetEnergyHeightInitValue(10);
    }

    // Quality: each beat crosses the half energy threshold twice; more crossings mean noise.
    int quality = 1;
    if (nLastHeartRate > 0 && nEnergyThreshold[lead] > 0) {
        const int64_t perSecond = static_cast<int64_t>(std::floor(nLastHeartRate / 60.0));
        quality = (energyCrossings <= 2 * perSecond + 1 && energyCrossings <= 9) ? 1 : 0;
    }
    if (pQuality != nullptr) *pQuality = quality;

    // Flat packet: the electrodes are off or the input is stuck; start the analysis afresh.
    if (amplitude == 0) {
        nFlatCount = 1;
        nAnalysisMode = 2;
        Init(stReinitSetting);
    }
    if (amplitude <= 0 || nAnalysisMode != 1) {
        if (nAnalysisMode == 2) {
            nFlatCount = rtm::wrapAdd32(nFlatCount, 1);
            if (nFlatCount >= 3) {
                nFlatCount = 0;
                nAnalysisMode = 1;
            }
        }
        return 0;
    }

    // Second pass: the same positions again, now for detection.
    nPacketEndPos = ringAt(nRingPos);
    nPacketStartPos = ringAt(nRingPos, -(kPacketSamples - 1));
    const int walkStart = ringAt(nRingPos, -kPacketSamples);
    nConvexPos = ringAt(walkStart, -3);
    nRingPos = walkStart;
    bool newBeat = false;
    for (int i = 0; i < nCount; ++i) {
        nRingPos = nRingPos >= kRingLength - 1 ? 0 : nRingPos + 1;
        nSampleInSecond = rtm::wrapAdd32(nSampleInSecond, 1);
        if (nSampleInSecond >= nSampleRate) {
            nSampleInSecond = 0;
            nSecondsCount = rtm::wrapAdd32(nSecondsCount, 1);
            if (nLargeWaveFlag != 0) {
                nSecondsCount = 0;
                nThresholdReady = 0;
                continue;
            }
            learnThresholdsOnSecond(*this);
        }
        if (nThresholdReady == 1) {
            const std::vector<BeatMeasure> beats = MainPeakDiscern(lead);
            for (const BeatMeasure& beat : beats) {
                const int slot = slotAt(nBeatRingPos);
                stBeatRing[slot] = beat;
                if (nBeatRingStarted != 0) {
                    nBeatRingPos = slot == kBeatSlots - 1 ? 0 : slot + 1;
                    newBeat = true;
                } else {
                    // The first beat after a reset is overwritten by the second: a lone first
                    // detection never enters the rate history.
                    nBeatRingStarted = 1;
                }
            }
        }
    }

    return rateFromBeats(*this, newBeat);
}

int CBeatMeasure::CountMeanHR() {
    int all[kBeatSlots];
    int nAll = 0;
    for (int s = 0; s < kBeatSlots; ++s) {
        if (stBeatRing[s].nRRInterval >= kMinCountedRR) all[nAll++] = stBeatRing[s].nRRInterval;
    }
    int recent[10];
    int nRecent = 0;
    for (int k = 1; k <= 10; ++k) {
        const int rr = stBeatRing[slotAt(nBeatRingPos, -k)].nRRInterval;
        if (rr >= kMinCountedRR) recent[nRecent++] = rr;
    }
    if (nAll < 11) return nMeanHeartRate;

    const int scale = rtm::wrapMul32(60, nSampleRate);
    sortAscending(all, nAll);
    const int dropLow = nAll < 16 ? 4 : 6;
    const int kept = nAll - dropLow - 4;
    int r1 = 0;
    if (kept >= 3) {
        int sum = 0;
        for (int k = dropLow; k < dropLow + kept; ++k) sum = rtm::wrapAdd32(sum, all[k]);
        const int mean = sum / kept;
        r1 = mean > 0 ? rtm::truncDiv32(scale, mean) : 0;
    }
    if (nRecent < 8) return r1;

    // Eight or more recent intervals: their middle band overrides the long mean.
    sortAscending(recent, nRecent);
    int sum = 0;
    int n = 0;
    for (int k = 3; k <= 6; ++k) {
        if (recent[k] > 0) {
            sum = rtm::wrapAdd32(sum, recent[k]);
            ++n;
        }
    }
    if (n > 1) return rtm::truncDiv32(scale, sum / n);
    return 0;
}
