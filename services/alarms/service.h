// The alarms process on NATS JetStream: follows every result on rtm.vitals.<id> through a durable
// consumer of its own, runs each device's rules, publishes the events on rtm.alarms.<id> (stream
// RTM_ALARMS) and keeps each device's alarms in bucket rtm_alarm_state; applies the
// acknowledgements and audio pauses that stations publish on rtm.ack.<id>, and the limits of
// bucket rtm_limits, which it watches. Event message ids are derived from the results and
// commands that caused them, so two processes following the same streams publish each event once.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "formats/broker.h"
#include "rules.h"

namespace rtmalarms {

constexpr const char* kAlarmsStream = "RTM_ALARMS";
constexpr const char* kEventSubjects = "rtm.alarms.*";
constexpr const char* kCommandSubjects = "rtm.ack.*";
constexpr const char* kLimitsBucket = "rtm_limits";
constexpr const char* kStateBucket = "rtm_alarm_state";
constexpr const char* kDefaultLimitsKey = "default";

inline std::string eventSubject(int32_t device) { return "rtm.alarms." + std::to_string(device); }
inline std::string commandSubject(int32_t device) { return "rtm.ack." + std::to_string(device); }
inline std::string deviceKey(int32_t device) { return "dev." + std::to_string(device); }

struct ServiceOptions {
    std::string name = "alarms";  // names the durable consumers: keep it across restarts
    std::string by;               // "by" of the events the rules make, <name>@<host>
    double logEvery = 60.0;
    int64_t offlineAfterMs = kOfflineAfterMs;
};

// Creates the alarms stream and both buckets where absent (with a `default` limits entry).
bool setupAlarms(rtmfmt::Broker& broker, int replicas, std::string& error);

class AlarmsService {
public:
    AlarmsService(rtmfmt::Broker& broker, const ServiceOptions& options);
    ~AlarmsService();
    AlarmsService(const AlarmsService&) = delete;
    AlarmsService& operator=(const AlarmsService&) = delete;

    // Checks the streams and buckets, restores the kept alarms and opens the consumers.
    bool open(std::string& error);
    // Runs until `stop`; returns the exit status.
    int run(const std::atomic<bool>& stop);

private:
    struct Device {
        std::unique_ptr<DeviceRules> rules;
        uint64_t lastResultSeq = 0;  // stream sequence of the last result, for event ids
        bool dirty = false;          // state to write
    };

    Device& device(int32_t id);
    void handleResult(natsMsg* msg);
    void handleCommand(natsMsg* msg);
    void publish(Device& dev, const std::vector<Event>& events, const std::string& cause);
    void drainLimits();
    Limits limitsFor(int32_t id) const;
    bool writeStates();
    int64_t nowMs() const;

    rtmfmt::Broker& broker_;
    ServiceOptions opt_;
    kvStore* limits_ = nullptr;
    kvStore* state_ = nullptr;
    kvWatcher* watcher_ = nullptr;
    natsSubscription* results_ = nullptr;
    natsSubscription* commands_ = nullptr;
    std::map<int32_t, Device> devices_;
    std::unique_ptr<LimitsPatch> defaultLimits_;
    std::map<int32_t, LimitsPatch> deviceLimits_;
    uint64_t lastCommandSeq_ = 0;
    uint64_t resultsSinceLog_ = 0, eventsSinceLog_ = 0;
    bool warnedPayload_ = false;
};

}  // namespace rtmalarms
