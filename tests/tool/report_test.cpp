// The report's plots: rate gaps where nothing was reported, rates faint where the library did not
// judge them with its flags as bands beneath, a heart-rate axis that does not magnify a wobble,
// the ECG in mV on a true ECG grid, reference rates, the summary table, the waveform stretch
// taken where asked (or at the end of a short recording), and text escaped.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "classes.h"
#include "report/report.h"
#include "support/tool_runner.h"

namespace rtmtool {
namespace {

using tooltest::count;

std::string plotOf(const std::string& html, int device, const std::string& series) {
    const std::string key = "data-device=\"" + std::to_string(device) + "\" data-series=\"" + series + "\"";
    const size_t at = html.find(key);
    if (at == std::string::npos) return "";
    return html.substr(at, html.find("</svg>", at) - at);
}

// Frames whose ECG input is 512 + the second, so the stretch shown can be read off the axis.
// `judged` gives the heart quality and respiration status of each second (1 = judged).
void addFrames(
    Report& r, int seconds, int32_t device, size_t index, int (*heartRate)(int),
    int (*judged)(int) = [](int) { return 0; }) {
    for (int s = 0; s < seconds; ++s) {
        ParamsIn in{};
        in.nDeviceId = device;
        in.nFrameSeq = s;
        for (int32_t& v : in.nHeartData) v = 512 + s;
        for (int i = 0; i < 25; ++i) in.nBreathChan1[i] = in.nAccX[i] = 500 + i;  // live, not constant
        ParamsOut out{};
        out.nHeartRate = heartRate(s);
        out.nHeartStatus = judged(s);
        out.nBreathRate = heartRate(s) / 4;
        out.nBreathState = judged(s);
        out.nPosture = 2;
        for (int32_t& v : out.nMovement) v = 1;
        r.add(index, in, out, nullptr);
    }
}

// The y values of the tick labels of a plot's value axis (text-anchor end, left of the frame).
std::vector<std::string> valueTicks(const std::string& plot) {
    std::vector<std::string> r;
    const std::string key = "class=\"a\" text-anchor=\"end\">";
    for (size_t p = plot.find(key); p != std::string::npos; p = plot.find(key, p + 1)) {
        const size_t a = p + key.size();
        const std::string label = plot.substr(a, plot.find('<', a) - a);
        if (!label.empty() && (std::isdigit(static_cast<unsigned char>(label[0])) || label[0] == '-'))
            r.push_back(label);
    }
    return r;
}

TEST(Report, NoRateLeavesAGapInTheTrend) {
    Report r("gaps", 0);
    // Rates in seconds 10..19 and 30..39 only: two separate lines.
    addFrames(r, 50, 4, 0, [](int s) { return (s / 10) % 2 == 1 ? 70 + s % 10 : 0; });
    const std::string hr = plotOf(r.html(), 4, "heart-rate");
    ASSERT_FALSE(hr.empty());
    EXPECT_EQ(count(hr, "<polyline"), 2u);
    EXPECT_EQ(hr.find("no heart rate reported"), std::string::npos);
    // Nothing at all reported: no line, and a note saying so.
    Report none("none", 0);
    addFrames(none, 20, 4, 0, [](int) { return 0; });
    const std::string empty = plotOf(none.html(), 4, "heart-rate");
    EXPECT_EQ(count(empty, "<polyline"), 0u);
    EXPECT_NE(empty.find("no heart rate reported"), std::string::npos);
}

TEST(Report, RatesAreFaintWhereNotJudgedWithTheFlagsAsBands) {
    Report r("flags", 0);
    // Judged in seconds 0..24 only.
    addFrames(
        r, 50, 4, 0, [](int) { return 80; }, [](int s) { return s < 25 ? 1 : 0; });
    const std::string html = r.html();
    for (const char* series : {"heart-rate", "breath-rate"}) {
        const std::string plot = plotOf(html, 4, series);
        // One faint line over all 50 s, one solid over the 25 judged ones.
        ASSERT_EQ(count(plot, "<polyline"), 2u) << series;
        const size_t faint = plot.find("stroke-opacity=\"0.30\" points=");
        ASSERT_NE(faint, std::string::npos) << series;
        const size_t solid = plot.find("<polyline", plot.find("<polyline") + 1);
        const std::string solidLine = plot.substr(solid, plot.find("/>", solid) - solid);
        EXPECT_EQ(solidLine.find("stroke-opacity"), std::string::npos) << series;
        EXPECT_EQ(count(solidLine, ","), 25u) << series;
    }
    // Each flag as a band of runs: judged then not.
    const std::string hr = plotOf(html, 4, "heart-rate"), br = plotOf(html, 4, "breath-rate");
    EXPECT_NE(hr.find("0-25 s: 1 good quality"), std::string::npos);
    EXPECT_NE(hr.find("25-50 s: 0 not judged or poor"), std::string::npos);
    EXPECT_NE(br.find("0-25 s: 1 regular breathing"), std::string::npos);
    EXPECT_NE(br.find("25-50 s: 0 no judgement"), std::string::npos);
}

TEST(Report, HeartRateAxisDoesNotMagnifyAWobble) {
    Report r("wobble", 0);
    addFrames(
        r, 60, 1, 0, [](int s) { return 121 + s % 9; }, [](int) { return 1; });
    // 121..129 bpm: the axis ends on tens and starts no higher than 40, so a high rate is seen as
    // high and a wobble looks as small as it is.
    const std::vector<std::string> ticks = valueTicks(plotOf(r.html(), 1, "heart-rate"));
    ASSERT_GE(ticks.size(), 3u);
    EXPECT_LE(std::stoi(ticks.front()), 50);
    EXPECT_EQ(ticks.back(), "150");
}

TEST(Report, EcgIsInMillivoltsOnAStandardGrid) {
    Report r("ecg", 0);
    for (int s = 0; s < 12; ++s) {
        ParamsIn in{};
        in.nDeviceId = 1;
        // A 1 mV square pulse at the start of every second: 200 counts above 512.
        for (int i = 0; i < 200; ++i) in.nHeartData[i] = i < 20 ? 712 : 512;
        ParamsOut out{};
        for (int i = 0; i < 200; ++i) out.nHeartWave[i] = 512;
        r.add(0, in, out, nullptr);
    }
    const std::string ecg = plotOf(r.html(), 1, "ecg");
    ASSERT_EQ(count(ecg, "class=\"ecg-grid\""), 1u);  // ten seconds in one row
    // The pulse top at 1.0 mV is labelled; counts never appear.
    const std::vector<std::string> ticks = valueTicks(ecg);
    EXPECT_NE(std::find(ticks.begin(), ticks.end(), "1.0"), ticks.end());
    EXPECT_EQ(ecg.find(">712<"), std::string::npos);
    // Grid squares are square: 1 mm is 40 ms across and 0.1 mV up, with 5 mm major lines.
    const size_t g = ecg.find("<g class=\"ecg-grid\">");
    const std::string grid = ecg.substr(g, ecg.find("</g>", g) - g);
    std::vector<double> ys, xs;
    for (size_t p = grid.find("<line x1="); p != std::string::npos; p = grid.find("<line x1=", p + 1))
        ys.push_back(std::stod(grid.substr(grid.find("y1=\"", p) + 4)));
    for (size_t p = grid.find("<line y1="); p != std::string::npos; p = grid.find("<line y1=", p + 1))
        xs.push_back(std::stod(grid.substr(grid.find("x1=\"", p) + 4)));
    ASSERT_GE(ys.size(), 21u);   // at least 2 mV
    ASSERT_EQ(xs.size(), 251u);  // 10 s = 250 mm
    EXPECT_NEAR(ys[1] - ys[0], xs[1] - xs[0], 0.11);
    EXPECT_EQ(count(grid, "class=\"em\""), (ys.size() + 4) / 5 + 51);
    // The display waveform is drawn earlier by its delay, and says so.
    EXPECT_NE(ecg.find("drawn 130 ms earlier"), std::string::npos);
}

TEST(Report, ReferenceAndSummaryTable) {
    Report r("ref", 0);
    addFrames(
        r, 30, 7, 0, [](int) { return 60; }, [](int) { return 1; });
    addFrames(
        r, 40, 9, 1, [](int) { return 100; }, [](int s) { return s % 2; });
    r.setReference(9, std::vector<double>(40, 98.0), std::vector<double>(40, 24.0), "reference");
    const std::string html = r.html();
    for (const char* series : {"heart-rate", "breath-rate"}) {
        EXPECT_NE(plotOf(html, 9, series).find(">reference</text>"), std::string::npos) << series;
        EXPECT_EQ(plotOf(html, 7, series).find("reference"), std::string::npos) << series;
    }
    // One table row per device, before the first device section.
    const size_t table = html.find("<table class=\"summary-table\">");
    ASSERT_NE(table, std::string::npos);
    EXPECT_LT(table, html.find("<section"));
    const std::string row7 = html.substr(html.find("<tr data-device=\"7\">"), 200);
    const std::string row9 = html.substr(html.find("<tr data-device=\"9\">"), 200);
    // Each figure names the seconds it rests on.
    EXPECT_NE(row7.find("<td>0:30</td><td>60 /min (60&ndash;60), from 30 s of good quality</td><td>100 %</td>"),
              std::string::npos)
        << row7;
    const std::string row9All = html.substr(html.find("<tr data-device=\"9\">"), 400);
    EXPECT_NE(row9All.find("<td>0:40</td><td>100 /min (100&ndash;100), from 20 s of good quality</td><td>50 %</td>"),
              std::string::npos)
        << row9All;
    EXPECT_NE(row9All.find("<td>25 /min (25&ndash;25), from 20 s regular</td><td>50 %</td><td>on the back 0:40</td>"),
              std::string::npos)
        << row9All;
}

// The library reports quality 1 before its first rate; the page must not show that as good.
TEST(Report, NoGoodQualityWhereThereIsNoRate) {
    Report r("warm-up", 0);
    addFrames(
        r, 40, 1, 0, [](int s) { return s < 7 || (s >= 20 && s < 25) ? 0 : 70; }, [](int) { return 1; });
    const std::string hr = plotOf(r.html(), 1, "heart-rate");
    EXPECT_NE(hr.find("0-7 s: warm-up, no rate yet"), std::string::npos) << hr;
    EXPECT_NE(hr.find("7-20 s: 1 good quality"), std::string::npos);
    EXPECT_NE(hr.find("20-25 s: no rate"), std::string::npos);
    // Every green run of the quality band lies where there is a rate.
    const size_t band = hr.find("data-band=\"quality\"");
    const std::string quality = hr.substr(band, hr.find("</g>", band) - band);
    EXPECT_EQ(count(quality, std::string("fill=\"") + heartBandColor(1) + "\""), 2u);
    // The note on what good quality means sits beside the band.
    EXPECT_NE(hr.find("not a check of the rate beside it"), std::string::npos);
}

// A figure from a handful of judged seconds is not given as the record's value.
TEST(Report, SummaryLeavesOutFiguresFromTooFewJudgedSeconds) {
    Report r("few", 0);
    addFrames(
        r, 100, 1, 0, [](int) { return 80; }, [](int s) { return s < 3 ? 1 : 0; });
    const std::string html = r.html();
    const std::string row = html.substr(html.find("<tr data-device=\"1\">"), 500);
    EXPECT_NE(row.find("not shown: only 3 s of good quality (3 %)"), std::string::npos) << row;
    EXPECT_NE(row.find("not shown: only 3 s regular (3 %)"), std::string::npos) << row;
    EXPECT_EQ(row.find("80 /min"), std::string::npos) << row;
}

TEST(Report, ChannelsNotInTheRecordingAreLabelledNotDrawn) {
    Report r("substituted", 0);
    r.setNotInRecording(true, true);
    addFrames(
        r, 40, 1, 0, [](int) { return 80; }, [](int) { return 1; });
    const std::string html = r.html();
    for (const char* series : {"breath-rate", "respiration", "posture", "movement"}) {
        const std::string plot = plotOf(html, 1, series);
        EXPECT_NE(plot.find("not in this recording"), std::string::npos) << series;
        EXPECT_EQ(plot.find("<polyline"), std::string::npos) << series;
        EXPECT_EQ(plot.find("class=\"band\""), std::string::npos) << series;
    }
    EXPECT_NE(plotOf(html, 1, "heart-rate").find("<polyline"), std::string::npos);
    std::string row = html.substr(html.find("<tr data-device=\"1\">"));
    row = row.substr(0, row.find("</tr>"));
    EXPECT_EQ(count(row, ">not in this recording</td>"), 3u);
    EXPECT_EQ(row.find("on the back 0:"), std::string::npos);  // no time in a posture

    // Inputs constant throughout are taken for what they are, even from a frame file.
    Report still("still", 0);
    for (int s = 0; s < 40; ++s) {
        ParamsIn in{};
        in.nDeviceId = 1;
        still.add(0, in, ParamsOut{}, nullptr);
    }
    EXPECT_NE(plotOf(still.html(), 1, "posture").find("constant at 0, 0, 0 throughout"), std::string::npos);
}

// A rate reported while the ECG input is clipped or flat is flagged, as the tool's own finding,
// and an ECG strip is offered there.
TEST(Report, RateDuringClippedOrFlatInputIsFlagged) {
    int32_t live[200];
    for (int i = 0; i < 200; ++i) live[i] = 512 + static_cast<int32_t>(std::lround(40 * std::sin(i * 0.3)) + i % 3);
    EXPECT_FALSE(ecgInputDoubtful(live));
    int32_t flat[200];
    std::copy(std::begin(live), std::end(live), flat);
    std::fill(flat + 50, flat + 110, 600);  // 0.3 s of one value
    EXPECT_TRUE(ecgInputDoubtful(flat));
    int32_t clipped[200];
    std::copy(std::begin(live), std::end(live), clipped);
    for (int i = 10; i < 200; i += 40) clipped[i] = 1023;
    EXPECT_TRUE(ecgInputDoubtful(clipped));

    Report r("clipped", 0);
    for (int s = 0; s < 60; ++s) {
        ParamsIn in{};
        in.nDeviceId = 3;
        const bool bad = s >= 30 && s < 40;
        for (int i = 0; i < 200; ++i) in.nHeartData[i] = bad ? 1023 : live[i];
        ParamsOut out{};
        out.nHeartRate = bad ? 160 : 70;
        out.nHeartStatus = 1;
        r.add(0, in, out, nullptr);
    }
    const std::string html = r.html();
    const std::string hr = plotOf(html, 3, "heart-rate");
    EXPECT_NE(hr.find("30-40 s: rate during clipped or flat signal"), std::string::npos) << hr;
    EXPECT_NE(html.find("rate during clipped or flat ECG input from 30 s"), std::string::npos);
    EXPECT_NE(html.find("largest heart-rate change, 70 to 160 /min at 30 s"), std::string::npos);
    EXPECT_NE(html.find("<td>10 s, 10 s of them with a rate</td>"), std::string::npos);
}

TEST(Report, StretchStartsWhereAskedOrCoversTheEnd) {
    Report r("stretch", 5);
    addFrames(r, 100, 1, 0, [](int) { return 60; });
    const std::string ecg = plotOf(r.html(), 1, "ecg");
    EXPECT_NE(ecg.find(">5</text>"), std::string::npos);
    EXPECT_NE(ecg.find(">15</text>"), std::string::npos);
    EXPECT_EQ(ecg.find(">16</text>"), std::string::npos);
    EXPECT_EQ(ecg.find(">4</text>"), std::string::npos);

    Report shortRec("short", 60);
    addFrames(shortRec, 20, 1, 0, [](int) { return 60; });
    const std::string resp = plotOf(shortRec.html(), 1, "respiration");
    EXPECT_NE(resp.find(">0</text>"), std::string::npos);
    EXPECT_NE(resp.find(">20</text>"), std::string::npos);
}

TEST(Report, TextIsEscaped) {
    Report r("a <b> & \"c\"", 0);
    r.addNote("x.frames: incomplete record <here>");
    const std::string html = r.html();
    EXPECT_NE(html.find("a &lt;b&gt; &amp; &quot;c&quot;"), std::string::npos);
    EXPECT_NE(html.find("incomplete record &lt;here&gt;"), std::string::npos);
    EXPECT_EQ(html.find("<b>"), std::string::npos);
    EXPECT_NE(html.find("No frames were analysed"), std::string::npos);
}

}  // namespace
}  // namespace rtmtool
