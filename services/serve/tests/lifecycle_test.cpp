// The worker's life outside failover: the errors a user meets first (no server, no setup, no
// subject mapping, a changed partition count), and a clean stop on SIGTERM that leaves final
// snapshots, acknowledged frames and no leases, so the next worker continues the devices exactly.
#include <gtest/gtest.h>

#include <map>

#include "formats/broker.h"
#include "formats/frame_file.h"
#include "formats/wire.h"
#include "nats_harness.h"
#include "results_check.h"
#include "synth/recording.h"

namespace {

using namespace servetest;

constexpr int kDevices = 20;
constexpr int kSeconds = 20;  // the generator's schedule depends on the length: always make all of it

std::vector<ParamsIn> deviceFrames(int device, int seconds) {
    rtm_synth::SynthOptions o;
    o.seconds = seconds;
    o.seed = static_cast<uint32_t>(100 + device);
    o.deviceId = device;
    return rtm_synth::synthesize(o).frames;
}

// Seconds [from, to) of every device, interleaved second by second.
std::vector<ParamsIn> interleaved(int from, int to) {
    std::vector<std::vector<ParamsIn>> all;
    for (int d = 1; d <= kDevices; ++d) all.push_back(deviceFrames(d, kSeconds));
    std::vector<ParamsIn> r;
    for (int s = from; s < to; ++s)
        for (const auto& dev : all) r.push_back(dev[static_cast<size_t>(s)]);
    return r;
}

class LifecycleTest : public ServerTest {
protected:
    std::vector<std::string> worker(const std::string& name) {
        return {bin("rtmonitor-serve"), "--server", server_->url(), "--name", name,
                "--snapshot-every",     "600",      "--lease-ttl",  "2"};
    }
    std::vector<std::string> setup(int partitions) {
        return {bin("rtmonitor-serve"), "--setup",      "--server",
                server_->url(),         "--partitions", std::to_string(partitions)};
    }
    int publish(const std::vector<ParamsIn>& frames, const std::string& log) {
        EXPECT_TRUE(writeFrameFile(path("part.frames"), frames));
        return run({bin("rtmonitor"), "publish", path("part.frames"), "--server", server_->url()}, log);
    }
};

TEST_F(LifecycleTest, UnreachableServerMissingSetupAndMissingMappingExitOneWithTheReason) {
    const std::string nowhere = "nats://127.0.0.1:" + std::to_string(freeLoopbackPort());
    EXPECT_EQ(run({bin("rtmonitor-serve"), "--server", nowhere}, "w0.log"), 1);
    EXPECT_NE(readText(path("w0.log")).find("cannot reach the NATS server"), std::string::npos)
        << readText(path("w0.log"));
    ASSERT_TRUE(writeFrameFile(path("one.frames"), deviceFrames(1, 1)));
    EXPECT_EQ(run({bin("rtmonitor"), "publish", path("one.frames"), "--server", nowhere}, "p0.log"), 1);

    startServer(0);  // no subject mapping
    EXPECT_EQ(run({bin("rtmonitor-serve"), "--server", server_->url()}, "w1.log"), 1);
    EXPECT_NE(readText(path("w1.log")).find("rtmonitor-serve --setup"), std::string::npos) << readText(path("w1.log"));
    ASSERT_EQ(run(setup(4), "s1.log"), 0) << readText(path("s1.log"));
    EXPECT_EQ(run({bin("rtmonitor"), "publish", path("one.frames"), "--server", server_->url()}, "p1.log"), 1);
    EXPECT_NE(readText(path("p1.log")).find("subject mapping"), std::string::npos) << readText(path("p1.log"));
    // The partition count is part of the stream's identity.
    EXPECT_EQ(run(setup(4), "s2.log"), 0) << readText(path("s2.log"));
    EXPECT_EQ(run(setup(8), "s3.log"), 1);
    EXPECT_NE(readText(path("s3.log")).find("fixed for the life of the stream"), std::string::npos);
}

TEST_F(LifecycleTest, SigtermLeavesFinalSnapshotsAndNoLeasesAndTheNextWorkerContinuesExactly) {
    constexpr int kPartitions = 4, kFirst = 12, kTotal = kSeconds;
    startServer(kPartitions);
    ASSERT_EQ(run(setup(kPartitions), "setup.log"), 0) << readText(path("setup.log"));
    rtmfmt::Broker broker;
    ASSERT_TRUE(broker.connect(server_->url(), "test"));
    int partitions = 0;
    ASSERT_TRUE(broker.check(partitions)) << broker.error();
    auto waitResults = [&](uint64_t n) { return waitForResults(broker.js(), n, 30); };

    // Snapshot rounds are ten minutes apart: only the final one at SIGTERM can cover the frames.
    Child a;
    ASSERT_TRUE(a.start(worker("a"), path("a.log")));
    ASSERT_EQ(publish(interleaved(0, kFirst), "p1.log"), 0) << readText(path("p1.log"));
    ASSERT_TRUE(waitResults(kDevices * kFirst)) << readText(path("a.log"));
    EXPECT_EQ(a.kill(SIGTERM), 0) << readText(path("a.log"));
    for (int p = 0; p < kPartitions; ++p) {
        kvEntry* e = nullptr;
        EXPECT_EQ(kvStore_Get(&e, broker.leases(), rtmfmt::leaseKey(p).c_str()), NATS_NOT_FOUND) << "partition " << p;
        kvEntry_Destroy(e);
        jsConsumerInfo* ci = nullptr;
        if (js_GetConsumerInfo(&ci, broker.js(), rtmfmt::kFramesStream, rtmfmt::consumerName(p).c_str(), nullptr,
                               nullptr) == NATS_OK) {
            EXPECT_EQ(ci->NumAckPending, 0) << "partition " << p << " left frames unacknowledged";
            jsConsumerInfo_Destroy(ci);
        }
    }
    for (int d = 1; d <= kDevices; ++d) {
        kvEntry* e = nullptr;
        ASSERT_EQ(kvStore_Get(&e, broker.snapshots(), rtmfmt::snapshotKey(d).c_str()), NATS_OK) << "device " << d;
        uint64_t seq = 0;
        EXPECT_TRUE(rtmfmt::parseSnapshotHeader(kvEntry_Value(e), static_cast<size_t>(kvEntry_ValueLen(e)), seq));
        EXPECT_GT(seq, 0u);
        kvEntry_Destroy(e);
    }

    // A new worker starts from the snapshots: its results for the remaining seconds equal an
    // uninterrupted run's.
    Child b;
    ASSERT_TRUE(b.start(worker("b"), path("b.log")));
    ASSERT_EQ(publish(interleaved(kFirst, kTotal), "p2.log"), 0) << readText(path("p2.log"));
    ASSERT_TRUE(waitResults(kDevices * kTotal)) << readText(path("b.log"));
    EXPECT_EQ(b.kill(SIGTERM), 0);

    expectResultsEqual(broker.js(), replayThroughHandles(interleaved(0, kSeconds)));
}

TEST(ServeWire, DeliveriesArePlacedFromBothAcknowledgementSubjectForms) {
    rtmfmt::Delivery d;
    ASSERT_TRUE(rtmfmt::parseDelivery("$JS.ACK.RTM_FRAMES.part-3.1.4711.42.1700000000123456789.9", d));
    EXPECT_EQ(d.streamSeq, 4711u);
    EXPECT_EQ(d.consumerSeq, 42u);
    EXPECT_EQ(d.storedNs, 1700000000123456789);
    EXPECT_EQ(d.pending, 9u);
    // With a domain and account hash, and a trailing token.
    ASSERT_TRUE(rtmfmt::parseDelivery("$JS.ACK.hub.ACCHASH.RTM_FRAMES.part-3.2.18446744073709551615.7.5.0.xyz", d));
    EXPECT_EQ(d.streamSeq, 18446744073709551615u);
    EXPECT_EQ(d.consumerSeq, 7u);
    EXPECT_EQ(d.pending, 0u);
    for (const char* bad :
         {"", "_INBOX.abc", "$JS.ACK.RTM_FRAMES.part-3.1.x.42.1.9", "$JS.ACK.S.C.1.2.3.4", "$JS.ACK.S.C.1.2.3.4.5.6"})
        EXPECT_FALSE(rtmfmt::parseDelivery(bad, d)) << bad;
    EXPECT_FALSE(rtmfmt::parseDelivery(nullptr, d));
}

TEST(ServeWire, ServerListsSplitOnCommasAndRejectEmptyEntries) {
    std::vector<std::string> servers;
    ASSERT_TRUE(rtmfmt::addServers("nats://a:1,nats://b:2", servers));
    ASSERT_TRUE(rtmfmt::addServers("nats://c:3", servers));
    EXPECT_EQ(servers, (std::vector<std::string>{"nats://a:1", "nats://b:2", "nats://c:3"}));
    for (const char* bad : {"", "nats://a:1,", ",nats://a:1", "nats://a:1,,nats://b:2"})
        EXPECT_FALSE(rtmfmt::addServers(bad, servers)) << bad;
}

}  // namespace
