// Recording -> input frames (see record_source.h for the scales). Check:
// `rtmonitor import ../shared/data/wfdb/100.hea --out x.frames` then replay both x.frames and
// ../shared/data/100.frames: the heart rates agree within a beat per minute or two.
#include "formats/record_source.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace rtmfmt {

namespace {

constexpr double kEcgRate = 200, kSlowRate = 25;
constexpr double kEcgCountsPerMv = 200, kAccCountsPerG = 128;
constexpr double kRespCentre = 30000, kRespSwing = 2000;
constexpr double kRespWindowSeconds = 10;

std::string upper(std::string s) {
    for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string trimmed(const std::string& s) {
    const size_t a = s.find_first_not_of(" \t");
    if (a == std::string::npos) return "";
    return s.substr(a, s.find_last_not_of(" \t") - a + 1);
}

bool contains(const std::string& haystack, const char* needle) { return haystack.find(needle) != std::string::npos; }

std::string labelList(const std::vector<ChannelInfo>& ch) {
    std::string s;
    for (size_t i = 0; i < ch.size(); ++i) s += (i ? ", '" : "'") + ch[i].label + "'";
    return s.empty() ? "none" : s;
}

int findLabel(const std::vector<ChannelInfo>& ch, const std::string& label) {
    for (size_t i = 0; i < ch.size(); ++i)
        if (upper(trimmed(ch[i].label)) == upper(trimmed(label))) return static_cast<int>(i);
    return -1;
}

int chooseEcg(const std::vector<ChannelInfo>& ch) {
    static const char* const kLeads[] = {"I",   "III",  "AVR",  "AVL",  "AVF",  "V",    "V1",
                                         "V2",  "V3",   "V4",   "V5",   "V6",   "MLI",  "MLIII",
                                         "ML2", "MCL1", "MCL2", "MCL3", "MCL4", "MCL5", "MCL6"};
    for (size_t i = 0; i < ch.size(); ++i) {
        const std::string u = upper(trimmed(ch[i].label));
        if (u == "II" || u == "MLII" || u == "ECG II" || u == "ECG2") return static_cast<int>(i);
    }
    for (size_t i = 0; i < ch.size(); ++i) {
        const std::string u = upper(ch[i].label);
        if (contains(u, "ECG") || contains(u, "EKG")) return static_cast<int>(i);
    }
    for (size_t i = 0; i < ch.size(); ++i)
        for (const char* lead : kLeads)
            if (upper(trimmed(ch[i].label)) == lead) return static_cast<int>(i);
    return -1;
}

int chooseResp(const std::vector<ChannelInfo>& ch) {
    for (size_t i = 0; i < ch.size(); ++i) {
        const std::string u = upper(ch[i].label);
        if (contains(u, "RESP") || contains(u, "THOR") || contains(u, "BREATH")) return static_cast<int>(i);
    }
    return -1;
}

int chooseAcc(const std::vector<ChannelInfo>& ch, char axis) {
    for (size_t i = 0; i < ch.size(); ++i) {
        const std::string u = upper(trimmed(ch[i].label));
        if (contains(u, "ACC") && !u.empty() && u.back() == axis) return static_cast<int>(i);
    }
    return -1;
}

// Factor from the stated unit to mV; 0 when the unit is not a voltage.
double toMillivolts(const std::string& unit) {
    const std::string u = trimmed(unit);
    if (u == "mV" || u == "MV" || u == "mv" || u.empty()) return 1;
    if (u == "uV" || u == "UV" || u == "uv" || u == "\xc2\xb5V" || u == "\xce\xbcV") return 1e-3;
    if (u == "V" || u == "v") return 1e3;
    if (u == "nV") return 1e-6;
    return 0;
}

double toG(const std::string& unit) {
    const std::string u = trimmed(unit);
    if (u == "g" || u == "G" || u.empty()) return 1;
    if (u == "mg" || u == "mG") return 1e-3;
    if (u == "m/s^2" || u == "m/s2" || u == "m/s\xc2\xb2" || u == "m/s/s") return 1 / 9.80665;
    return 0;
}

std::string rateText(double r) {
    char b[32];
    std::snprintf(b, sizeof b, "%g", r);
    return b;
}

int32_t clampCount(double v, double lo, double hi) { return static_cast<int32_t>(std::clamp(std::round(v), lo, hi)); }

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    const size_t m = v.size() / 2;
    std::nth_element(v.begin(), v.begin() + static_cast<long>(m), v.end());
    return v[m];
}

}  // namespace

bool RecordSource::setUpLane(Lane& lane, int channel, double outRate, std::string& error) {
    lane.channel = channel;
    lane.resampler = std::make_unique<StreamResampler>();
    const ChannelInfo& c = reader_->channels()[static_cast<size_t>(channel)];
    if (!(c.rate > 0)) {
        error = path_ + ": signal '" + c.label + "' has no sampling rate";
        return false;
    }
    if (!lane.resampler->init(c.rate, outRate, error)) {
        error = path_ + ": signal '" + c.label + "': " + error;
        return false;
    }
    return true;
}

int RecordSource::pickLabel(const std::string& label, const char* what, std::string& error) const {
    const std::vector<ChannelInfo>& ch = reader_->channels();
    const int i = findLabel(ch, label);
    if (i < 0) error = path_ + ": no " + what + " signal labelled '" + label + "' (signals: " + labelList(ch) + ")";
    return i;
}

bool RecordSource::openEcg(std::string& error) {
    const std::vector<ChannelInfo>& ch = reader_->channels();
    int ecg = -1;
    if (!options_.ecg.empty()) {
        if ((ecg = pickLabel(options_.ecg, "ECG", error)) < 0) return false;
    } else if ((ecg = chooseEcg(ch)) < 0) {
        error = path_ + ": no ECG-like signal label (signals: " + labelList(ch) + "); name one with --ecg LABEL";
        return false;
    }
    const ChannelInfo& e = ch[static_cast<size_t>(ecg)];
    ecg_.scale = toMillivolts(e.unit);
    std::string unitNote = "mV";
    if (ecg_.scale == 0) {
        ecg_.scale = 1;
        unitNote = "'" + e.unit + "' is not a voltage, read as mV";
    } else if (trimmed(e.unit) != "mV") {
        unitNote = (e.unit.empty() ? "no unit, read as mV" : e.unit + " converted to mV");
    }
    if (!setUpLane(ecg_, ecg, kEcgRate, error)) return false;
    notes_.push_back("ECG: signal '" + e.label + "' (" + rateText(e.rate) + " samples/s, " + unitNote +
                     ") -> 200 samples/s, counts = 512 + round(mV x 200)");
    return true;
}

bool RecordSource::openRespiration(std::string& error) {
    const std::vector<ChannelInfo>& ch = reader_->channels();
    int resp = -1;
    if (!options_.resp.empty()) {
        if ((resp = pickLabel(options_.resp, "respiration", error)) < 0) return false;
    } else {
        resp = chooseResp(ch);
    }
    if (resp < 0) {
        notes_.push_back("respiration: no respiration signal; both channels flat at 30000");
        return true;
    }
    if (!setUpLane(resp_, resp, kSlowRate, error) || !scaleRespiration(error)) return false;
    const ChannelInfo& r = ch[static_cast<size_t>(resp)];
    char b[160];
    std::snprintf(b, sizeof b, "counts = 30000 + (value %c %g) x %g", resp_.centre < 0 ? '+' : '-',
                  std::fabs(resp_.centre), resp_.scale);
    notes_.push_back("respiration: signal '" + r.label + "' (" + rateText(r.rate) + " samples/s) -> 25 samples/s, " +
                     b + " (median 10-s swing = 2000 counts)");
    return true;
}

// The three axes named with --acc X,Y,Z, else labels with ACC ending in X, Y and Z (all three or
// none); -1 in `axes` when there is no accelerometer.
bool RecordSource::findAxes(int axes[3], std::string& error) const {
    if (options_.acc.empty()) {
        for (int a = 0; a < 3; ++a) axes[a] = chooseAcc(reader_->channels(), "XYZ"[a]);
        if (axes[0] < 0 || axes[1] < 0 || axes[2] < 0) axes[0] = axes[1] = axes[2] = -1;
        return true;
    }
    std::vector<std::string> labels;
    std::string cur;
    for (char c : options_.acc + ",") {
        if (c == ',') {
            labels.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (labels.size() != 3) {
        error = "--acc needs three labels X,Y,Z, not '" + options_.acc + "'";
        return false;
    }
    for (int a = 0; a < 3; ++a)
        if ((axes[a] = pickLabel(labels[static_cast<size_t>(a)], "accelerometer", error)) < 0) return false;
    return true;
}

bool RecordSource::openAccelerometer(std::string& error) {
    int axes[3] = {-1, -1, -1};
    if (!findAxes(axes, error)) return false;
    if (axes[0] < 0) {
        notes_.push_back("accelerometer: none; a still sensor lying on the back (512, 512, 640)");
        return true;
    }
    std::string names;
    for (int a = 0; a < 3; ++a) {
        const ChannelInfo& c = reader_->channels()[static_cast<size_t>(axes[a])];
        acc_[a].scale = toG(c.unit);
        if (acc_[a].scale == 0) acc_[a].scale = 1;
        if (!setUpLane(acc_[a], axes[a], kSlowRate, error)) return false;
        names += (a ? ", '" : "'") + c.label + "'";
    }
    notes_.push_back("accelerometer: signals " + names + " -> 25 samples/s, counts = 512 + round(g x 128)");
    return true;
}

bool RecordSource::open(const std::string& path, const SourceOptions& options, std::string& error) {
    path_ = path;
    options_ = options;
    reader_ = openRecording(path, error);
    if (!reader_) return false;
    notes_ = reader_->notes();
    if (!openEcg(error) || !openRespiration(error) || !openAccelerometer(error)) return false;
    expected_ = static_cast<uint64_t>(std::floor(reader_->duration() + 1e-9));
    if (expected_ * 1.0 < reader_->duration() - 1e-9)
        notes_.push_back("the last " + rateText(reader_->duration() - static_cast<double>(expected_)) +
                         " s (less than a whole second) are not converted");
    return true;
}

// One pass over the record: centre and swing of the respiration signal from 10-s windows, so the
// scale is the same whatever the file's unit and gain.
bool RecordSource::scaleRespiration(std::string& error) {
    const size_t c = static_cast<size_t>(resp_.channel);
    const double rate = reader_->channels()[c].rate;
    const size_t window = std::max<size_t>(1, static_cast<size_t>(std::llround(rate * kRespWindowSeconds)));
    std::vector<double> centres, swings;
    double lo = INFINITY, hi = -INFINITY, sum = 0;
    size_t inWindow = 0, valid = 0;
    std::vector<std::vector<double>> blocks;
    while (reader_->readBlock(blocks, error)) {
        for (double v : blocks[c]) {
            if (std::isfinite(v)) {
                lo = std::min(lo, v);
                hi = std::max(hi, v);
                sum += v;
                ++valid;
            }
            if (++inWindow == window) {
                if (valid > 0) {
                    centres.push_back(sum / static_cast<double>(valid));
                    swings.push_back(hi - lo);
                }
                lo = INFINITY, hi = -INFINITY, sum = 0;
                inWindow = valid = 0;
            }
        }
    }
    if (!error.empty() || !reader_->rewind(error)) return false;
    if (valid > 0 && centres.empty()) {
        centres.push_back(sum / static_cast<double>(valid));
        swings.push_back(hi - lo);
    }
    resp_.centre = median(centres);
    const double swing = median(swings);
    resp_.scale = swing > 0 ? kRespSwing / swing : 1;
    return true;
}

// Reads blocks until every lane holds a frame's worth of samples or the record ends.
bool RecordSource::fill(std::string& error) {
    Lane* lanes[] = {&ecg_, &resp_, &acc_[0], &acc_[1], &acc_[2]};
    const size_t need[] = {200, 25, 25, 25, 25};
    auto enough = [&] {
        for (size_t i = 0; i < 5; ++i)
            if (lanes[i]->channel >= 0 && lanes[i]->available() < need[i]) return false;
        return true;
    };
    std::vector<std::vector<double>> blocks;
    std::vector<double> block;
    while (!enough() && !ended_) {
        const bool got = reader_->readBlock(blocks, error);
        if (!got && !error.empty()) return false;
        ended_ = !got;
        for (Lane* l : lanes) {
            if (l->channel < 0) continue;
            if (l->head > 0 && l->head * 2 > l->queue.size()) {
                l->queue.erase(l->queue.begin(), l->queue.begin() + static_cast<long>(l->head));
                l->head = 0;
            }
            block.clear();
            if (got) {
                for (double v : blocks[static_cast<size_t>(l->channel)]) {
                    if (std::isfinite(v)) {
                        l->lastValid = v;
                        l->haveValid = true;
                    }
                    block.push_back(l->haveValid ? l->lastValid : 0);
                }
            }
            l->resampler->process(block, ended_, l->queue);
        }
    }
    return true;
}

bool RecordSource::next(ParamsIn& frame, std::string& error) {
    error.clear();
    if (emitted_ >= expected_) return false;
    if (!fill(error)) return false;
    if (ecg_.available() < 200 || (resp_.channel >= 0 && resp_.available() < 25) ||
        (acc_[0].channel >= 0 && (acc_[0].available() < 25 || acc_[1].available() < 25 || acc_[2].available() < 25)))
        return false;
    std::memset(&frame, 0, sizeof frame);
    frame.nDeviceId = options_.deviceId;
    frame.nFrameSeq = static_cast<int32_t>(emitted_ & 0x7fffffff);
    for (int i = 0; i < 200; ++i)
        frame.nHeartData[i] = clampCount(512 + ecg_.queue[ecg_.head++] * ecg_.scale * kEcgCountsPerMv, 0, 1023);
    for (int i = 0; i < 25; ++i) {
        int32_t r = static_cast<int32_t>(kRespCentre);
        if (resp_.channel >= 0)
            r = clampCount(kRespCentre + (resp_.queue[resp_.head++] - resp_.centre) * resp_.scale, 1, 65534);
        frame.nBreathChan1[i] = frame.nBreathChan0[i] = r;
        int32_t* axes[3] = {frame.nAccX, frame.nAccY, frame.nAccZ};
        static const int32_t kStill[3] = {512, 512, 640};
        for (int a = 0; a < 3; ++a)
            axes[a][i] = acc_[a].channel >= 0
                             ? clampCount(512 + acc_[a].queue[acc_[a].head++] * acc_[a].scale * kAccCountsPerG, 0, 1023)
                             : kStill[a];
    }
    ++emitted_;
    return true;
}

}  // namespace rtmfmt
