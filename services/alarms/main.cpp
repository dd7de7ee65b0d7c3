// rtmonitor-alarms: server-side alarms over the results of the worker service. `--setup` creates
// the alarms stream and the limits and alarm-state buckets once; without it the program follows
// every device's results, raises and clears alarms and applies acknowledgements, until SIGTERM or
// SIGINT. docs/station.md describes the alarms. Exit status: 0 clean stop, 1 server or stream
// problem, 2 usage.
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <string>
#include <vector>

#include "formats/broker.h"
#include "formats/options.h"
#include "service.h"

namespace {

const char* const kUsage =
    "usage: rtmonitor-alarms [--server URL[,URL...]] [--name NAME] [--log-every S] [--offline-after S]\n"
    "       rtmonitor-alarms --setup [--server URL[,URL...]] [--replicas R]\n"
    "\n"
    "Follows every result on rtm.vitals.<device id> and judges each device against its limits\n"
    "(bucket rtm_limits: key `default`, overridden field by field by `dev.<id>`): heart and\n"
    "breathing rate beyond limits, apnoea, asystole (no heart rate measured), poor ECG quality,\n"
    "respiration not usable, device offline. Events go to rtm.alarms.<device id> (stream\n"
    "RTM_ALARMS), the alarms in force to bucket rtm_alarm_state; stations acknowledge and pause\n"
    "audio on rtm.ack.<device id>. No arrhythmia alarms: the analysis does not classify beats.\n"
    "\n"
    "  --server URL[,URL...]   NATS server, or several of a cluster (default nats://127.0.0.1:4222)\n"
    "  --name NAME             names this process's consumers (default alarms); keep it across\n"
    "                          restarts, and give a second process following the same streams its own\n"
    "  --log-every S           seconds between progress lines (default 60)\n"
    "  --offline-after S       seconds without a result before a device is offline (default 10)\n"
    "\n"
    "  --setup                 create the stream RTM_ALARMS and the buckets rtm_limits (with a\n"
    "                          `default` entry) and rtm_alarm_state where absent, then exit\n"
    "  --replicas R            copies of each kept in a cluster, 1..5 (default 1)\n";

std::atomic<bool> gStop{false};

void onSignal(int) { gStop.store(true); }

int usage(const std::string& error) {
    std::fprintf(stderr, "rtmonitor-alarms: %s\n\n%s", error.c_str(), kUsage);
    return rtmfmt::kExitUsage;
}

const rtmfmt::OptionTable kOptions = {{"--server", "--name", "--log-every", "--offline-after", "--replicas"},
                                      {"--setup"}};

int alarms(int argc, char** argv) {
    rtmfmt::ParsedArgs p;
    std::string error;
    switch (rtmfmt::parseCommandLine(kOptions, std::vector<std::string>(argv + 1, argv + argc), p, error)) {
        case rtmfmt::ParseOutcome::Help: std::fputs(kUsage, stdout); return rtmfmt::kExitOk;
        case rtmfmt::ParseOutcome::UsageError: return usage(error);
        case rtmfmt::ParseOutcome::Run: break;
    }
    const std::string url = p.value("--server", "nats://127.0.0.1:4222");
    rtmalarms::ServiceOptions opt;
    opt.name = p.value("--name", "alarms");
    const bool setup = p.has("--setup");
    double replicas = 1, offline = 10;
    if (!rtmfmt::numberOption(p, "--log-every", 0.1, 86400, false, opt.logEvery, error) ||
        !rtmfmt::numberOption(p, "--offline-after", 0.5, 3600, false, offline, error) ||
        !rtmfmt::numberOption(p, "--replicas", 1, 5, true, replicas, error))
        return usage(error);
    if (opt.name.empty()) return usage("--name must not be empty");
    for (char& c : opt.name)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') c = '_';
    opt.offlineAfterMs = static_cast<int64_t>(offline * 1000);
    char host[256] = "host";
    gethostname(host, sizeof host - 1);
    opt.by = opt.name + "@" + host;

    rtmfmt::Broker broker;
    if (!broker.connect(url, "rtmonitor-alarms " + opt.name)) {
        std::fprintf(stderr, "rtmonitor-alarms: %s\n", broker.error().c_str());
        return rtmfmt::kExitInput;
    }
    if (setup) {
        if (!rtmalarms::setupAlarms(broker, static_cast<int>(replicas), error)) {
            std::fprintf(stderr, "rtmonitor-alarms --setup: %s\n", error.c_str());
            return rtmfmt::kExitInput;
        }
        std::printf("rtmonitor-alarms: stream %s and buckets %s, %s ready\n", rtmalarms::kAlarmsStream,
                    rtmalarms::kLimitsBucket, rtmalarms::kStateBucket);
        return rtmfmt::kExitOk;
    }
    std::signal(SIGTERM, onSignal);
    std::signal(SIGINT, onSignal);
    rtmalarms::AlarmsService service(broker, opt);
    if (!service.open(error)) {
        std::fprintf(stderr, "rtmonitor-alarms: %s\n", error.c_str());
        return rtmfmt::kExitInput;
    }
    return service.run(gStop);
}

}  // namespace

int main(int argc, char** argv) {
    const int status = alarms(argc, argv);
    // Releases the client library's own threads and buffers, so leak checkers see a clean exit.
    nats_Close();
    return status;
}
