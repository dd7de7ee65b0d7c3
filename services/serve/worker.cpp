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
    for (auto& r : retired_) natsSubscription_Destroy(r.second);
}

void Worker::destroyRetired(bool all) {
    const auto now = Clock::now();
    while (!retired_.empty() && (all || now - retired_.front().first > std::chrono::seconds(10))) {
        natsSubscription_Destroy(retired_.front().second);
        retired_.pop_front();
    }
}

std::string Worker::leaseValue() const {
    return opt_.name + " " + std::to_string(unixMs() + static_cast<int64_t>(opt_.leaseTtl * 1000));
}

int Worker::run(const std::atomic<bool>& stop) {
    stop_ = &stop;
    const auto every = [](double s) { return std::chrono::microseconds(static_cast<int64_t>(s * 1e6)); };
    auto now = Clock::now();
    nextLease_ = now;
    auto nextLog = now + every(opt_.logEvery);
    auto lastLog = now;
    std::printf("rtmonitor-serve %s: started, %d partitions in the stream\n", opt_.name.c_str(), partitions_);
    std::fflush(stdout);
    while (!stop.load()) {
        destroyRetired(false);
        renewLeasesIfDue();
        if (broker_.reconnects() != reconnectsSeen_) {
            reconnectsSeen_ = broker_.reconnects();
            resyncAll();
        }
        std::vector<int> mine;
        for (const auto& kv : owned_) mine.push_back(kv.first);
        for (int p : mine) {
            broker_.poll();
            // A slow server (a loaded machine, a cluster electing a leader) can make one round
            // of the partitions last longer than a lease renewal period.
            renewLeasesIfDue();
            if (!owned_.count(p)) continue;
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
            renewLeasesIfDue();
            if (!owned_.count(p)) continue;
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
    // The results still unconfirmed get one while, shared by all partitions, to be stored.
    broker_.flush(nullptr, std::chrono::seconds(10));
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

void Worker::renewLeasesIfDue() {
    if (Clock::now() < nextLease_) return;
    maintainLeases();
    nextLease_ = Clock::now() + std::chrono::microseconds(static_cast<int64_t>(opt_.leaseTtl / 3 * 1e6));
}

int Worker::liveWorkers() {
    // The membership keys are read off the bucket's stream information rather than listed with
    // the bucket's key walk, which makes a consumer each time: costly on a cluster.
    jsOptions o;
    jsOptions_Init(&o);
    const std::string filter = std::string("$KV.") + kLeaseBucket + ".worker.>";
    o.Stream.Info.SubjectsFilter = filter.c_str();
    jsStreamInfo* si = nullptr;
    const std::string stream = std::string("KV_") + kLeaseBucket;
    if (js_GetStreamInfo(&si, broker_.js(), stream.c_str(), &o, nullptr) != NATS_OK) return 1;
    std::vector<std::string> keys;
    if (si->State.Subjects != nullptr)
        for (int i = 0; i < si->State.Subjects->Count; ++i)
            keys.push_back(si->State.Subjects->List[i].Subject + filter.size() - 8);  // from "worker."
    jsStreamInfo_Destroy(si);
    int live = 0;
    const int64_t now = unixMs();
    for (const std::string& key : keys) {
        kvEntry* e = nullptr;
        if (kvStore_Get(&e, broker_.leases(), key.c_str()) != NATS_OK) continue;
        std::string owner;
        int64_t expiry = 0;
        if (parseLease(e, owner, expiry) && expiry > now) ++live;
        kvEntry_Destroy(e);
    }
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
        natsStatus s = kvStore_UpdateString(&rev, kv, leaseKey(p).c_str(), leaseValue().c_str(), part.leaseRev);
        if (revisionConflict(s)) {
            // A renewal stored while its answer was lost (a leader change) left us a revision
            // behind our own lease: still ours when the stored lease names us.
            std::string owner;
            int64_t expiry = 0;
            uint64_t last = 0;
            if (readLease(p, owner, expiry, last) == NATS_OK && owner == opt_.name) {
                part.leaseRev = last;
                s = kvStore_UpdateString(&rev, kv, leaseKey(p).c_str(), leaseValue().c_str(), part.leaseRev);
            }
        }
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

// A partition's lease as its bucket stream's leader has it (a replica catching up may answer a
// plain read with an old revision). Free leases (never taken, or released) give an empty owner;
// `rev` is what the next revision-checked write must name (0 for a key never written).
natsStatus Worker::readLease(int p, std::string& owner, int64_t& expiry, uint64_t& rev) {
    owner.clear();
    expiry = 0;
    rev = 0;
    const std::string stream = std::string("KV_") + kLeaseBucket;
    const std::string subject = std::string("$KV.") + kLeaseBucket + "." + leaseKey(p);
    natsMsg* m = nullptr;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    const natsStatus s = js_GetLastMsg(&m, broker_.js(), stream.c_str(), subject.c_str(), nullptr, &jerr);
    if (s != NATS_OK) return jerr == JSNoMessageFoundErr ? NATS_OK : s;
    rev = natsMsg_GetSequence(m);
    const char* op = nullptr;
    const bool removed = natsMsgHeader_Get(m, "KV-Operation", &op) == NATS_OK;
    const std::string v(natsMsg_GetData(m) ? natsMsg_GetData(m) : "", static_cast<size_t>(natsMsg_GetDataLength(m)));
    natsMsg_Destroy(m);
    const size_t sp = v.rfind(' ');
    if (!removed && sp != std::string::npos) {
        owner = v.substr(0, sp);
        expiry = std::strtoll(v.c_str() + sp + 1, nullptr, 10);
    }
    return NATS_OK;
}

bool Worker::tryAcquire(int p) {
    kvStore* kv = broker_.leases();
    const std::string key = leaseKey(p);
    uint64_t rev = 0, last = 0;
    const auto at = Clock::now();
    std::string owner;
    int64_t expiry = 0;
    natsStatus s = readLease(p, owner, expiry, last);
    if (s != NATS_OK) return false;
    if (!owner.empty() && expiry > unixMs() && owner != opt_.name) return false;
    s = kvStore_UpdateString(&rev, kv, key.c_str(), leaseValue().c_str(), last);
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
    // The consumer is made at the partition's first poll, between lease renewals: on a cluster
    // making one can take a while, and taking several partitions must not let the others lapse.
    part.retryAt = at;
    std::printf("rtmonitor-serve %s: took partition %d from stream sequence %" PRIu64 "\n", opt_.name.c_str(), p,
                floor + 1);
    std::fflush(stdout);
    return true;
}

// A consumer that would hand out next exactly the frame we want: one made by an earlier attempt
// whose answer came too late (it has handed out nothing yet), or one with nothing outstanding
// beyond its acknowledged floor. Making a consumer again costs a leader election on a cluster,
// and a server that is down slows elections past the client's wait: deleting the late one each
// time would never end.
bool Worker::consumerStartsAt(const std::string& durable, uint64_t startSeq, uint64_t& delivered) {
    jsConsumerInfo* ci = nullptr;
    if (js_GetConsumerInfo(&ci, broker_.js(), kFramesStream, durable.c_str(), nullptr, nullptr) != NATS_OK)
        return false;
    const jsConsumerConfig* c = ci->Config;
    const bool fresh = ci->Delivered.Consumer == 0 &&
                       (startSeq > 1 ? c->DeliverPolicy == js_DeliverByStartSequence && c->OptStartSeq == startSeq
                                     : c->DeliverPolicy == js_DeliverAll);
    const bool settled = ci->Delivered.Consumer > 0 && ci->NumAckPending == 0 && ci->NumRedelivered == 0 &&
                         ci->AckFloor.Stream == ci->Delivered.Stream && ci->AckFloor.Stream + 1 == startSeq;
    delivered = ci->Delivered.Consumer;
    jsConsumerInfo_Destroy(ci);
    return fresh || settled;
}

bool Worker::openConsumer(Partition& part, uint64_t startSeq) {
    const std::string durable = consumerName(part.index);
    const std::string filter = partitionSubject(part.index);
    uint64_t delivered = 0;
    if (!consumerStartsAt(durable, startSeq, delivered)) {
        if (!makeConsumer(part, startSeq)) return false;
        delivered = 0;
    }
    jsSubOptions so;
    jsSubOptions_Init(&so);
    so.Stream = kFramesStream;
    so.Consumer = durable.c_str();
    so.ManualAck = true;
    const natsStatus s =
        js_PullSubscribe(&part.sub, broker_.js(), filter.c_str(), durable.c_str(), nullptr, &so, nullptr);
    if (s != NATS_OK) {
        std::fprintf(stderr, "rtmonitor-serve %s: cannot subscribe to %s: %s\n", opt_.name.c_str(), durable.c_str(),
                     statusText(s).c_str());
        part.sub = nullptr;
        return false;
    }
    part.lastDseq = delivered;
    part.lostSuspect = 0;
    return true;
}

bool Worker::makeConsumer(const Partition& part, uint64_t startSeq) {
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
    return true;
}

void Worker::closeConsumer(Partition& part) {
    if (part.sub != nullptr) {
        // The client's reader thread can still be handing this subscription a late fetch
        // response (a crash seen under load when it was freed at once): it is freed a little later.
        natsSubscription_Unsubscribe(part.sub);
        retired_.emplace_back(Clock::now(), part.sub);
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

void Worker::resyncAll() {
    // Fetches and acknowledgements in flight when the connection dropped may be lost: every
    // partition asks again from its acknowledged floor (frames analysed already are skipped).
    for (auto& kv : owned_) {
        closeConsumer(kv.second);
        kv.second.retryAt = Clock::now();
    }
    std::printf("rtmonitor-serve %s: reconnected; partitions continue from their acknowledged frames\n",
                opt_.name.c_str());
    std::fflush(stdout);
}

bool Worker::deliveriesLost(Partition& part) {
    // A delivery lost at the end of a partition leaves no later one to show the gap; the
    // consumer's count of what it handed out does.
    const auto now = Clock::now();
    if (now < part.nextCheck) return false;
    part.nextCheck = now + std::chrono::seconds(1);
    jsConsumerInfo* ci = nullptr;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    if (js_GetConsumerInfo(&ci, broker_.js(), kFramesStream, consumerName(part.index).c_str(), nullptr, &jerr) !=
        NATS_OK)
        return jerr == JSConsumerNotFoundErr;  // gone with its server: make it again
    // A delivery still on its way (from another server of a cluster) looks lost for a moment:
    // only what has not come by the next check counts.
    const bool lost = part.lostSuspect > part.lastDseq;
    part.lostSuspect = ci->Delivered.Consumer > part.lastDseq ? ci->Delivered.Consumer : 0;
    jsConsumerInfo_Destroy(ci);
    return lost;
}

void Worker::poll(Partition& part) {
    if (part.sub == nullptr) {
        // A consumer cannot be made while the cluster elects a leader: try again shortly, and
        // meanwhile serve the other partitions.
        if (Clock::now() < part.retryAt) return;
        if (!openConsumer(part, part.ackedSeq + 1)) {
            part.retryAt = Clock::now() + std::chrono::milliseconds(500);
            return;
        }
    }
    // A fetch from an idle partition waits out its timeout, so the wait is shared among the
    // partitions: an idle worker goes round all of them about every 50 ms.
    const int64_t waitMs = std::max<int64_t>(2, 50 / static_cast<int64_t>(std::max<size_t>(1, owned_.size())));
    natsMsgList list = {nullptr, 0};
    jsErrCode jerr = static_cast<jsErrCode>(0);
    const natsStatus s = natsSubscription_Fetch(&list, part.sub, opt_.batch, waitMs, &jerr);
    Outcome o = Outcome::Ok;
    if (list.Count == 0) {
        if (s == NATS_TIMEOUT && deliveriesLost(part)) {
            o = Outcome::Resync;
            resyncWhy_ = "the consumer handed out frames that never came";
        }
    }
    for (int i = 0; i < list.Count && o == Outcome::Ok; ++i) {
        o = handle(part, list.Msgs[i]);
        list.Msgs[i] = nullptr;
    }
    natsMsgList_Destroy(&list);
    if (o == Outcome::Resync) {
        // A delivery went missing (the server restarted mid-fetch): ask again from the floor;
        // frames analysed already are skipped by their devices.
        std::printf("rtmonitor-serve %s: partition %d continues from stream sequence %" PRIu64 ": %s\n",
                    opt_.name.c_str(), part.index, part.ackedSeq + 1, resyncWhy_.c_str());
        std::fflush(stdout);
        closeConsumer(part);
        part.retryAt = Clock::now();
    }
}

// A device's stored snapshot, read from the bucket stream's leader: a bucket read may be answered
// by any replica of a cluster, and one that is catching up would give an old revision, which
// the next revision-checked write would take for another worker's.
natsStatus Worker::lastSnapshot(int32_t id, natsMsg** msg) {
    const std::string stream = std::string("KV_") + kSnapshotBucket;
    const std::string subject = std::string("$KV.") + kSnapshotBucket + "." + snapshotKey(id);
    jsErrCode jerr = static_cast<jsErrCode>(0);
    const natsStatus s = js_GetLastMsg(msg, broker_.js(), stream.c_str(), subject.c_str(), nullptr, &jerr);
    return s == NATS_OK || jerr != JSNoMessageFoundErr ? s : NATS_NOT_FOUND;
}

Worker::Outcome Worker::loadDevice(int32_t id, Device& dev) {
    natsMsg* m = nullptr;
    const natsStatus s = lastSnapshot(id, &m);
    if (s == NATS_NOT_FOUND) return Outcome::Ok;
    if (s != NATS_OK) return Outcome::Resync;
    const auto* data = reinterpret_cast<const unsigned char*>(natsMsg_GetData(m));
    const size_t len = static_cast<size_t>(natsMsg_GetDataLength(m));
    uint64_t seq = 0;
    dev.snapRev = natsMsg_GetSequence(m);
    if (parseSnapshotHeader(data, len, seq) &&
        rtm_device_load(dev.handle, data + kSnapshotHeaderBytes, len - kSnapshotHeaderBytes) == 1) {
        dev.seq = seq;
    } else {
        std::fprintf(stderr,
                     "rtmonitor-serve %s: the snapshot of device %d is not usable by library %s; the device "
                     "starts afresh\n",
                     opt_.name.c_str(), id, rtm_version());
    }
    natsMsg_Destroy(m);
    return Outcome::Ok;
}

Worker::Outcome Worker::handle(Partition& part, natsMsg* msg) {
    Delivery d;
    if (!parseDelivery(natsMsg_GetReply(msg), d)) {
        natsMsg_Destroy(msg);
        return Outcome::Ok;
    }
    const uint64_t seq = d.streamSeq;
    part.backlog = d.pending;
    if (d.consumerSeq != part.lastDseq + 1) {
        natsMsg_Destroy(msg);
        resyncWhy_ = "a delivery is missing";
        return Outcome::Resync;
    }
    part.lastDseq = d.consumerSeq;

    int32_t id = 0;
    if (natsMsg_GetDataLength(msg) != static_cast<int>(sizeof(ParamsIn)) ||
        !deviceFromSubject(natsMsg_GetSubject(msg), id)) {
        std::fprintf(stderr, "rtmonitor-serve %s: skipped message %" PRIu64 " on %s: not a %zu-byte frame\n",
                     opt_.name.c_str(), seq, natsMsg_GetSubject(msg), sizeof(ParamsIn));
    } else {
        auto it = part.devices.find(id);
        if (it == part.devices.end()) {
            Device dev;
            dev.id = id;
            dev.handle = rtm_device_create();
            if (dev.handle == nullptr) {
                natsMsg_Destroy(msg);
                return Outcome::Resync;
            }
            if (loadDevice(id, dev) != Outcome::Ok) {
                resyncWhy_ = "device " + std::to_string(id) + "'s snapshot could not be read";
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
            publishResult(id, dev.handle, in, out, seq, d.storedNs);
            ++framesSinceLog_;
        }
    }
    natsMsg_Destroy(part.lastMsg);
    part.lastMsg = msg;
    part.lastMsgSeq = seq;
    return Outcome::Ok;
}

// The one place a result is encoded: the output record's words (or JSON text) and the headers
// that place it.
void Worker::publishResult(int32_t id, const rtm_device* handle, const ParamsIn& frame, const ParamsOut& out,
                           uint64_t seq, int64_t frameTime) {
    char subject[32], msgId[48], frameSeq[16], streamSeq[24], stored[24];
    std::snprintf(subject, sizeof subject, "rtm.vitals.%" PRId32, id);
    std::snprintf(msgId, sizeof msgId, "%" PRId32 ".%" PRIu64, id, seq);
    std::snprintf(frameSeq, sizeof frameSeq, "%" PRId32, frame.nFrameSeq);
    std::snprintf(streamSeq, sizeof streamSeq, "%" PRIu64, seq);
    std::snprintf(stored, sizeof stored, "%" PRId64, frameTime);
    const char* const headers[] = {kHeaderFrameSeq,  frameSeq, kHeaderStreamSeq, streamSeq,
                                   kHeaderFrameTime, stored,   kHeaderPayload,   kPayloadWithBeats};
    rtm_beat beats[RTM_BEATS_MAX];
    const size_t count = std::min<size_t>(rtm_device_beats(handle, beats, RTM_BEATS_MAX), RTM_BEATS_MAX);
    if (opt_.json) {
        const std::string s = resultJson(id, frame.nFrameSeq, out, beats, count);
        broker_.publish(subject, s.data(), static_cast<int>(s.size()), msgId, headers, 3, frameTime);
    } else {
        encodeResultPayload(out, beats, count, payload_);
        broker_.publish(subject, payload_.data(), static_cast<int>(payload_.size()), msgId, headers, 4, frameTime);
    }
}

Worker::Outcome Worker::snapshotRound(Partition& part) {
    const bool dirty = std::any_of(part.devices.begin(), part.devices.end(),
                                   [](const std::pair<const int32_t, Device>& d) { return d.second.dirty; });
    if (!dirty && part.lastMsg == nullptr) return Outcome::Ok;
    // When stopping, the snapshot writes get a short while each: the results had theirs already.
    const bool stopping = stop_->load();
    const std::atomic<bool>* giveUp = stopping ? nullptr : stop_;
    const auto limit = stopping ? std::chrono::milliseconds(2000) : std::chrono::milliseconds(24 * 3600 * 1000);
    if (!broker_.flush(giveUp, limit)) return Outcome::Resync;
    // Every dirty device's snapshot goes out at once and the round waits once for all of them.
    // Each write is revision-checked, so a worker that lost the partition without noticing cannot
    // overwrite the state its successor is building on; its message id makes a write sent again
    // (no confirmation in time) count once.
    std::vector<std::pair<Device*, uint64_t>> writes;
    for (auto& d : part.devices) {
        Device& dev = d.second;
        if (!dev.dirty) continue;
        std::memcpy(snapBuf_.data(), kSnapshotMagic, 8);
        putU64(snapBuf_.data() + 8, dev.seq);
        rtm_device_save(dev.handle, snapBuf_.data() + kSnapshotHeaderBytes, snapBuf_.size() - kSnapshotHeaderBytes);
        char subject[64], msgId[64], last[24];
        std::snprintf(subject, sizeof subject, "$KV.%s.%s", kSnapshotBucket, snapshotKey(d.first).c_str());
        std::snprintf(msgId, sizeof msgId, "snap.%" PRId32 ".%" PRIu64, d.first, dev.seq);
        std::snprintf(last, sizeof last, "%" PRIu64, dev.snapRev);
        const char* const headers[] = {"Nats-Expected-Last-Subject-Sequence", last};
        const uint64_t ticket =
            broker_.publishTracked(subject, snapBuf_.data(), static_cast<int>(snapBuf_.size()), msgId, headers, 1);
        if (ticket == 0) return Outcome::Resync;
        writes.emplace_back(&dev, ticket);
    }
    const bool confirmed = broker_.flush(giveUp, limit);
    Outcome result = confirmed ? Outcome::Ok : Outcome::Resync;
    for (auto& w : writes) {
        Broker::Outcome o;
        if (!broker_.outcome(w.second, o)) continue;  // not confirmed in time: written again next round
        if (o.conflict) {
            // Our own write may have been stored while its confirmation was lost (a leader
            // change), so the one sent again met its own revision: then the stored snapshot
            // covers exactly the frames ours does.
            const int32_t id = w.first->id;
            natsMsg* m = nullptr;
            uint64_t storedSeq = 0;
            if (lastSnapshot(id, &m) == NATS_OK &&
                parseSnapshotHeader(natsMsg_GetData(m), static_cast<size_t>(natsMsg_GetDataLength(m)), storedSeq) &&
                storedSeq == w.first->seq) {
                w.first->snapRev = natsMsg_GetSequence(m);
                w.first->dirty = false;
            } else {
                result = Outcome::Lost;
            }
            natsMsg_Destroy(m);
        } else if (o.stored) {
            w.first->snapRev = o.seq;
            w.first->dirty = false;
        }
    }
    if (result != Outcome::Ok) return result;
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
    std::vector<double>& lags = broker_.lags();
    const double p50 = percentile(lags, 0.5), p99 = percentile(lags, 0.99);
    std::printf(
        "rtmonitor-serve %s: %zu partitions, %zu devices, %.1f frames/s, lag p50 %.1f ms p99 %.1f ms, "
        "backlog %" PRIu64 " frames\n",
        opt_.name.c_str(), owned_.size(), devices, seconds > 0 ? static_cast<double>(framesSinceLog_) / seconds : 0.0,
        p50, p99, backlog);
    std::fflush(stdout);
    lags.clear();
    framesSinceLog_ = 0;
}

}  // namespace rtmserve
