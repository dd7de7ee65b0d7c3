#include "worker.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "formats/frame_file.h"
#include "formats/wire.h"

namespace rtmserve {

namespace {

int64_t unixMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

int64_t unixNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// A lease or membership value: "<owner> <expiry in ms since 1970>".
bool parseLease(const kvEntry* e, std::string& owner, int64_t& expiry) {
    const std::string v(static_cast<const char*>(kvEntry_Value(const_cast<kvEntry*>(e))),
                        static_cast<size_t>(kvEntry_ValueLen(const_cast<kvEntry*>(e))));
    const size_t sp = v.rfind(' ');
    if (sp == std::string::npos) return false;
    owner = v.substr(0, sp);
    expiry = std::strtoll(v.c_str() + sp + 1, nullptr, 10);
    return true;
}

// Another writer got there first: the key's revision is not the one we hold.
bool revisionConflict(natsStatus s) {
    if (s == NATS_OK) return false;
    const char* last = nats_GetLastError(nullptr);
    return last != nullptr && std::strstr(last, "wrong last sequence") != nullptr;
}

double percentile(std::vector<double>& v, double q) {
    if (v.empty()) return 0;
    const size_t k = std::min(v.size() - 1, static_cast<size_t>(q * static_cast<double>(v.size())));
    std::nth_element(v.begin(), v.begin() + static_cast<long>(k), v.end());
    return v[k];
}

}  // namespace

Worker::Worker(Broker& broker, const WorkerOptions& options, int partitions)
    : broker_(broker), opt_(options), partitions_(partitions) {
    snapBuf_.resize(kSnapshotHeaderBytes + rtm_device_state_size());
}

Worker::~Worker() {
    while (!owned_.empty()) drop(owned_.begin()->first, "");
}

std::string Worker::leaseValue() const {
    return opt_.name + " " + std::to_string(unixMs() + static_cast<int64_t>(opt_.leaseTtl * 1000));
}

int Worker::run(const std::atomic<bool>& stop) {
    stop_ = &stop;
    const auto every = [](double s) { return std::chrono::microseconds(static_cast<int64_t>(s * 1e6)); };
    auto now = Clock::now();
    auto nextLease = now, nextLog = now + every(opt_.logEvery);
    auto lastLog = now;
    std::printf("rtmonitor-serve %s: started, %d partitions in the stream\n", opt_.name.c_str(), partitions_);
    std::fflush(stdout);
    while (!stop.load()) {
        now = Clock::now();
        if (now >= nextLease) {
            maintainLeases();
            nextLease = Clock::now() + every(opt_.leaseTtl / 3);
        }
        std::vector<int> mine;
        for (const auto& kv : owned_) mine.push_back(kv.first);
        for (int p : mine) {
            if (Clock::now() > owned_[p].validUntil) {
                drop(p, "lease not renewed in time");
                continue;
            }
            poll(owned_[p]);
        }
        // Each partition has its own phase in the period, so the snapshot writes (75 kB per device)
        // come in small pieces instead of stalling every partition at once.
        now = Clock::now();
        mine.clear();
        for (const auto& kv : owned_)
            if (now >= kv.second.nextSnapshot) mine.push_back(kv.first);
        for (int p : mine) {
            owned_[p].nextSnapshot += every(opt_.snapshotEvery);
            if (owned_[p].nextSnapshot < now) owned_[p].nextSnapshot = now + every(opt_.snapshotEvery);
            if (snapshotRound(owned_[p]) == Outcome::Lost) drop(p, "its snapshots were written by another worker");
        }
        if (now >= nextLog) {
            logProgress(std::chrono::duration<double>(now - lastLog).count());
            lastLog = now;
            nextLog = now + every(opt_.logEvery);
        }
        if (owned_.empty()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    // Final snapshots, then the leases go, so a survivor takes over without waiting for them to lapse.
    std::vector<int> mine;
    for (const auto& kv : owned_) mine.push_back(kv.first);
    for (int p : mine)
        if (!release(p))
            std::fprintf(stderr,
                         "rtmonitor-serve %s: partition %d not released (server unreachable?); its lease lapses "
                         "after %.1f s and its frames since the last snapshot are analysed again by the next owner\n",
                         opt_.name.c_str(), p, opt_.leaseTtl);
    kvStore_Delete(broker_.leases(), memberKey(opt_.name).c_str());
    std::printf("rtmonitor-serve %s: stopped\n", opt_.name.c_str());
    std::fflush(stdout);
    return 0;
}

int Worker::liveWorkers() {
    kvKeysList keys;
    if (kvStore_Keys(&keys, broker_.leases(), nullptr) != NATS_OK) return 1;
    int live = 0;
    const int64_t now = unixMs();
    for (int i = 0; i < keys.Count; ++i) {
        if (std::strncmp(keys.Keys[i], "worker.", 7) != 0) continue;
        kvEntry* e = nullptr;
        if (kvStore_Get(&e, broker_.leases(), keys.Keys[i]) != NATS_OK) continue;
        std::string owner;
        int64_t expiry = 0;
        if (parseLease(e, owner, expiry) && expiry > now) ++live;
        kvEntry_Destroy(e);
    }
    kvKeysList_Destroy(&keys);
    return std::max(live, 1);
}

void Worker::maintainLeases() {
    kvStore* kv = broker_.leases();
    uint64_t rev = 0;
    if (kvStore_PutString(&rev, kv, memberKey(opt_.name).c_str(), leaseValue().c_str()) != NATS_OK) return;
    std::vector<int> mine;
    for (const auto& e : owned_) mine.push_back(e.first);
    for (int p : mine) {
        Partition& part = owned_[p];
        const auto renewedAt = Clock::now();
        const natsStatus s = kvStore_UpdateString(&rev, kv, leaseKey(p).c_str(), leaseValue().c_str(), part.leaseRev);
        if (s == NATS_OK) {
            part.leaseRev = rev;
            // A margin under the lease's own life, so we stop before anyone may start.
            part.validUntil = renewedAt + std::chrono::microseconds(static_cast<int64_t>(opt_.leaseTtl * 0.75e6));
        } else if (revisionConflict(s)) {
            drop(p, "its lease was taken");
        }
    }
    const int live = liveWorkers();
    const int target = (partitions_ + live - 1) / live;
    // Start the search at a place of our own, so workers starting together spread out.
    const int start = static_cast<int>(std::hash<std::string>{}(opt_.name) % static_cast<size_t>(partitions_));
    for (int i = 0; i < partitions_ && static_cast<int>(owned_.size()) < target && !stop_->load(); ++i) {
        const int p = (start + i) % partitions_;
        if (!owned_.count(p)) tryAcquire(p);
    }
    while (static_cast<int>(owned_.size()) > target && !stop_->load()) {
        if (!release(owned_.rbegin()->first)) break;
    }
}

bool Worker::tryAcquire(int p) {
    kvStore* kv = broker_.leases();
    const std::string key = leaseKey(p);
    kvEntry* e = nullptr;
    uint64_t rev = 0;
    const auto at = Clock::now();
    natsStatus s = kvStore_Get(&e, kv, key.c_str());
    if (s == NATS_NOT_FOUND) {
        s = kvStore_CreateString(&rev, kv, key.c_str(), leaseValue().c_str());
    } else if (s == NATS_OK) {
        std::string owner;
        int64_t expiry = 0;
        const bool free = !parseLease(e, owner, expiry) || expiry <= unixMs() || owner == opt_.name;
        const uint64_t last = kvEntry_Revision(e);
        kvEntry_Destroy(e);
        if (!free) return false;
        s = kvStore_UpdateString(&rev, kv, key.c_str(), leaseValue().c_str(), last);
    }
    if (s != NATS_OK) return false;

    // Whatever the consumer handed out beyond its acknowledged floor may be half analysed by the
    // previous owner; start it again from the floor so frames come in stream order.
    uint64_t floor = 0;
    jsConsumerInfo* ci = nullptr;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    if (js_GetConsumerInfo(&ci, broker_.js(), kFramesStream, consumerName(p).c_str(), nullptr, &jerr) == NATS_OK) {
        floor = ci->AckFloor.Stream;
        if (ci->Config->OptStartSeq > 0) floor = std::max(floor, ci->Config->OptStartSeq - 1);
        jsConsumerInfo_Destroy(ci);
    } else if (jerr != JSConsumerNotFoundErr) {
        kvStore_Delete(kv, key.c_str());
        return false;
    }
    Partition& part = owned_[p];
    part.index = p;
    part.leaseRev = rev;
    part.validUntil = at + std::chrono::microseconds(static_cast<int64_t>(opt_.leaseTtl * 0.75e6));
    part.ackedSeq = floor;
    const double phase = std::fmod((p + 1) * 0.6180339887498949, 1.0);
    part.nextSnapshot = at + std::chrono::microseconds(static_cast<int64_t>(opt_.snapshotEvery * phase * 1e6));
    if (!openConsumer(part, floor + 1)) {
        owned_.erase(p);
        kvStore_Delete(kv, key.c_str());
        return false;
    }
    std::printf("rtmonitor-serve %s: took partition %d from stream sequence %" PRIu64 "\n", opt_.name.c_str(), p,
                floor + 1);
    std::fflush(stdout);
    return true;
}

bool Worker::openConsumer(Partition& part, uint64_t startSeq) {
    const std::string durable = consumerName(part.index);
    const std::string filter = partitionSubject(part.index);
    js_DeleteConsumer(broker_.js(), kFramesStream, durable.c_str(), nullptr, nullptr);
    jsConsumerConfig cc;
    jsConsumerConfig_Init(&cc);
    cc.Durable = durable.c_str();
    cc.FilterSubject = filter.c_str();
    cc.AckPolicy = js_AckAll;
    cc.DeliverPolicy = startSeq > 1 ? js_DeliverByStartSequence : js_DeliverAll;
    cc.OptStartSeq = startSeq > 1 ? startSeq : 0;
    // Frames stay unacknowledged for a whole snapshot period; only a lost delivery should come back.
    cc.AckWait = static_cast<int64_t>(std::max(30.0, 3 * opt_.snapshotEvery) * 1e9);
    cc.MaxAckPending = 1000000;
    cc.MaxDeliver = -1;
    jsConsumerInfo* ci = nullptr;
    natsStatus s = js_AddConsumer(&ci, broker_.js(), kFramesStream, &cc, nullptr, nullptr);
    jsConsumerInfo_Destroy(ci);
    if (s != NATS_OK) {
        std::fprintf(stderr, "rtmonitor-serve %s: cannot create consumer %s: %s\n", opt_.name.c_str(), durable.c_str(),
                     statusText(s).c_str());
        return false;
    }
    jsSubOptions so;
    jsSubOptions_Init(&so);
    so.Stream = kFramesStream;
    so.Consumer = durable.c_str();
    so.ManualAck = true;
    s = js_PullSubscribe(&part.sub, broker_.js(), filter.c_str(), durable.c_str(), nullptr, &so, nullptr);
    if (s != NATS_OK) {
        std::fprintf(stderr, "rtmonitor-serve %s: cannot subscribe to %s: %s\n", opt_.name.c_str(), durable.c_str(),
                     statusText(s).c_str());
        part.sub = nullptr;
        return false;
    }
    part.lastDseq = 0;
    return true;
}

void Worker::closeConsumer(Partition& part) {
    if (part.sub != nullptr) {
        natsSubscription_Unsubscribe(part.sub);
        natsSubscription_Destroy(part.sub);
        part.sub = nullptr;
    }
    natsMsg_Destroy(part.lastMsg);
    part.lastMsg = nullptr;
}

void Worker::drop(int p, const std::string& why) {
    auto it = owned_.find(p);
    if (it == owned_.end()) return;
    closeConsumer(it->second);
    for (auto& d : it->second.devices) rtm_device_destroy(d.second.handle);
    owned_.erase(it);
    if (!why.empty()) {
        std::printf("rtmonitor-serve %s: gave up partition %d: %s\n", opt_.name.c_str(), p, why.c_str());
        std::fflush(stdout);
    }
}

bool Worker::release(int p) {
    Partition& part = owned_[p];
    const Outcome o = snapshotRound(part);
    if (o != Outcome::Ok || part.lastMsg != nullptr) {
        if (o == Outcome::Lost) drop(p, "its snapshots were written by another worker");
        return false;
    }
    kvStore_Delete(broker_.leases(), leaseKey(p).c_str());
    drop(p, "");
    std::printf("rtmonitor-serve %s: released partition %d\n", opt_.name.c_str(), p);
    std::fflush(stdout);
    return true;
}

void Worker::poll(Partition& part) {
    if (part.sub == nullptr && !openConsumer(part, part.ackedSeq + 1)) return;
    // A fetch from an idle partition waits out its timeout, so the wait is shared among the
    // partitions: an idle worker goes round all of them about every 50 ms.
    const int64_t waitMs = std::max<int64_t>(2, 50 / static_cast<int64_t>(std::max<size_t>(1, owned_.size())));
    natsMsgList list = {nullptr, 0};
    jsErrCode jerr = static_cast<jsErrCode>(0);
    const natsStatus s = natsSubscription_Fetch(&list, part.sub, opt_.batch, waitMs, &jerr);
    if (s != NATS_OK && list.Count == 0) return;
    std::vector<int64_t> frameTimes;
    Outcome o = Outcome::Ok;
    for (int i = 0; i < list.Count && o == Outcome::Ok; ++i) {
        o = handle(part, list.Msgs[i], frameTimes);
        list.Msgs[i] = nullptr;
    }
    natsMsgList_Destroy(&list);
    // Results are stored before the frames that gave them can be acknowledged.
    broker_.flush(stop_);
    const int64_t now = unixNs();
    for (int64_t t : frameTimes) latencyMs_.push_back(static_cast<double>(now - t) / 1e6);
    framesSinceLog_ += frameTimes.size();
    if (o == Outcome::Resync) {
        // A delivery went missing (the server restarted mid-fetch): ask again from the floor;
        // frames analysed already are skipped by their devices.
        closeConsumer(part);
        openConsumer(part, part.ackedSeq + 1);
    }
}

Worker::Outcome Worker::loadDevice(int32_t id, Device& dev) {
    kvEntry* e = nullptr;
    const natsStatus s = kvStore_Get(&e, broker_.snapshots(), snapshotKey(id).c_str());
    if (s == NATS_NOT_FOUND) return Outcome::Ok;
    if (s != NATS_OK) return Outcome::Resync;
    const auto* data = static_cast<const unsigned char*>(kvEntry_Value(e));
    const size_t len = static_cast<size_t>(kvEntry_ValueLen(e));
    uint64_t seq = 0;
    dev.snapRev = kvEntry_Revision(e);
    if (parseSnapshotHeader(data, len, seq) &&
        rtm_device_load(dev.handle, data + kSnapshotHeaderBytes, len - kSnapshotHeaderBytes) == 1) {
        dev.seq = seq;
    } else {
        std::fprintf(stderr,
                     "rtmonitor-serve %s: the snapshot of device %d is not usable by library %s; the device "
                     "starts afresh\n",
                     opt_.name.c_str(), id, rtm_version());
    }
    kvEntry_Destroy(e);
    return Outcome::Ok;
}

Worker::Outcome Worker::handle(Partition& part, natsMsg* msg, std::vector<int64_t>& frameTimes) {
    jsMsgMetaData* meta = nullptr;
    if (natsMsg_GetMetaData(&meta, msg) != NATS_OK) {
        natsMsg_Destroy(msg);
        return Outcome::Ok;
    }
    const uint64_t dseq = meta->Sequence.Consumer, seq = meta->Sequence.Stream;
    const int64_t stored = meta->Timestamp;
    part.backlog = meta->NumPending;
    jsMsgMetaData_Destroy(meta);
    if (dseq != part.lastDseq + 1) {
        natsMsg_Destroy(msg);
        return Outcome::Resync;
    }
    part.lastDseq = dseq;

    int32_t id = 0;
    if (natsMsg_GetDataLength(msg) != static_cast<int>(sizeof(ParamsIn)) ||
        !deviceFromSubject(natsMsg_GetSubject(msg), id)) {
        std::fprintf(stderr, "rtmonitor-serve %s: skipped message %" PRIu64 " on %s: not a %zu-byte frame\n",
                     opt_.name.c_str(), seq, natsMsg_GetSubject(msg), sizeof(ParamsIn));
    } else {
        auto it = part.devices.find(id);
        if (it == part.devices.end()) {
            Device dev;
            dev.handle = rtm_device_create();
            if (dev.handle == nullptr) {
                natsMsg_Destroy(msg);
                return Outcome::Resync;
            }
            if (loadDevice(id, dev) != Outcome::Ok) {
                rtm_device_destroy(dev.handle);
                natsMsg_Destroy(msg);
                return Outcome::Resync;
            }
            it = part.devices.emplace(id, dev).first;
        }
        Device& dev = it->second;
        if (seq > dev.seq) {
            const ParamsIn in = rtmfmt::decodeFrame(reinterpret_cast<const unsigned char*>(natsMsg_GetData(msg)));
            ParamsOut out;
            rtm_device_process(dev.handle, &in, &out);
            dev.seq = seq;
            dev.dirty = true;
            publishResult(id, in, out, seq, stored);
            frameTimes.push_back(stored);
        }
    }
    natsMsg_Destroy(part.lastMsg);
    part.lastMsg = msg;
    part.lastMsgSeq = seq;
    return Outcome::Ok;
}

void Worker::publishResult(int32_t id, const ParamsIn& frame, const ParamsOut& out, uint64_t seq, int64_t frameTime) {
    const std::vector<std::pair<const char*, std::string>> headers = {
        {kHeaderFrameSeq, std::to_string(frame.nFrameSeq)},
        {kHeaderStreamSeq, std::to_string(seq)},
        {kHeaderFrameTime, std::to_string(frameTime)}};
    if (opt_.json) {
        const std::string s = resultJson(id, frame.nFrameSeq, out);
        broker_.publish(resultSubject(id), s.data(), static_cast<int>(s.size()), resultMsgId(id, seq), headers);
    } else {
        unsigned char bytes[sizeof(ParamsOut)];
        encodeResult(out, bytes);
        broker_.publish(resultSubject(id), bytes, sizeof bytes, resultMsgId(id, seq), headers);
    }
}

Worker::Outcome Worker::snapshotRound(Partition& part) {
    const bool dirty = std::any_of(part.devices.begin(), part.devices.end(),
                                   [](const std::pair<const int32_t, Device>& d) { return d.second.dirty; });
    if (!dirty && part.lastMsg == nullptr) return Outcome::Ok;
    if (!broker_.flush(stop_)) return Outcome::Resync;
    for (auto& d : part.devices) {
        Device& dev = d.second;
        if (!dev.dirty) continue;
        std::memcpy(snapBuf_.data(), kSnapshotMagic, 8);
        putU64(snapBuf_.data() + 8, dev.seq);
        rtm_device_save(dev.handle, snapBuf_.data() + kSnapshotHeaderBytes, snapBuf_.size() - kSnapshotHeaderBytes);
        const std::string key = snapshotKey(d.first);
        uint64_t rev = 0;
        const int len = static_cast<int>(snapBuf_.size());
        // Revision-checked, so a worker that lost the partition without knowing cannot overwrite
        // the state its successor is building on.
        const natsStatus s =
            dev.snapRev == 0
                ? kvStore_Create(&rev, broker_.snapshots(), key.c_str(), snapBuf_.data(), len)
                : kvStore_Update(&rev, broker_.snapshots(), key.c_str(), snapBuf_.data(), len, dev.snapRev);
        if (revisionConflict(s)) return Outcome::Lost;
        if (s != NATS_OK) return Outcome::Resync;
        dev.snapRev = rev;
        dev.dirty = false;
    }
    if (part.lastMsg == nullptr) return Outcome::Ok;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    if (natsMsg_AckSync(part.lastMsg, nullptr, &jerr) != NATS_OK) return Outcome::Resync;
    part.ackedSeq = part.lastMsgSeq;
    natsMsg_Destroy(part.lastMsg);
    part.lastMsg = nullptr;
    return Outcome::Ok;
}

void Worker::logProgress(double seconds) {
    uint64_t backlog = 0;
    size_t devices = 0;
    for (const auto& kv : owned_) {
        backlog += kv.second.backlog;
        devices += kv.second.devices.size();
    }
    const double p50 = percentile(latencyMs_, 0.5), p99 = percentile(latencyMs_, 0.99);
    std::printf(
        "rtmonitor-serve %s: %zu partitions, %zu devices, %.1f frames/s, lag p50 %.1f ms p99 %.1f ms, "
        "backlog %" PRIu64 " frames\n",
        opt_.name.c_str(), owned_.size(), devices, seconds > 0 ? static_cast<double>(framesSinceLog_) / seconds : 0.0,
        p50, p99, backlog);
    std::fflush(stdout);
    latencyMs_.clear();
    framesSinceLog_ = 0;
}

}  // namespace rtmserve
