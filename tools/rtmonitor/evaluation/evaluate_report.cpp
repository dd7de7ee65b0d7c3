// The HTML page of `rtmonitor evaluate --report`: per rate, the reference drawn over the library's
// rate second by second, and below it the error (library - reference). Inline SVG only, so the
// page needs no network and no script.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

#include "evaluate.h"

namespace rtmtool {
namespace {

constexpr double kWidth = 960, kHeight = 220, kLeft = 50, kRight = 10, kTop = 10, kBottom = 25;

std::string escapeHtml(const std::string& s) {
    std::string r;
    for (char c : s) {
        if (c == '<') r += "&lt;";
        else if (c == '>') r += "&gt;";
        else if (c == '&') r += "&amp;";
        else if (c == '"') r += "&quot;";
        else r += c;
    }
    return r;
}

struct Series {
    const std::vector<double>* values;
    const char* colour;
    bool zeroIsGap;  // the library's 0 means "no rate"
};

// One plot: each series a polyline broken at its gaps, y from lo to hi, x in seconds.
std::string plot(const std::vector<Series>& series, double lo, double hi, size_t seconds, const std::string& yLabel) {
    std::ostringstream o;
    const double w = kWidth - kLeft - kRight, h = kHeight - kTop - kBottom;
    auto x = [&](size_t s) { return kLeft + w * static_cast<double>(s) / std::max<size_t>(1, seconds - 1); };
    auto y = [&](double v) { return kTop + h * (1 - (std::clamp(v, lo, hi) - lo) / (hi - lo)); };
    o << "<svg width=\"" << kWidth << "\" height=\"" << kHeight << "\" xmlns=\"http://www.w3.org/2000/svg\">\n"
      << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << w << "\" height=\"" << h
      << "\" fill=\"none\" stroke=\"#999\"/>\n";
    char b[160];
    for (int k = 0; k <= 4; ++k) {
        const double v = lo + (hi - lo) * k / 4;
        std::snprintf(b, sizeof b, "<text x=\"%g\" y=\"%.1f\" font-size=\"10\" text-anchor=\"end\">%g</text>\n",
                      kLeft - 4, y(v) + 3, std::round(v * 10) / 10);
        o << b;
    }
    std::snprintf(b, sizeof b, "<text x=\"%g\" y=\"%g\" font-size=\"10\">%s; time 0..%zu s</text>\n", kLeft,
                  kHeight - 6, escapeHtml(yLabel).c_str(), seconds);
    o << b;
    for (const Series& s : series) {
        std::string points;
        auto flush = [&] {
            if (!points.empty())
                o << "<polyline fill=\"none\" stroke=\"" << s.colour << "\" stroke-width=\"1\" points=\"" << points
                  << "\"/>\n";
            points.clear();
        };
        for (size_t i = 0; i < s.values->size(); ++i) {
            const double v = (*s.values)[i];
            if (std::isnan(v) || (s.zeroIsGap && v <= 0)) {
                flush();
                continue;
            }
            std::snprintf(b, sizeof b, "%.1f,%.1f ", x(i), y(v));
            points += b;
        }
        flush();
    }
    o << "</svg>\n";
    return o.str();
}

std::string section(const std::string& title, const RateScore& score, const std::vector<double>& library,
                    const std::vector<double>& reference, const std::string& unit) {
    std::ostringstream o;
    o << "<h2>" << escapeHtml(title) << "</h2>\n<p>Reference: " << escapeHtml(score.reference) << ". "
      << "Seconds with a reference: " << score.seconds << "; coverage "
      << (score.seconds ? 100.0 * score.covered / score.seconds : 0.0) << " %; mean absolute error "
      << score.meanAbsError << " " << escapeHtml(unit) << "; within " << score.absTolerance << " " << escapeHtml(unit)
      << ": " << 100 * score.withinAbs << " %; within 10 %: " << 100 * score.withinPercent << " %.</p>\n";
    double hi = 10;
    for (size_t s = 0; s < library.size(); ++s) {
        hi = std::max(hi, library[s]);
        if (!std::isnan(reference[s])) hi = std::max(hi, reference[s]);
    }
    hi = std::ceil(hi / 10 * 1.1) * 10;
    o << "<p><span style=\"color:#1f77b4\">library</span>, <span style=\"color:#d62728\">reference</span></p>\n";
    o << plot({{&library, "#1f77b4", true}, {&reference, "#d62728", false}}, 0, hi, library.size(),
              title + " (" + unit + ")");
    std::vector<double> error(library.size(), std::nan(""));
    double span = 5;
    for (size_t s = 0; s < library.size(); ++s) {
        if (library[s] > 0 && !std::isnan(reference[s])) {
            error[s] = library[s] - reference[s];
            span = std::max(span, std::fabs(error[s]));
        }
    }
    span = std::min(span, 60.0);
    const std::vector<double> zero(library.size(), 0.0);
    o << plot({{&zero, "#bbb", false}, {&error, "#2ca02c", false}}, -span, span, library.size(),
              "library - reference (" + unit + ")");
    return o.str();
}

}  // namespace

std::string evaluationHtml(const Evaluation& e) {
    std::ostringstream o;
    o << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>rtmonitor evaluate: " << escapeHtml(e.record)
      << "</title>\n<style>body{font-family:sans-serif;margin:20px}pre{background:#f4f4f4;padding:8px}</style>"
      << "</head><body>\n<h1>rtmonitor evaluate: " << escapeHtml(e.record) << "</h1>\n<pre>"
      << escapeHtml(evaluationTable(e)) << "</pre>\n";
    if (e.haveHeart) o << section("Heart rate", e.heart, e.heartRate, e.heartReference, "bpm");
    const bool noBreath =
        std::find(e.notInRecording.begin(), e.notInRecording.end(), "respiration") != e.notInRecording.end();
    if (noBreath)
        o << "<h2>Breathing rate</h2>\n<p class=\"not-in-recording\">not in this recording: no respiration "
          << "signal, so no breathing rate was measured</p>\n";
    else if (e.haveBreath) o << section("Breathing rate", e.breath, e.breathRate, e.breathReference, "/min");
    o << "</body></html>\n";
    return o.str();
}

}  // namespace rtmtool
