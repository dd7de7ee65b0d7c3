// rtmonitor-alarms against a private nats-server on loopback (skipped when nats-server is not
// installed): results published for a few devices raise their alarms with the right priority
// within the condition delay plus 2 s, a device that stops sending goes offline, a latched
// asystole survives a restart of the process and an acknowledgement on rtm.ack clears it; and the
// errors a user meets first.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "formats/broker.h"
#include "formats/wire.h"
#include "rules.h"
#include "service.h"

namespace {

using Clock = std::chrono::steady_clock;
using nlohmann::json;

std::string findNatsServer() {
    if (const char* env = std::getenv("RTM_NATS_SERVER")) return env;
    for (const char* p : {"/usr/sbin/nats-server", "/usr/bin/nats-server", "/usr/local/bin/nats-server"})
        if (access(p, X_OK) == 0) return p;
    return "";
}

int freeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0)
        port = ntohs(a.sin_port);
    close(fd);
    return port;
}

std::string readText(const std::filesystem::path& p) {
    std::ifstream f(p);
    std::ostringstream s;
    s << f.rdbuf();
    return s.str();
}

// A child process with its output in a log file; killed when the test ends.
class Child {
public:
    ~Child() { kill(SIGKILL); }
    bool start(const std::vector<std::string>& argv, const std::string& log) {
        pid_ = fork();
        if (pid_ < 0) return false;
        if (pid_ == 0) {
            const int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
            dup2(fd, 1);
            dup2(fd, 2);
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        return true;
    }
    int kill(int sig) {
        if (pid_ <= 0) return -1;
        ::kill(pid_, sig);
        return wait();
    }
    int wait() {
        if (pid_ <= 0) return -1;
        int st = 0;
        waitpid(pid_, &st, 0);
        pid_ = 0;
        return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    }

private:
    pid_t pid_ = 0;
};

class AlarmsTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (findNatsServer().empty()) GTEST_SKIP() << "nats-server is not installed; skipping the alarms process tests";
        char tmpl[] = "/tmp/rtm_alarms_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        port_ = freeLoopbackPort();
        std::ofstream(dir_ / "nats.conf")
            << "listen: 127.0.0.1:" << port_ << "\njetstream { store_dir: \"" << (dir_ / "store").string() << "\" }\n";
    }
    void TearDown() override {
        server_.kill(SIGTERM);
        if (dir_.empty()) return;
        if (!HasFailure() && std::getenv("RTM_SERVE_KEEP") == nullptr) std::filesystem::remove_all(dir_);
        else std::printf("logs kept in %s\n", dir_.c_str());
    }
    void startServer() {
        ASSERT_TRUE(server_.start({findNatsServer(), "-c", path("nats.conf")}, path("server.log")));
        ASSERT_TRUE(
            waitFor([&] { return readText(path("server.log")).find("Server is ready") != std::string::npos; }, 10))
            << readText(path("server.log"));
    }
    std::string url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    static std::string bin() { return std::string(RTM_BINARY_DIR) + "/rtmonitor-alarms"; }
    int run(const std::vector<std::string>& args, const std::string& log) {
        std::vector<std::string> argv{bin()};
        argv.insert(argv.end(), args.begin(), args.end());
        Child c;
        return c.start(argv, path(log)) ? c.wait() : -1;
    }
    template <class F>
    static bool waitFor(F done, double seconds) {
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        while (!done()) {
            if (Clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    std::filesystem::path dir_;
    int port_ = 0;
    Child server_;
};

TEST_F(AlarmsTest, UnreachableServerMissingSetupAndBadOptionsSayWhatToDo) {
    EXPECT_EQ(run({"--offline-after", "0"}, "usage.log"), 2);
    EXPECT_EQ(run({"--bogus"}, "usage.log"), 2);
    EXPECT_EQ(run({"--server", url()}, "w0.log"), 1);
    EXPECT_NE(readText(path("w0.log")).find("cannot reach the NATS server"), std::string::npos);

    startServer();
    EXPECT_EQ(run({"--server", url()}, "w1.log"), 1);
    EXPECT_NE(readText(path("w1.log")).find("rtmonitor-serve --setup"), std::string::npos) << readText(path("w1.log"));
    rtmfmt::Broker broker;
    ASSERT_TRUE(broker.connect(url(), "test"));
    ASSERT_TRUE(broker.setup(4, 120)) << broker.error();
    EXPECT_EQ(run({"--server", url()}, "w2.log"), 1);
    EXPECT_NE(readText(path("w2.log")).find("rtmonitor-alarms --setup"), std::string::npos) << readText(path("w2.log"));

    // Setup twice is harmless and keeps an edited default; a cluster is a list of servers.
    const std::string dead = "nats://127.0.0.1:" + std::to_string(freeLoopbackPort());
    ASSERT_EQ(run({"--setup", "--server=" + dead + "," + url()}, "s1.log"), 0) << readText(path("s1.log"));
    kvStore* limits = nullptr;
    ASSERT_EQ(js_KeyValue(&limits, broker.js(), rtmalarms::kLimitsBucket), NATS_OK);
    uint64_t rev = 0;
    ASSERT_EQ(kvStore_PutString(&rev, limits, "default", R"({"hr_high":140,"by":"test"})"), NATS_OK);
    ASSERT_EQ(run({"--setup", "--server", url()}, "s2.log"), 0) << readText(path("s2.log"));
    kvEntry* e = nullptr;
    ASSERT_EQ(kvStore_Get(&e, limits, "default"), NATS_OK);
    EXPECT_EQ(std::string(static_cast<const char*>(kvEntry_Value(e)), kvEntry_ValueLen(e)),
              R"({"hr_high":140,"by":"test"})");
    kvEntry_Destroy(e);
    kvStore_Destroy(limits);
}

// Results as the worker publishes them, for a device whose rates the test chooses.
struct Publisher {
    rtmfmt::Broker& broker;
    std::map<std::pair<int, int>, Clock::time_point> sentAt;  // (device, second) -> when published

    void send(int device, int second, int heartRate, int breathRate) {
        ParamsOut out{};
        out.nHeartRate = heartRate;
        out.nHeartStatus = 1;
        out.nBreathRate = breathRate;
        out.nBreathState = breathRate > 0 ? 1 : 0;
        out.nPosture = 2;
        unsigned char bytes[sizeof(ParamsOut)];
        rtmfmt::encodeResult(out, bytes);
        ASSERT_TRUE(broker.publish(rtmfmt::resultSubject(device), bytes, sizeof bytes,
                                   rtmfmt::resultMsgId(device, static_cast<uint64_t>(second + 1)),
                                   {{rtmfmt::kHeaderFrameSeq, std::to_string(second)}}));
        sentAt[{device, second}] = Clock::now();
    }
    // As the worker publishes with --json.
    void sendJson(int device, int second, int heartRate, int breathRate) {
        const std::string text = json{{"device", device},
                                      {"seq", second},
                                      {"heart_rate", heartRate},
                                      {"heart_status", 1},
                                      {"breath_rate", breathRate},
                                      {"breath_state", 1},
                                      {"heart_wave", std::vector<int>(200, 512)}}
                                     .dump();
        ASSERT_TRUE(broker.publish(rtmfmt::resultSubject(device), text.data(), static_cast<int>(text.size()),
                                   rtmfmt::resultMsgId(device, static_cast<uint64_t>(second + 1)),
                                   {{rtmfmt::kHeaderFrameSeq, std::to_string(second)}}));
        sentAt[{device, second}] = Clock::now();
    }
};

struct Received {
    json event;
    Clock::time_point at;
};

class Events {
public:
    explicit Events(natsConnection* nc) { natsConnection_SubscribeSync(&sub_, nc, "rtm.alarms.*"); }
    ~Events() { natsSubscription_Destroy(sub_); }
    void drain(int waitMs = 0) {
        natsMsg* m = nullptr;
        while (natsSubscription_NextMsg(&m, sub_, waitMs) == NATS_OK) {
            got_.push_back({json::parse(std::string(natsMsg_GetData(m), natsMsg_GetDataLength(m))), Clock::now()});
            natsMsg_Destroy(m);
            waitMs = 0;
        }
    }
    // The first event of `device` for `alarm`, waiting up to `seconds`.
    const Received* find(int device, const std::string& alarm, const std::string& event, double seconds) {
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        for (;;) {
            for (const Received& r : got_)
                if (r.event["device"] == device && r.event.value("alarm", "") == alarm && r.event["event"] == event)
                    return &r;
            if (Clock::now() > end) return nullptr;
            drain(50);
        }
    }
    // Events of `device` other than going offline.
    size_t count(int device) const {
        size_t n = 0;
        for (const Received& r : got_) n += r.event["device"] == device && r.event.value("alarm", "") != "offline";
        return n;
    }

private:
    natsSubscription* sub_ = nullptr;
    std::vector<Received> got_;
};

double secondsBetween(Clock::time_point a, Clock::time_point b) { return std::chrono::duration<double>(b - a).count(); }

TEST_F(AlarmsTest, EventsComeWithTheirPriorityInTimeAndAnAcknowledgementClearsAKeptLatchedAlarm) {
    startServer();
    rtmfmt::Broker broker;
    ASSERT_TRUE(broker.connect(url(), "test"));
    ASSERT_TRUE(broker.setup(4, 120)) << broker.error();
    ASSERT_EQ(run({"--setup", "--server", url()}, "setup.log"), 0) << readText(path("setup.log"));
    kvStore* limits = nullptr;
    ASSERT_EQ(js_KeyValue(&limits, broker.js(), rtmalarms::kLimitsBucket), NATS_OK);
    uint64_t rev = 0;
    // Device 3's own high limit overrides the default's.
    ASSERT_EQ(kvStore_PutString(&rev, limits, "dev.3", R"({"hr_high":100,"by":"test"})"), NATS_OK);
    kvStore_Destroy(limits);

    auto process = std::make_unique<Child>();
    ASSERT_TRUE(process->start({bin(), "--server", url(), "--offline-after", "2"}, path("alarms1.log")));
    ASSERT_TRUE(waitFor([&] { return readText(path("alarms1.log")).find("following") != std::string::npos; }, 10))
        << readText(path("alarms1.log"));

    Events events(broker.connection());
    Publisher pub{broker, {}};
    // Ten results a second per device: each stands for a second of signal, so condition delays
    // (counted in results) pass ten times faster than on a live device.
    constexpr int kSeconds = 30, kFlatFrom = 20;
    for (int s = 0; s < kSeconds; ++s) {
        pub.send(1, s, 80, 15);                      // normal throughout
        pub.send(2, s, 150, 15);                     // above the default limit 120
        pub.send(3, s, 110, 15);                     // above its own limit 100 only
        pub.send(4, s, s < kFlatFrom ? 80 : 0, 15);  // the heart rate stops being measured
        if (s < 10) pub.send(5, s, 80, 15);          // stops sending
        pub.sendJson(6, s, 80, s < 10 ? 15 : 40);    // JSON results, breathing too fast
        ASSERT_TRUE(broker.flush(nullptr));
        events.drain();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }

    auto expectInTime = [&](int device, const char* alarm, const char* priority, Clock::time_point due, double slack) {
        const Received* r = events.find(device, alarm, "raised", slack + 1);
        ASSERT_NE(r, nullptr) << "device " << device << " " << alarm << "\n" << readText(path("alarms1.log"));
        EXPECT_EQ(r->event["priority"], priority) << alarm;
        EXPECT_LE(secondsBetween(due, r->at), slack) << alarm;
    };
    // Raised by the result that completes the delay, within 2 s of its publication.
    expectInTime(2, "hr_high", "medium", pub.sentAt[{2, rtmalarms::kLimitDelayS - 1}], 2.0);
    const Received* own = events.find(3, "hr_high", "raised", 1);
    ASSERT_NE(own, nullptr);
    EXPECT_EQ(own->event["limit"], 100);
    expectInTime(4, "asystole", "high", pub.sentAt[{4, kFlatFrom + rtmalarms::kAsystoleDelayS - 1}], 2.0);
    expectInTime(6, "br_high", "medium", pub.sentAt[{6, 10 + rtmalarms::kLimitDelayS - 1}], 2.0);
    // Offline: the delay runs from the last result.
    expectInTime(5, "offline", "medium", pub.sentAt[{5, 9}], 2.0 + 2.0);
    EXPECT_EQ(events.count(1), 0u) << "a normal device raises nothing";
    const Received* asy = events.find(4, "asystole", "raised", 0);
    ASSERT_NE(asy, nullptr);
    EXPECT_EQ(asy->event["latching"], true);
    EXPECT_EQ(asy->event["kind"], "physiological");

    // The beats come back: the latched alarm stays, inactive, awaiting acknowledgement...
    for (int s = kSeconds; s < kSeconds + 3; ++s) pub.send(4, s, 75, 15);
    ASSERT_TRUE(broker.flush(nullptr));
    ASSERT_NE(events.find(4, "asystole", "changed", 3), nullptr) << readText(path("alarms1.log"));
    EXPECT_EQ(events.find(4, "asystole", "cleared", 0.5), nullptr);

    // ...and a restart keeps it.
    EXPECT_EQ(process->kill(SIGTERM), 0) << readText(path("alarms1.log"));
    kvStore* state = nullptr;
    ASSERT_EQ(js_KeyValue(&state, broker.js(), rtmalarms::kStateBucket), NATS_OK);
    kvEntry* e = nullptr;
    ASSERT_EQ(kvStore_Get(&e, state, "dev.4"), NATS_OK);
    const json kept = json::parse(std::string(static_cast<const char*>(kvEntry_Value(e)), kvEntry_ValueLen(e)));
    kvEntry_Destroy(e);
    ASSERT_EQ(kept["alarms"].size(), 1u) << kept.dump();
    EXPECT_EQ(kept["alarms"][0]["alarm"], "asystole");
    EXPECT_EQ(kept["alarms"][0]["active"], false);

    process = std::make_unique<Child>();
    ASSERT_TRUE(process->start({bin(), "--server", url(), "--offline-after", "2"}, path("alarms2.log")));
    ASSERT_TRUE(waitFor([&] { return readText(path("alarms2.log")).find("following") != std::string::npos; }, 10));
    const std::string ack = R"({"action":"ack","alarm":"asystole","by":"test nurse","at_ms":1})";
    const auto ackSent = Clock::now();
    ASSERT_EQ(natsConnection_PublishString(broker.connection(), "rtm.ack.4", ack.c_str()), NATS_OK);
    const Received* acked = events.find(4, "asystole", "acknowledged", 3);
    ASSERT_NE(acked, nullptr) << readText(path("alarms2.log"));
    EXPECT_EQ(acked->event["by"], "test nurse");
    const Received* cleared = events.find(4, "asystole", "cleared", 1);
    ASSERT_NE(cleared, nullptr);
    EXPECT_LE(secondsBetween(ackSent, cleared->at), 2.0);
    EXPECT_TRUE(waitFor(
        [&] {
            kvEntry* now = nullptr;
            if (kvStore_Get(&now, state, "dev.4") != NATS_OK) return false;
            const json j =
                json::parse(std::string(static_cast<const char*>(kvEntry_Value(now)), kvEntry_ValueLen(now)));
            kvEntry_Destroy(now);
            for (const json& a : j["alarms"])
                if (a["alarm"] == "asystole") return false;
            return true;
        },
        2));
    kvStore_Destroy(state);
    EXPECT_EQ(process->kill(SIGTERM), 0) << readText(path("alarms2.log"));
}

}  // namespace
