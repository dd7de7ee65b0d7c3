// The alarm rules of one device: fed each analysis result (one per second of signal) with the
// limits in force, they raise, change and clear alarms and apply acknowledgements and audio
// pauses. Pure: no clock, no network; the caller passes the time (ms since 1970) of each call.
// Condition delays count results, that is seconds of signal, so a process catching up a backlog
// judges the signal as it was; only `offline` compares arrival times.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rtmalarms {

enum class AlarmId { HrHigh, HrLow, BrHigh, BrLow, Apnoea, Asystole, QualityPoor, RespUnusable, Offline };
enum class Priority { Low, Medium, High };
enum class Kind { Physiological, Technical };
enum class EventType { Raised, Changed, Acknowledged, Cleared, Paused };

constexpr int kAlarmCount = 9;

const char* alarmName(AlarmId id);  // "hr_high", ...
std::optional<AlarmId> alarmFromName(const std::string& name);
const char* priorityName(Priority p);
const char* kindName(Kind k);
const char* eventName(EventType e);

// Fixed parts of the rules (the editable ones are in Limits).
constexpr int kLimitDelayS = 5;     // HR and BR beyond a limit this long before the alarm
constexpr int kAsystoleDelayS = 4;  // rate 0 with a clean ECG this long (after ~2 s to read 0)
constexpr int kWarmupS = 15;        // first results of a device: no "nothing measured" alarms
constexpr int64_t kOfflineAfterMs = 10000;
constexpr int kMaxPauseS = 600;

// Limits in force for a device. Rates in per minute, durations in seconds.
struct Limits {
    int hrHigh = 120, hrLow = 50;
    int brHigh = 30, brLow = 8;
    int apnoeaS = 20, qualityS = 10, respUnusableS = 30;
    bool operator==(const Limits& o) const {
        return hrHigh == o.hrHigh && hrLow == o.hrLow && brHigh == o.brHigh && brLow == o.brLow &&
               apnoeaS == o.apnoeaS && qualityS == o.qualityS && respUnusableS == o.respUnusableS;
    }
};

// One entry of the limits bucket: the fields it sets. A device entry overrides the default entry
// field by field, and a field neither sets keeps the built-in value.
struct LimitsPatch {
    std::optional<int> hrHigh, hrLow, brHigh, brLow, apnoeaS, qualityS, respUnusableS;
};
Limits applyPatches(const LimitsPatch* defaults, const LimitsPatch* device);

// The fields of one result the rules read (ParamsOut words 0, 252, 253, 280) and its frame number.
struct Result {
    int32_t heartRate = 0;    // beats/min, 0 = no rate
    int32_t heartStatus = 1;  // 1 no sign of noise, 0 noisy
    int32_t breathRate = 0;   // breaths/min, 0 = none
    int32_t breathState = 0;  // 0 no judgement, 1 regular, 2 no usable signal
    std::optional<int64_t> frameSeq;
};

struct Alarm {
    AlarmId id = AlarmId::HrHigh;
    Priority priority = Priority::Medium;
    Kind kind = Kind::Physiological;
    std::string text;
    int value = 0;  // what was measured: a rate, or the seconds the condition lasted
    int limit = 0;  // the limit or delay it was measured against
    bool latching = false;
    bool active = true;  // the condition still holds (a latched alarm outlives it)
    bool acknowledged = false;
    int64_t raisedMs = 0;
    int64_t atMs = 0;  // last change
    std::string by;    // who made the last change
};

struct Event {
    int32_t device = 0;
    EventType type = EventType::Raised;
    Alarm alarm;                // the alarm after the event (unused for Paused)
    int64_t pausedUntilMs = 0;  // Paused: audio silent until then (0 = pause ended)
    int pauseSeconds = 0;
    std::string by;
    int64_t atMs = 0;
};

class DeviceRules {
public:
    DeviceRules(int32_t device, std::string by) : device_(device), by_(std::move(by)) {}

    // Alarms kept from before a restart; each clears once a result shows its condition ended,
    // except a latched one, which waits for its acknowledgement as before.
    void restore(std::vector<Alarm> alarms, int64_t pausedUntilMs, int64_t nowMs);

    std::vector<Event> feed(int64_t nowMs, const Result& r, const Limits& limits);
    // The offline check, on a timer: no result for `offlineAfterMs`.
    std::vector<Event> tick(int64_t nowMs, int64_t offlineAfterMs = kOfflineAfterMs);
    // Nothing when the device has no such alarm, or it is acknowledged already.
    std::vector<Event> acknowledge(int64_t nowMs, AlarmId id, const std::string& who);
    // Audio pause for `seconds` (0 ends a pause), 0..kMaxPauseS.
    std::vector<Event> pause(int64_t nowMs, int seconds, const std::string& who);

    int32_t device() const { return device_; }
    const std::vector<Alarm>& alarms() const { return alarms_; }
    int64_t pausedUntilMs() const { return pausedUntilMs_; }

private:
    Alarm* find(AlarmId id);
    void raise(std::vector<Event>& ev, int64_t now, AlarmId id, const std::string& text, int value, int limit);
    void clear(std::vector<Event>& ev, int64_t now, AlarmId id);
    void conditionEnded(std::vector<Event>& ev, int64_t now, AlarmId id);
    void restartWarmup(bool heart, bool breath);
    Event event(EventType type, const Alarm& a, int64_t now, const std::string& by) const;

    int32_t device_;
    std::string by_;
    std::vector<Alarm> alarms_;
    int64_t pausedUntilMs_ = 0;
    bool seen_ = false;          // a result has arrived since this process took the device
    int64_t lastArrivalMs_ = 0;  // when the last result arrived (or the device was restored)
    std::optional<int64_t> lastSeq_;
    int heartWarm_ = 0, breathWarm_ = 0;  // results of warm-up left
    int run_[kAlarmCount] = {};           // consecutive results with the condition
    std::vector<char> noisy_;             // ECG quality flags of the last results, 1 = noisy
    size_t noisyPos_ = 0;
    Limits limits_;
};

}  // namespace rtmalarms
