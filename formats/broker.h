// The worker service's link to NATS: one connection with its JetStream context that reconnects
// by itself, the one-time setup of the streams and buckets, the checks a worker makes before it
// starts, and a publisher that keeps asynchronous publishes until the server has stored them.
#pragma once

#include <nats/nats.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace rtmfmt {

std::string statusText(natsStatus s);

// Where and as whom a program connects: one or more servers of a cluster (the client moves to
// another when one goes away), and the credentials and TLS files the server's accounts ask for.
struct ConnectOptions {
    std::vector<std::string> servers;  // URLs; empty means nats://127.0.0.1:4222
    std::string creds;                 // a credentials file (user JWT and key)
    std::string user, password;
    std::string tlsCa;            // certificate authority to check the server against
    std::string tlsCert, tlsKey;  // this client's certificate and key
    int timeoutMs = 3000;         // first connection
};

// Adds the servers of a `--server` value (one URL or several separated by commas); false when
// one of them is empty.
bool addServers(const std::string& value, std::vector<std::string>& servers);

struct ParsedArgs;
// The server list, credentials and TLS files of a parsed command line (--server, --creds,
// --user, --password, --tls-ca, --tls-cert, --tls-key); false with `error` set when they do not
// fit together.
bool connectOptionsFrom(const ParsedArgs& p, ConnectOptions& o, std::string& error);

// Where a message handed out by a consumer sits, read from its acknowledgement subject without
// the client's allocating parser.
struct Delivery {
    uint64_t streamSeq = 0;
    uint64_t consumerSeq = 0;  // counts deliveries, including repeats
    int64_t storedNs = 0;      // when the stream stored it, ns since 1970
    uint64_t pending = 0;      // messages the consumer still holds after this one
};
bool parseDelivery(const char* reply, Delivery& d);

class Broker {
public:
    Broker() = default;
    ~Broker();
    Broker(const Broker&) = delete;
    Broker& operator=(const Broker&) = delete;

    // False with error() set when no server can be reached within a few seconds or it refuses
    // the credentials. Once connected, the client reconnects for ever, to any server of the list
    // (and any other the cluster announces) when one goes away.
    bool connect(const ConnectOptions& options, const std::string& name);
    bool connect(const std::string& url, const std::string& name);

    // Creates (or checks) the frames and results streams and the two buckets, each stored on
    // `replicas` servers of a cluster, and records the partition count, which is fixed for the
    // life of the frames stream.
    bool setup(int partitions, int64_t duplicateWindowSeconds, int replicas = 1);

    // Checks that the streams and buckets exist as setup made them; reads the partition count.
    bool check(int& partitions);

    natsConnection* connection() const { return nc_; }
    jsCtx* js() const { return js_; }
    kvStore* leases() const { return leases_; }
    kvStore* snapshots() const { return snapshots_; }
    const std::string& error() const { return error_; }
    // How many times the connection came back since connect(); whatever was in flight then
    // (fetches, acknowledgements) may be lost.
    uint64_t reconnects() const { return reconnects_.load(); }
    // The server's last refusal of a publish or subscription ("Permissions Violation for ..."),
    // empty when there was none; the server reports these on the side, not as a reply.
    std::string refusal();

    // Publishes to a stream without waiting, with a message id (the stream drops repeats of an
    // id); the message is kept until the stream confirms it. `stamp` (ns since 1970, or 0) comes
    // back in lags() once the stream has stored it. Waits for confirmations only when too many
    // are outstanding. `headers` are name/value pairs after the message id.
    bool publish(const char* subject, const void* data, int len, const char* msgId,
                 const char* const* headers = nullptr, int headerCount = 0, int64_t stamp = 0);
    // The same for a write whose outcome the caller needs (a revision-checked bucket write):
    // returns a ticket for outcome() after flush(), 0 when the message could not be made.
    uint64_t publishTracked(const char* subject, const void* data, int len, const char* msgId,
                            const char* const* headers, int headerCount);
    struct Outcome {
        bool stored = false;
        bool conflict = false;  // refused: the subject's last sequence was not the expected one
        uint64_t seq = 0;       // stream sequence (a bucket key's revision) when stored
    };
    // The outcome of a tracked publish once confirmed or refused; false while still waiting.
    bool outcome(uint64_t ticket, Outcome& out);
    bool publish(const std::string& subject, const void* data, int len, const std::string& msgId,
                 const std::vector<std::pair<const char*, std::string>>& headers = {}) {
        std::vector<const char*> pairs;
        for (const auto& h : headers) {
            pairs.push_back(h.first);
            pairs.push_back(h.second.c_str());
        }
        return publish(subject.c_str(), data, len, msgId.c_str(), pairs.data(), static_cast<int>(headers.size()));
    }
    // Takes in the confirmations that have arrived, without waiting; sends again what was not
    // confirmed in time (a reconnect or a stream leader change loses them).
    void poll();
    // Waits until every publish so far is stored. False when `give_up` became true or `limit`
    // passed first.
    bool flush(const std::atomic<bool>* give_up, std::chrono::milliseconds limit = std::chrono::hours(24 * 365));
    size_t unconfirmed() const { return pending_.size(); }
    // Milliseconds from each confirmed publish's stamp to its confirmation; the caller clears it.
    std::vector<double>& lags() { return lags_; }

private:
    using Clock = std::chrono::steady_clock;
    struct Pending {
        natsMsg* msg = nullptr;
        Clock::time_point sentAt;
        int64_t stamp = 0;
        bool tracked = false;
        bool refused = false;  // the stream answered that it did not store it
    };
    uint64_t enqueue(const char* subject, const void* data, int len, const char* msgId, const char* const* headers,
                     int headerCount, int64_t stamp, bool tracked);
    static void onReconnected(natsConnection* nc, void* closure);
    static void onAsyncError(natsConnection* nc, natsSubscription* sub, natsStatus err, void* closure);
    bool applySecurity(const ConnectOptions& o);
    bool openReplies();
    bool send(Pending& p);
    void take(natsMsg* reply);
    void resendLate(Clock::duration after);

    natsOptions* opts_ = nullptr;
    natsConnection* nc_ = nullptr;
    jsCtx* js_ = nullptr;
    kvStore* leases_ = nullptr;
    kvStore* snapshots_ = nullptr;
    std::string error_;
    std::atomic<uint64_t> reconnects_{0};
    std::mutex refusalMutex_;
    std::string refusal_;
    // Confirmations come to <replyPrefix_>.<token>, token counting up from 1, on one subscription
    // drained by the caller's thread: no callback thread to wake per message.
    natsSubscription* replies_ = nullptr;
    std::string replyPrefix_;
    uint64_t nextToken_ = 1;
    std::unordered_map<uint64_t, Pending> pending_;
    std::unordered_map<uint64_t, Outcome> outcomes_;  // of tracked publishes, until asked for
    std::vector<double> lags_;
    Clock::time_point lastResendCheck_;
    Clock::time_point lastConfirmation_;
};

}  // namespace rtmfmt
