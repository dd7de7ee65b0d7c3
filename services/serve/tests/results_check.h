// Reading the results stream back and comparing it with a replay of the same frames through one
// handle per device: what every end-to-end test of the worker service asserts.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "formats/broker.h"
#include "formats/wire.h"

namespace servetest {

// Per device, the payload of every frame's result as a one-handle replay publishes it.
using Reference = std::map<int32_t, std::vector<std::vector<unsigned char>>>;

// Each device's frames through one uninterrupted handle, indexed by nFrameSeq (from 0).
inline Reference replayThroughHandles(const std::vector<ParamsIn>& frames) {
    Reference ref;
    std::map<int32_t, rtm_device*> handles;
    for (const ParamsIn& f : frames) {
        rtm_device*& h = handles[f.nDeviceId];
        if (h == nullptr) h = rtm_device_create();
        ParamsOut o;
        rtm_device_process(h, &f, &o);
        rtm_beat beats[RTM_BEATS_MAX];
        const size_t n = std::min<size_t>(rtm_device_beats(h, beats, RTM_BEATS_MAX), RTM_BEATS_MAX);
        std::vector<unsigned char> payload;
        rtmfmt::encodeResultPayload(o, beats, n, payload);
        ref[f.nDeviceId].push_back(std::move(payload));
    }
    for (auto& h : handles) rtm_device_destroy(h.second);
    return ref;
}

inline uint64_t streamMessages(jsCtx* js, const char* stream) {
    jsStreamInfo* si = nullptr;
    uint64_t n = 0;
    if (js_GetStreamInfo(&si, js, stream, nullptr, nullptr) == NATS_OK) n = si->State.Msgs;
    jsStreamInfo_Destroy(si);
    return n;
}

inline bool waitForResults(jsCtx* js, uint64_t atLeast, int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (streamMessages(js, rtmfmt::kResultsStream) < atLeast) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

// The whole results stream equals the reference: every frame of every device once, word for word.
inline void expectResultsEqual(jsCtx* js, const Reference& ref) {
    uint64_t total = 0;
    for (const auto& d : ref) total += d.second.size();
    EXPECT_EQ(streamMessages(js, rtmfmt::kResultsStream), total);
    jsSubOptions so;
    jsSubOptions_Init(&so);
    so.Stream = rtmfmt::kResultsStream;
    so.Config.AckPolicy = js_AckNone;
    natsSubscription* sub = nullptr;
    // A cluster that lost a server may take longer than the client waits to make the reader (it
    // is replicated like the stream: a one-server reader could be placed on the lost server).
    natsStatus made = NATS_TIMEOUT;
    for (int attempt = 0; attempt < 6 && made == NATS_TIMEOUT; ++attempt)
        made = js_PullSubscribe(&sub, js, "rtm.vitals.*", "check", nullptr, &so, nullptr);
    ASSERT_EQ(made, NATS_OK) << nats_GetLastError(nullptr);
    std::map<int32_t, std::set<int32_t>> seen;
    uint64_t read = 0, mismatches = 0, twice = 0, strays = 0;
    std::string firstMismatch;
    natsMsgList list = {nullptr, 0};
    // A reader made on a cluster that lost a server may be slow to start handing out.
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (read < total && std::chrono::steady_clock::now() < giveUp) {
        const natsStatus s = natsSubscription_Fetch(&list, sub, 1000, 2000, nullptr);
        if (s == NATS_TIMEOUT) continue;
        if (s != NATS_OK) break;
        for (int i = 0; i < list.Count; ++i) {
            natsMsg* m = list.Msgs[i];
            ++read;
            int32_t id = 0;
            const char* seqText = nullptr;
            const bool placed = rtmfmt::deviceFromSubject(natsMsg_GetSubject(m), id) &&
                                natsMsgHeader_Get(m, rtmfmt::kHeaderFrameSeq, &seqText) == NATS_OK;
            const int32_t seq = placed ? std::atoi(seqText) : -1;
            if (!placed || !ref.count(id) || seq < 0 || static_cast<size_t>(seq) >= ref.at(id).size()) {
                ++strays;
                continue;
            }
            if (!seen[id].insert(seq).second) ++twice;
            const std::vector<unsigned char>& want = ref.at(id)[static_cast<size_t>(seq)];
            const bool same = natsMsg_GetDataLength(m) == static_cast<int>(want.size()) &&
                              std::memcmp(natsMsg_GetData(m), want.data(), want.size()) == 0;
            if (!same && mismatches++ == 0)
                firstMismatch = "device " + std::to_string(id) + " frame " + std::to_string(seq);
        }
        natsMsgList_Destroy(&list);
    }
    natsSubscription_Destroy(sub);
    EXPECT_EQ(read, total);
    EXPECT_EQ(strays, 0u) << "results that belong to no frame sent";
    EXPECT_EQ(twice, 0u) << "frames reported twice";
    EXPECT_EQ(mismatches, 0u) << "first differing result: " << firstMismatch;
    EXPECT_EQ(seen.size(), ref.size());
    for (const auto& d : seen) EXPECT_EQ(d.second.size(), ref.at(d.first).size()) << "device " << d.first;
}

}  // namespace servetest
