// Writes the committed seed corpus: short programs in each target's input grammar that drive
// the analysers with synthetic recordings (clean, noisy, flat, over-range, dead, device restarts
// and sequence gaps), plus recordings given sample by sample. Deterministic: rerunning it
// reproduces the committed files byte for byte.
// Usage: seedgen <corpus-dir>   (writes <corpus-dir>/<target>/<name>)
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "frame_script.h"
#include "synth/vitals.h"

namespace {

using rtm_synth::DeviceRecording;
using rtm_synth::Segment;

class Bytes {
public:
    Bytes& u8(int v) {
        b_.push_back(static_cast<uint8_t>(v));
        return *this;
    }
    Bytes& u16(int v) { return u8(v & 0xFF).u8((v >> 8) & 0xFF); }
    Bytes& s32(int32_t v) {
        const uint32_t u = static_cast<uint32_t>(v);
        return u16(static_cast<int>(u & 0xFFFF)).u16(static_cast<int>(u >> 16));
    }
    const std::vector<uint8_t>& data() const { return b_; }

private:
    std::vector<uint8_t> b_;
};

std::string gRoot;

void save(const std::string& target, const std::string& name, const Bytes& b) {
    const std::string dir = gRoot + "/" + target;
    mkdir(gRoot.c_str(), 0755);
    mkdir(dir.c_str(), 0755);
    const std::string path = dir + "/" + name;
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) {
        std::perror(path.c_str());
        return;
    }
    std::fwrite(b.data().data(), 1, b.data().size(), f);
    std::fclose(f);
}

// Recipe bytes, as ChannelSource::readRecipe reads them.
int heartRateByte(double bpm) { return static_cast<int>((bpm - 20.0) / 1.2 + 0.5); }
int breathRateByte(double bpm) { return static_cast<int>((bpm - 2.0) / 0.3 + 0.5); }
void synthHeart(Bytes& b, double bpm, int ampByte) { b.u8(rtm_fuzz::kSynth).u8(heartRateByte(bpm)).u8(ampByte); }
void synthBreath(Bytes& b, double bpm) { b.u8(rtm_fuzz::kSynth).u8(breathRateByte(bpm)).u8(31); }
void noisy(Bytes& b, int rateByte, int ampByte, int noise, int wander) {
    b.u8(rtm_fuzz::kSynthNoisy).u8(rateByte).u8(ampByte).u8(noise).u8(wander).u16(0);
}
void constant(Bytes& b, int32_t v) { b.u8(rtm_fuzz::kConstant).s32(v); }
void square(Bytes& b, int level, int amp, int period) {
    b.u8(rtm_fuzz::kSquare).u16(level / 4).u16(amp / 2).u8(period - 1);
}

// ---- pipeline: op = action << 2 | device slot -------------------------------------------------
enum { kInit = 0, kFree = 1, kJump = 2, kMode = 3, kHeart = 4, kChan1 = 5, kChan0 = 6, kMotion = 7, kFrames = 8 };
Bytes& op(Bytes& b, int action, int dev) { return b.u8(action << 2 | dev); }
void frames(Bytes& b, int dev, int n) {
    while (n > 0) {
        const int k = n > 256 ? 256 : n;
        op(b, kFrames, dev).u8(k - 1);
        n -= k;
    }
}
void stillMotion(Bytes& b, int dev) { op(b, kMotion, dev).u8(0).u16(0).u16(0).u16(0).u8(0); }
void cleanDevice(Bytes& b, int dev, double hr, double br) {
    op(b, kHeart, dev);
    synthHeart(b, hr, 100);
    op(b, kChan1, dev);
    synthBreath(b, br);
    op(b, kChan0, dev);
    synthBreath(b, br);
    stillMotion(b, dev);
}

void pipelineSeeds() {
    {  // two devices at rest, interleaved
        Bytes b;
        cleanDevice(b, 0, 72, 15);
        cleanDevice(b, 2, 110, 19);
        for (int i = 0; i < 8; ++i) {
            frames(b, 0, 30);
            frames(b, 2, 30);
        }
        save("pipeline", "clean-two-devices", b);
    }
    {  // each disturbance once, with clean signal between
        Bytes b;
        cleanDevice(b, 0, 64, 13);
        frames(b, 0, 100);
        op(b, kHeart, 0);
        noisy(b, heartRateByte(64), 100, 60, 80);
        op(b, kChan1, 0);
        noisy(b, breathRateByte(13), 31, 200, 200);
        frames(b, 0, 30);
        op(b, kHeart, 0);
        square(b, 512, 700, 30);
        op(b, kChan1, 0);
        square(b, 32768, 32767, 3);
        frames(b, 0, 10);
        cleanDevice(b, 0, 64, 13);
        frames(b, 0, 60);
        op(b, kHeart, 0);
        constant(b, 1023);
        op(b, kChan1, 0);
        constant(b, 65535);
        frames(b, 0, 5);
        cleanDevice(b, 0, 64, 13);
        frames(b, 0, 60);
        op(b, kHeart, 0);
        constant(b, 0);
        op(b, kChan1, 0);
        constant(b, 0);
        op(b, kChan0, 0);
        constant(b, 0);
        frames(b, 0, 5);
        cleanDevice(b, 0, 64, 13);
        frames(b, 0, 60);
        save("pipeline", "disturbances", b);
    }
    {  // device life cycle, sequence gaps and heart modes on every id slot
        Bytes b;
        for (int d = 0; d < 4; ++d) cleanDevice(b, d, 60 + 20 * d, 12 + 2 * d);
        op(b, kInit, 3);
        frames(b, 3, 20);
        frames(b, 1, 20);
        op(b, kJump, 3).s32(7);
        frames(b, 3, 5);
        op(b, kJump, 3).s32(-3);
        frames(b, 3, 5);
        op(b, kMode, 3).u8(0);  // one restart frame
        frames(b, 3, 5);
        op(b, kMode, 1).u8(0x83);  // skip analysis from now on
        frames(b, 1, 5);
        op(b, kMode, 1).u8(0x82);
        frames(b, 1, 5);
        op(b, kFree, 3);
        frames(b, 3, 5);
        op(b, kFree, 2);  // never seen before
        op(b, kInit, 1);
        op(b, kInit, 1);
        frames(b, 1, 10);
        op(b, kJump, 0).s32(INT32_MAX);
        frames(b, 0, 3);
        save("pipeline", "lifecycle", b);
    }
    {  // wild values on every channel
        Bytes b;
        op(b, kHeart, 0).u8(rtm_fuzz::kExtremes).s32(0x12345678).s32(0x7654321);
        op(b, kChan1, 0).u8(rtm_fuzz::kExtremes).s32(0x0F0F0F0F).s32(0x33333333);
        op(b, kChan0, 0).u8(rtm_fuzz::kPattern32).u8(3).s32(INT32_MIN).s32(INT32_MAX).s32(0).s32(-1);
        op(b, kMotion, 0).u8(2).u16(0).u16(0).u16(0).u8(0);
        for (int i = 0; i < 2; ++i) {
            op(b, kFrames, 0).u8(0);
            for (int k = 0; k < 75; ++k) b.s32(k % 3 == 0 ? INT32_MIN : k % 3 == 1 ? INT32_MAX : 0);
        }
        save("pipeline", "extremes", b);
    }
    {  // a recording given sample by sample
        Bytes b;
        op(b, kHeart, 0).u8(rtm_fuzz::kVerbatim16);
        op(b, kChan1, 0).u8(rtm_fuzz::kVerbatim16);
        op(b, kChan0, 0).u8(rtm_fuzz::kVerbatim16);
        op(b, kMotion, 0).u8(3).u16(0).u16(0).u16(0).u8(0);
        DeviceRecording rec(1, 99, 75, 16);
        const int n = 6;
        op(b, kFrames, 0).u8(n - 1);
        for (int k = 0; k < n; ++k) {
            ParamsIn f;
            rec.fill(f, Segment::Clean);
            for (int i = 0; i < 200; ++i) b.u16(f.nHeartData[i]);
            for (int i = 0; i < 25; ++i) b.u16(f.nBreathChan1[i]);
            for (int i = 0; i < 25; ++i) b.u16(f.nBreathChan0[i]);
            for (int i = 0; i < 25; ++i) b.u16(f.nAccX[i]).u16(f.nAccY[i]).u16(f.nAccZ[i]);
        }
        save("pipeline", "recording", b);
    }
}

// ---- breath: op & 7: 0 chan1 recipe, 1 chan0 recipe, 2 pass, 3/4 inits, 5 blocks ------------
void blocks(Bytes& b, int n) {
    while (n > 0) {
        const int k = n > 256 ? 256 : n;
        b.u8(5).u8(k - 1);
        n -= k;
    }
}
void breathSeeds() {
    for (double rate : {12.0, 16.0, 20.0}) {
        Bytes b;
        b.u8(0);
        synthBreath(b, rate);
        b.u8(1);
        synthBreath(b, rate);
        blocks(b, 150);
        save("breath", "clean-" + std::to_string(static_cast<int>(rate)), b);
    }
    {
        Bytes b;
        b.u8(0);
        synthBreath(b, 14);
        blocks(b, 60);
        b.u8(0);
        noisy(b, breathRateByte(14), 31, 250, 250);
        blocks(b, 20);
        b.u8(0);
        constant(b, 0);  // dead sensor
        blocks(b, 3);
        b.u8(0);
        synthBreath(b, 14);
        blocks(b, 60);
        b.u8(0);
        square(b, 32768, 32767, 2);  // over range
        blocks(b, 5);
        b.u8(0);
        synthBreath(b, 14);
        blocks(b, 60);
        b.u8(0);
        constant(b, 30000);  // flat
        blocks(b, 20);
        b.u8(0);
        synthBreath(b, 14);
        blocks(b, 60);
        b.u8(4);
        blocks(b, 10);
        b.u8(3);
        blocks(b, 10);
        save("breath", "disturbances", b);
    }
    {
        Bytes b;
        b.u8(0).u8(rtm_fuzz::kVerbatim16);
        b.u8(1).u8(rtm_fuzz::kVerbatim16);
        DeviceRecording rec(2, 7, 70, 18);
        const int n = 40;
        b.u8(5).u8(n - 1);
        for (int k = 0; k < n; ++k) {
            ParamsIn f;
            rec.fill(f, Segment::Clean);
            for (int i = 0; i < 25; ++i) b.u16(f.nBreathChan1[i]);
            for (int i = 0; i < 25; ++i) b.u16(f.nBreathChan0[i]);
        }
        save("breath", "recording", b);
    }
}

// ---- heart: op & 7: 0 recipe, 1 mode, 2 jump, 3/4/5 inits, 6 packets -------------------------
void packets(Bytes& b, int n) {
    while (n > 0) {
        const int k = n > 256 ? 256 : n;
        b.u8(6).u8(k - 1);
        n -= k;
    }
}
void heartSeeds() {
    for (double rate : {45.0, 72.0, 130.0, 190.0}) {
        Bytes b;
        b.u8(0);
        synthHeart(b, rate, 100);
        packets(b, 90);
        save("heart", "clean-" + std::to_string(static_cast<int>(rate)), b);
    }
    {
        Bytes b;
        b.u8(0);
        synthHeart(b, 80, 120);
        packets(b, 70);
        b.u8(0);
        square(b, 512, 700, 25);  // over range
        packets(b, 3);
        b.u8(0);
        synthHeart(b, 80, 120);
        packets(b, 30);
        b.u8(0);
        synthHeart(b, 80, 250);  // amplitude jump: the new normal after six packets
        packets(b, 30);
        b.u8(0);
        constant(b, 700);  // flat
        packets(b, 3);
        b.u8(0);
        noisy(b, heartRateByte(80), 120, 80, 120);
        packets(b, 30);
        b.u8(0);
        synthHeart(b, 80, 120);
        packets(b, 30);
        b.u8(2).s32(10);  // packet-number gap
        packets(b, 5);
        b.u8(1).u8(1);  // restart
        packets(b, 20);
        b.u8(1).u8(0x82);  // skip analysis
        packets(b, 3);
        b.u8(1).u8(0x80);
        packets(b, 20);
        save("heart", "disturbances", b);
    }
    {
        Bytes b;
        b.u8(0).u8(rtm_fuzz::kVerbatim16);
        DeviceRecording rec(3, 11, 66, 15);
        const int n = 8;
        b.u8(6).u8(n - 1);
        for (int k = 0; k < n; ++k) {
            ParamsIn f;
            rec.fill(f, Segment::Clean);
            for (int i = 0; i < 200; ++i) b.u16(f.nHeartData[i]);
        }
        save("heart", "recording", b);
    }
}

// ---- motion: n byte, then 25 x, 25 y, 25 z as s32 ---------------------------------------------
void motionSeeds() {
    const Segment kinds[3] = {Segment::Clean, Segment::Noisy, Segment::Dead};
    const char* names[3] = {"still", "moving", "dead"};
    for (int s = 0; s < 3; ++s) {
        Bytes b;
        DeviceRecording rec(4, 5 + s, 70, 15);
        for (int k = 0; k < 20; ++k) {
            ParamsIn f;
            rec.fill(f, kinds[s]);
            b.u8(24);
            for (int i = 0; i < 25; ++i) b.s32(f.nAccX[i]);
            for (int i = 0; i < 25; ++i) b.s32(f.nAccY[i]);
            for (int i = 0; i < 25; ++i) b.s32(f.nAccZ[i]);
        }
        save("motion", names[s], b);
    }
}

// ---- k-means text model: dim byte, K byte, then the text --------------------------------------
void kmeansModelSeeds() {
    auto model = [](int dimByte, int kByte, const std::string& text) {
        Bytes b;
        b.u8(dimByte).u8(kByte);
        for (char c : text) b.u8(static_cast<unsigned char>(c));
        return b;
    };
    const std::string two =
        "<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 2 </CluterNum>\n<Mean>\n72.5 15 \n118 19.25 "
        "\n</Mean>\n</KMeans>\n";
    save("kmeans_model", "two-clusters", model(1, 1, two));
    save("kmeans_model", "one-cluster",
         model(1, 0,
               "<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 1 </CluterNum>\n<Mean>\n1.5 2 \n</Mean>\n</KMeans>\n"));
    save("kmeans_model", "crlf-exact",
         model(2, 0,
               "<KMeans>\r\n<DimNum> 3 </DimNum>\r\n<ClusterNum> 1 </CluterNum>\r\n<Mean>\r\n"
               "0.10000000000000001 -2.5e-300 1.7976931348623157e+308 \r\n</Mean>\r\n</KMeans>\r\n"));
    save(
        "kmeans_model", "wrong-count",
        model(1, 1,
              "<KMeans>\n<DimNum> 2 </DimNum>\n<ClusterNum> 2 </CluterNum>\n<Mean>\n1 2 3 \n4 \n</Mean>\n</KMeans>\n"));
    save(
        "kmeans_model", "not-numbers",
        model(0, 0, "<KMeans>\n<DimNum> 1 </DimNum>\n<ClusterNum> 1 </CluterNum>\n<Mean>\nnan \n</Mean>\n</KMeans>\n"));
}

// ---- k-means sample files: dim-1, K-1, mode bit, passes-1, then the file -----------------------
void kmeansSampleSeeds() {
    // Heart and breathing rates of resting and active stretches: two well-separated groups.
    auto file = [](int n, int announced, int dim) {
        Bytes b;
        b.u8(dim - 1).u8(1).u8(0).u8(11);
        b.s32(announced).s32(dim);
        rtm_synth::Rng rng(12);
        for (int i = 0; i < n; ++i) {
            const bool active = i % 2 == 1;
            double v[2] = {(active ? 120.0 : 62.0) + 4.0 * rng.gauss(), (active ? 24.0 : 13.0) + rng.gauss()};
            for (int d = 0; d < dim; ++d) {
                uint64_t bits;
                std::memcpy(&bits, &v[d % 2], 8);
                for (int k = 0; k < 8; ++k) b.u8(static_cast<int>((bits >> (8 * k)) & 0xFF));
            }
        }
        return b;
    };
    save("kmeans_samples", "rates-two-groups", file(24, 24, 2));
    save("kmeans_samples", "shorter-than-announced", file(5, 9, 2));
    save("kmeans_samples", "one-dimension", file(12, 12, 1));
    Bytes empty;
    empty.u8(0).u8(0).u8(1).u8(0);
    save("kmeans_samples", "empty-file", empty);
}

// ---- frame files: frames as a host logs them, little-endian words -----------------------------
void frameFileSeeds() {
    auto frames = [](int n, bool twoDevices, int partial) {
        Bytes b;
        DeviceRecording a(5, 21, 68, 14), c(6, 22, 95, 18);
        for (int k = 0; k < n; ++k) {
            ParamsIn f;
            (twoDevices && k % 2 ? c : a).fill(f, k == 2 ? Segment::OverRange : Segment::Clean);
            const int32_t* w = reinterpret_cast<const int32_t*>(&f);
            for (size_t i = 0; i < sizeof f / 4; ++i) b.s32(w[i]);
        }
        for (int i = 0; i < partial; ++i) b.u8(i);
        return b;
    };
    save("frame_file", "three-frames", frames(3, false, 0));
    save("frame_file", "two-devices-cut-short", frames(4, true, 100));
    save("frame_file", "partial-only", frames(0, false, 700));
}

// ---- WFDB records: header text, a zero byte, then the signal (and annotation) file bytes ------
void wfdbSeeds() {
    auto record = [](const std::string& header, int bodyBytes, int step) {
        Bytes b;
        for (char c : header) b.u8(c);
        b.u8(0);
        for (int i = 0; i < bodyBytes; ++i) b.u8((i * step + 17) & 0xFF);
        return b;
    };
    save("wfdb", "format-212-two-signals",
         record("r 2 360 20\nr.dat 212 200 11 1024 995 0 0 MLII\nr.dat 212 200 11 1024 1011 0 0 V5\n", 60, 37));
    save("wfdb", "samples-per-frame-and-skew",
         record("# comment\nr 3 125 10\nr.dat 212x4 2963.77/mV 12 0 67 0 0 MCL1\n"
                "r.dat 212 12.84(-1605)/mmHg 12 0 -943 0 0 ABP\nr.dat 212:4 2000 12 0 -304 0 0 RESP\n",
                90, 11));
    save("wfdb", "formats-16-61-80-8-offset",
         record("r 4 250/1000 6\na.dat 16+4 100/uV 16 0\nb.dat 61x2 50\nc.dat 80:1 10(-5)/g\nd.dat 8 200 8 0 5\n", 40,
                5));
    save("wfdb", "header-lies-about-length", record("r 1 250 5000\nr.dat 16 200 16 0 0 0 0 ECG\n", 20, 3));
    Bytes ann;
    for (char c : std::string("r 1 360\nr.dat 16 200\n")) ann.u8(c);
    ann.u8(0);
    ann.u16(22 << 10).u16(63 << 10 | 25);  // a note with text: "## time resolution: 1000"
    for (char c : std::string("## time resolution: 1000")) ann.u8(c);
    ann.u8(0);
    ann.u16(1 << 10 | 77).u16(5 << 10 | 300).u16(28 << 10 | 10).u16(63 << 10 | 4).u8('(').u8('N').u8(0).u8(0);
    ann.u16(59 << 10).u16(1).u16(0x2000).u16(1 << 10).u16(60 << 10 | 1).u16(1 << 10 | 360).u16(0);
    save("wfdb", "annotations", ann);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <corpus-dir>\n", argv[0]);
        return 2;
    }
    gRoot = argv[1];
    pipelineSeeds();
    breathSeeds();
    heartSeeds();
    motionSeeds();
    kmeansModelSeeds();
    kmeansSampleSeeds();
    frameFileSeeds();
    wfdbSeeds();
    return 0;
}
