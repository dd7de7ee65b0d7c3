// Frame pipeline: one frame of one device through its four analysers in the fixed order
// posture, movement, breath, heart. Each stage reads only its part of the frame and writes only
// its part of the output record. The per-stage wrappers resolve the device afresh for hosts that
// call a single stage.
#include <ctime>

#include "registry/device_record.h"
#include "rtmonitor/GeneralRealTime.h"

namespace {
constexpr int kAxisSamplesPerFrame = 25;
constexpr int kHeartSamplesPerFrame = 200;
}  // namespace

bool GeneralTimeTime::processSignal(ParamsIn frame, ParamsOut* out) {
    // One lookup serves every stage: nothing between the stages can change the registry.
    const int index = GetDataStructIndex(frame.nDeviceId);
    if (index == -1) return false;
    rtm::analyseFrame(*m_vecUserData[static_cast<std::size_t>(index)], frame, out);

    // Read and discarded: kept so the per-frame call sequence stays as hosts have profiled it.
    (void)std::time(nullptr);
    (void)std::clock();
    return true;
}

namespace rtm {

void analyseFrame(UserDataStruct& record, ParamsIn& frame, ParamsOut* out) {
    const int id = record.nDeviceId;

    out->nPosture = 0;
    out->nPosture = record.cPosture.getPosture(frame.nAccX, frame.nAccY, frame.nAccZ, kAxisSamplesPerFrame);

    movementStage(record.cPedometerPro, frame.nAccX, frame.nAccY, frame.nAccZ, out->nMovement, kAxisSamplesPerFrame);

    // Channel 0 goes first although it lies after channel 1 in the frame.
    record.cBreathPro.ProcessingBreath(id, frame.nBreathChan0, frame.nBreathChan1, BREATH_SAMPLE_RATE,
                                       out->nBreathDisplay0, out->nBreathDisplay1, &out->nBreathRate,
                                       &out->nBreathState);

    out->nHeartRate = 0;
    record.cBeatMeasure.ProcessingHeart(id, frame.nFrameSeq, frame.nHeartMode, frame.nHeartData, kHeartSamplesPerFrame,
                                        out->nHeartWave, &out->nHeartRate, &out->nHeartReserved, &out->nHeartStatus);
}

}  // namespace rtm

int GeneralTimeTime::GetPostureDet(int id, int, int* x, int* y, int* z, int n) {
    const int index = GetDataStructIndex(id);
    if (index == -1 || n <= 0) return 0;
    return m_vecUserData[static_cast<std::size_t>(index)]->cPosture.getPosture(x, y, z, n);
}

bool GeneralTimeTime::ProcessingBreath(int id, int* chan0, int* chan1, int n, int* display0, int* display1, int* rate,
                                       int* state) {
    const int index = GetDataStructIndex(id);
    if (index == -1) return false;
    m_vecUserData[static_cast<std::size_t>(index)]->cBreathPro.ProcessingBreath(id, chan0, chan1, n, display0, display1,
                                                                                rate, state);
    return true;
}

bool GeneralTimeTime::ProcessingHeart(int id, int seq, int mode, int* samples, int n, int* wave, int* rate,
                                      int* reserved, int* status) {
    const int index = GetDataStructIndex(id);
    if (index == -1) return false;
    m_vecUserData[static_cast<std::size_t>(index)]->cBeatMeasure.ProcessingHeart(id, seq, mode, samples, n, wave, rate,
                                                                                 reserved, status);
    return true;
}
