// JSON of events, alarm state, limits and station commands (see alarm_json.h).
#include "alarm_json.h"

#include <nlohmann/json.hpp>

namespace rtmalarms {

using nlohmann::json;

namespace {

json alarmObject(const Alarm& a) {
    return json{{"alarm", alarmName(a.id)},
                {"priority", priorityName(a.priority)},
                {"kind", kindName(a.kind)},
                {"text", a.text},
                {"value", a.value},
                {"limit", a.limit},
                {"latching", a.latching},
                {"active", a.active},
                {"acknowledged", a.acknowledged},
                {"raised_ms", a.raisedMs},
                {"at_ms", a.atMs},
                {"by", a.by}};
}

bool readAlarm(const json& j, Alarm& a, std::string& error) {
    const auto id = alarmFromName(j.value("alarm", std::string()));
    if (!id) {
        error = "unknown alarm '" + j.value("alarm", std::string()) + "'";
        return false;
    }
    a.id = *id;
    const std::string p = j.value("priority", std::string("medium"));
    a.priority = p == "high" ? Priority::High : p == "low" ? Priority::Low : Priority::Medium;
    a.kind = j.value("kind", std::string()) == "technical" ? Kind::Technical : Kind::Physiological;
    a.text = j.value("text", std::string());
    a.value = j.value("value", 0);
    a.limit = j.value("limit", 0);
    a.latching = j.value("latching", false);
    a.active = j.value("active", true);
    a.acknowledged = j.value("acknowledged", false);
    a.raisedMs = j.value("raised_ms", int64_t{0});
    a.atMs = j.value("at_ms", int64_t{0});
    a.by = j.value("by", std::string());
    return true;
}

}  // namespace

std::string eventJson(const Event& e) {
    if (e.type == EventType::Paused)
        return json{{"device", e.device},
                    {"event", "paused"},
                    {"seconds", e.pauseSeconds},
                    {"paused_until_ms", e.pausedUntilMs},
                    {"by", e.by},
                    {"at_ms", e.atMs}}
            .dump();
    json j = alarmObject(e.alarm);
    j["device"] = e.device;
    j["event"] = eventName(e.type);
    j["at_ms"] = e.atMs;
    j["by"] = e.by;
    return j.dump();
}

std::string stateJson(int32_t device, const std::vector<Alarm>& alarms, int64_t pausedUntilMs) {
    json list = json::array();
    for (const Alarm& a : alarms) {
        json o = alarmObject(a);
        o["device"] = device;
        list.push_back(std::move(o));
    }
    return json{{"device", device}, {"alarms", std::move(list)}, {"paused_until_ms", pausedUntilMs}}.dump();
}

bool parseState(const std::string& text, std::vector<Alarm>& alarms, int64_t& pausedUntilMs, std::string& error) {
    try {
        const json j = json::parse(text);
        std::vector<Alarm> out;
        for (const json& o : j.at("alarms")) {
            Alarm a;
            if (!readAlarm(o, a, error)) return false;
            out.push_back(a);
        }
        alarms = std::move(out);
        pausedUntilMs = j.value("paused_until_ms", int64_t{0});
        return true;
    } catch (const json::exception& ex) {
        error = ex.what();
        return false;
    }
}

bool parseLimits(const std::string& text, LimitsPatch& patch, std::string& error) {
    try {
        const json j = json::parse(text);
        if (!j.is_object()) {
            error = "not a JSON object";
            return false;
        }
        LimitsPatch p;
        struct Field {
            const char* name;
            std::optional<int> LimitsPatch::*member;
            int lo, hi;
        };
        // A 0 low limit switches that alarm off; delays of at least one second.
        static const Field fields[] = {
            {"hr_high", &LimitsPatch::hrHigh, 1, 400},
            {"hr_low", &LimitsPatch::hrLow, 0, 400},
            {"br_high", &LimitsPatch::brHigh, 1, 200},
            {"br_low", &LimitsPatch::brLow, 0, 200},
            {"apnoea_s", &LimitsPatch::apnoeaS, 1, 600},
            {"quality_s", &LimitsPatch::qualityS, 1, 600},
            {"resp_unusable_s", &LimitsPatch::respUnusableS, 1, 3600},
        };
        for (const Field& f : fields) {
            if (!j.contains(f.name) || j[f.name].is_null()) continue;
            const json& v = j[f.name];
            if (!v.is_number_integer() || v.get<int64_t>() < f.lo || v.get<int64_t>() > f.hi) {
                error = std::string(f.name) + " must be a whole number in " + std::to_string(f.lo) + ".." +
                        std::to_string(f.hi);
                return false;
            }
            p.*(f.member) = v.get<int>();
        }
        patch = p;
        return true;
    } catch (const json::exception& ex) {
        error = ex.what();
        return false;
    }
}

std::string limitsJson(const Limits& l, const std::string& by, int64_t atMs) {
    return json{{"hr_high", l.hrHigh},
                {"hr_low", l.hrLow},
                {"br_high", l.brHigh},
                {"br_low", l.brLow},
                {"apnoea_s", l.apnoeaS},
                {"quality_s", l.qualityS},
                {"resp_unusable_s", l.respUnusableS},
                {"by", by},
                {"at_ms", atMs}}
        .dump();
}

bool parseCommand(const std::string& text, Command& c, std::string& error) {
    try {
        const json j = json::parse(text);
        const std::string action = j.value("action", std::string());
        Command out;
        out.by = j.value("by", std::string("unknown"));
        if (action == "ack") {
            const auto id = alarmFromName(j.value("alarm", std::string()));
            if (!id) {
                error = "ack names no known alarm";
                return false;
            }
            out.action = Command::Action::Ack;
            out.alarm = *id;
        } else if (action == "pause") {
            const json& s = j.at("seconds");
            if (!s.is_number() || s.get<double>() < 0 || s.get<double>() > kMaxPauseS) {
                error = "pause seconds must be in 0.." + std::to_string(kMaxPauseS);
                return false;
            }
            out.action = Command::Action::Pause;
            out.seconds = static_cast<int>(s.get<double>());
        } else {
            error = "action must be \"ack\" or \"pause\"";
            return false;
        }
        c = out;
        return true;
    } catch (const json::exception& ex) {
        error = ex.what();
        return false;
    }
}

}  // namespace rtmalarms
