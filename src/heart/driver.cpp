// Heart driver: one packet of 200 ECG counts (one second at 200 samples/s) per call. Runs the
// stages of driver_stages.h in order: judge the packet's amplitude, condition it into the
// detection rings, set the signal-quality flag (1 good, 0 noisy), restart after a flat packet,
// then detect beats and turn the beat history into a heart rate in beats per minute (0, or
// 30..300). Also returns the display waveform (offset 512).
#include <cmath>
#include <cstdint>

#include "common/exact_math.h"
#include "heart/driver_stages.h"
#include "heart/ring.h"
#include "rtmonitor/CBeatMeasure.h"

namespace {

using rtm::heart::kPacketSamples;

constexpr int kMaxPacketSamples = 3950;
constexpr int kEnergyRelearnPackets = 10;  // the energy threshold is relearnt every 10 packets
constexpr int kMaxEnergyCrossings = 9;

// Quality: each beat crosses the half energy threshold twice; more crossings mean noise.
int qualityFlag(const CBeatMeasure& m, int energyCrossings) {
    if (m.nLastHeartRate <= 0 || m.nEnergyThreshold[0] <= 0) return 1;
    const int64_t perSecond = static_cast<int64_t>(std::floor(m.nLastHeartRate / 60.0));
    return (energyCrossings <= 2 * perSecond + 1 && energyCrossings <= kMaxEnergyCrossings) ? 1 : 0;
}

// A flat packet means the electrodes are off or the input is stuck: the analysis starts
// afresh. True when detection runs on this packet.
bool analysisRuns(CBeatMeasure& m, int amplitude) {
    if (amplitude == 0) {
        // Init returns the mode to 1 at once; the two-packet hold below runs only when a host
        // has set mode 2 itself.
        m.nFlatCount = 1;
        m.nAnalysisMode = 2;
        m.Init(m.stReinitSetting);
    }
    if (amplitude > 0 && m.nAnalysisMode == 1) return true;
    if (m.nAnalysisMode == 2) {
        m.nFlatCount = rtm::wrapAdd32(m.nFlatCount, 1);
        if (m.nFlatCount >= 3) {
            m.nFlatCount = 0;
            m.nAnalysisMode = 1;
        }
    }
    return false;
}

}  // namespace

void CBeatMeasure::ProcessingHeart(int nChannel, int nPacketNo, int nMode, int* pSamples, int nDefaultRate,
                                   int* pWaveOut, int* pHeartRate, int* pReserved, int* pQuality) {
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

int CBeatMeasure::GetHeartRate(int nChannel, int, int* pSamples, int nCount, int* pWaveOut, int* pQuality) {
    nCallCount = rtm::wrapAdd32(nCallCount, 1);
    if (nCount < 1 || nCount > kMaxPacketSamples || pSamples == nullptr) return 0;

    // Beat typing lowers this limit while it works; every packet starts from the full limit.
    nArtifactLimit = 24000;
    const int amplitude = GetWavePeak(pSamples, kPacketSamples);
    rtm::heart::judgePacket(*this, amplitude);

    const int energyCrossings = rtm::heart::conditionPacket(*this, nChannel, pSamples, nCount, pWaveOut);
    nEnergyLearnCount = rtm::wrapAdd32(nEnergyLearnCount, 1);
    if (nEnergyLearnCount >= kEnergyRelearnPackets) {
        nEnergyLearnCount = 0;
        GetEnergyHeightInitValue(10);
    }
    if (pQuality != nullptr) *pQuality = qualityFlag(*this, energyCrossings);

    if (!analysisRuns(*this, amplitude)) return 0;
    return rtm::heart::rateFromBeats(*this, rtm::heart::detectBeats(*this, nCount));
}
