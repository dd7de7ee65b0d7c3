// rtmonitor-serve: the rtmonitor worker service on NATS JetStream. `--setup` creates the streams
// and buckets once; without it the program is a worker that takes its share of the partitions,
// analyses their frames and publishes the results, until SIGTERM or SIGINT. docs/serving.md
// shows a complete session. Exit status: 0 clean stop, 1 server or stream problem, 2 usage.
#include <unistd.h>
#include <atomic>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "formats/broker.h"
#include "formats/options.h"
#include "formats/wire.h"
#include "worker.h"

namespace {

const char* const kUsage =
    "usage: rtmonitor-serve [--server URL[,URL...]] [--name NAME] [--snapshot-every S] [--lease-ttl S]\n"
    "                       [--log-every S] [--batch N] [--json] [CONNECTION OPTIONS]\n"
    "       rtmonitor-serve --setup [--server URL] [--partitions P] [--duplicate-window S] [--replicas R]\n"
    "\n"
    "A worker: takes a fair share of the partitions of the frames stream (rtm.frames.<device id>,\n"
    "1320-byte frames), analyses each device on its own handle and publishes every result on\n"
    "rtm.vitals.<device id>. Device snapshots go to a bucket every --snapshot-every seconds and\n"
    "frames are acknowledged only up to them, so the partitions of a worker that dies move to the\n"
    "others and continue without a gap. SIGTERM or SIGINT: final snapshots, leases released.\n"
    "\n"
    "  --server URL            NATS server (default nats://127.0.0.1:4222); give the servers of a\n"
    "                          cluster as a comma-separated list or one --server each\n"
    "  --name NAME             worker name, unique among the workers (default <host>-<pid>)\n"
    "  --snapshot-every S      seconds between snapshots and acknowledgements (default 10)\n"
    "  --lease-ttl S           seconds a partition lease lasts unless renewed (default 15); a dead\n"
    "                          worker's partitions move after at most this long\n"
    "  --log-every S           seconds between progress lines (default 60)\n"
    "  --batch N               frames fetched per partition and request, 1..4096 (default 256)\n"
    "  --json                  publish results as JSON instead of the 1124-byte output record\n"
    "\n"
    "  --setup                 create the frames and results streams and the buckets, then exit\n"
    "  --partitions P          partition count of the server's subject mapping, 1..1024\n"
    "                          (default 64); fixed for the life of the stream\n"
    "  --duplicate-window S    seconds a repeated frame or result is recognised (default 120)\n"
    "  --replicas R            servers of a JetStream cluster each stream and bucket is stored on,\n"
    "                          1..5 (default 1); 3 survives the loss of any one server\n"
    "\n"
    "Connection options (when the server asks for them):\n"
    "  --creds FILE            credentials file (user JWT and seed)\n"
    "  --user NAME --password SECRET   user and password\n"
    "  --tls-ca FILE           authority that signed the server's certificate (turns TLS on)\n"
    "  --tls-cert FILE --tls-key FILE  this client's certificate and key\n";

std::atomic<bool> gStop{false};

void onSignal(int) { gStop.store(true); }

int usage(const std::string& error) {
    std::fprintf(stderr, "rtmonitor-serve: %s\n\n%s", error.c_str(), kUsage);
    return rtmfmt::kExitUsage;
}

const rtmfmt::OptionTable kOptions = {
    {"--server", "--name", "--snapshot-every", "--lease-ttl", "--log-every", "--batch", "--partitions",
     "--duplicate-window", "--replicas", "--creds", "--user", "--password", "--tls-ca", "--tls-cert", "--tls-key"},
    {"--setup", "--json"}};

int serve(int argc, char** argv) {
    rtmfmt::ParsedArgs p;
    std::string error;
    switch (rtmfmt::parseCommandLine(kOptions, std::vector<std::string>(argv + 1, argv + argc), p, error)) {
        case rtmfmt::ParseOutcome::Help: std::fputs(kUsage, stdout); return rtmfmt::kExitOk;
        case rtmfmt::ParseOutcome::UsageError: return usage(error);
        case rtmfmt::ParseOutcome::Run: break;
    }
    rtmfmt::ConnectOptions conn;
    if (!rtmfmt::connectOptionsFrom(p, conn, error)) return usage(error);
    rtmserve::WorkerOptions opt;
    opt.name = p.value("--name");
    opt.json = p.has("--json");
    const bool setup = p.has("--setup");
    double partitions = 64, window = 120, batch = 256, replicas = 1;
    if (!rtmfmt::numberOption(p, "--replicas", 1, 5, true, replicas, error) ||
        !rtmfmt::numberOption(p, "--snapshot-every", 0.05, 86400, false, opt.snapshotEvery, error) ||
        !rtmfmt::numberOption(p, "--lease-ttl", 0.3, 3600, false, opt.leaseTtl, error) ||
        !rtmfmt::numberOption(p, "--log-every", 0.1, 86400, false, opt.logEvery, error) ||
        !rtmfmt::numberOption(p, "--batch", 1, 4096, true, batch, error) ||
        !rtmfmt::numberOption(p, "--partitions", 1, rtmfmt::kMaxPartitions, true, partitions, error) ||
        !rtmfmt::numberOption(p, "--duplicate-window", 1, 86400, false, window, error))
        return usage(error);
    opt.batch = static_cast<int>(batch);
    if (!conn.creds.empty() && !conn.user.empty()) return usage("give --creds or --user, not both");
    if (opt.name.empty()) {
        char host[256] = "worker";
        gethostname(host, sizeof host - 1);
        opt.name = std::string(host) + "-" + std::to_string(getpid());
    }
    for (char& c : opt.name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') c = '_';

    rtmfmt::Broker broker;
    if (!broker.connect(conn, "rtmonitor-serve " + opt.name)) {
        std::fprintf(stderr, "rtmonitor-serve: %s\n", broker.error().c_str());
        return rtmfmt::kExitInput;
    }
    if (setup) {
        if (!broker.setup(static_cast<int>(partitions), static_cast<int64_t>(window), static_cast<int>(replicas))) {
            std::fprintf(stderr, "rtmonitor-serve --setup: %s\n", broker.error().c_str());
            return rtmfmt::kExitInput;
        }
        std::printf("rtmonitor-serve: streams %s, %s and buckets %s, %s ready, %d partitions, %d replicas\n",
                    rtmfmt::kFramesStream, rtmfmt::kResultsStream, rtmfmt::kLeaseBucket, rtmfmt::kSnapshotBucket,
                    static_cast<int>(partitions), static_cast<int>(replicas));
        return rtmfmt::kExitOk;
    }
    int count = 0;
    if (!broker.check(count)) {
        std::fprintf(stderr, "rtmonitor-serve: %s\n", broker.error().c_str());
        return rtmfmt::kExitInput;
    }
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    rtmserve::Worker worker(broker, opt, count);
    return worker.run(gStop);
}

}  // namespace

int main(int argc, char** argv) {
    const int status = serve(argc, argv);
    // Releases the client library's own threads and buffers, so leak checkers see a clean exit.
    nats_Close();
    return status;
}
