// A server that speaks only TLS and asks every client for a certificate from its own authority:
// the worker, publish and subscribe get through with --tls-ca, --tls-cert and --tls-key, and a
// client without the authority or without a certificate ends with exit 1 and names what to check.
#include <gtest/gtest.h>

#include <cstdlib>

#include "formats/broker.h"
#include "formats/wire.h"
#include "nats_harness.h"
#include "results_check.h"
#include "synth/recording.h"

namespace {

using namespace servetest;

constexpr int kPartitions = 2;

class TlsTest : public ServerTest {
protected:
    void SetUp() override {
        ServerTest::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        if (std::system("command -v openssl > /dev/null 2>&1") != 0)
            GTEST_SKIP() << "openssl is not installed (apt-get install openssl): no certificates to test with";
        ASSERT_TRUE(makeCertificates()) << readText(path("openssl.log"));
        const std::string tls = "tls { cert_file: \"" + path("server.pem") + "\", key_file: \"" + path("server.key") +
                                "\", ca_file: \"" + path("ca.pem") + "\", verify: true }\n";
        server_ = std::make_unique<NatsServer>(dir_, kPartitions, "", tls);
        ASSERT_TRUE(server_->start()) << server_->log();
        ASSERT_EQ(
            run(withTls({bin("rtmonitor-serve"), "--setup", "--partitions", std::to_string(kPartitions)}), "setup.log"),
            0)
            << readText(path("setup.log"));
    }

    // A certificate authority, and a server and a client certificate it signed (the server's
    // for 127.0.0.1, the address the clients name).
    bool makeCertificates() {
        const std::string d = dir_.string();
        const std::string script =
            "set -e; cd '" + d +
            "'; "
            "openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=rtm-test-ca -keyout ca.key -out ca.pem; "
            "printf 'subjectAltName=IP:127.0.0.1\\n' > san.ext; "
            "openssl req -newkey rsa:2048 -nodes -subj /CN=127.0.0.1 -keyout server.key -out server.csr; "
            "openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 1 -extfile san.ext "
            "-out server.pem; "
            "openssl req -newkey rsa:2048 -nodes -subj /CN=rtm-worker -keyout client.key -out client.csr; "
            "openssl x509 -req -in client.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 1 -out client.pem";
        return std::system(("(" + script + ") > '" + path("openssl.log") + "' 2>&1").c_str()) == 0;
    }
    std::vector<std::string> withTls(std::vector<std::string> argv) {
        for (const std::string& a :
             {std::string("--server"), server_->url(), std::string("--tls-ca"), path("ca.pem"),
              std::string("--tls-cert"), path("client.pem"), std::string("--tls-key"), path("client.key")})
            argv.push_back(a);
        return argv;
    }
};

TEST_F(TlsTest, CertifiedClientsGetThroughAndOthersAreToldWhatToCheck) {
    rtm_synth::SynthOptions o;
    o.seconds = 5;
    o.seed = 7;
    o.deviceId = 3;
    const std::vector<ParamsIn> sent = rtm_synth::synthesize(o).frames;
    ASSERT_TRUE(writeFrameFile(path("load.frames"), sent));
    Child worker;
    ASSERT_TRUE(
        worker.start(withTls({bin("rtmonitor-serve"), "--name", "w", "--snapshot-every", "0.5"}), path("worker.log")));
    Child station;
    ASSERT_TRUE(station.start(
        withTls({bin("rtmonitor"), "subscribe", "--count", std::to_string(sent.size()), "--quiet"}), path("sub.log")));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(run(withTls({bin("rtmonitor"), "publish", path("load.frames")}), "publish.log"), 0)
        << readText(path("publish.log"));
    EXPECT_EQ(station.wait(), 0) << readText(path("sub.log")) << readText(path("worker.log"));
    EXPECT_EQ(worker.kill(SIGTERM), 0) << readText(path("worker.log"));

    // Without the authority the server's certificate cannot be checked; without a certificate
    // of its own the client is turned away by the server.
    const std::string url = server_->url();
    EXPECT_EQ(run({bin("rtmonitor"), "subscribe", "--server", url, "--tls-cert", path("client.pem"), "--tls-key",
                   path("client.key")},
                  "no_ca.log"),
              1);
    EXPECT_NE(readText(path("no_ca.log")).find("--tls-ca"), std::string::npos) << readText(path("no_ca.log"));
    EXPECT_EQ(run({bin("rtmonitor-serve"), "--server", url, "--tls-ca", path("ca.pem")}, "no_cert.log"), 1);
    EXPECT_NE(readText(path("no_cert.log")).find("--tls-cert"), std::string::npos) << readText(path("no_cert.log"));
}

}  // namespace
