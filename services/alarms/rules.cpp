// Alarm rules of one device (see rules.h). Each alarm has a raising condition counted over
// consecutive results and a clearing condition; between the two an alarm neither starts nor ends
// (a heart rate falling from 45 to 0 keeps hr_low, for 0 is "under 30 or no beats", not "normal").
#include "rules.h"

#include <algorithm>

namespace rtmalarms {

namespace {

struct AlarmTraits {
    const char* name;
    Priority priority;
    Kind kind;
    bool latching;
};

// Priorities: asystole and apnoea are life-threatening (high; asystole also latches so that a
// short one is not missed); limit alarms medium. Technical alarms never latch: a device that
// stopped sending is monitored by nothing at all, and a still respiration channel may be a stop of
// breathing that the library cannot tell from a lost sensor (medium); a noisy ECG is low.
constexpr AlarmTraits kTraits[kAlarmCount] = {
    {"hr_high", Priority::Medium, Kind::Physiological, false},
    {"hr_low", Priority::Medium, Kind::Physiological, false},
    {"br_high", Priority::Medium, Kind::Physiological, false},
    {"br_low", Priority::Medium, Kind::Physiological, false},
    {"apnoea", Priority::High, Kind::Physiological, false},
    {"asystole", Priority::High, Kind::Physiological, true},
    {"quality_poor", Priority::Low, Kind::Technical, false},
    {"resp_unusable", Priority::Medium, Kind::Technical, false},
    {"offline", Priority::Medium, Kind::Technical, false},
};

const AlarmTraits& traits(AlarmId id) { return kTraits[static_cast<int>(id)]; }
int idx(AlarmId id) { return static_cast<int>(id); }

std::string num(int v) { return std::to_string(v); }

}  // namespace

const char* alarmName(AlarmId id) { return traits(id).name; }

std::optional<AlarmId> alarmFromName(const std::string& name) {
    for (int i = 0; i < kAlarmCount; ++i)
        if (name == kTraits[i].name) return static_cast<AlarmId>(i);
    return std::nullopt;
}

const char* priorityName(Priority p) {
    switch (p) {
        case Priority::High: return "high";
        case Priority::Medium: return "medium";
        case Priority::Low: return "low";
    }
    return "low";
}

const char* kindName(Kind k) { return k == Kind::Physiological ? "physiological" : "technical"; }

const char* eventName(EventType e) {
    switch (e) {
        case EventType::Raised: return "raised";
        case EventType::Changed: return "changed";
        case EventType::Acknowledged: return "acknowledged";
        case EventType::Cleared: return "cleared";
        case EventType::Paused: return "paused";
    }
    return "raised";
}

Limits applyPatches(const LimitsPatch* defaults, const LimitsPatch* device) {
    Limits l;
    for (const LimitsPatch* p : {defaults, device}) {
        if (p == nullptr) continue;
        l.hrHigh = p->hrHigh.value_or(l.hrHigh);
        l.hrLow = p->hrLow.value_or(l.hrLow);
        l.brHigh = p->brHigh.value_or(l.brHigh);
        l.brLow = p->brLow.value_or(l.brLow);
        l.apnoeaS = p->apnoeaS.value_or(l.apnoeaS);
        l.qualityS = p->qualityS.value_or(l.qualityS);
        l.respUnusableS = p->respUnusableS.value_or(l.respUnusableS);
    }
    return l;
}

Alarm* DeviceRules::find(AlarmId id) {
    for (Alarm& a : alarms_)
        if (a.id == id) return &a;
    return nullptr;
}

Event DeviceRules::event(EventType type, const Alarm& a, int64_t now, const std::string& by) const {
    Event e;
    e.device = device_;
    e.type = type;
    e.alarm = a;
    e.by = by;
    e.atMs = now;
    e.pausedUntilMs = pausedUntilMs_;
    return e;
}

void DeviceRules::raise(std::vector<Event>& ev, int64_t now, AlarmId id, const std::string& text, int value,
                        int limit) {
    if (Alarm* a = find(id)) {
        // A latched alarm whose condition had ended and comes back: the same alarm, active again.
        if (!a->active) {
            a->active = true;
            a->acknowledged = false;
            a->text = text;
            a->value = value;
            a->limit = limit;
            a->atMs = now;
            a->by = by_;
            ev.push_back(event(EventType::Changed, *a, now, by_));
        }
        return;
    }
    Alarm a;
    a.id = id;
    a.priority = traits(id).priority;
    a.kind = traits(id).kind;
    a.latching = traits(id).latching;
    a.text = text;
    a.value = value;
    a.limit = limit;
    a.raisedMs = now;
    a.atMs = now;
    a.by = by_;
    alarms_.push_back(a);
    ev.push_back(event(EventType::Raised, a, now, by_));
}

void DeviceRules::clear(std::vector<Event>& ev, int64_t now, AlarmId id) {
    auto it = std::find_if(alarms_.begin(), alarms_.end(), [id](const Alarm& a) { return a.id == id; });
    if (it == alarms_.end()) return;
    Alarm a = *it;
    alarms_.erase(it);
    a.active = false;
    a.atMs = now;
    a.by = by_;
    ev.push_back(event(EventType::Cleared, a, now, by_));
}

// A latched alarm stays, inactive, until acknowledged; any other clears.
void DeviceRules::conditionEnded(std::vector<Event>& ev, int64_t now, AlarmId id) {
    Alarm* a = find(id);
    if (a == nullptr) return;
    if (!a->latching || a->acknowledged) {
        clear(ev, now, id);
        return;
    }
    if (!a->active) return;
    a->active = false;
    a->atMs = now;
    a->by = by_;
    ev.push_back(event(EventType::Changed, *a, now, by_));
}

void DeviceRules::restartWarmup(bool heart, bool breath) {
    if (heart) {
        heartWarm_ = kWarmupS;
        run_[idx(AlarmId::Asystole)] = 0;
    }
    if (breath) {
        breathWarm_ = kWarmupS;
        run_[idx(AlarmId::Apnoea)] = 0;
    }
}

void DeviceRules::restore(std::vector<Alarm> alarms, int64_t pausedUntilMs, int64_t nowMs) {
    alarms_ = std::move(alarms);
    pausedUntilMs_ = pausedUntilMs;
    // A restored device that never sends again goes offline like any other.
    lastArrivalMs_ = nowMs;
}

std::vector<Event> DeviceRules::feed(int64_t now, const Result& r, const Limits& limits) {
    std::vector<Event> ev;
    lastArrivalMs_ = now;
    // Warm-up: the device's first results here, and after a gap in its frame numbers (frames lost
    // or the device restarted), carry no rate yet; a rate of 0 with the quality flag 0 is the
    // frame that restarted the heart analysis, which then learns again.
    const bool gap = r.frameSeq && lastSeq_ && *r.frameSeq != *lastSeq_ + 1;
    if (!seen_ || gap) restartWarmup(true, true);
    else if (r.heartRate == 0 && r.heartStatus == 0) restartWarmup(true, false);
    seen_ = true;
    if (r.frameSeq) lastSeq_ = r.frameSeq;
    clear(ev, now, AlarmId::Offline);

    // A limit edited while its alarm is on: the alarm carries the new limit.
    if (!(limits == limits_)) {
        const std::pair<AlarmId, int> edited[] = {{AlarmId::HrHigh, limits.hrHigh},
                                                  {AlarmId::HrLow, limits.hrLow},
                                                  {AlarmId::BrHigh, limits.brHigh},
                                                  {AlarmId::BrLow, limits.brLow},
                                                  {AlarmId::Apnoea, limits.apnoeaS},
                                                  {AlarmId::QualityPoor, limits.qualityS},
                                                  {AlarmId::RespUnusable, limits.respUnusableS}};
        for (const auto& e : edited) {
            Alarm* a = find(e.first);
            if (a == nullptr || a->limit == e.second) continue;
            a->limit = e.second;
            a->atMs = now;
            a->by = by_;
            ev.push_back(event(EventType::Changed, *a, now, by_));
        }
        if (limits.qualityS != limits_.qualityS) {
            noisy_.clear();
            noisyPos_ = 0;
        }
        limits_ = limits;
    }

    const int hr = r.heartRate, br = r.breathRate;
    // Counts a condition and raises once it has held for `delay` results; clears on `off`.
    auto judge = [&](AlarmId id, bool on, bool off, int delay, const std::string& text, int value, int limit) {
        int& run = run_[idx(id)];
        run = on ? run + 1 : 0;
        if (on && run >= delay) raise(ev, now, id, text, value, limit);
        else if (off) conditionEnded(ev, now, id);
    };

    judge(AlarmId::HrHigh, hr > limits.hrHigh, hr <= limits.hrHigh, kLimitDelayS,
          "Heart rate " + num(hr) + "/min above limit " + num(limits.hrHigh), hr, limits.hrHigh);
    judge(AlarmId::HrLow, hr > 0 && hr < limits.hrLow, hr >= limits.hrLow, kLimitDelayS,
          "Heart rate " + num(hr) + "/min below limit " + num(limits.hrLow), hr, limits.hrLow);
    judge(AlarmId::BrHigh, br > limits.brHigh, br <= limits.brHigh, kLimitDelayS,
          "Breathing rate " + num(br) + "/min above limit " + num(limits.brHigh), br, limits.brHigh);
    judge(AlarmId::BrLow, br > 0 && br < limits.brLow, br >= limits.brLow, kLimitDelayS,
          "Breathing rate " + num(br) + "/min below limit " + num(limits.brLow), br, limits.brLow);

    // Asystole can only mean "no heart rate measured while the ECG looks clean": a rate under
    // 30/min also reads 0, and a noisy asystole reads a rate, so it is not seen at all.
    const int asyRun = run_[idx(AlarmId::Asystole)] + 1;
    judge(AlarmId::Asystole, heartWarm_ == 0 && hr == 0 && r.heartStatus == 1, hr > 0, kAsystoleDelayS,
          "No heart rate measured for " + num(asyRun) +
              " s with a clean ECG: asystole, a rate under 30/min or a flat ECG (a noisy asystole is not seen)",
          asyRun, kAsystoleDelayS);

    // Apnoea: no breathing rate although the channel varies. A still chest with a noise-free
    // channel reads "no usable signal" instead (resp_unusable), and a dead sensor reads the same
    // as a stop of breathing.
    const int apRun = run_[idx(AlarmId::Apnoea)] + 1;
    judge(AlarmId::Apnoea, breathWarm_ == 0 && br == 0 && r.breathState != 2, br > 0, limits.apnoeaS,
          "No breathing rate measured for " + num(apRun) + " s: apnoea, or breaths too shallow or irregular to count",
          apRun, limits.apnoeaS);

    // Poor ECG quality: the flag is per packet and sometimes 0 on a clean one (a beat more than the
    // rate explains), so it is judged over the last quality_s results: raised when at least half
    // were noisy, cleared when fewer than a quarter.
    const size_t window = static_cast<size_t>(std::max(1, limits.qualityS));
    if (noisy_.size() < window) noisy_.push_back(r.heartStatus == 0);
    else {
        noisy_[noisyPos_] = r.heartStatus == 0;
        noisyPos_ = (noisyPos_ + 1 == window) ? 0 : noisyPos_ + 1;
    }
    const int noisy = static_cast<int>(std::count(noisy_.begin(), noisy_.end(), 1));
    const bool full = noisy_.size() == window;
    judge(AlarmId::QualityPoor, full && 2 * noisy >= static_cast<int>(window), 4 * noisy < static_cast<int>(window), 1,
          "ECG noisy in " + num(noisy) + " of the last " + num(static_cast<int>(window)) + " s: heart rate unreliable",
          noisy, static_cast<int>(window));

    const int ruRun = run_[idx(AlarmId::RespUnusable)] + 1;
    judge(AlarmId::RespUnusable, r.breathState == 2, r.breathState != 2, limits.respUnusableS,
          "Respiration signal without variation for " + num(ruRun) + " s: breathing not monitored", ruRun,
          limits.respUnusableS);

    if (heartWarm_ > 0) --heartWarm_;
    if (breathWarm_ > 0) --breathWarm_;
    return ev;
}

std::vector<Event> DeviceRules::tick(int64_t now, int64_t offlineAfterMs) {
    std::vector<Event> ev;
    if (now - lastArrivalMs_ < offlineAfterMs || find(AlarmId::Offline) != nullptr) return ev;
    // Nothing is judged while nothing arrives: every other alarm but a latched one ends here, and
    // the device starts from warm-up when it comes back.
    std::vector<AlarmId> ending;
    for (const Alarm& a : alarms_)
        if (!a.latching) ending.push_back(a.id);
    for (AlarmId id : ending) clear(ev, now, id);
    std::fill(std::begin(run_), std::end(run_), 0);
    noisy_.clear();
    noisyPos_ = 0;
    seen_ = false;
    const int seconds = static_cast<int>((now - lastArrivalMs_) / 1000);
    raise(ev, now, AlarmId::Offline, "No results from the device for " + num(seconds) + " s", seconds,
          static_cast<int>(offlineAfterMs / 1000));
    return ev;
}

std::vector<Event> DeviceRules::acknowledge(int64_t now, AlarmId id, const std::string& who) {
    std::vector<Event> ev;
    Alarm* a = find(id);
    if (a == nullptr || a->acknowledged) return ev;
    a->acknowledged = true;
    a->atMs = now;
    a->by = who;
    ev.push_back(event(EventType::Acknowledged, *a, now, who));
    // A latched alarm whose condition has already ended was waiting only for this.
    if (!a->active) clear(ev, now, id);
    return ev;
}

std::vector<Event> DeviceRules::pause(int64_t now, int seconds, const std::string& who) {
    seconds = std::clamp(seconds, 0, kMaxPauseS);
    pausedUntilMs_ = seconds == 0 ? 0 : now + 1000LL * seconds;
    Event e;
    e.device = device_;
    e.type = EventType::Paused;
    e.pausedUntilMs = pausedUntilMs_;
    e.pauseSeconds = seconds;
    e.by = who;
    e.atMs = now;
    return {e};
}

}  // namespace rtmalarms
