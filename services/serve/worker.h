// A worker of the rtmonitor service. It owns partitions of the frames stream through leases in
// the lease bucket, analyses each partition's frames in stream order on one handle per device,
// publishes every result with an id the results stream deduplicates, and writes device
// snapshots on a fixed period. A partition's frames are acknowledged only up to the last
// completed snapshot round, so when a worker dies its successor loads the snapshots, is handed
// the unacknowledged frames again, skips those a snapshot already covers and continues with
// results identical, frame for frame, to an uninterrupted run.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "formats/broker.h"
#include "rtmonitor.h"

namespace rtmserve {

// The service speaks the wire and broker of the formats layer throughout.
using namespace rtmfmt;

struct WorkerOptions {
    std::string name;             // unique among the workers; lease owner and log prefix
    double snapshotEvery = 10.0;  // seconds between snapshot rounds (and acknowledgements)
    double leaseTtl = 15.0;       // seconds a lease lasts unless renewed; renewed every third of it
    double logEvery = 60.0;       // seconds between progress lines
    int batch = 256;              // frames asked for per partition and fetch
    bool json = false;            // results as JSON text instead of the 1124-byte record
};

class Worker {
public:
    Worker(Broker& broker, const WorkerOptions& options, int partitions);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Runs until `stop`, then writes final snapshots and releases its leases. Returns the exit status.
    int run(const std::atomic<bool>& stop);

private:
    using Clock = std::chrono::steady_clock;

    struct Device {
        int32_t id = 0;
        rtm_device* handle = nullptr;
        uint64_t seq = 0;      // stream sequence of the last frame analysed (or covered by the snapshot)
        uint64_t snapRev = 0;  // revision of its snapshot in the bucket, 0 when none
        bool dirty = false;    // analysed frames since the last snapshot
    };
    struct Partition {
        int index = 0;
        uint64_t leaseRev = 0;
        Clock::time_point validUntil;  // stop touching the partition after this unless renewed
        Clock::time_point nextSnapshot;
        natsSubscription* sub = nullptr;
        uint64_t ackedSeq = 0;       // every frame up to here is covered by snapshots
        uint64_t lastDseq = 0;       // consumer's delivery count of the last message seen
        uint64_t lostSuspect = 0;    // deliveries the consumer counted but we had not seen at the last check
        natsMsg* lastMsg = nullptr;  // last message handled, acknowledged (with all before it) at the next round
        uint64_t lastMsgSeq = 0;
        uint64_t backlog = 0;         // frames the consumer still holds after the last one seen
        Clock::time_point retryAt;    // when to try again to open the consumer
        Clock::time_point nextCheck;  // when an idle partition next asks the consumer what it handed out
        std::map<int32_t, Device> devices;
    };
    enum class Outcome { Ok, Resync, Lost };

    void maintainLeases();
    void renewLeasesIfDue();
    int liveWorkers();
    bool tryAcquire(int p);
    natsStatus readLease(int p, std::string& owner, int64_t& expiry, uint64_t& rev);
    bool openConsumer(Partition& part, uint64_t startSeq);
    bool consumerStartsAt(const std::string& durable, uint64_t startSeq, uint64_t& delivered);
    bool makeConsumer(const Partition& part, uint64_t startSeq);
    void closeConsumer(Partition& part);
    void destroyRetired(bool all);
    void drop(int p, const std::string& why);
    bool release(int p);
    void poll(Partition& part);
    Outcome handle(Partition& part, natsMsg* msg);
    bool deliveriesLost(Partition& part);
    Outcome loadDevice(int32_t id, Device& dev);
    natsStatus lastSnapshot(int32_t id, natsMsg** msg);
    Outcome snapshotRound(Partition& part);
    void publishResult(int32_t id, const rtm_device* handle, const ParamsIn& frame, const ParamsOut& out, uint64_t seq,
                       int64_t frameTime);
    void resyncAll();
    void logProgress(double seconds);
    std::string leaseValue() const;

    Broker& broker_;
    WorkerOptions opt_;
    int partitions_;
    const std::atomic<bool>* stop_ = nullptr;
    std::map<int, Partition> owned_;
    std::vector<unsigned char> snapBuf_;
    std::vector<unsigned char> payload_;                                   // the result being published, reused
    std::deque<std::pair<Clock::time_point, natsSubscription*>> retired_;  // closed consumers, freed later
    std::string resyncWhy_;  // why the last partition had to start again from its floor
    uint64_t framesSinceLog_ = 0;
    uint64_t reconnectsSeen_ = 0;
    Clock::time_point nextLease_;
};

}  // namespace rtmserve
