#include "formats/broker.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "formats/wire.h"

namespace rtmfmt {

std::string statusText(natsStatus s) {
    std::string text = natsStatus_GetText(s);
    const char* last = nats_GetLastError(nullptr);
    if (last != nullptr && *last != '\0' && text != last) text += std::string(" (") + last + ")";
    return text;
}

Broker::~Broker() {
    for (natsMsg* m : failed_) natsMsg_Destroy(m);
    kvStore_Destroy(snapshots_);
    kvStore_Destroy(leases_);
    jsCtx_Destroy(js_);
    if (nc_ != nullptr) {
        natsConnection_Close(nc_);
        natsConnection_Destroy(nc_);
    }
    natsOptions_Destroy(opts_);
}

bool Broker::connect(const std::string& url, const std::string& name) {
    natsStatus s = natsOptions_Create(&opts_);
    // "URL,URL,...": the servers of a cluster; the client takes such a list only as an array.
    std::vector<std::string> urls;
    for (size_t from = 0;;) {
        const size_t comma = url.find(',', from);
        urls.push_back(url.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
        if (comma == std::string::npos) break;
        from = comma + 1;
    }
    std::vector<const char*> servers;
    for (const std::string& u : urls) servers.push_back(u.c_str());
    if (s == NATS_OK && servers.size() == 1) s = natsOptions_SetURL(opts_, url.c_str());
    else if (s == NATS_OK) s = natsOptions_SetServers(opts_, servers.data(), static_cast<int>(servers.size()));
    if (s == NATS_OK) s = natsOptions_SetName(opts_, name.c_str());
    if (s == NATS_OK) s = natsOptions_SetTimeout(opts_, 3000);
    if (s == NATS_OK) s = natsOptions_SetMaxReconnect(opts_, -1);
    if (s == NATS_OK) s = natsOptions_SetReconnectWait(opts_, 200);
    // Frames and results published while the server restarts wait here, then are confirmed.
    if (s == NATS_OK) s = natsOptions_SetReconnectBufSize(opts_, 64 * 1024 * 1024);
    if (s != NATS_OK) {
        error_ = "cannot set up the NATS client: " + statusText(s);
        return false;
    }
    s = natsConnection_Connect(&nc_, opts_);
    if (s != NATS_OK) {
        error_ = "cannot reach the NATS server at " + url + ": " + statusText(s) +
                 "; is nats-server running with JetStream enabled there?";
        return false;
    }
    jsOptions jo;
    jsOptions_Init(&jo);
    jo.Wait = 5000;
    jo.PublishAsync.MaxPending = 4096;
    jo.PublishAsync.ErrHandler = &Broker::onPublishError;
    jo.PublishAsync.ErrHandlerClosure = this;
    s = natsConnection_JetStream(&js_, nc_, &jo);
    if (s != NATS_OK) {
        error_ = "cannot open a JetStream context: " + statusText(s);
        return false;
    }
    return true;
}

namespace {

bool ensureStream(jsCtx* js, const char* name, const char* subject, int64_t dupWindowNs, std::string& error) {
    jsStreamConfig cfg;
    jsStreamConfig_Init(&cfg);
    const char* subjects[] = {subject};
    cfg.Name = name;
    cfg.Subjects = subjects;
    cfg.SubjectsLen = 1;
    cfg.Storage = js_FileStorage;
    cfg.Duplicates = dupWindowNs;
    jsStreamInfo* si = nullptr;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    natsStatus s = js_AddStream(&si, js, &cfg, nullptr, &jerr);
    jsStreamInfo_Destroy(si);
    if (s == NATS_OK) return true;
    if (jerr == JSStreamNameExistErr) {
        s = js_UpdateStream(&si, js, &cfg, nullptr, &jerr);
        jsStreamInfo_Destroy(si);
        if (s == NATS_OK) return true;
    }
    error = std::string("cannot create stream ") + name + ": " + statusText(s);
    return false;
}

bool ensureBucket(jsCtx* js, const char* bucket, kvStore** kv, std::string& error) {
    if (js_KeyValue(kv, js, bucket) == NATS_OK) return true;
    kvConfig cfg;
    kvConfig_Init(&cfg);
    cfg.Bucket = bucket;
    cfg.History = 1;
    cfg.StorageType = js_FileStorage;
    const natsStatus s = js_CreateKeyValue(kv, js, &cfg);
    if (s == NATS_OK) return true;
    error = std::string("cannot create bucket ") + bucket + ": " + statusText(s);
    return false;
}

}  // namespace

bool Broker::setup(int partitions, int64_t duplicateWindowSeconds) {
    const int64_t window = duplicateWindowSeconds * 1000000000LL;
    if (!ensureStream(js_, kFramesStream, kFramesSubjects, window, error_)) return false;
    if (!ensureStream(js_, kResultsStream, kResultsSubjects, window, error_)) return false;
    if (!ensureBucket(js_, kLeaseBucket, &leases_, error_)) return false;
    if (!ensureBucket(js_, kSnapshotBucket, &snapshots_, error_)) return false;
    const std::string count = std::to_string(partitions);
    uint64_t rev = 0;
    natsStatus s = kvStore_CreateString(&rev, leases_, kPartitionCountKey, count.c_str());
    if (s == NATS_OK) return true;
    int existing = 0;
    if (!check(existing)) return false;
    if (existing != partitions) {
        error_ = "the frames stream was set up with " + std::to_string(existing) +
                 " partitions; the count is fixed for the life of the stream (changing it moves devices "
                 "between partitions): delete the stream and both buckets to start over";
        return false;
    }
    return true;
}

bool Broker::check(int& partitions) {
    const std::string fix = "; run `rtmonitor-serve --setup` against this server first";
    jsStreamInfo* si = nullptr;
    jsErrCode jerr = static_cast<jsErrCode>(0);
    natsStatus s = js_GetStreamInfo(&si, js_, kFramesStream, nullptr, &jerr);
    if (s != NATS_OK) {
        error_ = std::string("no stream ") + kFramesStream + ": " + statusText(s) + fix;
        return false;
    }
    const bool framesOk = si->Config->SubjectsLen == 1 && std::strcmp(si->Config->Subjects[0], kFramesSubjects) == 0;
    jsStreamInfo_Destroy(si);
    if (!framesOk) {
        error_ =
            std::string("stream ") + kFramesStream + " does not take exactly the subjects " + kFramesSubjects + fix;
        return false;
    }
    s = js_GetStreamInfo(&si, js_, kResultsStream, nullptr, &jerr);
    if (s != NATS_OK) {
        error_ = std::string("no stream ") + kResultsStream + ": " + statusText(s) + fix;
        return false;
    }
    const bool resultsOk = si->Config->Duplicates > 0 && si->Config->SubjectsLen == 1 &&
                           std::strcmp(si->Config->Subjects[0], kResultsSubjects) == 0;
    jsStreamInfo_Destroy(si);
    if (!resultsOk) {
        error_ = std::string("stream ") + kResultsStream + " must take " + kResultsSubjects +
                 " with a duplicate window" + fix;
        return false;
    }
    if (leases_ == nullptr && js_KeyValue(&leases_, js_, kLeaseBucket) != NATS_OK) {
        error_ = std::string("no bucket ") + kLeaseBucket + fix;
        return false;
    }
    if (snapshots_ == nullptr && js_KeyValue(&snapshots_, js_, kSnapshotBucket) != NATS_OK) {
        error_ = std::string("no bucket ") + kSnapshotBucket + fix;
        return false;
    }
    kvEntry* e = nullptr;
    s = kvStore_Get(&e, leases_, kPartitionCountKey);
    if (s != NATS_OK) {
        error_ = std::string("no partition count in bucket ") + kLeaseBucket + fix;
        return false;
    }
    const std::string text(static_cast<const char*>(kvEntry_Value(e)), static_cast<size_t>(kvEntry_ValueLen(e)));
    kvEntry_Destroy(e);
    partitions = std::atoi(text.c_str());
    if (partitions < 1 || partitions > kMaxPartitions) {
        error_ = "bad partition count '" + text + "' in bucket " + kLeaseBucket;
        return false;
    }
    return true;
}

void Broker::onPublishError(jsCtx*, jsPubAckErr* pae, void* closure) {
    auto* self = static_cast<Broker*>(closure);
    std::lock_guard<std::mutex> lock(self->failedMutex_);
    self->failed_.push_back(pae->Msg);
    pae->Msg = nullptr;  // ours now: published again by flush()
}

bool Broker::publish(const std::string& subject, const void* data, int len, const std::string& msgId,
                     const std::vector<std::pair<const char*, std::string>>& headers) {
    natsMsg* msg = nullptr;
    natsStatus s = natsMsg_Create(&msg, subject.c_str(), nullptr, static_cast<const char*>(data), len);
    if (s == NATS_OK) s = natsMsgHeader_Set(msg, "Nats-Msg-Id", msgId.c_str());
    for (const auto& h : headers)
        if (s == NATS_OK) s = natsMsgHeader_Set(msg, h.first, h.second.c_str());
    if (s == NATS_OK) s = js_PublishMsgAsync(js_, &msg, nullptr);
    if (s != NATS_OK && msg != nullptr) {
        // Not accepted (too many in flight while the server is away): try again at the flush.
        std::lock_guard<std::mutex> lock(failedMutex_);
        failed_.push_back(msg);
        return true;
    }
    natsMsg_Destroy(msg);
    if (s != NATS_OK) error_ = "cannot publish on " + subject + ": " + statusText(s);
    return s == NATS_OK;
}

bool Broker::flush(const std::atomic<bool>* give_up) {
    jsPubOptions po;
    jsPubOptions_Init(&po);
    // Long enough that a loaded machine does not time out: after a timeout the pending list is
    // taken back and published again, and an acknowledgement that still arrives for a message
    // taken back would leave the client's pending count short.
    po.MaxWait = 30000;
    for (;;) {
        std::vector<natsMsg*> again;
        {
            std::lock_guard<std::mutex> lock(failedMutex_);
            again.swap(failed_);
        }
        for (natsMsg*& m : again) {
            if (js_PublishMsgAsync(js_, &m, nullptr) != NATS_OK) {
                std::lock_guard<std::mutex> lock(failedMutex_);
                failed_.push_back(m);
                m = nullptr;
            }
        }
        const natsStatus s = js_PublishAsyncComplete(js_, &po);
        bool anyFailed;
        {
            std::lock_guard<std::mutex> lock(failedMutex_);
            anyFailed = !failed_.empty();
        }
        if (s == NATS_OK && !anyFailed) return true;
        if (s != NATS_OK) {
            natsMsgList pending;
            if (js_PublishAsyncGetPendingList(&pending, js_) == NATS_OK) {
                std::lock_guard<std::mutex> lock(failedMutex_);
                for (int i = 0; i < pending.Count; ++i) {
                    failed_.push_back(pending.Msgs[i]);
                    pending.Msgs[i] = nullptr;
                }
                natsMsgList_Destroy(&pending);
            }
        }
        if (give_up != nullptr && give_up->load()) return false;
        if (s != NATS_OK) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace rtmfmt
