// The alarm rules without a server: condition delays counted in results, warm-up, latching and
// acknowledgement, the offline timer, limits from the bucket, and the JSON stations exchange.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "alarm_json.h"
#include "rules.h"

namespace {

using namespace rtmalarms;

Result vitals(int hr, int br, int quality = 1, int breathState = 1) {
    Result r;
    r.heartRate = hr;
    r.heartStatus = quality;
    r.breathRate = br;
    r.breathState = breathState;
    return r;
}

// Feeds `n` results one second apart from `t` (advanced), collecting the events.
struct Device {
    DeviceRules rules{7, "alarms@test"};
    int64_t t = 1000000;
    Limits limits;

    std::vector<Event> feed(const Result& r, int n = 1) {
        std::vector<Event> all;
        for (int i = 0; i < n; ++i) {
            t += 1000;
            for (Event& e : rules.feed(t, r, limits)) all.push_back(e);
        }
        return all;
    }
    // Past warm-up with a normal heart and breathing rate.
    void settle() { feed(vitals(80, 15), kWarmupS + 5); }
    const Alarm* alarm(AlarmId id) const {
        for (const Alarm& a : rules.alarms())
            if (a.id == id) return &a;
        return nullptr;
    }
};

std::vector<std::string> names(const std::vector<Event>& ev) {
    std::vector<std::string> out;
    for (const Event& e : ev) out.push_back(std::string(eventName(e.type)) + " " + alarmName(e.alarm.id));
    return out;
}
using Names = std::vector<std::string>;

TEST(AlarmRules, LimitAlarmsWaitForTheirDelayAndClearWhenTheRateIsBack) {
    Device d;
    d.settle();
    EXPECT_TRUE(d.feed(vitals(150, 15), kLimitDelayS - 1).empty());
    auto ev = d.feed(vitals(152, 15));
    ASSERT_EQ(names(ev), Names{"raised hr_high"});
    EXPECT_EQ(ev[0].alarm.priority, Priority::Medium);
    EXPECT_EQ(ev[0].alarm.value, 152);
    EXPECT_EQ(ev[0].alarm.limit, 120);
    EXPECT_EQ(ev[0].alarm.text, "Heart rate 152/min above limit 120");
    EXPECT_TRUE(d.feed(vitals(150, 15), 10).empty()) << "raised once, not every second";
    // The limit itself is not beyond it.
    EXPECT_EQ(names(d.feed(vitals(120, 15))), Names{"cleared hr_high"});

    // One result back inside the limit restarts the delay.
    d.feed(vitals(35, 35), kLimitDelayS - 1);
    d.feed(vitals(80, 15));
    EXPECT_TRUE(d.feed(vitals(35, 35), kLimitDelayS - 1).empty());
    EXPECT_EQ(names(d.feed(vitals(35, 35))), (Names{"raised hr_low", "raised br_high"}));

    // A rate of 0 is "under 30 or none", never normal: it keeps hr_low but does not start it.
    EXPECT_TRUE(d.feed(vitals(0, 15, 0)).size() == 1);  // br_high clears
    EXPECT_NE(d.alarm(AlarmId::HrLow), nullptr);
    EXPECT_EQ(names(d.feed(vitals(60, 15))), Names{"cleared hr_low"});
    Device fresh;
    fresh.settle();
    EXPECT_TRUE(fresh.feed(vitals(80, 0, 1, 0), 3).empty()) << "breathing rate 0 starts no br_low";
}

TEST(AlarmRules, AsystoleWaitsForWarmupLatchesUntilAcknowledgedAndIsHigh) {
    // A device whose ECG is flat from its first frame: nothing during warm-up, then asystole.
    Device d;
    EXPECT_TRUE(d.feed(vitals(0, 0, 1, 2), kWarmupS + kAsystoleDelayS - 1).empty());
    auto ev = d.feed(vitals(0, 0, 1, 2));
    ASSERT_EQ(names(ev), Names{"raised asystole"});
    EXPECT_EQ(ev[0].alarm.priority, Priority::High);
    EXPECT_TRUE(ev[0].alarm.latching);
    EXPECT_NE(ev[0].alarm.text.find("rate under 30/min"), std::string::npos);
    EXPECT_NE(ev[0].alarm.text.find("noisy asystole is not seen"), std::string::npos);

    // The beats come back: the alarm stays, inactive, until someone acknowledges it.
    ev = d.feed(vitals(72, 0, 1, 2));
    ASSERT_EQ(names(ev), Names{"changed asystole"});
    EXPECT_FALSE(ev[0].alarm.active);
    d.feed(vitals(72, 15), 30);
    ASSERT_NE(d.alarm(AlarmId::Asystole), nullptr) << "still waiting for its acknowledgement";
    ev = d.rules.acknowledge(d.t, AlarmId::Asystole, "nurse");
    ASSERT_EQ(names(ev), (Names{"acknowledged asystole", "cleared asystole"}));
    EXPECT_EQ(ev[0].by, "nurse");
    EXPECT_EQ(d.alarm(AlarmId::Asystole), nullptr);

    // Acknowledged while it lasts: cleared when the beats come back, without a second ack.
    d.feed(vitals(0, 15), kAsystoleDelayS);
    ASSERT_NE(d.alarm(AlarmId::Asystole), nullptr);
    EXPECT_EQ(names(d.rules.acknowledge(d.t, AlarmId::Asystole, "nurse")), Names{"acknowledged asystole"});
    EXPECT_TRUE(d.rules.acknowledge(d.t, AlarmId::Asystole, "nurse").empty()) << "acknowledged once";
    EXPECT_TRUE(d.feed(vitals(0, 15)).empty());
    EXPECT_EQ(names(d.feed(vitals(75, 15))), Names{"cleared asystole"});

    // An unacknowledged latched alarm whose condition returns is the same alarm, active again.
    d.feed(vitals(0, 15), kAsystoleDelayS);
    d.feed(vitals(75, 15));
    ev = d.feed(vitals(0, 15), kAsystoleDelayS);
    ASSERT_EQ(names(ev), Names{"changed asystole"});
    EXPECT_TRUE(ev[0].alarm.active);
}

TEST(AlarmRules, NoisyZeroesAndFrameGapsRestartTheWarmupInsteadOfRaisingAsystole) {
    Device d;
    d.settle();
    // Rate 0 with quality 0 is the frame that restarted the heart analysis: it learns again.
    d.feed(vitals(0, 15, 0));
    EXPECT_TRUE(d.feed(vitals(0, 15, 1), kWarmupS - 1).empty());
    EXPECT_EQ(names(d.feed(vitals(0, 15, 1), kAsystoleDelayS)), Names{"raised asystole"});

    Device g;
    Result r = vitals(80, 15);
    for (int i = 0; i < 30; ++i) {
        r.frameSeq = i;
        g.feed(r);
    }
    r = vitals(0, 0, 1, 0);
    r.frameSeq = 100;  // frames lost: the analysis starts over
    EXPECT_TRUE(g.feed(r).empty());
    for (int i = 101; i < 100 + kWarmupS; ++i) {
        r.frameSeq = i;
        EXPECT_TRUE(g.feed(r).empty()) << "frame " << i;
    }
}

TEST(AlarmRules, ApnoeaRespirationAndQualityAlarmsJudgeTheirWindows) {
    Device d;
    d.limits.apnoeaS = 12;
    d.settle();
    // No breathing rate with a varying channel: apnoea, high.
    EXPECT_TRUE(d.feed(vitals(80, 0, 1, 0), 11).empty());
    auto ev = d.feed(vitals(80, 0, 1, 0));
    ASSERT_EQ(names(ev), Names{"raised apnoea"});
    EXPECT_EQ(ev[0].alarm.priority, Priority::High);
    EXPECT_FALSE(ev[0].alarm.latching);
    // The channel goes flat: still no breathing rate (apnoea stays), and the signal is unusable.
    EXPECT_TRUE(d.feed(vitals(80, 0, 1, 2), 29).empty());
    ev = d.feed(vitals(80, 0, 1, 2));
    ASSERT_EQ(names(ev), Names{"raised resp_unusable"});
    EXPECT_EQ(ev[0].alarm.kind, Kind::Technical);
    EXPECT_EQ(ev[0].alarm.priority, Priority::Medium);
    EXPECT_FALSE(ev[0].alarm.latching);
    EXPECT_EQ(names(d.feed(vitals(80, 14, 1, 1))), (Names{"cleared apnoea", "cleared resp_unusable"}));

    // Quality: half of the last quality_s results noisy raises it, under a quarter clears it.
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(d.feed(vitals(80, 14, 0)).empty());
        EXPECT_TRUE(d.feed(vitals(80, 14, 1)).empty());
    }
    ev = d.feed(vitals(80, 14, 0));  // 5 noisy of the last 10
    ASSERT_EQ(names(ev), Names{"raised quality_poor"});
    EXPECT_EQ(ev[0].alarm.priority, Priority::Low);
    EXPECT_EQ(ev[0].alarm.text, "ECG noisy in 5 of the last 10 s: heart rate unreliable");
    EXPECT_TRUE(d.feed(vitals(80, 14, 1), 5).empty()) << "3 of the last 10 still noisy";
    EXPECT_EQ(names(d.feed(vitals(80, 14, 1))), Names{"cleared quality_poor"});
}

TEST(AlarmRules, OfflineTimerEndsEveryUnlatchedAlarmAndClearsOnTheNextResult) {
    Device d;
    d.settle();
    d.feed(vitals(150, 15), kLimitDelayS);
    d.feed(vitals(0, 15), kAsystoleDelayS);
    ASSERT_NE(d.alarm(AlarmId::Asystole), nullptr);
    EXPECT_TRUE(d.rules.tick(d.t + kOfflineAfterMs - 1).empty());
    auto ev = d.rules.tick(d.t + kOfflineAfterMs);
    ASSERT_EQ(names(ev), (Names{"raised offline"}));
    EXPECT_EQ(ev[0].alarm.kind, Kind::Technical);
    EXPECT_TRUE(d.rules.tick(d.t + 2 * kOfflineAfterMs).empty()) << "raised once";
    ASSERT_NE(d.alarm(AlarmId::Asystole), nullptr) << "a latched alarm outlives the connection";

    d.feed(vitals(150, 15), 0);
    d.t += 2 * kOfflineAfterMs;
    ev = d.feed(vitals(0, 0, 1, 0));
    ASSERT_EQ(names(ev), Names{"cleared offline"});
    // Back from offline the device warms up again: no asystole re-raised, no apnoea.
    EXPECT_TRUE(d.feed(vitals(0, 0, 1, 0), kWarmupS - 1).empty());

    // The limit alarm was cleared at offline time, before the asystole.
    Device e;
    e.settle();
    e.feed(vitals(150, 15), kLimitDelayS);
    ev = e.rules.tick(e.t + kOfflineAfterMs + 500);
    EXPECT_EQ(names(ev), (Names{"cleared hr_high", "raised offline"}));
    EXPECT_EQ(ev[1].alarm.text, "No results from the device for 10 s");
}

TEST(AlarmRules, DeviceLimitsOverrideDefaultsFieldByFieldAndEditsReachActiveAlarms) {
    LimitsPatch def, dev;
    def.hrHigh = 140;
    def.brLow = 6;
    dev.hrHigh = 100;
    dev.apnoeaS = 30;
    const Limits l = applyPatches(&def, &dev);
    EXPECT_EQ(l.hrHigh, 100);
    EXPECT_EQ(l.brLow, 6);
    EXPECT_EQ(l.apnoeaS, 30);
    EXPECT_EQ(l.hrLow, Limits{}.hrLow);
    EXPECT_EQ(applyPatches(&def, nullptr).hrHigh, 140);
    EXPECT_EQ(applyPatches(nullptr, nullptr).hrHigh, 120);

    Device d;
    d.limits = l;
    d.settle();
    d.feed(vitals(110, 15), kLimitDelayS);
    ASSERT_NE(d.alarm(AlarmId::HrHigh), nullptr);
    d.limits.hrHigh = 105;
    auto ev = d.feed(vitals(110, 15));
    ASSERT_EQ(names(ev), Names{"changed hr_high"});
    EXPECT_EQ(ev[0].alarm.limit, 105);
    d.limits.hrHigh = 130;
    EXPECT_EQ(names(d.feed(vitals(110, 15))), (Names{"changed hr_high", "cleared hr_high"}));
}

TEST(AlarmRules, PausesAndRestoredAlarms) {
    Device d;
    auto ev = d.rules.pause(5000, 120, "ward 3");
    ASSERT_EQ(ev.size(), 1u);
    EXPECT_EQ(ev[0].type, EventType::Paused);
    EXPECT_EQ(ev[0].pausedUntilMs, 125000);
    EXPECT_EQ(d.rules.pause(5000, 100000, "x")[0].pausedUntilMs, 5000 + 1000LL * kMaxPauseS);
    EXPECT_EQ(d.rules.pause(6000, 0, "x")[0].pausedUntilMs, 0);

    // After a restart: a latched alarm waits for its ack; others clear on the first result.
    Alarm asy, hi;
    asy.id = AlarmId::Asystole;
    asy.latching = true;
    asy.active = false;
    hi.id = AlarmId::HrHigh;
    DeviceRules r(7, "alarms@test");
    r.restore({asy, hi}, 0, 1000);
    EXPECT_EQ(names(r.feed(2000, vitals(80, 15), Limits{})), Names{"cleared hr_high"});
    EXPECT_EQ(r.alarms().size(), 1u);
    EXPECT_EQ(names(r.acknowledge(3000, AlarmId::Asystole, "n")), (Names{"acknowledged asystole", "cleared asystole"}));
    EXPECT_EQ(names(r.tick(1000 + 2000 + kOfflineAfterMs)), Names{"raised offline"});
}

TEST(AlarmJson, EventsStateLimitsAndCommandsFollowTheStationContract) {
    Device d;
    d.settle();
    const Event raised = d.feed(vitals(152, 15), kLimitDelayS).at(0);
    const auto j = nlohmann::json::parse(eventJson(raised));
    for (const char* key : {"device", "alarm", "priority", "kind", "event", "text", "value", "limit", "latching",
                            "raised_ms", "at_ms", "by"})
        EXPECT_TRUE(j.contains(key)) << key;
    EXPECT_EQ(j["device"], 7);
    EXPECT_EQ(j["alarm"], "hr_high");
    EXPECT_EQ(j["priority"], "medium");
    EXPECT_EQ(j["kind"], "physiological");
    EXPECT_EQ(j["event"], "raised");
    EXPECT_EQ(j["by"], "alarms@test");
    const auto p = nlohmann::json::parse(eventJson(d.rules.pause(10, 120, "me")[0]));
    EXPECT_EQ(p["event"], "paused");
    EXPECT_EQ(p["paused_until_ms"], 120010);

    // The state round-trips, so a restart restores exactly what it saved.
    d.feed(vitals(0, 15), kAsystoleDelayS);
    const std::string state = stateJson(7, d.rules.alarms(), 555);
    std::vector<Alarm> back;
    int64_t paused = 0;
    std::string error;
    ASSERT_TRUE(parseState(state, back, paused, error)) << error;
    EXPECT_EQ(paused, 555);
    ASSERT_EQ(back.size(), d.rules.alarms().size());
    for (size_t i = 0; i < back.size(); ++i)
        EXPECT_EQ(stateJson(7, {back[i]}, 0), stateJson(7, {d.rules.alarms()[i]}, 0));
    EXPECT_FALSE(parseState("{\"alarms\":[{\"alarm\":\"vfib\"}]}", back, paused, error));
    EXPECT_FALSE(parseState("[1,", back, paused, error));

    LimitsPatch lp;
    ASSERT_TRUE(parseLimits(R"({"hr_high":110,"br_low":null,"by":"dr x","at_ms":5})", lp, error)) << error;
    EXPECT_EQ(lp.hrHigh, 110);
    EXPECT_FALSE(lp.brLow.has_value());
    ASSERT_TRUE(parseLimits(limitsJson(Limits{}, "setup", 0), lp, error));
    EXPECT_EQ(applyPatches(&lp, nullptr), Limits{});
    for (const char* bad :
         {R"({"hr_high":0})", R"({"hr_low":"50"})", R"({"apnoea_s":0})", R"({"hr_low":50.5})", "[]", "nonsense"})
        EXPECT_FALSE(parseLimits(bad, lp, error)) << bad;

    Command c;
    ASSERT_TRUE(parseCommand(R"({"action":"ack","alarm":"asystole","by":"nurse","at_ms":1})", c, error));
    EXPECT_EQ(c.action, Command::Action::Ack);
    EXPECT_EQ(c.alarm, AlarmId::Asystole);
    EXPECT_EQ(c.by, "nurse");
    ASSERT_TRUE(parseCommand(R"({"action":"pause","seconds":120,"by":"n"})", c, error));
    EXPECT_EQ(c.seconds, 120);
    for (const char* bad : {R"({"action":"ack","alarm":"arrhythmia"})", R"({"action":"pause","seconds":-1})",
                            R"({"action":"silence"})", R"({"action":"pause"})"})
        EXPECT_FALSE(parseCommand(bad, c, error)) << bad;
}

}  // namespace
