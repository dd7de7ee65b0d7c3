// The worker service end to end against a private nats-server: 200 devices x 120 frames through
// two workers while one of them is killed (SIGKILL) or the server restarts. Every device's
// results, read back from the results stream, must equal frame for frame a replay of the same
// frames through one handle, with no frame missing and none twice.
#include <gtest/gtest.h>

#include "formats/broker.h"
#include "formats/frame_file.h"
#include "formats/wire.h"
#include "nats_harness.h"
#include "results_check.h"
#include "workload.h"

namespace {

using namespace servetest;

constexpr int kPartitions = 8;
constexpr uint64_t kFrames = kWorkloadFrames;

class ServeTest : public ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        startServer(kPartitions);
        ASSERT_EQ(run({bin("rtmonitor-serve"), "--setup", "--server", server_->url(), "--partitions",
                       std::to_string(kPartitions)},
                      "setup.log"),
                  0)
            << readText(path("setup.log"));
        ASSERT_TRUE(writeFrameFile(path("load.frames"), workload().frames));
        ASSERT_TRUE(broker_.connect(server_->url(), "test"));
        int partitions = 0;
        ASSERT_TRUE(broker_.check(partitions)) << broker_.error();
    }
    void TearDown() override {
        for (auto& w : workers_) w->kill(SIGKILL);
        ServerTest::TearDown();
    }

    Child& startWorker(const std::string& name) {
        workers_.push_back(std::make_unique<Child>());
        EXPECT_TRUE(workers_.back()->start({bin("rtmonitor-serve"), "--server", server_->url(), "--name", name,
                                            "--snapshot-every", "0.5", "--lease-ttl", "2", "--log-every", "1"},
                                           path(name + ".log")));
        return *workers_.back();
    }

    // Owner of every partition lease, "" for none.
    std::vector<std::string> leaseOwners() {
        std::vector<std::string> owners(kPartitions);
        for (int p = 0; p < kPartitions; ++p) {
            kvEntry* e = nullptr;
            if (kvStore_Get(&e, broker_.leases(), rtmfmt::leaseKey(p).c_str()) != NATS_OK) continue;
            const std::string v(static_cast<const char*>(kvEntry_Value(e)), static_cast<size_t>(kvEntry_ValueLen(e)));
            owners[static_cast<size_t>(p)] = v.substr(0, v.find(' '));
            kvEntry_Destroy(e);
        }
        return owners;
    }

    // Waits until the two workers hold every partition between them.
    bool waitBalanced(const std::string& a, const std::string& b) {
        for (int i = 0; i < 400; ++i) {
            const auto owners = leaseOwners();
            const size_t na = static_cast<size_t>(std::count(owners.begin(), owners.end(), a));
            const size_t nb = static_cast<size_t>(std::count(owners.begin(), owners.end(), b));
            if (na > 0 && nb > 0 && na + nb == owners.size()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    uint64_t results() { return streamMessages(broker_.js(), rtmfmt::kResultsStream); }
    bool waitResults(uint64_t atLeast, int seconds) { return waitForResults(broker_.js(), atLeast, seconds); }

    Child& publish() {
        publisher_ = std::make_unique<Child>();
        EXPECT_TRUE(publisher_->start(
            {bin("rtmonitor"), "publish", path("load.frames"), "--rate", "max", "--server", server_->url()},
            path("publish.log")));
        return *publisher_;
    }

    rtmfmt::Broker broker_;
    std::vector<std::unique_ptr<Child>> workers_;
    std::unique_ptr<Child> publisher_;
};

TEST_F(ServeTest, SurvivorTakesOverTheKilledWorkersPartitionsWithoutGapOrRepeat) {
    Child& a = startWorker("a");
    startWorker("b");
    ASSERT_TRUE(waitBalanced("a", "b")) << readText(path("a.log")) << readText(path("b.log"));
    publish();
    ASSERT_TRUE(waitResults(kFrames / 3, 60));
    const uint64_t atKill = results();
    a.kill(SIGKILL);
    ASSERT_LT(atKill, kFrames) << "the stream was finished before the kill; nothing was taken over";
    EXPECT_EQ(publisher_->wait(), 0) << readText(path("publish.log"));
    ASSERT_TRUE(waitResults(kFrames, 60)) << results() << " of " << kFrames << "\n" << readText(path("b.log"));
    const auto owners = leaseOwners();
    EXPECT_EQ(std::count(owners.begin(), owners.end(), "b"), kPartitions) << "b did not take every partition";
    expectResultsEqual(broker_.js(), workload().expected);
}

TEST_F(ServeTest, ServerRestartMidStreamLosesAndRepeatsNothing) {
    startWorker("a");
    startWorker("b");
    ASSERT_TRUE(waitBalanced("a", "b")) << readText(path("a.log")) << readText(path("b.log"));
    publish();
    ASSERT_TRUE(waitResults(kFrames / 3, 60));
    server_->stop();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    ASSERT_TRUE(server_->start()) << server_->log();
    EXPECT_EQ(publisher_->wait(), 0) << readText(path("publish.log"));
    ASSERT_TRUE(waitResults(kFrames, 60)) << results() << " of " << kFrames << "\n"
                                          << readText(path("a.log")) << readText(path("b.log"));
    expectResultsEqual(broker_.js(), workload().expected);
    for (auto& w : workers_) EXPECT_TRUE(w->running()) << "a worker gave up while the server was away";
}

}  // namespace
