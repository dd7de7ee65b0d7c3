// Frame pipeline: one frame of one device through its four analysers in the fixed order
// posture, movement, breath, heart. Each stage resolves the device afresh, reads only its part
// of the frame and writes only its part of the output record.
#include <ctime>

#include "rtmonitor/GeneralRealTime.h"

namespace {
constexpr int kAxisSamplesPerFrame = 25;
constexpr int kBreathSamplesPerFrame = 25;
constexpr int kHeartSamplesPerFrame = 200;
}  // namespace

bool GeneralTimeTime::processSignal(ParamsIn frame, ParamsOut* out) {
    const int id = frame.nDeviceId;
    if (GetDataStructIndex(id) == -1) return false;

    out->nPosture = 0;
    out->nPosture = GetPostureDet(id, frame.nFrameSeq, frame.nAccX, frame.nAccY, frame.nAccZ,
                                  kAxisSamplesPerFrame);

    GetMovementData(id, frame.nFrameSeq, frame.nAccX, frame.nAccY, frame.nAccZ, out->nMovement,
                    kAxisSamplesPerFrame);

    // Channel 0 goes first although it lies after channel 1 in the frame.
    ProcessingBreath(id, frame.nBreathChan0, frame.nBreathChan1, kBreathSamplesPerFrame,
                     out->nBreathDisplay0, out->nBreathDisplay1, &out->nBreathRate,
                     &out->nBreathState);

    out->nHeartRate = 0;
    ProcessingHeart(id, frame.nFrameSeq, frame.nHeartMode, frame.nHeartData, kHeartSamplesPerFrame,
                    out->nHeartWave, &out->nHeartRate, &out->nHeartReserved, &out->nHeartStatus);

    // Read and discarded: kept so the per-frame call sequence stays as hosts have profiled it.
    (void)std::time(nullptr);
    (void)std::clock();
    return true;
}

int GeneralTimeTime::GetPostureDet(int id, int, int* x, int* y, int* z, int n) {
    const int index = GetDataStructIndex(id);
    if (index == -1 || n <= 0) return 0;
    return m_vecUserData[static_cast<std::size_t>(index)]->cPosture.getPosture(x, y, z, n);
}

bool GeneralTimeTime::ProcessingBreath(int id, int* chan0, int* chan1, int n, int* display0,
                                       int* display1, int* rate, int* state) {
    const int index = GetDataStructIndex(id);
    if (index == -1) return false;
    m_vecUserData[static_cast<std::size_t>(index)]->cBreathPro.ProcessingBreath(
        id, chan0, chan1, n, display0, display1, rate, state);
    return true;
}

bool GeneralTimeTime::ProcessingHeart(int id, int seq, int mode, int* samples, int n, int* wave,
                                      int* rate, int* reserved, int* status) {
    const int index = GetDataStructIndex(id);
    if (index == -1) return false;
    m_vecUserData[static_cast<std::size_t>(index)]->cBeatMeasure.ProcessingHeart(
        id, seq, mode, samples, n, wave, rate, reserved, status);
    return true;
}
