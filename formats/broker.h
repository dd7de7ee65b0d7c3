// The worker service's link to NATS: one connection with its JetStream context that reconnects
// by itself, the one-time setup of the streams and buckets, the checks a worker makes before it
// starts, and a publisher that keeps asynchronous publishes until the server has stored them.
#pragma once

#include <nats/nats.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace rtmfmt {

std::string statusText(natsStatus s);

class Broker {
public:
    Broker() = default;
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // False with error() set when the server cannot be reached within a few seconds. Once
    // connected, the connection is retried for ever when the server goes away. `url` may list
    // the servers of a cluster separated by commas.
    bool connect(const std::string& url, const std::string& name);

    // Creates (or checks) the frames and results streams and the two buckets, and records the
    // partition count, which is fixed for the life of the frames stream.
    bool setup(int partitions, int64_t duplicateWindowSeconds);

    // Checks that the streams and buckets exist as setup made them; reads the partition count.
    bool check(int& partitions);

    natsConnection* connection() const { return nc_; }
    jsCtx* js() const { return js_; }
    kvStore* leases() const { return leases_; }
    kvStore* snapshots() const { return snapshots_; }
    const std::string& error() const { return error_; }

    // Publishes asynchronously with a message id (the server drops repeats of an id).
    bool publish(const std::string& subject, const void* data, int len, const std::string& msgId,
                 const std::vector<std::pair<const char*, std::string>>& headers = {});
    // Waits until every publish so far is stored, publishing again what the server did not
    // confirm (a reconnect loses them). False when `give_up` became true first.
    bool flush(const std::atomic<bool>* give_up);

private:
    static void onPublishError(jsCtx* js, jsPubAckErr* pae, void* closure);

    natsOptions* opts_ = nullptr;
    natsConnection* nc_ = nullptr;
    jsCtx* js_ = nullptr;
    kvStore* leases_ = nullptr;
    kvStore* snapshots_ = nullptr;
    std::string error_;
    std::mutex failedMutex_;
    std::vector<natsMsg*> failed_;
};

}  // namespace rtmfmt
