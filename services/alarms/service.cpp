// The alarms process's loop over NATS (see service.h): results in batches, then commands, limits
// and the offline timer. Events are stored by the server before the results and commands that
// caused them are acknowledged, so a restart repeats at most the last batch, under the same
// message ids; device states are written after each round (a failed write is tried again).
#include "service.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include <nlohmann/json.hpp>

#include "alarm_json.h"
#include "formats/wire.h"

namespace rtmalarms {

using rtmfmt::statusText;

namespace {

constexpr int kResultBatch = 256;
constexpr int kResultWaitMs = 100;
constexpr int kCommandBatch = 64;
constexpr int kCommandWaitMs = 5;
constexpr int64_t kTickMs = 500;
constexpr int64_t kDuplicateWindowNs = 120LL * 1000000000LL;

bool streamExists(jsCtx* js, const char* name) {
    jsStreamInfo* si = nullptr;
    const natsStatus s = js_GetStreamInfo(&si, js, name, nullptr, nullptr);
    jsStreamInfo_Destroy(si);
    return s == NATS_OK;
}

bool ensureBucket(jsCtx* js, const char* bucket, int history, int replicas, kvStore** kv, std::string& error) {
    if (js_KeyValue(kv, js, bucket) == NATS_OK) return true;
    kvConfig cfg;
    kvConfig_Init(&cfg);
    cfg.Bucket = bucket;
    cfg.History = history;
    cfg.Replicas = replicas;
    cfg.StorageType = js_FileStorage;
    const natsStatus s = js_CreateKeyValue(kv, js, &cfg);
    if (s == NATS_OK) return true;
    error = std::string("cannot create bucket ") + bucket + ": " + statusText(s);
    return false;
}

int64_t wallMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string header(natsMsg* m, const char* key) {
    const char* v = nullptr;
    return natsMsgHeader_Get(m, key, &v) == NATS_OK && v != nullptr ? v : "";
}

uint64_t streamSeq(natsMsg* m) {
    jsMsgMetaData* meta = nullptr;
    uint64_t seq = 0;
    if (natsMsg_GetMetaData(&meta, m) == NATS_OK) seq = meta->Sequence.Stream;
    jsMsgMetaData_Destroy(meta);
    return seq;
}

// A result: the worker's JSON (`--json`), or the 1124-byte record with anything after it a later
// block. A record cannot start with `{"`: that would be a heart rate of 8827.
bool decodeResult(natsMsg* m, Result& r) {
    const int len = natsMsg_GetDataLength(m);
    const char* data = natsMsg_GetData(m);
    const bool json = len >= 2 && data[0] == '{' && data[1] == '"';
    if (!json && len >= static_cast<int>(sizeof(ParamsOut))) {
        const ParamsOut out = rtmfmt::decodeResult(reinterpret_cast<const unsigned char*>(data));
        r.heartRate = out.nHeartRate;
        r.heartStatus = out.nHeartStatus;
        r.breathRate = out.nBreathRate;
        r.breathState = out.nBreathState;
    } else if (json) {
        const auto j = nlohmann::json::parse(data, data + len, nullptr, false);
        if (j.is_discarded() || !j.contains("heart_rate")) return false;
        r.heartRate = j.value("heart_rate", 0);
        r.heartStatus = j.value("heart_status", 1);
        r.breathRate = j.value("breath_rate", 0);
        r.breathState = j.value("breath_state", 0);
    } else {
        return false;
    }
    const std::string seq = header(m, rtmfmt::kHeaderFrameSeq);
    if (!seq.empty()) r.frameSeq = std::strtoll(seq.c_str(), nullptr, 10);
    return true;
}

bool openConsumer(jsCtx* js, const char* stream, const char* filter, const std::string& durable, natsSubscription** sub,
                  std::string& error) {
    jsConsumerConfig cc;
    jsConsumerConfig_Init(&cc);
    cc.Durable = durable.c_str();
    cc.FilterSubject = filter;
    cc.AckPolicy = js_AckAll;
    // From new messages when first created; afterwards from where this name left off.
    cc.DeliverPolicy = js_DeliverNew;
    cc.AckWait = 30LL * 1000000000LL;
    cc.MaxAckPending = 100000;
    jsConsumerInfo* ci = nullptr;
    natsStatus s = js_GetConsumerInfo(&ci, js, stream, durable.c_str(), nullptr, nullptr);
    if (s != NATS_OK) s = js_AddConsumer(&ci, js, stream, &cc, nullptr, nullptr);
    jsConsumerInfo_Destroy(ci);
    if (s != NATS_OK) {
        error = "cannot create consumer " + durable + " on " + stream + ": " + statusText(s);
        return false;
    }
    jsSubOptions so;
    jsSubOptions_Init(&so);
    so.Stream = stream;
    so.Consumer = durable.c_str();
    so.ManualAck = true;
    s = js_PullSubscribe(sub, js, filter, durable.c_str(), nullptr, &so, nullptr);
    if (s != NATS_OK) {
        error = "cannot follow consumer " + durable + ": " + statusText(s);
        *sub = nullptr;
        return false;
    }
    return true;
}

}  // namespace

bool setupAlarms(rtmfmt::Broker& broker, int replicas, std::string& error) {
    jsCtx* js = broker.js();
    if (!streamExists(js, kAlarmsStream)) {
        jsStreamConfig cfg;
        jsStreamConfig_Init(&cfg);
        const char* subjects[] = {kEventSubjects, kCommandSubjects};
        cfg.Name = kAlarmsStream;
        cfg.Subjects = subjects;
        cfg.SubjectsLen = 2;
        cfg.Storage = js_FileStorage;
        cfg.Replicas = replicas;
        cfg.Duplicates = kDuplicateWindowNs;
        jsStreamInfo* si = nullptr;
        const natsStatus s = js_AddStream(&si, js, &cfg, nullptr, nullptr);
        jsStreamInfo_Destroy(si);
        if (s != NATS_OK) {
            error = std::string("cannot create stream ") + kAlarmsStream + ": " + statusText(s);
            return false;
        }
    }
    kvStore* limits = nullptr;
    kvStore* state = nullptr;
    // The limits keep some history, so a station can show who changed what.
    bool ok = ensureBucket(js, kLimitsBucket, 16, replicas, &limits, error) &&
              ensureBucket(js, kStateBucket, 1, replicas, &state, error);
    if (ok) {
        uint64_t rev = 0;
        const std::string defaults = limitsJson(Limits{}, "rtmonitor-alarms --setup", wallMs());
        const natsStatus s = kvStore_CreateString(&rev, limits, kDefaultLimitsKey, defaults.c_str());
        kvEntry* e = nullptr;
        if (s != NATS_OK && kvStore_Get(&e, limits, kDefaultLimitsKey) != NATS_OK) {
            error = std::string("cannot write the default limits: ") + statusText(s);
            ok = false;
        }
        kvEntry_Destroy(e);
    }
    kvStore_Destroy(limits);
    kvStore_Destroy(state);
    return ok;
}

AlarmsService::AlarmsService(rtmfmt::Broker& broker, const ServiceOptions& options) : broker_(broker), opt_(options) {}

AlarmsService::~AlarmsService() {
    natsSubscription_Destroy(results_);
    natsSubscription_Destroy(commands_);
    kvWatcher_Destroy(watcher_);
    kvStore_Destroy(limits_);
    kvStore_Destroy(state_);
}

int64_t AlarmsService::nowMs() const { return wallMs(); }

bool AlarmsService::open(std::string& error) {
    jsCtx* js = broker_.js();
    if (!streamExists(js, rtmfmt::kResultsStream)) {
        error = std::string("no stream ") + rtmfmt::kResultsStream +
                "; run `rtmonitor-serve --setup` against this server first";
        return false;
    }
    const std::string fix = "; run `rtmonitor-alarms --setup` against this server first";
    if (!streamExists(js, kAlarmsStream)) {
        error = std::string("no stream ") + kAlarmsStream + fix;
        return false;
    }
    if (js_KeyValue(&limits_, js, kLimitsBucket) != NATS_OK) {
        error = std::string("no bucket ") + kLimitsBucket + fix;
        return false;
    }
    if (js_KeyValue(&state_, js, kStateBucket) != NATS_OK) {
        error = std::string("no bucket ") + kStateBucket + fix;
        return false;
    }

    // Limits first, so the first results are judged against them.
    natsStatus s = kvStore_WatchAll(&watcher_, limits_, nullptr);
    if (s != NATS_OK) {
        error = std::string("cannot watch bucket ") + kLimitsBucket + ": " + statusText(s);
        return false;
    }
    drainLimits();

    // The alarms kept by the last run (or by another process): a latched one stays latched.
    kvKeysList keys{nullptr, 0};
    s = kvStore_Keys(&keys, state_, nullptr);
    if (s != NATS_OK && s != NATS_NOT_FOUND) {
        error = std::string("cannot list bucket ") + kStateBucket + ": " + statusText(s);
        return false;
    }
    const int64_t now = nowMs();
    int restored = 0;
    for (int i = 0; i < keys.Count; ++i) {
        int32_t id = 0;
        kvEntry* e = nullptr;
        if (!rtmfmt::deviceFromSubject(keys.Keys[i], id) || kvStore_Get(&e, state_, keys.Keys[i]) != NATS_OK) continue;
        std::vector<Alarm> alarms;
        int64_t paused = 0;
        std::string why;
        const std::string text(static_cast<const char*>(kvEntry_Value(e)), static_cast<size_t>(kvEntry_ValueLen(e)));
        kvEntry_Destroy(e);
        if (!parseState(text, alarms, paused, why)) {
            std::fprintf(stderr, "rtmonitor-alarms %s: ignoring state %s: %s\n", opt_.name.c_str(), keys.Keys[i],
                         why.c_str());
            continue;
        }
        if (alarms.empty() && paused <= now) continue;
        device(id).rules->restore(std::move(alarms), paused, now);
        ++restored;
    }
    kvKeysList_Destroy(&keys);

    if (!openConsumer(js, rtmfmt::kResultsStream, rtmfmt::kResultsSubjects, opt_.name, &results_, error)) return false;
    if (!openConsumer(js, kAlarmsStream, kCommandSubjects, opt_.name + "-commands", &commands_, error)) return false;
    std::printf("rtmonitor-alarms %s: following %s, %d device%s with kept alarms\n", opt_.name.c_str(),
                rtmfmt::kResultsStream, restored, restored == 1 ? "" : "s");
    std::fflush(stdout);
    return true;
}

AlarmsService::Device& AlarmsService::device(int32_t id) {
    Device& d = devices_[id];
    if (!d.rules) d.rules = std::make_unique<DeviceRules>(id, opt_.by);
    return d;
}

Limits AlarmsService::limitsFor(int32_t id) const {
    const auto it = deviceLimits_.find(id);
    return applyPatches(defaultLimits_.get(), it == deviceLimits_.end() ? nullptr : &it->second);
}

void AlarmsService::drainLimits() {
    for (;;) {
        kvEntry* e = nullptr;
        if (kvWatcher_Next(&e, watcher_, 1) != NATS_OK) return;
        if (e == nullptr) continue;  // end of the initial values
        const std::string key = kvEntry_Key(e);
        const bool gone = kvEntry_Operation(e) != kvOp_Put;
        const std::string text(static_cast<const char*>(kvEntry_Value(e)), static_cast<size_t>(kvEntry_ValueLen(e)));
        kvEntry_Destroy(e);
        int32_t id = 0;
        const bool isDefault = key == kDefaultLimitsKey;
        if (!isDefault && (key.rfind("dev.", 0) != 0 || !rtmfmt::deviceFromSubject(key.c_str(), id))) continue;
        if (gone) {
            if (isDefault) defaultLimits_.reset();
            else deviceLimits_.erase(id);
            continue;
        }
        LimitsPatch p;
        std::string why;
        if (!parseLimits(text, p, why)) {
            // Refused whole: the limits in force stay as they were.
            std::fprintf(stderr, "rtmonitor-alarms %s: ignoring limits %s: %s\n", opt_.name.c_str(), key.c_str(),
                         why.c_str());
            continue;
        }
        if (isDefault) defaultLimits_ = std::make_unique<LimitsPatch>(p);
        else deviceLimits_[id] = p;
    }
}

void AlarmsService::publish(Device& dev, const std::vector<Event>& events, const std::string& cause) {
    for (size_t i = 0; i < events.size(); ++i) {
        const Event& e = events[i];
        const std::string body = eventJson(e);
        broker_.publish(eventSubject(e.device), body.data(), static_cast<int>(body.size()),
                        std::to_string(e.device) + "." + cause + "." + std::to_string(i));
        if (e.type == EventType::Paused)
            std::printf("rtmonitor-alarms %s: device %d audio paused for %d s by %s\n", opt_.name.c_str(), e.device,
                        e.pauseSeconds, e.by.c_str());
        else
            std::printf("rtmonitor-alarms %s: device %d %s %s (%s): %s\n", opt_.name.c_str(), e.device,
                        alarmName(e.alarm.id), eventName(e.type), priorityName(e.alarm.priority), e.alarm.text.c_str());
        dev.dirty = true;
        ++eventsSinceLog_;
    }
}

void AlarmsService::handleResult(natsMsg* msg) {
    int32_t id = 0;
    Result r;
    if (!rtmfmt::deviceFromSubject(natsMsg_GetSubject(msg), id)) return;
    if (!decodeResult(msg, r)) {
        if (!warnedPayload_)
            std::fprintf(stderr,
                         "rtmonitor-alarms %s: skipping results that are neither the 1124-byte record nor JSON\n",
                         opt_.name.c_str());
        warnedPayload_ = true;
        return;
    }
    Device& dev = device(id);
    // A redelivery (the server did not see an acknowledgement) must not count a second twice.
    const uint64_t seq = streamSeq(msg);
    if (seq != 0 && seq <= dev.lastResultSeq) return;
    dev.lastResultSeq = seq;
    ++resultsSinceLog_;
    publish(dev, dev.rules->feed(nowMs(), r, limitsFor(id)), "r" + std::to_string(dev.lastResultSeq));
}

void AlarmsService::handleCommand(natsMsg* msg) {
    int32_t id = 0;
    if (!rtmfmt::deviceFromSubject(natsMsg_GetSubject(msg), id)) return;
    const std::string text(natsMsg_GetData(msg), static_cast<size_t>(natsMsg_GetDataLength(msg)));
    Command c;
    std::string why;
    if (!parseCommand(text, c, why)) {
        std::fprintf(stderr, "rtmonitor-alarms %s: ignoring command for device %d: %s\n", opt_.name.c_str(), id,
                     why.c_str());
        return;
    }
    // A command for a device never seen would make it a device that then goes offline.
    const auto it = devices_.find(id);
    if (it == devices_.end()) {
        std::fprintf(stderr, "rtmonitor-alarms %s: ignoring command for device %d, which has sent no results\n",
                     opt_.name.c_str(), id);
        return;
    }
    Device& dev = it->second;
    const uint64_t seq = streamSeq(msg);
    if (seq != 0 && seq <= lastCommandSeq_) return;
    lastCommandSeq_ = seq;
    const int64_t now = nowMs();
    const std::vector<Event> ev = c.action == Command::Action::Ack ? dev.rules->acknowledge(now, c.alarm, c.by)
                                                                   : dev.rules->pause(now, c.seconds, c.by);
    publish(dev, ev, "c" + std::to_string(seq));
}

bool AlarmsService::writeStates() {
    for (auto& [id, dev] : devices_) {
        if (!dev.dirty) continue;
        uint64_t rev = 0;
        const std::string text = stateJson(id, dev.rules->alarms(), dev.rules->pausedUntilMs());
        const natsStatus s = kvStore_PutString(&rev, state_, deviceKey(id).c_str(), text.c_str());
        if (s != NATS_OK) {
            // The server is away or refusing: the rest waits for the next round (or the next run).
            std::fprintf(stderr, "rtmonitor-alarms %s: cannot write the state of device %d: %s\n", opt_.name.c_str(),
                         id, statusText(s).c_str());
            return false;
        }
        dev.dirty = false;
    }
    return true;
}

int AlarmsService::run(const std::atomic<bool>& stop) {
    using Clock = std::chrono::steady_clock;
    auto lastLog = Clock::now();
    int64_t nextTick = nowMs() + kTickMs;
    while (!stop.load()) {
        natsMsgList results{nullptr, 0}, commands{nullptr, 0};
        const natsStatus rs = natsSubscription_Fetch(&results, results_, kResultBatch, kResultWaitMs, nullptr);
        for (int i = 0; i < results.Count; ++i) handleResult(results.Msgs[i]);
        const natsStatus cs = natsSubscription_Fetch(&commands, commands_, kCommandBatch, kCommandWaitMs, nullptr);
        for (int i = 0; i < commands.Count; ++i) handleCommand(commands.Msgs[i]);
        drainLimits();
        const int64_t now = nowMs();
        if (now >= nextTick) {
            nextTick = now + kTickMs;
            for (auto& [id, dev] : devices_)
                publish(dev, dev.rules->tick(now, opt_.offlineAfterMs), "t" + std::to_string(dev.lastResultSeq));
        }
        // Events stored before what caused them is acknowledged; a state not written stays due and
        // is tried again next round.
        const bool stored = broker_.flush(&stop);
        writeStates();
        if (stored) {
            if (results.Count > 0) natsMsg_Ack(results.Msgs[results.Count - 1], nullptr);
            if (commands.Count > 0) natsMsg_Ack(commands.Msgs[commands.Count - 1], nullptr);
        }
        natsMsgList_Destroy(&results);
        natsMsgList_Destroy(&commands);
        if (rs != NATS_OK && rs != NATS_TIMEOUT && cs != NATS_OK && cs != NATS_TIMEOUT) {
            // The server is away: the client reconnects by itself; do not spin meanwhile.
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        const double since = std::chrono::duration<double>(Clock::now() - lastLog).count();
        if (since >= opt_.logEvery) {
            size_t active = 0;
            for (const auto& d : devices_) active += d.second.rules->alarms().size();
            std::printf("rtmonitor-alarms %s: %zu devices, %.1f results/s, %zu alarms on, %llu events\n",
                        opt_.name.c_str(), devices_.size(), static_cast<double>(resultsSinceLog_) / since, active,
                        static_cast<unsigned long long>(eventsSinceLog_));
            resultsSinceLog_ = eventsSinceLog_ = 0;
            lastLog = Clock::now();
        }
        std::fflush(stdout);
    }
    // What was not confirmed is not acknowledged either: a restart repeats it under the same ids.
    writeStates();
    std::printf("rtmonitor-alarms %s: stopped\n", opt_.name.c_str());
    return 0;
}

}  // namespace rtmalarms
