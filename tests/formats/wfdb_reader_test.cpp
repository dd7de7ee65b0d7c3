// The WFDB reader on records built here byte by byte: every storage format decodes to the
// values written, samples per frame, skew and byte offsets land where they belong, annotation
// files keep times and labels through skips and auxiliary text, and broken headers and files are
// refused with a message naming what is wrong. The fuzz seeds are replayed through the harness.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "formats/wfdb_reader.h"
#include "support/tool_runner.h"

#define RTM_FUZZ_NO_ENTRY 1
#include "../../fuzz/fuzz_wfdb.cpp"

namespace {

using namespace rtmfmt;
using tooltest::put16;
using Bytes = std::vector<unsigned char>;

Bytes encode212(const std::vector<int>& v) {
    Bytes b;
    for (size_t i = 0; i < v.size(); i += 2) {
        const int a = v[i] & 0xfff, c = i + 1 < v.size() ? v[i + 1] & 0xfff : 0;
        b.push_back(static_cast<unsigned char>(a & 0xff));
        b.push_back(static_cast<unsigned char>((a >> 8) | ((c >> 8) << 4)));
        if (i + 1 < v.size()) b.push_back(static_cast<unsigned char>(c & 0xff));
    }
    return b;
}

// Opens a record whose signal files are the given byte strings.
struct MemoryRecord {
    std::map<std::string, Bytes> files;
    WfdbRecord record;
    std::string error;
    bool open(const std::string& headerText) {
        WfdbHeader h;
        if (!parseWfdbHeader(headerText, h, error)) return false;
        return record.open(
            "t.hea", h,
            [this](const std::string& name, std::string& err) -> std::unique_ptr<ByteSource> {
                auto it = files.find(name);
                if (it == files.end()) {
                    err = "no such file";
                    return nullptr;
                }
                return std::make_unique<MemorySource>(it->second.data(), it->second.size());
            },
            error);
    }
    std::vector<std::vector<double>> readAll() {
        std::vector<std::vector<double>> all(record.channels().size()), block;
        while (record.readBlock(block, error))
            for (size_t c = 0; c < block.size(); ++c) all[c].insert(all[c].end(), block[c].begin(), block[c].end());
        return all;
    }
};

TEST(WfdbReader, Format212PairsAcrossSignalsAndFramesWithGainBaselineAndInvalid) {
    // Two signals in one file, three frames: the pairing runs across signals and frames.
    const std::vector<int> stored = {1024, 995, 1100, -5, -2048, 2047};
    MemoryRecord m;
    m.files["r.dat"] = encode212(stored);
    ASSERT_TRUE(m.open("r 2 360 3\nr.dat 212 200 11 1024 0 0 0 MLII\nr.dat 212 100(-5)/uV 11 0 0 0 0 V5\n")) << m.error;
    EXPECT_EQ(m.record.channels()[0].label, "MLII");
    EXPECT_EQ(m.record.channels()[1].unit, "uV");
    const auto all = m.readAll();
    ASSERT_EQ(all[0].size(), 3u);
    EXPECT_DOUBLE_EQ(all[0][0], 0.0);
    EXPECT_DOUBLE_EQ(all[0][1], (1100 - 1024) / 200.0);
    EXPECT_TRUE(std::isnan(all[0][2]));              // -2048 marks an invalid sample
    EXPECT_DOUBLE_EQ(all[1][0], (995 + 5) / 100.0);  // the baseline in parentheses wins over ADC zero
    EXPECT_DOUBLE_EQ(all[1][1], 0.0);
    EXPECT_DOUBLE_EQ(all[1][2], (2047 + 5) / 100.0);
}

TEST(WfdbReader, OtherFormatsSamplesPerFrameSkewAndOffsetsOverSeveralFiles) {
    MemoryRecord m;
    Bytes a = {9, 9, 9, 9};  // 4 bytes skipped by the +4 offset
    for (int v : {-3, 700, -32768, 5}) put16(a, v);
    m.files["a.dat"] = a;
    Bytes b;  // format 61: big-endian, two samples per frame
    for (int v : {1, -2, 3, -4, 5, -6, 7, -8}) {
        b.push_back(static_cast<unsigned char>((v >> 8) & 0xff));
        b.push_back(static_cast<unsigned char>(v & 0xff));
    }
    m.files["b.dat"] = b;
    m.files["c.dat"] = {128 + 10, 128 + 20, 128 + 30, 0};  // format 80, skew 1: frame n is stored at n+1
    m.files["d.dat"] = {2, 0xff, 3, 0};                    // format 8 differences from initial value 5
    ASSERT_TRUE(m.open("r 4 250 4\na.dat 16+4 1 16 0\nb.dat 61x2 1\nc.dat 80:1 1\nd.dat 8 1 8 0 5\n")) << m.error;
    EXPECT_DOUBLE_EQ(m.record.channels()[1].rate, 500.0);
    const auto all = m.readAll();
    EXPECT_EQ(all[0][0], -3);
    EXPECT_EQ(all[0][1], 700);
    EXPECT_TRUE(std::isnan(all[0][2]));
    ASSERT_EQ(all[1].size(), 8u);
    EXPECT_EQ(all[1][3], -4);
    EXPECT_EQ(all[2][0], 20);
    EXPECT_EQ(all[2][1], 30);
    EXPECT_TRUE(std::isnan(all[2][2]));  // -128 is format 80's invalid code
    EXPECT_TRUE(std::isnan(all[2][3]));  // skewed past the end of the file
    EXPECT_EQ(all[3], (std::vector<double>{7, 6, 9, 9}));
}

TEST(WfdbReader, SkewedSignalEndsWithTheSamplesStoredPastTheRecordLength) {
    // A signal and its copy skewed by 2 frames, in one file and in two: the files hold the 2
    // frames past the record's 7 that carry the skewed copy's last samples. Blocks of 3 frames.
    const std::vector<int> signal = {10, -20, 30, -40, 50, -60, 70};
    const auto skewed = [&](int filler) {
        Bytes b;
        for (int k = 0; k < 2; ++k) put16(b, filler);  // dropped: the copy starts 2 frames late
        for (int v : signal) put16(b, v);
        return b;
    };
    MemoryRecord one;
    for (size_t n = 0; n < signal.size() + 2; ++n) {
        put16(one.files["r.dat"], n < signal.size() ? signal[n] : 999);  // past the length: not read
        put16(one.files["r.dat"], n < 2 ? 555 : signal[n - 2]);
    }
    ASSERT_TRUE(one.open("r 2 3 7\nr.dat 16 1 16 0\nr.dat 16:2 1 16 0\n")) << one.error;
    MemoryRecord two;
    for (int v : signal) put16(two.files["a.dat"], v);
    two.files["b.dat"] = skewed(555);
    ASSERT_TRUE(two.open("r 2 3 7\na.dat 16 1 16 0\nb.dat 16:2 1 16 0\n")) << two.error;
    const std::vector<double> want(signal.begin(), signal.end());
    for (MemoryRecord* m : {&one, &two}) {
        const auto all = m->readAll();
        EXPECT_EQ(all[0], want);
        EXPECT_EQ(all[1], want);
        std::string error;
        ASSERT_TRUE(m->record.rewind(error)) << error;  // and again from the start
        EXPECT_EQ(m->readAll()[1], want);
    }
}

TEST(WfdbReader, BrokenHeadersAndFilesAreRefusedWithTheReason) {
    // Unsupported formats, missing and short signal files: the import's end-to-end refusals.
    MemoryRecord m;
    EXPECT_FALSE(m.open("r 2 250 10\nr.dat 16 200\n"));
    EXPECT_NE(m.error.find("declares 2 signals but 1"), std::string::npos) << m.error;
    EXPECT_FALSE(m.open("r/3 2 250\n"));
    EXPECT_NE(m.error.find("multi-segment"), std::string::npos) << m.error;
    m.files["r.dat"] = Bytes(19, 0);  // 9.5 samples of format 16; without a length the files decide
    ASSERT_TRUE(m.open("r 1 250\nr.dat 16 200\n")) << m.error;
    EXPECT_EQ(m.record.frames(), 9u);
}

TEST(WfdbReader, AnnotationsKeepTimesAndLabelsThroughSkipsAuxAndResolution) {
    Bytes b;
    put16(b, 1 << 10 | 100);  // N at 100
    put16(b, 63 << 10 | 3);   // aux text of 3 bytes, padded to 4
    b.insert(b.end(), {'(', 'N', 0, 0});
    put16(b, 60 << 10 | 2);  // annotator number: no time, no label
    put16(b, 59 << 10);      // skip 70000 ticks, high word first
    put16(b, 1);
    put16(b, 70000 - 65536);
    put16(b, 5 << 10 | 20);  // V at 100 + 70000 + 20
    put16(b, 59 << 10);      // skip back 2^23 ticks: a negative interval, top bit set
    put16(b, 0xff80);
    put16(b, 0);
    put16(b, 59 << 10);  // ... and far forward again
    put16(b, 0x7f00);
    put16(b, 0);
    put16(b, 0);
    MemorySource s(b.data(), b.size());
    std::vector<Annotation> list;
    std::string error;
    ASSERT_TRUE(readWfdbAnnotations(s, 250, list, error)) << error;
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].label, "N");
    EXPECT_DOUBLE_EQ(list[0].time, 100 / 250.0);
    EXPECT_EQ(list[1].label, "V");
    EXPECT_DOUBLE_EQ(list[1].time, 70120 / 250.0);
    EXPECT_TRUE(isBeatLabel("V") && !isBeatLabel("+") && !isBeatLabel("~"));

    // A time-resolution note makes the times count in its own ticks.
    Bytes r;
    put16(r, 22 << 10);
    const std::string note = "## time resolution: 1000";
    put16(r, 63 << 10 | static_cast<int>(note.size()));
    r.insert(r.end(), note.begin(), note.end());
    put16(r, 1 << 10 | 500);
    put16(r, 0);
    MemorySource sr(r.data(), r.size());
    ASSERT_TRUE(readWfdbAnnotations(sr, 250, list, error)) << error;
    EXPECT_DOUBLE_EQ(list.back().time, 0.5);

    b.resize(b.size() - 2);  // no end marker
    MemorySource cut(b.data(), b.size());
    EXPECT_FALSE(readWfdbAnnotations(cut, 250, list, error));
    EXPECT_NE(error.find("no end marker"), std::string::npos) << error;
}

TEST(WfdbReader, FuzzSeedsAndFindingsPassTheHarness) {
    size_t n = 0;
    for (const char* kind : {"corpus", "regressions"}) {
        const std::filesystem::path dir = std::filesystem::path(RTM_SOURCE_DIR) / "fuzz" / kind / "wfdb";
        for (const auto& e : std::filesystem::directory_iterator(dir)) {
            const std::string bytes = tooltest::readFile(e.path());
            rtmFuzzWfdb(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
            ++n;
        }
    }
    EXPECT_GE(n, 7u);
}

}  // namespace
