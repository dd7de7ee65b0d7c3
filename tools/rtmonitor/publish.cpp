// The `publish` and `subscribe` commands: a frame file onto the worker service's frames stream
// (rtm.frames.<device id>, one message per frame, the frame's device and sequence as message id)
// and the service's results back off rtm.vitals.* as one line each. Built with the NATS client
// when it is installed; without it both commands say how to get it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <queue>
#include <thread>

#include "cli.h"
#include "recording_input.h"

namespace rtmtool {

const char* const kPublishUsage =
    "usage: rtmonitor publish FILE.frames|RECORD [--rate real|max] [--server URL] [--copies K] [--partial]\n"
    "                         [--ecg LABEL] [--resp LABEL] [--acc X,Y,Z] [--device ID]\n"
    "                         [--creds FILE | --user NAME --password SECRET] [--tls-ca FILE]\n"
    "                         [--tls-cert FILE --tls-key FILE]\n"
    "\n"
    "Sends every frame of a frame file or a recording to the rtmonitor worker service: frame by frame on\n"
    "rtm.frames.<device id>, each stored once by the frames stream (a frame sent again within the\n"
    "duplicate window, identified by device and frame sequence, is dropped). Set the service up\n"
    "first (rtmonitor-serve --setup; see docs/serving.md).\n"
    "\n"
    "  --rate real       one frame per device per second, devices spread over the second\n"
    "  --rate max        as fast as the server takes them (default)\n"
    "  --server URL      NATS server (default nats://127.0.0.1:4222); a cluster's servers as a\n"
    "                    comma-separated list\n"
    "  --creds FILE      credentials file, or --user NAME --password SECRET, when the server asks\n"
    "  --tls-ca FILE     authority that signed the server's certificate (turns TLS on);\n"
    "                    --tls-cert FILE --tls-key FILE for a client certificate\n"
    "  --copies K        send the recording as K devices per device of the file, 1..100000:\n"
    "                    copy c of device d has id d + 1000000*c (default 1)\n"
    "  --partial         a frame file still being recorded: send its whole frames; without it a file\n"
    "                    that is empty or ends inside a frame is an input error (exit 1, nothing sent)\n"
    "\n" RTM_RECORDING_OPTIONS_USAGE;

const char* const kSubscribeUsage =
    "usage: rtmonitor subscribe [--server URL] [--device ID] [--count N] [--quiet]\n"
    "                           [--creds FILE | --user NAME --password SECRET] [--tls-ca FILE]\n"
    "                           [--tls-cert FILE --tls-key FILE]\n"
    "\n"
    "Prints the worker service's results as they are published, one line each:\n"
    "device,seq,heart_rate,heart_status,breath_rate,breath_state,posture,latency_ms\n"
    "where latency_ms is the time from the frames stream storing the frame to this line. At the\n"
    "end (N results, or Ctrl-C) a summary with the results per second and the latency median and\n"
    "99th percentile goes to standard error.\n"
    "\n"
    "  --server URL      NATS server (default nats://127.0.0.1:4222); a cluster's servers as a\n"
    "                    comma-separated list\n"
    "  --creds FILE      credentials file, or --user NAME --password SECRET, when the server asks\n"
    "  --tls-ca FILE     authority that signed the server's certificate (turns TLS on);\n"
    "                    --tls-cert FILE --tls-key FILE for a client certificate\n"
    "  --device ID       only this device's results\n"
    "  --count N         stop after N results\n"
    "  --quiet           no per-result lines, only the summary\n";

}  // namespace rtmtool

#ifndef RTM_HAVE_NATS

namespace rtmtool {

static int withoutNats(const char* command) {
    std::fprintf(stderr,
                 "rtmonitor %s: this rtmonitor was built without the NATS client; install it "
                 "(apt-get install libnats-dev) and build again\n",
                 command);
    return kExitUsage;
}
int runPublish(const std::vector<std::string>&) { return withoutNats("publish"); }
int runSubscribe(const std::vector<std::string>&) { return withoutNats("subscribe"); }

}  // namespace rtmtool

#else

#include "formats/broker.h"
#include "formats/frame_file.h"
#include "formats/wire.h"
#include "progress.h"

namespace rtmtool {

namespace {

std::atomic<bool> gInterrupted{false};
void onInterrupt(int) { gInterrupted.store(true); }

const std::set<std::string> kConnectionOptions = {"--server", "--creds",    "--user",   "--password",
                                                  "--tls-ca", "--tls-cert", "--tls-key"};

std::set<std::string> withConnection(std::set<std::string> options) {
    options.insert(kConnectionOptions.begin(), kConnectionOptions.end());
    return options;
}

// A refused subscription is reported on the side, just before the answer to a flush; true
// (with the message printed) when the server refused this one.
bool subscriptionRefused(rtmfmt::Broker& broker, const std::string& subject) {
    natsConnection_Flush(broker.connection());
    for (int i = 0; i < 10 && broker.refusal().empty(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (broker.refusal().empty()) return false;
    std::fprintf(stderr,
                 "rtmonitor subscribe: the server does not let this user read %s (%s): use the credentials of a "
                 "station or worker (docs/serving.md)\n",
                 subject.c_str(), broker.refusal().c_str());
    return true;
}

int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

// Sends frames to the frames stream and counts them. The first frame waits for the stream's
// answer, so a missing stream or subject mapping is reported instead of retried for ever.
class FrameSender {
public:
    explicit FrameSender(rtmfmt::Broker& broker) : broker_(broker) {}
    // kExitOk when sent; otherwise the exit status to stop with (the message is printed).
    int send(const ParamsIn& f) {
        unsigned char bytes[kFrameBytes];
        encodeFrame(f, bytes);
        const std::string subject = rtmfmt::frameSubject(f.nDeviceId);
        const std::string id = rtmfmt::frameMsgId(f.nDeviceId, f.nFrameSeq);
        if (first_) {
            if (const int status = sendFirst(subject, id, bytes)) return status;
        } else if (!broker_.publish(subject, bytes, kFrameBytes, id)) {
            std::fprintf(stderr, "rtmonitor publish: %s\n", broker_.error().c_str());
            return kExitInput;
        }
        ++frames_;
        return kExitOk;
    }
    uint64_t frames() const { return frames_; }

private:
    int sendFirst(const std::string& subject, const std::string& id, const unsigned char* bytes) {
        jsPubOptions po;
        jsPubOptions_Init(&po);
        po.MsgId = id.c_str();
        jsPubAck* ack = nullptr;
        jsErrCode jerr = static_cast<jsErrCode>(0);
        const natsStatus s = js_Publish(&ack, broker_.js(), subject.c_str(), bytes, kFrameBytes, &po, &jerr);
        jsPubAck_Destroy(ack);
        if (s != NATS_OK && !broker_.refusal().empty()) {
            std::fprintf(stderr,
                         "rtmonitor publish: the server does not let this user publish frames (%s): use the "
                         "credentials of a gateway (docs/serving.md)\n",
                         broker_.refusal().c_str());
            return kExitInput;
        }
        if (s != NATS_OK) {
            std::fprintf(stderr,
                         "rtmonitor publish: no stream stored %s (%s): check the server's subject mapping "
                         "rtm.frames.* -> rtm.part.{{partition(P,1)}}.{{wildcard(1)}} and run "
                         "rtmonitor-serve --setup (docs/serving.md)\n",
                         subject.c_str(), rtmfmt::statusText(s).c_str());
            return kExitInput;
        }
        first_ = false;
        return kExitOk;
    }

    rtmfmt::Broker& broker_;
    bool first_ = true;
    uint64_t frames_ = 0;
};

// --rate real: frame k of a device goes at second k plus the device's own phase, phases spread
// over the second (golden-ratio steps), as independent devices send; frames wait in a queue
// ordered by send time, read about a second ahead. --rate max sends each frame as it is read.
class Pacer {
public:
    using Clock = std::chrono::steady_clock;
    Pacer(bool real, long long copies, Clock::time_point start)
        : real_(real), copies_(copies), start_(start), lastAt_(start) {}

    // Reads and sends until the file ends or an interrupt; the reader's last result in `r`.
    int run(FrameReader& reader, FrameSender& sender, Progress& progress, FrameReader::Result& r) {
        r = FrameReader::Result::Frame;
        ParamsIn frame;
        while (!gInterrupted.load()) {
            const bool readMore = r == FrameReader::Result::Frame &&
                                  (queue_.empty() || lastAt_ <= Clock::now() + std::chrono::seconds(1));
            if (readMore && (r = reader.next(frame)) == FrameReader::Result::Frame) {
                if (const int status = take(frame, sender)) return status;
                progress.update(reader.offset());
                continue;
            }
            if (queue_.empty()) {
                if (r != FrameReader::Result::Frame) break;
                continue;
            }
            if (const int status = sendDue(sender)) return status;
        }
        return kExitOk;
    }

private:
    struct Timed {
        Clock::time_point at;
        ParamsIn frame;
        bool operator<(const Timed& o) const { return at > o.at; }
    };

    // The frame's copies: sent at once, or queued at their device's next second.
    int take(const ParamsIn& frame, FrameSender& sender) {
        for (long long c = 0; c < copies_; ++c) {
            ParamsIn f = frame;
            f.nDeviceId =
                static_cast<int32_t>(static_cast<uint32_t>(frame.nDeviceId) + static_cast<uint32_t>(c * 1000000));
            if (!real_) {
                if (const int status = sender.send(f)) return status;
                continue;
            }
            auto it = paced_.find(f.nDeviceId);
            if (it == paced_.end())
                it = paced_
                         .emplace(
                             f.nDeviceId,
                             std::make_pair(uint64_t{0},
                                            std::fmod(static_cast<double>(paced_.size()) * 0.6180339887498949, 1.0)))
                         .first;
            const double at = static_cast<double>(it->second.first++) + it->second.second;
            lastAt_ = start_ + std::chrono::microseconds(static_cast<int64_t>(at * 1e6));
            queue_.push({lastAt_, f});
        }
        return kExitOk;
    }

    int sendDue(FrameSender& sender) {
        std::this_thread::sleep_until(queue_.top().at);
        while (!queue_.empty() && queue_.top().at <= Clock::now()) {
            if (const int status = sender.send(queue_.top().frame)) return status;
            queue_.pop();
        }
        return kExitOk;
    }

    bool real_;
    long long copies_;
    Clock::time_point start_, lastAt_;
    std::priority_queue<Timed> queue_;
    std::map<int32_t, std::pair<uint64_t, double> > paced_;  // per device: frames so far, phase
};

// How the file ended, as the exit status; a truncated (unless --partial) or unreadable file is an
// input error. A file of known size was checked before anything was sent; this catches a stream.
int endStatus(FrameReader::Result r, const FrameReader& reader, const std::string& path, bool partial) {
    if (r == FrameReader::Result::Incomplete && partial) {
        std::fprintf(stderr,
                     "rtmonitor publish: warning: %s: ends inside a frame at byte %" PRIu64
                     "; --partial: its whole frames were sent\n",
                     path.c_str(), reader.offset());
        return kExitOk;
    }
    if (r == FrameReader::Result::Incomplete) {
        std::fprintf(stderr, "rtmonitor publish: %s: ends inside a frame at byte %" PRIu64 "; that part was not sent\n",
                     path.c_str(), reader.offset());
        return kExitInput;
    }
    if (r == FrameReader::Result::Error) {
        std::fprintf(stderr, "rtmonitor publish: %s: %s\n", path.c_str(), reader.error().c_str());
        return kExitInput;
    }
    return gInterrupted.load() ? kExitInput : kExitOk;
}

int publishFrames(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{"publish",
                                      kPublishUsage,
                                      {withConnection(withRecordingOptions({"--rate", "--copies"})),
                                       {"--partial"},
                                       1,
                                       1,
                                       "no frame file or recording given",
                                       "more than one input given"}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    std::string error;
    const std::string rate = p.value("--rate", "max");
    if (rate != "real" && rate != "max")
        return usageError("publish", "--rate is real or max, not '" + rate + "'", kPublishUsage);
    long long copies = 1;
    if (p.has("--copies") && !parseInteger(p.value("--copies"), 1, 100000, copies))
        return usageError("publish", "--copies needs a whole number 1..100000, not '" + p.value("--copies") + "'",
                          kPublishUsage);
    rtmfmt::ConnectOptions connection;
    if (!rtmfmt::connectOptionsFrom(p, connection, error)) return usageError("publish", error, kPublishUsage);
    const std::string path = p.positional[0];
    SourceOptions recordingOptions;
    if (!sourceOptionsFrom(p.values, recordingOptions, error)) return usageError("publish", error, kPublishUsage);

    // A recording is converted into a temporary frame file first, then sent like any other.
    std::string framePath = path;
    TemporaryFrames converted;
    if (isRecordingPath(path)) {
        RecordSource source;
        if (!source.open(path, recordingOptions, error) || !converted.write(source, path, error)) {
            std::fprintf(stderr, "rtmonitor publish: %s\n", error.c_str());
            return kExitInput;
        }
        framePath = converted.path();
    }

    const bool partial = p.has("--partial");
    std::string warning;
    if (framePath == path && !checkFrameFile(path, partial, warning, error)) {
        std::fprintf(stderr, "rtmonitor publish: %s\n", error.c_str());
        return kExitInput;
    }
    if (!warning.empty()) std::fprintf(stderr, "rtmonitor publish: warning: %s\n", warning.c_str());
    FrameReader reader;
    if (!reader.open(framePath)) {
        std::fprintf(stderr, "rtmonitor publish: %s: cannot open: %s\n", path.c_str(), reader.error().c_str());
        return kExitInput;
    }
    rtmfmt::Broker broker;
    if (!broker.connect(connection, "rtmonitor publish")) {
        std::fprintf(stderr, "rtmonitor publish: %s\n", broker.error().c_str());
        return kExitInput;
    }
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    Progress progress("publishing " + path, reader.size());
    const auto start = std::chrono::steady_clock::now();
    FrameSender sender(broker);
    Pacer pacer(rate == "real", copies, start);
    FrameReader::Result r = FrameReader::Result::Frame;
    if (const int sendStatus = pacer.run(reader, sender, progress, r)) return sendStatus;
    if (!broker.flush(&gInterrupted)) {
        std::fprintf(stderr, "rtmonitor publish: interrupted; %" PRIu64 " frames sent, the last ones unconfirmed\n",
                     sender.frames());
        return kExitInput;
    }
    progress.finish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::fprintf(stderr, "rtmonitor publish: %" PRIu64 " frames stored in %.1f s (%.0f frames/s)\n", sender.frames(),
                 seconds, seconds > 0 ? static_cast<double>(sender.frames()) / seconds : 0.0);
    return endStatus(r, reader, path, partial);
}

int subscribeResults(const std::vector<std::string>& args) {
    static const CommandSpec kCommand{
        "subscribe", kSubscribeUsage, {withConnection({"--device", "--count"}), {"--quiet"}}};
    ParsedArgs p;
    int status = kExitOk;
    if (!parseCommand(kCommand, args, p, status)) return status;
    long long count = 0, device = 0;
    if (p.values.count("--count") && !parseInteger(p.values["--count"], 1, 1LL << 62, count))
        return usageError("subscribe", "--count needs a positive whole number", kSubscribeUsage);
    std::string subject = "rtm.vitals.*";
    if (p.values.count("--device")) {
        const std::string& d = p.values["--device"];
        const bool neg = !d.empty() && d[0] == '-';
        if (!parseInteger(neg ? d.substr(1) : d, 0, neg ? 2147483648LL : 2147483647LL, device))
            return usageError("subscribe", "--device needs a device id, not '" + d + "'", kSubscribeUsage);
        subject = rtmfmt::resultSubject(static_cast<int32_t>(neg ? -device : device));
    }
    const bool quiet = p.flags.count("--quiet") > 0;
    rtmfmt::ConnectOptions connection;
    std::string error;
    if (!rtmfmt::connectOptionsFrom(p, connection, error)) return usageError("subscribe", error, kSubscribeUsage);
    rtmfmt::Broker broker;
    if (!broker.connect(connection, "rtmonitor subscribe")) {
        std::fprintf(stderr, "rtmonitor subscribe: %s\n", broker.error().c_str());
        return kExitInput;
    }
    natsSubscription* sub = nullptr;
    if (natsConnection_SubscribeSync(&sub, broker.connection(), subject.c_str()) != NATS_OK) {
        std::fprintf(stderr, "rtmonitor subscribe: cannot subscribe to %s\n", subject.c_str());
        return kExitInput;
    }
    if (subscriptionRefused(broker, subject)) {
        natsSubscription_Destroy(sub);
        return kExitInput;
    }
    natsSubscription_SetPendingLimits(sub, -1, -1);
    std::signal(SIGINT, onInterrupt);
    std::signal(SIGTERM, onInterrupt);
    std::vector<double> latency;
    std::chrono::steady_clock::time_point first, last;
    long long seen = 0;
    while (!gInterrupted.load() && (count == 0 || seen < count)) {
        natsMsg* m = nullptr;
        if (natsSubscription_NextMsg(&m, sub, 200) != NATS_OK) continue;
        last = std::chrono::steady_clock::now();
        if (seen++ == 0) first = last;
        const char* frameTime = nullptr;
        const char* frameSeq = nullptr;
        natsMsgHeader_Get(m, rtmfmt::kHeaderFrameTime, &frameTime);
        natsMsgHeader_Get(m, rtmfmt::kHeaderFrameSeq, &frameSeq);
        const double ms = frameTime ? static_cast<double>(nowNs() - std::strtoll(frameTime, nullptr, 10)) / 1e6 : 0.0;
        latency.push_back(ms);
        int32_t id = 0;
        rtmfmt::deviceFromSubject(natsMsg_GetSubject(m), id);
        ParamsOut o;
        std::vector<rtm_beat> beats;
        if (!quiet && rtmfmt::decodeResultPayload(reinterpret_cast<const unsigned char*>(natsMsg_GetData(m)),
                                                  static_cast<size_t>(natsMsg_GetDataLength(m)), o, beats)) {
            std::printf("%d,%s,%d,%d,%d,%d,%d,%.1f\n", id, frameSeq ? frameSeq : "", o.nHeartRate, o.nHeartStatus,
                        o.nBreathRate, o.nBreathState, o.nPosture, ms);
        } else if (!quiet) {
            std::printf("%.*s\n", natsMsg_GetDataLength(m), natsMsg_GetData(m));
        }
        natsMsg_Destroy(m);
    }
    natsSubscription_Destroy(sub);
    std::fflush(stdout);
    if (!latency.empty()) {
        std::sort(latency.begin(), latency.end());
        const double span = std::chrono::duration<double>(last - first).count();
        std::fprintf(stderr,
                     "rtmonitor subscribe: %lld results, %.0f results/s, latency median %.1f ms, "
                     "p99 %.1f ms, max %.1f ms\n",
                     seen, span > 0 ? static_cast<double>(seen - 1) / span : 0.0, latency[latency.size() / 2],
                     latency[std::min(latency.size() - 1, latency.size() * 99 / 100)], latency.back());
    } else {
        std::fprintf(stderr, "rtmonitor subscribe: no results\n");
    }
    return kExitOk;
}

// The client library's own threads and buffers go too, so leak checkers see a clean exit.
int runPublish(const std::vector<std::string>& args) {
    const int status = publishFrames(args);
    nats_Close();
    return status;
}

int runSubscribe(const std::vector<std::string>& args) {
    const int status = subscribeResults(args);
    nats_Close();
    return status;
}

}  // namespace rtmtool

#endif
