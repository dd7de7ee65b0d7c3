// Recordings end to end through the built tool: a WFDB record written here (format-212 ECG at
// 360 samples/s, format-16 respiration in a second file, an .atr of its beats) and an EDF+ file
// (ECG in uV and respiration at their own rates) import, replay and evaluate with the rates they
// were built with; bad records exit 1 naming the file and leave no output; the evaluation of the
// shared record 100 reproduces its reference CSV; the meter prints its table.
#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "formats/record_reader.h"
#include "support/tool_runner.h"

#ifdef RTM_HAVE_EDFLIB
#include <edflib.h>
#endif

namespace tooltest {
namespace {

constexpr size_t kFrameBytes = 1320;

// Recordings at other rates than 200 and 25 samples/s need the tool built with libsamplerate.
#ifdef RTM_HAVE_SAMPLERATE
#define SKIP_WITHOUT_RESAMPLING()
#else
#define SKIP_WITHOUT_RESAMPLING() GTEST_SKIP() << "rtmonitor was built without libsamplerate"
#endif

// ECG in mV: a 1 mV triangular QRS 80 ms wide and a 0.2 mV T wave per beat.
double ecgMv(double t, double bpm) {
    const double rr = 60 / bpm, phase = std::fmod(t, rr) - 0.3;
    double v = 0;
    if (std::fabs(phase) < 0.04) v += 1 - std::fabs(phase) / 0.04;
    if (std::fabs(phase - 0.25) < 0.08) v += 0.2 * std::cos(M_PI / 2 * (phase - 0.25) / 0.08);
    return v;
}

double respiration(double t, double perMinute) { return std::sin(2 * M_PI * perMinute / 60 * t); }

// The number after `"key": ` in the evaluation's JSON, NaN when absent.
double jsonNumber(const std::string& json, const std::string& key) {
    const size_t at = json.find("\"" + key + "\": ");
    return at == std::string::npos ? NAN : std::stod(json.substr(at + key.size() + 4));
}

class RecordingTest : public ToolTest {
protected:
    // A WFDB record of `seconds` at 72 bpm and 15 breaths/min, 360 samples/s: r.hea, r.dat
    // (MLII, format 212 or `ecgFormat`), r_resp.dat (RESP, format 16, in its own unit "NU"),
    // and r.atr with every beat.
    void writeWfdb(int seconds, const std::string& ecgFormat = "212") {
        const int fs = 360, n = fs * seconds;
        std::vector<int> ecg(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i)
            ecg[static_cast<size_t>(i)] = 1024 + static_cast<int>(std::lround(ecgMv(i / 360.0, 72) * 200));
        std::string dat;
        for (int i = 0; i < n; i += 2) {
            const int a = ecg[static_cast<size_t>(i)] & 0xfff, c = ecg[static_cast<size_t>(i + 1)] & 0xfff;
            dat += static_cast<char>(a & 0xff);
            dat += static_cast<char>((a >> 8) | ((c >> 8) << 4));
            dat += static_cast<char>(c & 0xff);
        }
        writeFile(path("r.dat"), dat);
        std::string resp;
        for (int i = 0; i < n; ++i) put16(resp, static_cast<int>(std::lround(1000 * respiration(i / 360.0, 15))));
        writeFile(path("r_resp.dat"), resp);
        writeFile(path("r.hea"), "r 2 360 " + std::to_string(n) + "\nr.dat " + ecgFormat +
                                     " 200 11 1024 0 0 0 MLII\nr_resp.dat 16 1000/NU 16 0 0 0 0 RESP\n");
        std::string atr;
        int last = 0;
        for (double t = 0.3; t < seconds; t += 60.0 / 72) {
            const int sample = static_cast<int>(std::lround(t * fs));
            put16(atr, 1 << 10 | (sample - last));
            last = sample;
        }
        put16(atr, 0);
        writeFile(path("r.atr"), atr);
    }
};

TEST_F(RecordingTest, WfdbRecordImportsReplaysAndEvaluatesAtItsRates) {
    SKIP_WITHOUT_RESAMPLING();
    writeWfdb(90);
    const RunResult imp = run("import " + path("r.hea") + " --out " + path("r.frames"));
    ASSERT_EQ(imp.status, 0) << imp.err;
    // The notes' wording is the conversion unit test's; here the record's own rate must show.
    EXPECT_NE(imp.err.find("ECG: signal 'MLII' (360 samples/s"), std::string::npos) << imp.err;
    ASSERT_EQ(std::filesystem::file_size(path("r.frames")), 90 * kFrameBytes);

    // Replaying the record directly gives what replaying its import gives, and says first that the
    // record had no accelerometer (the frame file cannot know).
    const RunResult direct = run("replay " + path("r"));
    ASSERT_EQ(direct.status, 0) << direct.err;
    const std::string note =
        "# not in this recording: accelerometer (the input held a still sensor lying on the "
        "back); posture and movement are not measurements\n";
    ASSERT_EQ(direct.out.rfind(note, 0), 0u) << direct.out.substr(0, 300);
    EXPECT_EQ(direct.out.substr(note.size()), run("replay " + path("r.frames")).out);
    const auto rows = lines(direct.out.substr(note.size()));
    ASSERT_EQ(rows.size(), 91u);
    const auto lastRow = fields(rows.back());
    EXPECT_NEAR(std::stoi(lastRow[3]), 72, 3) << rows.back();
    EXPECT_NEAR(std::stoi(lastRow[5]), 15, 2) << rows.back();

    const RunResult ev = run("evaluate " + path("r.hea") + " --annotations atr --json " + path("e.json") +
                             " --report " + path("e.html"));
    ASSERT_EQ(ev.status, 0) << ev.err;
    EXPECT_NE(ev.out.find("heart rate"), std::string::npos);
    EXPECT_NE(ev.out.find("positive predictivity"), std::string::npos) << ev.out;
    const std::string json = readFile(path("e.json"));
    EXPECT_GT(jsonNumber(json, "sensitivity"), 0.9) << json;
    EXPECT_GT(jsonNumber(json, "positive_predictivity"), 0.95) << json;
    EXPECT_EQ(jsonNumber(json, "seconds_with_reference"), 89) << json;
    EXPECT_LT(jsonNumber(json, "mean_abs_error"), 2.0) << json;
    EXPECT_NE(readFile(path("e.html")).find("<polyline"), std::string::npos);
}

TEST_F(RecordingTest, BadRecordsExitOneNamingTheFileAndLeaveNoOutput) {
    auto expectRefused = [&](const std::string& args, const std::string& message) {
        const RunResult r = run(args + " --out " + path("x.frames"));
        EXPECT_EQ(r.status, 1) << args << "\n" << r.err;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
        EXPECT_FALSE(std::filesystem::exists(path("x.frames")));
        for (const auto& e : std::filesystem::directory_iterator(dir_))
            EXPECT_EQ(e.path().string().find(".partial-"), std::string::npos) << e.path();
    };
    writeWfdb(12);
    std::filesystem::rename(path("r_resp.dat"), path("gone.dat"));
    expectRefused("import " + path("r.hea"), "r_resp.dat (signal file of " + path("r.hea") + "): cannot open");
    std::filesystem::rename(path("gone.dat"), path("r_resp.dat"));
    writeFile(path("r.hea"), "r 2 360 9000\nr.dat 212 200 11 1024\nr_resp.dat 16 1000/NU\n");
    expectRefused("import " + path("r.hea"), "r.dat: holds 4320 frames (6480 bytes) but the header of");
    writeWfdb(12, "311");
    expectRefused("import " + path("r.hea"), "storage format 311 is not supported");
    writeWfdb(12);
    expectRefused("import " + path("r.hea") + " --ecg V9", "no ECG signal labelled 'V9' (signals: 'MLII', 'RESP')");
    expectRefused("import " + path("nothing.hea"), "nothing.hea: no such header file");
}

#ifdef RTM_HAVE_EDFLIB
TEST_F(RecordingTest, EdfPlusWithEcgAndRespirationReplays) {
    SKIP_WITHOUT_RESAMPLING();
    const int seconds = 90, ecgRate = 256, respRate = 32;
    const int h = edfopen_file_writeonly(path("e.edf").c_str(), EDFLIB_FILETYPE_EDFPLUS, 2);
    ASSERT_GE(h, 0);
    const struct {
        int rate;
        const char* label;
        const char* unit;
        double lo, hi;
    } sig[2] = {{ecgRate, "ECG II", "uV", -3000, 3000}, {respRate, "Resp chest", "Ohm", -2, 2}};
    for (int s = 0; s < 2; ++s) {
        edf_set_samplefrequency(h, s, sig[s].rate);
        edf_set_physical_maximum(h, s, sig[s].hi);
        edf_set_physical_minimum(h, s, sig[s].lo);
        edf_set_digital_maximum(h, s, 32767);
        edf_set_digital_minimum(h, s, -32768);
        edf_set_label(h, s, sig[s].label);
        edf_set_physical_dimension(h, s, sig[s].unit);
    }
    // Beat annotations, as an EDF+ file from a Holter analysis would carry them.
    edf_set_number_of_annotation_signals(h, 3);
    for (double t = 0.3; t < seconds; t += 60.0 / 66)
        ASSERT_EQ(edfwrite_annotation_utf8(h, std::llround(t * 10000), -1, "N"), 0);
    std::vector<double> buf;
    for (int sec = 0; sec < seconds; ++sec) {
        buf.assign(ecgRate, 0);
        for (int i = 0; i < ecgRate; ++i) buf[static_cast<size_t>(i)] = 1000 * ecgMv(sec + i / double(ecgRate), 66);
        ASSERT_EQ(edfwrite_physical_samples(h, buf.data()), 0);
        buf.assign(respRate, 0);
        for (int i = 0; i < respRate; ++i)
            buf[static_cast<size_t>(i)] = 0.5 * respiration(sec + i / double(respRate), 12);
        ASSERT_EQ(edfwrite_physical_samples(h, buf.data()), 0);
    }
    ASSERT_EQ(edfclose_file(h), 0);

    const RunResult r = run("replay " + path("e.edf"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("ECG: signal 'ECG II' (256 samples/s, uV converted to mV)"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("respiration: signal 'Resp chest' (32 samples/s)"), std::string::npos) << r.err;
    const auto rows = lines(r.out);
    ASSERT_EQ(rows.size(), 92u);  // the "not in this recording: accelerometer" line, the header, 90 rows
    const auto last = fields(rows.back());
    EXPECT_NEAR(std::stoi(last[3]), 66, 3) << rows.back();
    EXPECT_NEAR(std::stoi(last[5]), 12, 2) << rows.back();
    // Its beat annotations are the reference for evaluate.
    const RunResult ev = run("evaluate " + path("e.edf") + " --json " + path("e.json"));
    ASSERT_EQ(ev.status, 0) << ev.err;
    const std::string json = readFile(path("e.json"));
    EXPECT_NE(json.find("(EDF+ annotations) (99 beats)"), std::string::npos) << json;
    EXPECT_LT(jsonNumber(json, "mean_abs_error"), 2.0) << json;
    // A label that does not exist names the labels that do.
    const RunResult bad = run("replay " + path("e.edf") + " --resp Thermistor");
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("no respiration signal labelled 'Thermistor' (signals: 'ECG II', 'Resp chest')"),
              std::string::npos)
        << bad.err;
}

// An EDF+ header with an accented name: EDFlib refuses it with "format errors" only. The tool
// names the byte and field and reads the file with that byte as a space; a header whose number
// field is wrong is refused naming that field.
TEST_F(RecordingTest, EdfHeaderProblemsAreNamedAndNonAsciiTolerated) {
    SKIP_WITHOUT_RESAMPLING();
    const int h = edfopen_file_writeonly(path("a.edf").c_str(), EDFLIB_FILETYPE_EDFPLUS, 1);
    ASSERT_GE(h, 0);
    edf_set_samplefrequency(h, 0, 200);
    edf_set_physical_maximum(h, 0, 5);
    edf_set_physical_minimum(h, 0, -5);
    edf_set_digital_maximum(h, 0, 32767);
    edf_set_digital_minimum(h, 0, -32768);
    edf_set_label(h, 0, "ECG");
    edf_set_physical_dimension(h, 0, "mV");
    std::vector<double> buf(200);
    for (int sec = 0; sec < 20; ++sec) {
        for (int i = 0; i < 200; ++i) buf[static_cast<size_t>(i)] = ecgMv(sec + i / 200.0, 70);
        ASSERT_EQ(edfwrite_physical_samples(h, buf.data()), 0);
    }
    ASSERT_EQ(edfclose_file(h), 0);
    std::string bytes = readFile(path("a.edf"));
    bytes[20] = static_cast<char>(0xE9);  // inside the local patient identification
    writeFile(path("b.edf"), bytes);
    const RunResult r = run("replay " + path("b.edf") + " --out " + path("b.csv"));
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("byte 20 (0xE9) in the local patient identification"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("read as spaces"), std::string::npos) << r.err;
    EXPECT_EQ(lines(readFile(path("b.csv"))).size(), 23u);  // 2 "not in this recording" notes, header, 20 rows
    EXPECT_EQ(readFile(path("b.edf")), bytes);              // the input is left as it was

    bytes.replace(236, 8, "many    ");  // the number of data records
    writeFile(path("c.edf"), bytes);
    const RunResult bad = run("replay " + path("c.edf") + " --out " + path("c.csv"));
    EXPECT_EQ(bad.status, 1);
    EXPECT_NE(bad.err.find("byte 236 (number of data records): 'many    ' is not a number"), std::string::npos)
        << bad.err;
    EXPECT_FALSE(std::filesystem::exists(path("c.csv")));
}
#endif

// A record without respiration or accelerometer says so in every output: CSV comment lines, the
// report's table and panels, and the evaluation's JSON.
TEST_F(RecordingTest, ChannelsNotInTheRecordingAreLabelledInEveryOutput) {
    SKIP_WITHOUT_RESAMPLING();
    writeWfdb(40);
    writeFile(path("e.hea"), "e 1 360 14400\nr.dat 212 200 11 1024 0 0 0 MLII\n");
    const RunResult r = run("replay " + path("e.hea") + " --out " + path("e.csv") + " --report " + path("e.html"));
    ASSERT_EQ(r.status, 0) << r.err;
    const auto csv = lines(readFile(path("e.csv")));
    ASSERT_GE(csv.size(), 3u);
    EXPECT_EQ(csv[0].rfind("# not in this recording: respiration", 0), 0u) << csv[0];
    EXPECT_EQ(csv[1].rfind("# not in this recording: accelerometer", 0), 0u) << csv[1];
    EXPECT_EQ(csv[2].rfind("frame,device,", 0), 0u);
    const std::string html = readFile(path("e.html"));
    for (const char* series : {"breath-rate", "respiration", "posture", "movement"}) {
        const size_t at = html.find(std::string("data-series=\"") + series + "\"");
        ASSERT_NE(at, std::string::npos) << series;
        const std::string plot = html.substr(at, html.find("</svg>", at) - at);
        EXPECT_NE(plot.find("not in this recording"), std::string::npos) << series;
    }
    EXPECT_EQ(html.find("on the back 0:"), std::string::npos);

    const RunResult ev = run("evaluate " + path("e.hea") + " --json " + path("e.json"));
    ASSERT_EQ(ev.status, 0) << ev.err;
    EXPECT_NE(ev.out.find("not in this recording: respiration"), std::string::npos) << ev.out;
    const std::string json = readFile(path("e.json"));
    EXPECT_NE(json.find("\"not_in_recording\": [\"respiration\", \"accelerometer\"]"), std::string::npos) << json;
    const size_t br = json.find("\"breathing_rate\": [");
    ASSERT_NE(br, std::string::npos);
    EXPECT_EQ(json.substr(br, json.find(']', br) - br).find_first_of("0123456789"), std::string::npos);
}

TEST_F(RecordingTest, EvaluationOfRecord100ReproducesItsReferenceRates) {
    SKIP_WITHOUT_RESAMPLING();
    const std::string data = RTM_DATA_DIR;
    if (!std::filesystem::exists(data + "/wfdb/100.hea") || !std::filesystem::exists(data + "/100.ref.csv"))
        GTEST_SKIP() << "shared recordings absent (" << data << "): record 100 not evaluated";
    const RunResult ev = run("evaluate " + data + "/wfdb/100.hea --annotations atr --json " + path("e.json"));
    ASSERT_EQ(ev.status, 0) << ev.err;
    const std::string json = readFile(path("e.json"));
    const size_t at = json.find("\"heart_reference\": [");
    ASSERT_NE(at, std::string::npos);
    const auto ours = fields(json.substr(at + 20, json.find(']', at) - at - 20));
    const auto ref = lines(readFile(data + "/100.ref.csv"));
    ASSERT_EQ(ours.size() + 1, ref.size());
    size_t compared = 0;
    for (size_t s = 0; s < ours.size(); ++s) {
        const std::string expected = fields(ref[s + 1])[1];
        if (expected.empty()) {
            EXPECT_EQ(ours[s], "null") << "second " << s;
            continue;
        }
        EXPECT_NEAR(std::stod(ours[s]), std::stod(expected), 0.011) << "second " << s;
        ++compared;
    }
    EXPECT_EQ(compared, 1804u);
}

TEST_F(RecordingTest, MeterPrintsOneJudgedRowPerScenario) {
    const RunResult m = run("meter --json " + path("m.json"));
    ASSERT_EQ(m.status, 0) << m.err;
    const auto rows = lines(m.out);
    ASSERT_GE(rows.size(), 3u);
    const size_t scenarios = rows.size() - 3;  // header, the times legend and the summary
    EXPECT_NE(rows.back().find(" of " + std::to_string(scenarios) + " scenarios pass"), std::string::npos);
    EXPECT_EQ(count(m.out, " pass ") + count(m.out, " FAIL: "), scenarios);
    // Columns line up (the header's "result" over every row's verdict), and a failure says why on
    // its own row.
    const size_t result = rows[0].find("result");
    for (size_t i = 1; i <= scenarios; ++i) {
        EXPECT_TRUE(rows[i].compare(result, 4, "pass") == 0 || rows[i].compare(result, 5, "FAIL:") == 0) << rows[i];
        if (rows[i].compare(result, 5, "FAIL:") == 0) {
            EXPECT_NE(rows[i].find_first_of("0123456789", result), std::string::npos) << rows[i];
        }
    }
    // A clean 80 bpm is the meter's easiest case.
    for (const std::string& r : rows) EXPECT_TRUE(r.rfind("rate 80 ", 0) != 0 || r.find(" pass ") != r.npos) << r;
    const std::string json = readFile(path("m.json"));
    EXPECT_EQ(count(json, "\"name\": "), scenarios);
    EXPECT_NE(json.find("\"total\": " + std::to_string(scenarios)), std::string::npos) << json;
}

// --beats adds a beat-by-beat table after the rate table (which stays as it was) and a "beats"
// object to every JSON row; a clean fixed rate is found beat for beat, while ventricular bigeminy
// at 80 bpm loses beats, so the scoring can tell the two apart.
TEST_F(RecordingTest, MeterBeatsScoresEachScenarioAgainstTheGeneratedPeaks) {
    const RunResult plain = run("meter");
    const RunResult m = run("meter --beats --json " + path("mb.json"));
    ASSERT_EQ(m.status, 0) << m.err;
    ASSERT_EQ(m.out.compare(0, plain.out.size(), plain.out), 0) << m.out;
    const auto rows = lines(m.out.substr(plain.out.size()));
    const size_t scenarios = lines(plain.out).size() - 3;
    ASSERT_EQ(rows.size(), scenarios + 3);  // blank line, legend, header
    EXPECT_NE(rows[2].find("sensitivity"), std::string::npos) << rows[2];
    // The whitespace-separated figures of a scenario's row.
    auto row = [&](const std::string& name) {
        std::vector<std::string> r;
        for (const std::string& line : rows)
            if (line.rfind(name + "  ", 0) == 0) {
                std::istringstream s(line.substr(name.size()));
                for (std::string f; s >> f;) r.push_back(f);
            }
        return r;
    };
    // reference, detected, missed, false, sensitivity %, predictivity %
    const auto clean = row("rate 80");
    ASSERT_EQ(clean.size(), 8u) << m.out;
    EXPECT_GE(std::stoi(clean[0]), 40);
    EXPECT_EQ(clean[0], clean[1]);
    EXPECT_GE(std::stod(clean[4]), 99.0);
    EXPECT_GE(std::stod(clean[6]), 99.0);
    const auto bigeminy = row("ventricular bigeminy 80");
    ASSERT_EQ(bigeminy.size(), 8u) << m.out;
    EXPECT_LT(std::stod(bigeminy[4]), 90.0);

    const std::string json = readFile(path("mb.json"));
    EXPECT_EQ(count(json, "\"beats\": {\"reference\": "), scenarios) << json;
    EXPECT_NE(json.find("\"name\": \"rate 80\""), std::string::npos);
}

}  // namespace
}  // namespace tooltest
