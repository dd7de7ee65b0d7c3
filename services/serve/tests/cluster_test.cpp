// The worker service on a three-server JetStream cluster (streams and buckets on all three):
// 200 devices x 120 frames through two workers while the server leading the frames stream is
// killed with SIGKILL and later restarted, and while a worker and a server die at once. Every
// device's results must equal a replay through one handle, with no frame missing and none twice.
#include <gtest/gtest.h>

#include "formats/broker.h"
#include "formats/wire.h"
#include "nats_harness.h"
#include "results_check.h"
#include "workload.h"

namespace {

using namespace servetest;

constexpr int kPartitions = 8;

class ClusterTest : public ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        cluster_ = std::make_unique<NatsCluster>(dir_, kPartitions);
        ASSERT_TRUE(cluster_->start()) << cluster_->logs();
        // The cluster takes a moment to elect its first leader; until then setup is refused.
        int status = 1;
        for (int i = 0; i < 60 && status != 0; ++i) {
            status = run({bin("rtmonitor-serve"), "--setup", "--server", cluster_->urls(), "--partitions",
                          std::to_string(kPartitions), "--replicas", "3"},
                         "setup.log");
            if (status != 0) std::this_thread::sleep_for(std::chrono::milliseconds(250));
        }
        ASSERT_EQ(status, 0) << readText(path("setup.log"));
        ASSERT_TRUE(writeFrameFile(path("load.frames"), workload().frames));
        ASSERT_TRUE(broker_.connect(cluster_->urls(), "test"));
        int partitions = 0;
        ASSERT_TRUE(broker_.check(partitions)) << broker_.error();
    }
    void TearDown() override {
        for (auto& w : workers_) w->kill(SIGKILL);
        publisher_.reset();
        cluster_.reset();
        ServerTest::TearDown();
    }

    Child& startWorker(const std::string& name) {
        workers_.push_back(std::make_unique<Child>());
        EXPECT_TRUE(workers_.back()->start({bin("rtmonitor-serve"), "--server", cluster_->urls(), "--name", name,
                                            "--snapshot-every", "2", "--lease-ttl", "6", "--log-every", "1"},
                                           path(name + ".log")));
        return *workers_.back();
    }
    void publish() {
        publisher_ = std::make_unique<Child>();
        EXPECT_TRUE(publisher_->start(
            {bin("rtmonitor"), "publish", path("load.frames"), "--rate", "max", "--server", cluster_->urls()},
            path("publish.log")));
    }
    // The server leading a stream (a bucket is the stream KV_<bucket>).
    size_t leaderOf(const char* stream) {
        for (int i = 0; i < 100; ++i) {
            jsStreamInfo* si = nullptr;
            std::string leader;
            if (js_GetStreamInfo(&si, broker_.js(), stream, nullptr, nullptr) == NATS_OK && si->Cluster != nullptr &&
                si->Cluster->Leader != nullptr)
                leader = si->Cluster->Leader;
            jsStreamInfo_Destroy(si);
            if (!leader.empty()) return cluster_->index(leader);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return cluster_->size();
    }
    bool waitResults(uint64_t atLeast, int seconds) { return waitForResults(broker_.js(), atLeast, seconds); }
    std::string logs() {
        return readText(path("a.log")) + readText(path("b.log")) + readText(path("publish.log")) + cluster_->logs();
    }

    std::unique_ptr<NatsCluster> cluster_;
    rtmfmt::Broker broker_;
    std::vector<std::unique_ptr<Child>> workers_;
    std::unique_ptr<Child> publisher_;
};

TEST_F(ClusterTest, StreamLeaderKilledAndRestartedLosesAndRepeatsNothing) {
    startWorker("a");
    startWorker("b");
    publish();
    ASSERT_TRUE(waitResults(kWorkloadFrames / 4, 90)) << logs();
    const size_t leader = leaderOf(rtmfmt::kFramesStream);
    ASSERT_LT(leader, cluster_->size());
    cluster_->server(leader).kill();
    // The two others carry on alone before the third comes back.
    ASSERT_TRUE(waitResults(kWorkloadFrames * 2 / 3, 90)) << logs();
    ASSERT_TRUE(cluster_->server(leader).start()) << cluster_->logs();
    EXPECT_EQ(publisher_->wait(), 0) << readText(path("publish.log"));
    ASSERT_TRUE(waitResults(kWorkloadFrames, 120)) << logs();
    expectResultsEqual(broker_.js(), workload().expected);
    for (auto& w : workers_) EXPECT_TRUE(w->running()) << "a worker gave up while a server was away";
}

TEST_F(ClusterTest, WorkerAndLeaseLeaderKilledTogetherLoseAndRepeatNothing) {
    Child& a = startWorker("a");
    startWorker("b");
    publish();
    ASSERT_TRUE(waitResults(kWorkloadFrames / 3, 90)) << logs();
    const size_t leader = leaderOf((std::string("KV_") + rtmfmt::kLeaseBucket).c_str());
    ASSERT_LT(leader, cluster_->size());
    a.kill(SIGKILL);
    cluster_->server(leader).kill();
    EXPECT_EQ(publisher_->wait(), 0) << readText(path("publish.log"));
    ASSERT_TRUE(waitResults(kWorkloadFrames, 120)) << logs();
    expectResultsEqual(broker_.js(), workload().expected);
}

}  // namespace
