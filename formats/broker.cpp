#include "formats/broker.h"

#include "formats/options.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
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
    for (auto& p : pending_) natsMsg_Destroy(p.second.msg);
    natsSubscription_Destroy(replies_);
    kvStore_Destroy(snapshots_);
    kvStore_Destroy(leases_);
    jsCtx_Destroy(js_);
    if (nc_ != nullptr) {
        natsConnection_Close(nc_);
        natsConnection_Destroy(nc_);
    }
    natsOptions_Destroy(opts_);
}

bool addServers(const std::string& value, std::vector<std::string>& servers) {
    size_t from = 0;
    for (;;) {
        const size_t comma = value.find(',', from);
        const std::string url = value.substr(from, comma == std::string::npos ? std::string::npos : comma - from);
        if (url.empty()) return false;
        servers.push_back(url);
        if (comma == std::string::npos) return true;
        from = comma + 1;
    }
}

bool connectOptionsFrom(const ParsedArgs& p, ConnectOptions& o, std::string& error) {
    if (p.has("--server") && !addServers(p.value("--server"), o.servers)) {
        error = "--server needs a URL or a comma-separated list of them, not '" + p.value("--server") + "'";
        return false;
    }
    o.creds = p.value("--creds");
    o.user = p.value("--user");
    o.password = p.value("--password");
    o.tlsCa = p.value("--tls-ca");
    o.tlsCert = p.value("--tls-cert");
    o.tlsKey = p.value("--tls-key");
    if (o.tlsCert.empty() != o.tlsKey.empty()) error = "--tls-cert and --tls-key go together";
    else if (!o.password.empty() && o.user.empty()) error = "--password needs --user";
    else if (!o.creds.empty() && !o.user.empty()) error = "give --creds or --user, not both";
    return error.empty();
}

void Broker::onReconnected(natsConnection*, void* closure) { ++static_cast<Broker*>(closure)->reconnects_; }

void Broker::onAsyncError(natsConnection* nc, natsSubscription*, natsStatus err, void* closure) {
    if (err != NATS_NOT_PERMITTED) return;
    auto* self = static_cast<Broker*>(closure);
    const char* text = nullptr;
    natsConnection_GetLastError(nc, &text);
    std::lock_guard<std::mutex> lock(self->refusalMutex_);
    self->refusal_ = text != nullptr && *text != '\0' ? text : "not permitted";
}

std::string Broker::refusal() {
    std::lock_guard<std::mutex> lock(refusalMutex_);
    return refusal_;
}

bool Broker::connect(const std::string& url, const std::string& name) {
    ConnectOptions o;
    if (!addServers(url, o.servers)) {
        error_ = "bad server list '" + url + "'";
        return false;
    }
    return connect(o, name);
}

// Credentials and TLS: each file is read here, so a missing one is named before any server.
bool Broker::applySecurity(const ConnectOptions& o) {
    natsStatus s = NATS_OK;
    const auto fileProblem = [&](natsStatus st, const std::string& what, const std::string& file) {
        error_ = "cannot use " + what + " " + file + ": " + statusText(st) + "; check that it exists and is readable";
        return false;
    };
    if (!o.creds.empty()) {
        if (access(o.creds.c_str(), R_OK) != 0) return fileProblem(NATS_NOT_FOUND, "credentials file", o.creds);
        s = natsOptions_SetUserCredentialsFromFiles(opts_, o.creds.c_str(), nullptr);
        if (s != NATS_OK) return fileProblem(s, "credentials file", o.creds);
    }
    if (!o.user.empty() && (s = natsOptions_SetUserInfo(opts_, o.user.c_str(), o.password.c_str())) != NATS_OK)
        return fileProblem(s, "user", o.user);
    if (!o.tlsCa.empty() || !o.tlsCert.empty()) {
        s = natsOptions_SetSecure(opts_, true);
        if (s == NATS_OK && !o.tlsCa.empty()) {
            s = natsOptions_LoadCATrustedCertificates(opts_, o.tlsCa.c_str());
            if (s != NATS_OK) return fileProblem(s, "certificate authority", o.tlsCa);
        }
        if (s == NATS_OK && !o.tlsCert.empty()) {
            s = natsOptions_LoadCertificatesChain(opts_, o.tlsCert.c_str(), o.tlsKey.c_str());
            if (s != NATS_OK) return fileProblem(s, "client certificate", o.tlsCert + " with key " + o.tlsKey);
        }
        if (s != NATS_OK) {
            error_ = "cannot set up TLS: " + statusText(s);
            return false;
        }
    }
    return true;
}

bool Broker::connect(const ConnectOptions& o, const std::string& name) {
    std::vector<std::string> servers = o.servers;
    if (servers.empty()) servers.push_back("nats://127.0.0.1:4222");
    std::string list;
    std::vector<const char*> urls;
    for (const std::string& u : servers) {
        urls.push_back(u.c_str());
        list += (list.empty() ? "" : ", ") + u;
    }
    natsStatus s = natsOptions_Create(&opts_);
    if (s == NATS_OK) s = natsOptions_SetServers(opts_, urls.data(), static_cast<int>(urls.size()));
    if (s == NATS_OK) s = natsOptions_SetName(opts_, name.c_str());
    if (s == NATS_OK) s = natsOptions_SetTimeout(opts_, o.timeoutMs);
    if (s == NATS_OK) s = natsOptions_SetMaxReconnect(opts_, -1);
    if (s == NATS_OK) s = natsOptions_SetReconnectWait(opts_, 200);
    if (s == NATS_OK) s = natsOptions_SetReconnectedCB(opts_, &Broker::onReconnected, this);
    if (s == NATS_OK) s = natsOptions_SetErrorHandler(opts_, &Broker::onAsyncError, this);
    // Frames and results published while the server restarts wait here, then are confirmed.
    if (s == NATS_OK) s = natsOptions_SetReconnectBufSize(opts_, 64 * 1024 * 1024);
    if (s != NATS_OK) {
        error_ = "cannot set up the NATS client: " + statusText(s);
        return false;
    }
    if (!applySecurity(o)) return false;
    s = natsConnection_Connect(&nc_, opts_);
    if (s == NATS_CONNECTION_AUTH_FAILED || s == NATS_NOT_PERMITTED) {
        error_ = "the NATS server at " + list + " refused the credentials (" + statusText(s) +
                 "): check --creds, or --user and --password, against the server's accounts";
        return false;
    }
    if (s == NATS_SSL_ERROR || s == NATS_SECURE_CONNECTION_REQUIRED || s == NATS_SECURE_CONNECTION_WANTED) {
        error_ = "no TLS connection to the NATS server at " + list + ": " + statusText(s) +
                 "; check --tls-ca (the authority that signed the server's certificate), --tls-cert and "
                 "--tls-key, and that the URL names the host in the server's certificate";
        return false;
    }
    if (s == NATS_PROTOCOL_ERROR && (!o.tlsCa.empty() || !o.tlsCert.empty())) {
        // A server that asks for client certificates closes the connection right after the handshake.
        error_ = "the NATS server at " + list + " closed the TLS connection (" + statusText(s) +
                 "): it may ask for a client certificate; give --tls-cert and --tls-key, signed by an authority "
                 "the server trusts";
        return false;
    }
    if (s != NATS_OK) {
        error_ = "cannot reach the NATS server at " + list + ": " + statusText(s) +
                 "; is nats-server running with JetStream enabled there?";
        return false;
    }
    jsOptions jo;
    jsOptions_Init(&jo);
    jo.Wait = 5000;
    s = natsConnection_JetStream(&js_, nc_, &jo);
    if (s != NATS_OK) {
        error_ = "cannot open a JetStream context: " + statusText(s);
        return false;
    }
    return true;
}

namespace {

bool ensureStream(jsCtx* js, const char* name, const char* subject, int64_t dupWindowNs, int replicas,
                  std::string& error) {
    jsStreamConfig cfg;
    jsStreamConfig_Init(&cfg);
    const char* subjects[] = {subject};
    cfg.Name = name;
    cfg.Subjects = subjects;
    cfg.SubjectsLen = 1;
    cfg.Storage = js_FileStorage;
    cfg.Duplicates = dupWindowNs;
    cfg.Replicas = replicas;
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

bool ensureBucket(jsCtx* js, const char* bucket, int replicas, kvStore** kv, std::string& error) {
    if (js_KeyValue(kv, js, bucket) == NATS_OK) {
        // A bucket is a stream underneath; setting up again with another replica count moves it.
        const std::string stream = std::string("KV_") + bucket;
        jsStreamInfo* si = nullptr;
        natsStatus s = js_GetStreamInfo(&si, js, stream.c_str(), nullptr, nullptr);
        if (s == NATS_OK && si->Config->Replicas != replicas) {
            si->Config->Replicas = replicas;
            jsStreamInfo* updated = nullptr;
            s = js_UpdateStream(&updated, js, si->Config, nullptr, nullptr);
            jsStreamInfo_Destroy(updated);
        }
        jsStreamInfo_Destroy(si);
        if (s == NATS_OK) return true;
        error = std::string("cannot set bucket ") + bucket + " to " + std::to_string(replicas) +
                " replicas: " + statusText(s);
        return false;
    }
    kvConfig cfg;
    kvConfig_Init(&cfg);
    cfg.Bucket = bucket;
    cfg.History = 1;
    cfg.StorageType = js_FileStorage;
    cfg.Replicas = replicas;
    const natsStatus s = js_CreateKeyValue(kv, js, &cfg);
    if (s == NATS_OK) return true;
    error = std::string("cannot create bucket ") + bucket + ": " + statusText(s);
    return false;
}

}  // namespace

bool Broker::setup(int partitions, int64_t duplicateWindowSeconds, int replicas) {
    const int64_t window = duplicateWindowSeconds * 1000000000LL;
    const bool ok = ensureStream(js_, kFramesStream, kFramesSubjects, window, replicas, error_) &&
                    ensureStream(js_, kResultsStream, kResultsSubjects, window, replicas, error_) &&
                    ensureBucket(js_, kLeaseBucket, replicas, &leases_, error_) &&
                    ensureBucket(js_, kSnapshotBucket, replicas, &snapshots_, error_);
    if (!ok) {
        if (replicas > 1)
            error_ += "; " + std::to_string(replicas) +
                      " replicas need a JetStream cluster of at least that many servers, all running";
        return false;
    }
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

namespace {

// More than this many unconfirmed publishes and publish() waits for confirmations.
constexpr size_t kMaxUnconfirmed = 4096;
// A publish not confirmed within this long, while no confirmation at all came for kStalledAfter,
// is sent again (same message id, so stored once). A server that is only slow keeps confirming,
// and sending its queue again would only make it slower.
constexpr auto kResendAfter = std::chrono::seconds(2);
constexpr auto kStalledAfter = std::chrono::seconds(1);

int64_t unixNowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

bool Broker::openReplies() {
    if (replies_ != nullptr) return true;
    natsInbox* inbox = nullptr;
    natsStatus s = natsInbox_Create(&inbox);
    if (s == NATS_OK) {
        replyPrefix_ = inbox;
        natsInbox_Destroy(inbox);
        s = natsConnection_SubscribeSync(&replies_, nc_, (replyPrefix_ + ".*").c_str());
    }
    if (s == NATS_OK) s = natsSubscription_SetPendingLimits(replies_, -1, -1);
    if (s != NATS_OK) {
        error_ = "cannot subscribe to publish confirmations: " + statusText(s);
        return false;
    }
    return true;
}

bool Broker::send(Pending& p) {
    p.sentAt = Clock::now();
    p.refused = false;
    // While the server is away this lands in the reconnect buffer; when even that is full the
    // message waits for the next resend.
    return natsConnection_PublishMsg(nc_, p.msg) == NATS_OK;
}

bool Broker::publish(const char* subject, const void* data, int len, const char* msgId, const char* const* headers,
                     int headerCount, int64_t stamp) {
    return enqueue(subject, data, len, msgId, headers, headerCount, stamp, false) != 0;
}

uint64_t Broker::publishTracked(const char* subject, const void* data, int len, const char* msgId,
                                const char* const* headers, int headerCount) {
    return enqueue(subject, data, len, msgId, headers, headerCount, 0, true);
}

bool Broker::outcome(uint64_t ticket, Outcome& out) {
    auto it = outcomes_.find(ticket);
    if (it == outcomes_.end()) return false;
    out = it->second;
    outcomes_.erase(it);
    return true;
}

uint64_t Broker::enqueue(const char* subject, const void* data, int len, const char* msgId, const char* const* headers,
                         int headerCount, int64_t stamp, bool tracked) {
    if (!openReplies()) return 0;
    while (pending_.size() >= kMaxUnconfirmed) {
        natsMsg* m = nullptr;
        if (natsSubscription_NextMsg(&m, replies_, 100) == NATS_OK) take(m);
        else resendLate(kResendAfter);
    }
    const uint64_t token = nextToken_++;
    char reply[128];
    std::snprintf(reply, sizeof reply, "%s.%llu", replyPrefix_.c_str(), static_cast<unsigned long long>(token));
    Pending p;
    p.stamp = stamp;
    p.tracked = tracked;
    natsStatus s = natsMsg_Create(&p.msg, subject, reply, static_cast<const char*>(data), len);
    if (s == NATS_OK) s = natsMsgHeader_Set(p.msg, "Nats-Msg-Id", msgId);
    for (int i = 0; i + 1 < 2 * headerCount && s == NATS_OK; i += 2)
        s = natsMsgHeader_Set(p.msg, headers[i], headers[i + 1]);
    if (s != NATS_OK) {
        natsMsg_Destroy(p.msg);
        error_ = std::string("cannot publish on ") + subject + ": " + statusText(s);
        return 0;
    }
    send(p);
    pending_.emplace(token, p);
    return token;
}

// A confirmation: {"stream":..,"seq":N[,"duplicate":true]} when stored (a duplicate is stored
// too), {"error":..} or a bare status (no stream leader yet) when not: then sent again soon.
void Broker::take(natsMsg* reply) {
    const char* subject = natsMsg_GetSubject(reply);
    const char* dot = std::strrchr(subject, '.');
    const uint64_t token = dot ? std::strtoull(dot + 1, nullptr, 10) : 0;
    auto it = pending_.find(token);
    if (it != pending_.end()) {
        const char* body = natsMsg_GetData(reply);
        const int len = natsMsg_GetDataLength(reply);
        const std::string_view text(body ? body : "", static_cast<size_t>(len));
        const size_t seqAt = text.find("\"seq\":");
        const bool failed = text.find("\"error\"") != std::string_view::npos;
        if (seqAt != std::string_view::npos && !failed) {
            if (it->second.stamp != 0 && lags_.size() < (1u << 22))
                lags_.push_back(static_cast<double>(unixNowNs() - it->second.stamp) / 1e6);
            lastConfirmation_ = Clock::now();
            if (it->second.tracked) {
                Outcome& o = outcomes_[token];
                o.stored = true;
                o.seq = std::strtoull(body + seqAt + 6, nullptr, 10);
            }
            natsMsg_Destroy(it->second.msg);
            pending_.erase(it);
        } else if (failed && text.find("wrong last sequence") != std::string_view::npos) {
            // Final: sending it again cannot help. Only tracked writes expect a sequence.
            if (it->second.tracked) outcomes_[token].conflict = true;
            natsMsg_Destroy(it->second.msg);
            pending_.erase(it);
        } else {
            // Not stored: try again after a short pause instead of at once, while a leader is elected.
            it->second.sentAt = Clock::now() - kResendAfter + std::chrono::milliseconds(250);
            it->second.refused = true;
        }
    }
    natsMsg_Destroy(reply);
}

void Broker::resendLate(Clock::duration after) {
    const auto now = Clock::now();
    if (now - lastResendCheck_ < std::chrono::milliseconds(100)) return;
    lastResendCheck_ = now;
    const bool stalled = now - lastConfirmation_ >= kStalledAfter;
    for (auto& p : pending_)
        if (now - p.second.sentAt >= after && (stalled || p.second.refused)) send(p.second);
}

void Broker::poll() {
    if (replies_ == nullptr) return;
    for (;;) {
        int msgs = 0, bytes = 0;
        if (natsSubscription_GetPending(replies_, &msgs, &bytes) != NATS_OK || msgs == 0) break;
        for (int i = 0; i < msgs; ++i) {
            natsMsg* m = nullptr;
            if (natsSubscription_NextMsg(&m, replies_, 1) != NATS_OK) break;
            take(m);
        }
    }
    if (!pending_.empty()) resendLate(kResendAfter);
}

bool Broker::flush(const std::atomic<bool>* give_up, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!pending_.empty()) {
        if ((give_up != nullptr && give_up->load()) || Clock::now() > end) return false;
        natsMsg* m = nullptr;
        if (natsSubscription_NextMsg(&m, replies_, 100) == NATS_OK) {
            take(m);
            poll();
        } else {
            resendLate(kResendAfter);
        }
    }
    return true;
}

bool parseDelivery(const char* reply, Delivery& d) {
    // $JS.ACK.<stream>.<consumer>.<delivered>.<stream seq>.<consumer seq>.<time>.<pending>, or
    // with <domain>.<account hash> after ACK and a random token at the end.
    if (reply == nullptr || std::strncmp(reply, "$JS.ACK.", 8) != 0) return false;
    const char* tokens[16];
    int n = 0;
    for (const char* t = reply; t != nullptr && n < 16; t = std::strchr(t, '.')) {
        if (*t == '.') ++t;
        tokens[n++] = t;
    }
    const int first = n == 9 ? 4 : n >= 11 ? 6 : -1;
    if (first < 0) return false;
    uint64_t v[5];
    for (int i = 0; i < 5; ++i) {
        char* end = nullptr;
        v[i] = std::strtoull(tokens[first + i], &end, 10);
        if (end == tokens[first + i] || (*end != '.' && *end != '\0')) return false;
    }
    d.streamSeq = v[1];
    d.consumerSeq = v[2];
    d.storedNs = static_cast<int64_t>(v[3]);
    d.pending = v[4];
    return true;
}

}  // namespace rtmfmt
