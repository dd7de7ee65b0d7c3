// The JSON the alarms process exchanges with stations: events on rtm.alarms.<id>, the state kept
// in bucket rtm_alarm_state, limits entries of bucket rtm_limits, and acknowledgements and audio
// pauses from rtm.ack.<id>. Times are ms since 1970; rates per minute; durations in seconds.
// A message that does not parse is refused whole with the reason.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rules.h"

namespace rtmalarms {

std::string eventJson(const Event& e);

// {"device":17,"alarms":[...],"paused_until_ms":0}
std::string stateJson(int32_t device, const std::vector<Alarm>& alarms, int64_t pausedUntilMs);
bool parseState(const std::string& text, std::vector<Alarm>& alarms, int64_t& pausedUntilMs, std::string& error);

// {"hr_high":120,...,"by":"...","at_ms":...}: a field out of its range refuses the entry.
bool parseLimits(const std::string& text, LimitsPatch& patch, std::string& error);
std::string limitsJson(const Limits& l, const std::string& by, int64_t atMs);

struct Command {
    enum class Action { Ack, Pause } action = Action::Ack;
    AlarmId alarm = AlarmId::Asystole;  // Ack
    int seconds = 0;                    // Pause
    std::string by;
};
bool parseCommand(const std::string& text, Command& c, std::string& error);

}  // namespace rtmalarms
