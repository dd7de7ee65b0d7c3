// The broker as the trust boundary: a server with the least-privilege accounts of
// docs/serving.md (gateway, worker, station, admin). A worker with its own user analyses frames a
// gateway sent; the gateway can neither read results nor write snapshots; a station cannot send
// frames; a wrong password or a missing credentials file ends the programs with exit 1 and a
// message that says what to check.
#include <gtest/gtest.h>

#include "formats/broker.h"
#include "formats/wire.h"
#include "nats_harness.h"
#include "results_check.h"
#include "synth/recording.h"

namespace {

using namespace servetest;

// The accounts block of docs/serving.md ("Who may do what"), passwords aside.
const char* const kAccounts = R"(
accounts {
  RTM {
    jetstream: enabled
    mappings: { "rtm.frames.*": "rtm.part.{{partition(4,1)}}.{{wildcard(1)}}" }
    users: [
      { user: admin, password: admin-secret }
      { user: gateway, password: gateway-secret,
        permissions: { publish: ["rtm.frames.>", "rtm.part.>"], subscribe: ["_INBOX.>"] } }
      { user: worker, password: worker-secret,
        permissions: {
          publish: ["rtm.vitals.>", "$KV.rtm_leases.>", "$KV.rtm_snapshots.>", "$JS.ACK.RTM_FRAMES.>",
                    "$JS.API.INFO", "$JS.API.STREAM.INFO.*",
                    "$JS.API.STREAM.MSG.GET.KV_rtm_leases", "$JS.API.STREAM.MSG.GET.KV_rtm_snapshots",
                    "$JS.API.DIRECT.GET.KV_rtm_leases.>", "$JS.API.DIRECT.GET.KV_rtm_snapshots.>",
                    "$JS.API.CONSUMER.CREATE.RTM_FRAMES.>", "$JS.API.CONSUMER.DURABLE.CREATE.RTM_FRAMES.>",
                    "$JS.API.CONSUMER.DELETE.RTM_FRAMES.>", "$JS.API.CONSUMER.INFO.RTM_FRAMES.>",
                    "$JS.API.CONSUMER.MSG.NEXT.RTM_FRAMES.>"]
          subscribe: ["_INBOX.>"] } }
      { user: station, password: station-secret,
        permissions: {
          publish: ["rtm.ack.>", "$KV.rtm_limits.>", "$JS.API.INFO", "$JS.API.STREAM.INFO.*",
                    "$JS.API.STREAM.MSG.GET.*", "$JS.API.DIRECT.GET.>",
                    "$JS.API.CONSUMER.CREATE.*.>", "$JS.API.CONSUMER.DELETE.*.>", "$JS.API.CONSUMER.INFO.*.>",
                    "$JS.API.CONSUMER.MSG.NEXT.*.>", "$JS.FC.>"]
          subscribe: ["rtm.vitals.>", "rtm.alarms.>", "_INBOX.>"] } }
    ]
  }
}
)";

constexpr int kPartitions = 4;

std::vector<ParamsIn> frames(int devices, int seconds) {
    std::vector<std::vector<ParamsIn>> all;
    for (int d = 1; d <= devices; ++d) {
        rtm_synth::SynthOptions o;
        o.seconds = seconds;
        o.seed = static_cast<uint32_t>(300 + d);
        o.deviceId = d;
        all.push_back(rtm_synth::synthesize(o).frames);
    }
    std::vector<ParamsIn> r;
    for (int s = 0; s < seconds; ++s)
        for (const auto& dev : all) r.push_back(dev[static_cast<size_t>(s)]);
    return r;
}

class PermissionsTest : public ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        server_ = std::make_unique<NatsServer>(dir_, 0, "", kAccounts);  // the mapping is the account's
        ASSERT_TRUE(server_->start()) << server_->log();
        ASSERT_EQ(run({bin("rtmonitor-serve"), "--setup", "--server", server_->url(), "--partitions",
                       std::to_string(kPartitions), "--user", "admin", "--password", "admin-secret"},
                      "setup.log"),
                  0)
            << readText(path("setup.log"));
    }
    std::vector<std::string> as(std::vector<std::string> argv, const std::string& user) {
        for (const std::string& a : {std::string("--server"), server_->url(), std::string("--user"), user,
                                     std::string("--password"), user + "-secret"})
            argv.push_back(a);
        return argv;
    }
    // A connection of `user` that publishes `subject` and reports whether the server refused it.
    bool refused(const std::string& user, const std::string& subject) {
        rtmfmt::ConnectOptions o;
        o.servers = {server_->url()};
        o.user = user;
        o.password = user + "-secret";
        rtmfmt::Broker b;
        EXPECT_TRUE(b.connect(o, "test")) << b.error();
        natsConnection_PublishString(b.connection(), subject.c_str(), "x");
        natsConnection_Flush(b.connection());
        for (int i = 0; i < 50 && b.refusal().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return !b.refusal().empty();
    }
};

TEST_F(PermissionsTest, EachUserDoesItsOwnPartAndNothingElse) {
    const auto sent = frames(4, 5);
    ASSERT_TRUE(writeFrameFile(path("load.frames"), sent));
    Child worker;
    ASSERT_TRUE(worker.start(as({bin("rtmonitor-serve"), "--name", "w", "--snapshot-every", "0.5"}, "worker"),
                             path("worker.log")));
    // A station reads the results as the worker publishes them.
    Child station;
    ASSERT_TRUE(
        station.start(as({bin("rtmonitor"), "subscribe", "--count", std::to_string(sent.size()), "--quiet"}, "station"),
                      path("station0.log")));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(run(as({bin("rtmonitor"), "publish", path("load.frames")}, "gateway"), "gateway.log"), 0)
        << readText(path("gateway.log"));
    rtmfmt::ConnectOptions o;
    o.servers = {server_->url()};
    o.user = "admin";
    o.password = "admin-secret";
    rtmfmt::Broker adminUser;
    ASSERT_TRUE(adminUser.connect(o, "test")) << adminUser.error();
    ASSERT_TRUE(waitForResults(adminUser.js(), sent.size(), 60)) << readText(path("worker.log"));
    expectResultsEqual(adminUser.js(), replayThroughHandles(sent));
    EXPECT_EQ(station.wait(), 0) << readText(path("station0.log"));
    EXPECT_EQ(worker.kill(SIGTERM), 0) << readText(path("worker.log"));

    // The gateway only sends frames.
    EXPECT_EQ(run(as({bin("rtmonitor"), "subscribe", "--count", "1"}, "gateway"), "gateway_sub.log"), 1);
    EXPECT_NE(readText(path("gateway_sub.log")).find("does not let this user read rtm.vitals"), std::string::npos)
        << readText(path("gateway_sub.log"));
    EXPECT_TRUE(refused("gateway", "$KV.rtm_snapshots.dev.1"));
    EXPECT_TRUE(refused("gateway", "rtm.vitals.1"));
    EXPECT_FALSE(refused("gateway", "rtm.frames.1"));
    // A station acknowledges and sets limits, and sends no frames.
    EXPECT_EQ(run(as({bin("rtmonitor"), "publish", path("load.frames")}, "station"), "station_pub.log"), 1);
    EXPECT_NE(readText(path("station_pub.log")).find("does not let this user publish frames"), std::string::npos)
        << readText(path("station_pub.log"));
    EXPECT_FALSE(refused("station", "rtm.ack.1"));
    EXPECT_FALSE(refused("station", "$KV.rtm_limits.default"));
    EXPECT_TRUE(refused("station", "$KV.rtm_snapshots.dev.1"));
    EXPECT_TRUE(refused("worker", "rtm.frames.1"));
}

TEST_F(PermissionsTest, WrongCredentialsEndWithExitOneAndSayWhatToCheck) {
    ASSERT_TRUE(writeFrameFile(path("one.frames"), frames(1, 1)));
    const std::vector<std::vector<std::string>> programs = {
        {bin("rtmonitor-serve")}, {bin("rtmonitor"), "publish", path("one.frames")}, {bin("rtmonitor"), "subscribe"}};
    int i = 0;
    for (auto argv : programs) {
        const std::string log = "wrong" + std::to_string(i++) + ".log";
        for (const char* a : {"--server", "", "--user", "worker", "--password", "not-the-password"}) argv.push_back(a);
        argv[argv.size() - 5] = server_->url();
        EXPECT_EQ(run(argv, log), 1) << argv[0];
        EXPECT_NE(readText(path(log)).find("refused the credentials"), std::string::npos) << readText(path(log));
    }
    // Files that are not there are named before any server is asked.
    EXPECT_EQ(run({bin("rtmonitor-serve"), "--server", server_->url(), "--creds", path("none.creds")}, "creds.log"), 1);
    EXPECT_NE(readText(path("creds.log")).find("none.creds"), std::string::npos) << readText(path("creds.log"));
    EXPECT_EQ(run({bin("rtmonitor"), "subscribe", "--server", server_->url(), "--tls-ca", path("none.pem")}, "ca.log"),
              1);
    EXPECT_NE(readText(path("ca.log")).find("none.pem"), std::string::npos) << readText(path("ca.log"));
    // Half a client certificate is a usage error.
    EXPECT_EQ(run({bin("rtmonitor"), "subscribe", "--tls-cert", path("c.pem")}, "half.log"), 2);
}

}  // namespace
