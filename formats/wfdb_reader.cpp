// WFDB header, signal-file and annotation-file reading (see wfdb_reader.h). Check against the
// shared records: `rtmonitor import ../shared/data/wfdb/100.hea --out x.frames` and compare its
// rates with ../shared/data/100.frames.
#include "formats/wfdb_reader.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <sstream>

namespace rtmfmt {
namespace {

// Guards against headers that would make the reader allocate or loop without bound.
constexpr int kMaxSignals = 256;
constexpr int kMaxSamplesPerFrame = 10000;
constexpr long long kMaxSkew = 100000000LL;
constexpr double kMaxRate = 1e6;

std::vector<std::string> splitWords(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream s(line);
    for (std::string w; s >> w;) words.push_back(w);
    return words;
}

bool wholeDouble(const std::string& text, double& v) {
    if (text.empty()) return false;
    char* end = nullptr;
    v = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size() && std::isfinite(v);
}

bool wholeInt(const std::string& text, long long lo, long long hi, long long& v) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    v = std::strtoll(text.c_str(), &end, 10);
    return errno == 0 && end == text.c_str() + text.size() && v >= lo && v <= hi;
}

int bitsPerSample(int format) {
    switch (format) {
        case 8:
        case 80: return 8;
        case 16:
        case 61:
        case 160: return 16;
        case 24: return 24;
        case 32: return 32;
        case 212: return 12;
        default: return 0;
    }
}

// "fs[/counter[(base)]]" of the record line.
bool parseRates(const std::string& w, WfdbHeader& h) {
    const size_t slash = w.find('/');
    if (!wholeDouble(w.substr(0, slash), h.frameRate)) return false;
    if (slash != std::string::npos) {
        std::string c = w.substr(slash + 1);
        const size_t paren = c.find('(');
        if (!wholeDouble(c.substr(0, paren), h.counterRate)) return false;
    }
    return true;
}

// "format[xspf][:skew][+offset]".
bool parseFormat(const std::string& w, WfdbSignalSpec& s, std::string& error) {
    size_t i = 0;
    while (i < w.size() && std::isdigit(static_cast<unsigned char>(w[i]))) ++i;
    long long v = 0;
    if (!wholeInt(w.substr(0, i), 0, 100000, v)) {
        error = "bad storage format '" + w + "'";
        return false;
    }
    s.format = static_cast<int>(v);
    while (i < w.size()) {
        const char tag = w[i++];
        size_t j = i;
        while (j < w.size() && std::isdigit(static_cast<unsigned char>(w[j]))) ++j;
        const std::string num = w.substr(i, j - i);
        i = j;
        if (tag == 'x' && wholeInt(num, 1, kMaxSamplesPerFrame, v)) {
            s.samplesPerFrame = static_cast<int>(v);
        } else if (tag == ':' && wholeInt(num, 0, kMaxSkew, v)) {
            s.skew = static_cast<int>(v);
        } else if (tag == '+' && wholeInt(num, 0, LLONG_MAX / 2, v)) {
            s.byteOffset = static_cast<uint64_t>(v);
        } else {
            error = "bad storage format '" + w + "'";
            return false;
        }
    }
    if (bitsPerSample(s.format) == 0) {
        error = "storage format " + std::to_string(s.format) +
                " is not supported (supported: 8, 16, 24, 32, 61, 80, 160, 212)";
        return false;
    }
    return true;
}

// "gain[(baseline)][/units]"; a zero gain means uncalibrated, read as the default 200 per mV.
bool parseGain(const std::string& w, WfdbSignalSpec& s, bool& haveBaseline) {
    std::string g = w;
    const size_t slash = g.find('/');
    if (slash != std::string::npos) {
        s.units = g.substr(slash + 1);
        g = g.substr(0, slash);
    }
    const size_t paren = g.find('(');
    if (paren != std::string::npos) {
        const size_t close = g.find(')', paren);
        if (close == std::string::npos || close + 1 != g.size()) return false;
        if (!wholeDouble(g.substr(paren + 1, close - paren - 1), s.baseline)) return false;
        haveBaseline = true;
        g = g.substr(0, paren);
    }
    if (!wholeDouble(g, s.gain)) return false;
    if (s.gain == 0) s.gain = 200;
    return true;
}

int signExtend(int v, int bits) {
    const int m = 1 << (bits - 1);
    return (v ^ m) - m;
}

// The record line: name, number of signals, sampling frequency, number of samples.
bool parseRecordLine(const std::vector<std::string>& w, WfdbHeader& h, long long& nsig, std::string& error) {
    if (w.size() < 2) {
        error = "the record line needs a name and a number of signals";
        return false;
    }
    if (w[0].find('/') != std::string::npos) {
        error = "multi-segment records are not supported; give one segment's header";
        return false;
    }
    h.name = w[0];
    if (!wholeInt(w[1], 0, kMaxSignals, nsig)) {
        error = "bad number of signals '" + w[1] + "' (0.." + std::to_string(kMaxSignals) + ")";
        return false;
    }
    if (w.size() > 2 && (!parseRates(w[2], h) || !(h.frameRate > 0) || h.frameRate > kMaxRate || h.counterRate < 0 ||
                         h.counterRate > kMaxRate)) {
        error = "bad sampling frequency '" + w[2] + "'";
        return false;
    }
    long long n = 0;
    if (w.size() > 3) {
        if (!wholeInt(w[3], 0, LLONG_MAX / 4, n)) {
            error = "bad number of samples '" + w[3] + "'";
            return false;
        }
        h.frames = static_cast<uint64_t>(n);
    }
    return true;
}

// The ADC zero (the baseline unless the gain field gave one) and the initial value.
bool parseZeroAndInitial(const std::vector<std::string>& w, bool haveBaseline, WfdbSignalSpec& s, std::string& error) {
    long long v = 0;
    double zero = 0;
    if (w.size() > 4 && !wholeDouble(w[4], zero)) {
        error = "bad ADC zero '" + w[4] + "'";
        return false;
    }
    if (!haveBaseline) s.baseline = zero;
    if (w.size() > 5) {
        if (!wholeInt(w[5], INT_MIN, INT_MAX, v)) {
            error = "bad initial value '" + w[5] + "'";
            return false;
        }
        s.initialValue = static_cast<int>(v);
    }
    return true;
}

// A signal line: file, format, gain, resolution, ADC zero, initial value, ..., description.
bool parseSignalLine(const std::vector<std::string>& w, size_t index, WfdbSignalSpec& s, std::string& error) {
    if (w.size() < 2) {
        error = "a signal line needs a file name and a storage format";
        return false;
    }
    s.file = w[0];
    if (s.file == "-") {
        error = "signals on standard input are not supported";
        return false;
    }
    if (!parseFormat(w[1], s, error)) return false;
    bool haveBaseline = false;
    if (w.size() > 2 && !parseGain(w[2], s, haveBaseline)) {
        error = "bad gain '" + w[2] + "'";
        return false;
    }
    if (!parseZeroAndInitial(w, haveBaseline, s, error)) return false;
    for (size_t k = 8; k < w.size(); ++k) s.description += (k > 8 ? " " : "") + w[k];
    if (s.description.empty()) s.description = "signal " + std::to_string(index);
    return true;
}

}  // namespace

bool parseWfdbHeader(const std::string& text, WfdbHeader& h, std::string& error) {
    h = WfdbHeader{};
    std::istringstream in(text);
    std::string line;
    int lineNo = 0;
    long long nsig = -1;
    while (std::getline(in, line)) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') continue;
        const std::vector<std::string> w = splitWords(line);
        const std::string where = "line " + std::to_string(lineNo) + ": ";
        if (nsig < 0) {
            if (!parseRecordLine(w, h, nsig, error)) {
                error = where + error;
                return false;
            }
            continue;
        }
        if (static_cast<long long>(h.signals.size()) == nsig) {
            error = where + "more signal lines than the " + std::to_string(nsig) + " the record line declares";
            return false;
        }
        WfdbSignalSpec s;
        if (!parseSignalLine(w, h.signals.size(), s, error)) {
            error = where + error;
            return false;
        }
        h.signals.push_back(s);
    }
    if (nsig < 0) {
        error = "no record line";
        return false;
    }
    if (static_cast<long long>(h.signals.size()) != nsig) {
        error = "the record line declares " + std::to_string(nsig) + " signals but " +
                std::to_string(h.signals.size()) + " are described";
        return false;
    }
    return true;
}

bool WfdbRecord::open(const std::string& headerName, const WfdbHeader& header, SourceOpener opener,
                      std::string& error) {
    headerName_ = headerName;
    header_ = header;
    opener_ = std::move(opener);
    channels_.clear();
    if (header_.signals.empty()) {
        error = headerName_ + ": the record has no signals";
        return false;
    }
    for (const WfdbSignalSpec& s : header_.signals)
        channels_.push_back({s.description, s.units, header_.frameRate * s.samplesPerFrame});
    // Signals sharing a file form one group, in header order; a group must be contiguous.
    groups_.clear();
    groupOf_.clear();
    for (size_t i = 0; i < header_.signals.size(); ++i) {
        const WfdbSignalSpec& s = header_.signals[i];
        if (groups_.empty() || groups_.back().file != s.file) {
            for (const Group& g : groups_) {
                if (g.file == s.file) {
                    error = headerName_ + ": signals of " + s.file + " are not listed together";
                    return false;
                }
            }
            Group g;
            g.file = s.file;
            g.format = s.format;
            g.byteOffset = s.byteOffset;
            groups_.push_back(std::move(g));
        } else if (groups_.back().format != s.format) {
            error = headerName_ + ": signals stored in " + s.file + " use different formats (" +
                    std::to_string(groups_.back().format) + " and " + std::to_string(s.format) + ")";
            return false;
        }
        groups_.back().signals.push_back(i);
        groups_.back().samplesPerFrame += static_cast<size_t>(s.samplesPerFrame);
        groupOf_.push_back(groups_.size() - 1);
    }
    return openGroups(error);
}

bool WfdbRecord::openGroups(std::string& error) {
    uint64_t storedFrames = header_.frames;
    bool first = true;
    for (Group& g : groups_) {
        g.source = opener_(g.file, error);
        if (!g.source) {
            error = g.file + " (signal file of " + headerName_ + "): cannot open: " + error;
            return false;
        }
        const uint64_t size = g.source->size();
        if (size < g.byteOffset) {
            error = g.file + ": the header of " + headerName_ + " puts the samples at byte " +
                    std::to_string(g.byteOffset) + " but the file has only " + std::to_string(size) + " bytes";
            return false;
        }
        const uint64_t bitsPerFrame = static_cast<uint64_t>(bitsPerSample(g.format)) * g.samplesPerFrame;
        const uint64_t available = (size - g.byteOffset) * 8 / bitsPerFrame;
        if (header_.frames > 0 && available < header_.frames) {
            error = g.file + ": holds " + std::to_string(available) + " frames (" + std::to_string(size) +
                    " bytes) but the header of " + headerName_ + " says " + std::to_string(header_.frames);
            return false;
        }
        if (header_.frames == 0) storedFrames = first ? available : std::min(storedFrames, available);
        first = false;
        // A skewed signal's last samples lie beyond the record's length: read them when the file
        // holds them. (Without a stated length the record ends with the shortest file.)
        int skew = 0;
        for (size_t si : g.signals) skew = std::max(skew, header_.signals[si].skew);
        g.frames = header_.frames == 0 ? available : std::min(available, header_.frames + static_cast<uint64_t>(skew));
        g.framesRead = 0;
        if (!g.source->skip(g.byteOffset)) {
            error = g.file + ": cannot seek to byte " + std::to_string(g.byteOffset);
            return false;
        }
        // Small files (and the fuzz target's many tiny ones) need no large buffer.
        g.buffer.assign(static_cast<size_t>(std::min<uint64_t>(65536, std::max<uint64_t>(16, size - g.byteOffset))), 0);
        g.bufferPos = g.bufferEnd = 0;
        g.havePending = false;
        g.last.assign(g.samplesPerFrame, 0);
        size_t slot = 0;
        for (size_t si : g.signals)
            for (int k = 0; k < header_.signals[si].samplesPerFrame; ++k)
                g.last[slot++] = header_.signals[si].initialValue;
    }
    frames_ = storedFrames;
    if (header_.frames == 0)
        for (Group& g : groups_) g.frames = frames_;
    queues_.assign(header_.signals.size(), {});
    toDrop_.clear();
    for (const WfdbSignalSpec& s : header_.signals)
        toDrop_.push_back(static_cast<uint64_t>(s.skew) * static_cast<uint64_t>(s.samplesPerFrame));
    emitted_ = 0;
    return true;
}

std::vector<std::string> WfdbRecord::inputFiles() const {
    std::vector<std::string> files = {headerName_};
    const size_t slash = headerName_.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "" : headerName_.substr(0, slash + 1);
    for (const Group& g : groups_) files.push_back(g.file.empty() || g.file[0] == '/' ? g.file : dir + g.file);
    return files;
}

double WfdbRecord::duration() const { return static_cast<double>(frames_) / header_.frameRate; }

bool WfdbRecord::rewind(std::string& error) { return openGroups(error); }

bool WfdbRecord::nextByte(Group& g, unsigned char& b) {
    if (g.bufferPos == g.bufferEnd) {
        g.bufferEnd = g.source->read(g.buffer.data(), g.buffer.size());
        g.bufferPos = 0;
        if (g.bufferEnd == 0) return false;
    }
    b = g.buffer[g.bufferPos++];
    return true;
}

bool WfdbRecord::nextSample(Group& g, size_t slot, long long& value, bool& invalid) {
    unsigned char b[4];
    invalid = false;
    switch (g.format) {
        case 8: {
            if (!nextByte(g, b[0])) return false;
            // First differences from the signal's previous sample, starting at the header's initial value.
            g.last[slot] += static_cast<int>(static_cast<signed char>(b[0]));
            value = g.last[slot];
            return true;
        }
        case 80:
            if (!nextByte(g, b[0])) return false;
            value = static_cast<int>(b[0]) - 128;
            invalid = value == -128;
            return true;
        case 16:
        case 61:
        case 160:
            if (!nextByte(g, b[0]) || !nextByte(g, b[1])) return false;
            value = g.format == 61 ? (b[0] << 8 | b[1]) : (b[1] << 8 | b[0]);
            value = g.format == 160 ? value - 32768 : signExtend(value, 16);
            invalid = value == -32768;
            return true;
        case 24:
            if (!nextByte(g, b[0]) || !nextByte(g, b[1]) || !nextByte(g, b[2])) return false;
            value = signExtend(b[2] << 16 | b[1] << 8 | b[0], 24);
            invalid = value == -(1 << 23);
            return true;
        case 32: {
            if (!nextByte(g, b[0]) || !nextByte(g, b[1]) || !nextByte(g, b[2]) || !nextByte(g, b[3])) return false;
            const uint32_t u = static_cast<uint32_t>(b[3]) << 24 | b[2] << 16 | b[1] << 8 | b[0];
            value = static_cast<int64_t>(u) - (u >= 0x80000000u ? 0x100000000LL : 0);
            invalid = value == INT_MIN;
            return true;
        }
        case 212:
            // Pairs of 12-bit samples in three bytes, pairing across signals and frames.
            if (g.havePending) {
                g.havePending = false;
                value = g.pendingHigh;
            } else {
                if (!nextByte(g, b[0]) || !nextByte(g, b[1])) return false;
                value = signExtend(b[0] | (b[1] & 0x0f) << 8, 12);
                if (nextByte(g, b[2])) {
                    g.pendingHigh = signExtend(b[2] | (b[1] & 0xf0) << 4, 12);
                    g.havePending = true;
                }
            }
            invalid = value == -2048;
            return true;
        default: return false;
    }
}

bool WfdbRecord::readStoredFrame(Group& g, std::string& error) {
    size_t slot = 0;
    for (size_t si : g.signals) {
        const WfdbSignalSpec& s = header_.signals[si];
        for (int k = 0; k < s.samplesPerFrame; ++k, ++slot) {
            long long v = 0;
            bool invalid = false;
            if (!nextSample(g, slot, v, invalid)) {
                error = g.file + ": " + (g.source->failed() ? "read error" : "ends early") + " in frame " +
                        std::to_string(g.framesRead) + " of " + std::to_string(g.frames);
                return false;
            }
            if (toDrop_[si] > 0) {
                --toDrop_[si];
                continue;
            }
            queues_[si].push_back(invalid ? std::numeric_limits<double>::quiet_NaN()
                                          : (static_cast<double>(v) - s.baseline) / s.gain);
        }
    }
    ++g.framesRead;
    return true;
}

bool WfdbRecord::readBlock(std::vector<std::vector<double>>& blocks, std::string& error) {
    error.clear();
    if (emitted_ >= frames_) return false;
    const uint64_t perBlock = std::max<uint64_t>(1, static_cast<uint64_t>(std::llround(header_.frameRate)));
    const uint64_t n = std::min(perBlock, frames_ - emitted_);
    blocks.assign(header_.signals.size(), {});
    for (size_t si = 0; si < header_.signals.size(); ++si) {
        const size_t need = static_cast<size_t>(n) * static_cast<size_t>(header_.signals[si].samplesPerFrame);
        Group& g = groups_[groupOf_[si]];
        while (queues_[si].size() < need && g.framesRead < g.frames)
            if (!readStoredFrame(g, error)) return false;
        // A skewed signal whose file ends with the record: its last samples are unknown.
        while (queues_[si].size() < need) queues_[si].push_back(std::numeric_limits<double>::quiet_NaN());
        blocks[si].assign(queues_[si].begin(), queues_[si].begin() + static_cast<long>(need));
        queues_[si].erase(queues_[si].begin(), queues_[si].begin() + static_cast<long>(need));
    }
    emitted_ += n;
    return true;
}

std::string wfdbAnnotationLabel(int code) {
    static const char* const kLabels[] = {"",  "N", "L", "R", "a", "V", "F", "J", "A",  "S", "E", "j", "/", "Q",
                                          "~", "",  "|", "",  "s", "T", "*", "D", "\"", "=", "p", "B", "^", "t",
                                          "+", "u", "?", "!", "[", "]", "e", "n", "@",  "x", "f", "(", ")", "r"};
    if (code < 0 || code >= static_cast<int>(sizeof kLabels / sizeof kLabels[0])) return "";
    return kLabels[code];
}

bool isBeatLabel(const std::string& label) {
    static const char* const kBeats[] = {"N", "L", "R", "B", "A", "a", "J", "S", "V", "r",
                                         "F", "e", "j", "n", "E", "/", "f", "Q", "?"};
    for (const char* b : kBeats)
        if (label == b) return true;
    return false;
}

bool readWfdbAnnotations(ByteSource& source, double frameRate, std::vector<Annotation>& out, std::string& error) {
    out.clear();
    constexpr int kSkip = 59, kNum = 60, kSub = 61, kChan = 62, kAux = 63, kNote = 22;
    constexpr char kResolution[] = "## time resolution: ";
    double ticksPerSecond = frameRate;
    long long time = 0;
    bool ended = false, pendingNote = false;
    unsigned char w[4];
    uint64_t offset = 0;
    auto fail = [&](const std::string& why) {
        error = why + " at byte " + std::to_string(offset);
        return false;
    };
    while (source.read(w, 2) == 2) {
        const int word = w[0] | w[1] << 8;
        const int code = word >> 10, value = word & 0x3ff;
        offset += 2;
        if (code == 0 && value == 0) {
            ended = true;
            break;
        }
        if (code == kSkip) {
            if (source.read(w, 4) != 4) return fail("skip interval cut short");
            offset += 4;
            // A 32-bit interval stored as two 16-bit words, high word first.
            const uint32_t u = static_cast<uint32_t>(w[1]) << 24 | static_cast<uint32_t>(w[0]) << 16 |
                               static_cast<uint32_t>(w[3]) << 8 | w[2];
            time += static_cast<int32_t>(u);
        } else if (code == kNum || code == kSub || code == kChan) {
            // Annotator details that do not change the time or the label.
        } else if (code == kAux) {
            const size_t padded = static_cast<size_t>(value + (value & 1));
            unsigned char bytes[1024];
            if (source.read(bytes, padded) != padded) return fail("auxiliary text cut short");
            offset += padded;
            const std::string aux(reinterpret_cast<const char*>(bytes), static_cast<size_t>(value));
            if (pendingNote && aux.rfind(kResolution, 0) == 0) {
                double r = 0;
                std::string num = aux.substr(sizeof kResolution - 1);
                num = num.substr(0, num.find_first_of(std::string("\0 ", 2)));
                if (wholeDouble(num, r) && r > 0 && r <= kMaxRate) ticksPerSecond = r;
            }
        } else if (code >= 1 && code <= 49) {
            time += value;
            out.push_back({static_cast<double>(time), wfdbAnnotationLabel(code)});
            pendingNote = code == kNote && time == 0;
            continue;
        } else {
            return fail("unknown annotation code " + std::to_string(code));
        }
        if (code != kAux) pendingNote = pendingNote && (code == kNum || code == kSub || code == kChan);
    }
    if (source.failed()) return fail("read error");
    if (!ended) return fail("no end marker (the file is cut short or is not an annotation file)");
    for (Annotation& a : out) a.time /= ticksPerSecond;
    if (time < 0) return fail("annotation time before the start of the record");
    return true;
}

}  // namespace rtmfmt
