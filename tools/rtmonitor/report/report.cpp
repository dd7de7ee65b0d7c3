// Report rendering (see report.h). Plots are drawn straight into SVG markup: a frame with ticks,
// then one polyline per series, broken where a value is missing (NaN, e.g. "no rate"). Long
// series are reduced to a min/max envelope per pixel column so files stay small.
#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <sstream>

#include "classes.h"
#include "host.h"
#include "output_file.h"

namespace rtmtool {

const char* const kReportSeries[7] = {"heart-rate", "breath-rate", "ecg",         "respiration",
                                      "posture",    "movement",    "rr-tachogram"};

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kWidth = 1400;  // drawn as wide as the window (the SVGs scale)
constexpr int kLeft = 60, kRight = 20, kTop = 28, kBottom = 30;

std::string escape(const std::string& s) {
    std::string r;
    for (char c : s) {
        switch (c) {
            case '&': r += "&amp;"; break;
            case '<': r += "&lt;"; break;
            case '>': r += "&gt;"; break;
            case '"': r += "&quot;"; break;
            default: r += c;
        }
    }
    return r;
}

std::string fmt(double v, int decimals = 1) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    return buf;
}

// A step of 1, 2 or 5 times a power of ten giving about `target` intervals over `span`.
double niceStep(double span, int target) {
    if (!(span > 0)) return 1;
    const double raw = span / target;
    const double p = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (raw <= m * p) return m * p;
    return 10 * p;
}

std::string tickLabel(double v, double step) {
    if (std::fabs(v) < step * 1e-6) v = 0;  // no "-0" at the origin
    const int decimals = step >= 1 ? 0 : static_cast<int>(std::ceil(-std::log10(step)));
    return fmt(v, decimals);
}

// Line colours (the class colours live with the class names in classes.cpp).
constexpr const char* kBlack = "#000000";
constexpr const char* kOrange = "#E69F00";
constexpr const char* kBlue = "#0072B2";
constexpr const char* kVermillion = "#D55E00";
constexpr const char* kGrey = "#999999";
constexpr double kFaint = 0.3;  // opacity of rates the library did not judge

struct Series {
    std::string name, color;
    std::vector<double> y;  // sample k at x = x0 + k * dx
    double x0 = 0, dx = 1;
    bool dashed = false;
    double width = 1.5;
    double opacity = 1.0;
};

// A row of coloured runs of equal code over seconds 0..n, each with a tooltip naming it.
struct CodeBand {
    std::string key, label;
    std::vector<int32_t> codes;
    const CodeName* names;
    size_t nameCount;
    const char* (*color)(int);
    const char* (*name)(int);
    bool libraryCodes = true;  // false: states of the tool's own, shown by name only
};

std::string codeLabel(const CodeBand& b, int code) {
    return b.libraryCodes && code >= 0 ? std::to_string(code) + " " + b.name(code) : std::string(b.name(code));
}

void drawRuns(std::ostringstream& o, const CodeBand& b, double y, double h, double seconds) {
    const double plotW = kWidth - kLeft - kRight;
    const double n = std::max(1.0, seconds);
    o << "<g class=\"band\" data-band=\"" << b.key << "\">\n<text x=\"" << kLeft - 6 << "\" y=\"" << fmt(y + h - 2)
      << "\" class=\"a\" text-anchor=\"end\">" << escape(b.label) << "</text>\n";
    const std::vector<int32_t>& v = b.codes;
    size_t a = 0;
    while (a < v.size()) {
        size_t e = a;
        while (e < v.size() && v[e] == v[a]) ++e;
        const int code = static_cast<int>(v[a]);
        o << "<rect x=\"" << fmt(kLeft + plotW * static_cast<double>(a) / n) << "\" y=\"" << fmt(y) << "\" width=\""
          << fmt(plotW * static_cast<double>(e - a) / n) << "\" height=\"" << fmt(h) << "\" fill=\"" << b.color(code)
          << "\"><title>" << a << "-" << e << " s: " << codeLabel(b, code) << "</title></rect>\n";
        a = e;
    }
    // An outline, so white states still show where the band is.
    o << "<rect x=\"" << kLeft << "\" y=\"" << fmt(y) << "\" width=\"" << fmt(plotW) << "\" height=\"" << fmt(h)
      << "\" fill=\"none\" stroke=\"#bbb\" stroke-width=\"0.5\"/>\n</g>\n";
}

// Swatches naming every code of a band's table, left to right from `x`; returns the end.
double drawCodeLegend(std::ostringstream& o, const CodeBand& b, double x, double y) {
    for (size_t i = 0; i < b.nameCount; ++i) {
        const std::string label = codeLabel(b, b.names[i].code);
        o << "<rect x=\"" << fmt(x) << "\" y=\"" << fmt(y - 10) << "\" width=\"12\" height=\"12\" fill=\""
          << b.color(b.names[i].code) << "\" stroke=\"#888\" stroke-width=\"0.5\"/><text x=\"" << fmt(x + 16)
          << "\" y=\"" << fmt(y) << "\" class=\"l\">" << escape(label) << "</text>\n";
        x += 28 + 6.6 * static_cast<double>(label.size());
    }
    return x;
}

// Points (x, y) as polylines, broken at NaN y, values clamped to [y0, y1].
template <class PX, class PY>
std::string polylineMarkup(const std::vector<std::pair<double, double>>& pts, const Series& s, PX px, PY py, double y0,
                           double y1) {
    std::ostringstream o;
    std::string line;
    int count = 0;
    double lastX = 0, lastY = 0;
    auto flush = [&]() {
        // A lone point would not show as a polyline; give it a hair of length.
        if (count == 1) line += ' ' + fmt(lastX + 0.8) + ',' + fmt(lastY);
        if (count >= 1) {
            o << "<polyline fill=\"none\" stroke=\"" << s.color << "\" stroke-width=\"" << s.width << "\""
              << (s.dashed ? " stroke-dasharray=\"5,3\"" : "")
              << (s.opacity < 1 ? " stroke-opacity=\"" + fmt(s.opacity, 2) + "\"" : "") << " points=\"" << line
              << "\"/>\n";
        }
        line.clear();
        count = 0;
    };
    for (const auto& [x, y] : pts) {
        if (!std::isfinite(y)) {
            flush();
            continue;
        }
        const double yc = std::clamp(y, y0, y1);
        if (count > 0) line += ' ';
        lastX = px(x), lastY = py(yc);
        line += fmt(lastX) + ',' + fmt(lastY);
        ++count;
    }
    flush();
    return o.str();
}

class Plot {
public:
    static constexpr double kBandHeight = 12, kBandStep = 16;

    Plot(std::string series, int32_t device, std::string title, std::string xLabel, int height)
        : series_(std::move(series)),
          device_(device),
          title_(std::move(title)),
          xLabel_(std::move(xLabel)),
          height_(height) {}

    void add(Series s) { lines_.push_back(std::move(s)); }
    void addBand(CodeBand b) { bands_.push_back(std::move(b)); }
    void xRange(double a, double b) { x0_ = a, x1_ = b; }
    void yRange(double a, double b) { y0_ = a, y1_ = b, fixedY_ = true; }
    void note(std::string n) { note_ = std::move(n); }
    // Range shown when no series has a value.
    void emptyYRange(double a, double b) { emptyLo_ = a, emptyHi_ = b; }
    // The automatic axis spans at least `span`, its ends on multiples of `unit`: a small wobble
    // then looks as small as it is.
    void leastSpan(double span, double unit) { leastSpan_ = span, unit_ = unit; }
    // The automatic axis starts at `floor` or lower, so a high rate is seen against its context.
    void floor(double f) { floor_ = f; }
    // A line of text beneath the band legends.
    void footnote(std::string f) { footnote_ = std::move(f); }

    std::string svg() const {
        double y0 = y0_, y1 = y1_;
        if (!fixedY_) autoY(y0, y1);
        const double plotW = kWidth - kLeft - kRight, plotH = height_ - kTop - kBottom;
        const double extra =
            (bands_.empty() ? 0 : kBandStep * static_cast<double>(bands_.size()) + 22) + (footnote_.empty() ? 0 : 18);
        const double total = height_ + extra;
        auto px = [&](double x) { return kLeft + (x - x0_) / (x1_ - x0_) * plotW; };
        auto py = [&](double y) { return kTop + (1.0 - (y - y0) / (y1 - y0)) * plotH; };
        std::ostringstream o;
        o << "<svg class=\"plot\" data-device=\"" << device_ << "\" data-series=\"" << series_
          << "\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << fmt(total)
          << "\" viewBox=\"0 0 " << kWidth << ' ' << fmt(total) << "\">\n";
        o << "<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << fmt(total) << "\" fill=\"#fff\"/>\n";
        o << "<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">" << escape(title_) << "</text>\n";
        // Legend, right-aligned in the title row.
        double lx = kWidth - kRight;
        for (auto it = lines_.rbegin(); it != lines_.rend(); ++it) {
            lx -= 6.6 * static_cast<double>(it->name.size()) + 34;
            o << "<line x1=\"" << fmt(lx) << "\" y1=\"14\" x2=\"" << fmt(lx + 20) << "\" y2=\"14\" stroke=\""
              << it->color << "\" stroke-width=\"2.5\"" << (it->dashed ? " stroke-dasharray=\"5,3\"" : "")
              << (it->opacity < 1 ? " stroke-opacity=\"" + fmt(it->opacity, 2) + "\"" : "") << "/><text x=\""
              << fmt(lx + 24) << "\" y=\"18\" class=\"l\">" << escape(it->name) << "</text>\n";
        }
        grid(o, y0, y1, px, py, plotH);
        for (const Series& s : lines_) polylines(o, s, px, py, y0, y1);
        if (!note_.empty())
            o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << kTop + plotH / 2
              << "\" class=\"n\" text-anchor=\"middle\">" << escape(note_) << "</text>\n";
        double by = kTop + plotH + 24;
        for (const CodeBand& b : bands_) {
            drawRuns(o, b, by, kBandHeight, x1_ - x0_);
            by += kBandStep;
        }
        double lx2 = kLeft;
        for (const CodeBand& b : bands_) lx2 = drawCodeLegend(o, b, lx2, by + 10) + 20;
        if (!footnote_.empty())
            o << "<text x=\"" << kLeft << "\" y=\"" << fmt(by + 28) << "\" class=\"l footnote\">" << escape(footnote_)
              << "</text>\n";
        o << "</svg>\n";
        return o.str();
    }

private:
    void autoY(double& lo, double& hi) const {
        lo = std::numeric_limits<double>::infinity();
        hi = -lo;
        for (const Series& s : lines_)
            for (double v : s.y)
                if (std::isfinite(v)) lo = std::min(lo, v), hi = std::max(hi, v);
        if (!std::isfinite(lo)) {
            lo = emptyLo_, hi = emptyHi_;
            return;
        }
        if (leastSpan_ > 0) {
            lo = std::floor(lo / unit_) * unit_;
            hi = std::ceil(hi / unit_) * unit_;
            if (hi - lo < leastSpan_) {
                const double mid = 0.5 * (lo + hi);
                lo = std::max(0.0, std::floor((mid - leastSpan_ / 2) / unit_ + 0.5) * unit_);
                hi = std::max(hi, lo + leastSpan_);
            }
            lo = std::min(lo, floor_);
            return;
        }
        if (hi - lo < 1e-9) lo -= 1, hi += 1;
        const double pad = (hi - lo) * 0.06;
        lo -= pad, hi += pad;
    }

    template <class PX, class PY>
    void grid(std::ostringstream& o, double y0, double y1, PX px, PY py, double plotH) const {
        const double ys = niceStep(y1 - y0, 5);
        for (double v = std::ceil(y0 / ys) * ys; v <= y1 + 1e-9; v += ys) {
            o << "<line x1=\"" << kLeft << "\" x2=\"" << kWidth - kRight << "\" y1=\"" << fmt(py(v)) << "\" y2=\""
              << fmt(py(v)) << "\" class=\"g\"/><text x=\"" << kLeft - 6 << "\" y=\"" << fmt(py(v) + 4)
              << "\" class=\"a\" text-anchor=\"end\">" << tickLabel(v, ys) << "</text>\n";
        }
        const double xs = niceStep(x1_ - x0_, 10);
        for (double v = std::ceil(x0_ / xs) * xs; v <= x1_ + 1e-9; v += xs) {
            o << "<line y1=\"" << kTop << "\" y2=\"" << fmt(kTop + plotH) << "\" x1=\"" << fmt(px(v)) << "\" x2=\""
              << fmt(px(v)) << "\" class=\"g\"/><text y=\"" << fmt(kTop + plotH + 14) << "\" x=\"" << fmt(px(v))
              << "\" class=\"a\" text-anchor=\"middle\">" << tickLabel(v, xs) << "</text>\n";
        }
        o << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << kWidth - kLeft - kRight << "\" height=\""
          << fmt(plotH) << "\" class=\"f\"/>\n";
        // The axis name sits left of the tick row, where nothing else is drawn.
        o << "<text x=\"" << kLeft - 12 << "\" y=\"" << fmt(kTop + plotH + 14) << "\" class=\"a\" text-anchor=\"end\">"
          << escape(xLabel_) << "</text>\n";
    }

    template <class PX, class PY>
    void polylines(std::ostringstream& o, const Series& s, PX px, PY py, double y0, double y1) const {
        // Points per pixel column: all of them when few, else the column's min and max in order.
        const size_t n = s.y.size();
        const size_t columns = kWidth - kLeft - kRight;
        std::vector<std::pair<double, double>> pts;  // (x, y); NaN y = break
        if (n <= 2 * columns) {
            for (size_t k = 0; k < n; ++k) pts.emplace_back(s.x0 + s.dx * static_cast<double>(k), s.y[k]);
        } else {
            for (size_t c = 0; c < columns; ++c) {
                const size_t a = c * n / columns, b = (c + 1) * n / columns;
                double lo = kNaN, hi = kNaN;
                size_t kl = a, kh = a;
                for (size_t k = a; k < b; ++k) {
                    const double v = s.y[k];
                    if (!std::isfinite(v)) continue;
                    if (!(v >= lo)) lo = v, kl = k;
                    if (!(v <= hi)) hi = v, kh = k;
                }
                if (!std::isfinite(lo)) {
                    pts.emplace_back(0, kNaN);
                    continue;
                }
                const size_t first = std::min(kl, kh), second = std::max(kl, kh);
                pts.emplace_back(s.x0 + s.dx * static_cast<double>(first), s.y[first]);
                if (second != first) pts.emplace_back(s.x0 + s.dx * static_cast<double>(second), s.y[second]);
            }
        }
        o << polylineMarkup(pts, s, px, py, y0, y1);
    }

    std::string series_;
    int32_t device_;
    std::string title_, xLabel_;
    int height_;
    std::vector<Series> lines_;
    std::vector<CodeBand> bands_;
    double x0_ = 0, x1_ = 1, y0_ = 0, y1_ = 1;
    bool fixedY_ = false;
    double emptyLo_ = 0, emptyHi_ = 1;
    double leastSpan_ = 0, unit_ = 1;
    double floor_ = std::numeric_limits<double>::infinity();
    std::string note_, footnote_;
};

// A panel for a channel the recording did not have: its name and why nothing is drawn.
std::string notInRecordingPlot(const char* series, int32_t device, const std::string& title, const std::string& why) {
    const int height = 70;
    std::ostringstream o;
    o << "<svg class=\"plot not-in-recording\" data-device=\"" << device << "\" data-series=\"" << series
      << "\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height << "\" viewBox=\"0 0 "
      << kWidth << ' ' << height << "\">\n<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << height
      << "\" fill=\"#fff\"/>\n<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">" << escape(title)
      << "</text>\n<rect x=\"" << kLeft << "\" y=\"26\" width=\"" << kWidth - kLeft - kRight
      << "\" height=\"36\" fill=\"#f2f2f2\" stroke=\"#bbb\"/>\n<text x=\"" << kLeft + 12
      << "\" y=\"49\" class=\"n\">not in this recording: " << escape(why) << "</text>\n</svg>\n";
    return o.str();
}

// Posture as coloured runs of equal class: one band for the library, one for the truth if any.
std::string posturePlot(int32_t device, const std::vector<int32_t>& reported, const std::vector<int>* truth) {
    const int bands = truth ? 2 : 1;
    const int height = kTop + 34 * bands + 20 + 22;
    const double plotW = kWidth - kLeft - kRight;
    const double n = std::max<double>(1.0, static_cast<double>(reported.size()));
    std::ostringstream o;
    o << "<svg class=\"plot\" data-device=\"" << device << "\" data-series=\"posture\" "
      << "xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height << "\" viewBox=\"0 0 "
      << kWidth << ' ' << height << "\">\n";
    o << "<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << height << "\" fill=\"#fff\"/>\n";
    o << "<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">Posture class per second</text>\n";
    CodeBand lib{"posture", "library", reported, kPostureNames, 10, postureColor, postureName};
    drawRuns(o, lib, kTop, 28, n);
    if (truth) {
        CodeBand exp{"posture-expected", "expected", std::vector<int32_t>(truth->begin(), truth->end()),
                     kPostureNames,      10,         postureColor,
                     postureName};
        drawRuns(o, exp, kTop + 34, 28, n);
    }
    const double axisY = kTop + 34.0 * bands;
    const double xs = niceStep(n, 10);
    for (double v = 0; v <= n + 1e-9; v += xs)
        o << "<text y=\"" << fmt(axisY + 10) << "\" x=\"" << fmt(kLeft + plotW * v / n)
          << "\" class=\"a\" text-anchor=\"middle\">" << tickLabel(v, xs) << "</text>\n";
    o << "<text x=\"" << kLeft - 12 << "\" y=\"" << fmt(axisY + 10)
      << "\" class=\"a\" text-anchor=\"end\">time (s)</text>\n";
    // Only the classes that occur, so the legend fits one row.
    std::map<int, bool> seen;
    for (int32_t c : reported) seen[c] = true;
    if (truth)
        for (int c : *truth) seen[c] = true;
    double lx = kLeft;
    for (const auto& [cls, unused] : seen) {
        (void)unused;
        const std::string label = std::to_string(cls) + " " + postureName(cls);
        o << "<rect x=\"" << fmt(lx) << "\" y=\"" << fmt(axisY + 20) << "\" width=\"12\" height=\"12\" fill=\""
          << postureColor(cls) << "\" stroke=\"#888\" stroke-width=\"0.5\"/><text x=\"" << fmt(lx + 16) << "\" y=\""
          << fmt(axisY + 30) << "\" class=\"l\">" << escape(label) << "</text>\n";
        lx += 28 + 6.6 * static_cast<double>(label.size());
    }
    o << "</svg>\n";
    return o.str();
}

// The ECG as on paper: 25 mm/s and 10 mm/mV on a 1 mm (40 ms, 0.1 mV) grid with 5 mm major
// lines, in rows of ten seconds. Input counts are 512 + 200 per mV.
constexpr double kCountsPerMv = 200, kEcgZero = 512;
constexpr int kEcgRowSeconds = 10;
constexpr double kPxPerMm = (kWidth - kLeft - kRight) / (kEcgRowSeconds * 25.0);

double toMv(int32_t counts) { return (counts - kEcgZero) / kCountsPerMv; }

// A mark above an ECG row at each confirmed R peak in [from, to].
template <class Px>
std::string beatMarks(const std::vector<double>& beats, double from, double to, double top, Px px) {
    std::ostringstream o;
    for (double t : beats) {
        if (t < from - 1e-9 || t > to + 1e-9) continue;
        o << "<path class=\"beat\" d=\"M" << fmt(px(t)) << ' ' << fmt(top + 9) << " l-4 -7 h8 z\" fill=\""
          << kVermillion << "\"/>\n";
    }
    return o.str();
}

std::string ecgPlot(int32_t device, const std::vector<double>& input, const std::vector<double>& display, double s0,
                    double seconds, bool anyDisplay, const std::string& caption, const std::vector<double>& beats) {
    // Rows span the stretch's range rounded out to 0.5 mV, at least 2 mV, at most 6 mV (clipped).
    double lo = 0, hi = 0;
    for (const std::vector<double>* v : {&input, &display})
        for (double y : *v)
            if (std::isfinite(y)) lo = std::min(lo, y), hi = std::max(hi, y);
    lo = std::max(-3.0, std::floor(lo * 2) / 2);
    hi = std::min(3.0, std::ceil(hi * 2) / 2);
    if (hi - lo < 2) hi = lo + 2;
    const double rowH = (hi - lo) * 10 * kPxPerMm;
    const int rows = std::max(1, static_cast<int>(std::ceil(seconds / kEcgRowSeconds - 1e-9)));
    const double rowStep = rowH + 34;
    const double total = kTop + rowStep * rows + 8;
    const double delay = Report::kDisplayDelayMs / 1000.0;
    std::ostringstream o;
    o << "<svg class=\"plot\" data-device=\"" << device << "\" data-series=\"ecg\" "
      << "xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << fmt(total)
      << "\" viewBox=\"0 0 " << kWidth << ' ' << fmt(total) << "\">\n";
    o << "<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << fmt(total) << "\" fill=\"#fff\"/>\n";
    o << "<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">ECG (mV), 25 mm/s, 10 mm/mV: " << escape(caption)
      << "</text>\n";
    o << "<line x1=\"" << kWidth - kRight - 430 << "\" y1=\"14\" x2=\"" << kWidth - kRight - 410
      << "\" y2=\"14\" stroke=\"" << kBlack << "\" stroke-width=\"2\"/><text x=\"" << kWidth - kRight - 406
      << "\" y=\"18\" class=\"l\">input</text>\n";
    if (anyDisplay)
        o << "<line x1=\"" << kWidth - kRight - 360 << "\" y1=\"14\" x2=\"" << kWidth - kRight - 340
          << "\" y2=\"14\" stroke=\"" << kBlue << "\" stroke-width=\"2\"/><text x=\"" << kWidth - kRight - 336
          << "\" y=\"18\" class=\"l\">library display, drawn " << Report::kDisplayDelayMs
          << " ms earlier (its delay)</text>\n";
    const double mm = kPxPerMm;
    for (int r = 0; r < rows; ++r) {
        const double top = kTop + rowStep * r;
        const double t0 = s0 + kEcgRowSeconds * r;
        const double rowW = kEcgRowSeconds * 25 * mm;
        o << "<g class=\"ecg-grid\">\n";
        const int hLines = static_cast<int>(std::lround((hi - lo) * 10));
        for (int k = 0; k <= hLines; ++k)
            o << "<line x1=\"" << kLeft << "\" x2=\"" << fmt(kLeft + rowW) << "\" y1=\"" << fmt(top + k * mm)
              << "\" y2=\"" << fmt(top + k * mm) << "\" class=\"" << (k % 5 == 0 ? "em" : "ei") << "\"/>\n";
        for (int k = 0; k <= kEcgRowSeconds * 25; ++k)
            o << "<line y1=\"" << fmt(top) << "\" y2=\"" << fmt(top + rowH) << "\" x1=\"" << fmt(kLeft + k * mm)
              << "\" x2=\"" << fmt(kLeft + k * mm) << "\" class=\"" << (k % 5 == 0 ? "em" : "ei") << "\"/>\n";
        o << "</g>\n";
        for (int k = 0; k <= hLines; k += 5)
            o << "<text x=\"" << kLeft - 6 << "\" y=\"" << fmt(top + k * mm + 4)
              << "\" class=\"a\" text-anchor=\"end\">" << tickLabel(hi - k / 10.0, 0.5) << "</text>\n";
        for (int sec = 0; sec <= kEcgRowSeconds; ++sec)
            o << "<text y=\"" << fmt(top + rowH + 14) << "\" x=\"" << fmt(kLeft + sec * 25 * mm)
              << "\" class=\"a\" text-anchor=\"middle\">" << tickLabel(t0 + sec, 1) << "</text>\n";
        o << "<text x=\"" << kLeft << "\" y=\"" << fmt(top + rowH + 27) << "\" class=\"a\">time (s)</text>\n";
        auto px = [&](double t) { return kLeft + (t - t0) * 25 * mm; };
        auto py = [&](double v) { return top + (hi - v) * 10 * mm; };
        auto trace = [&](const std::vector<double>& v, double shift, const char* color, double width) {
            std::vector<std::pair<double, double>> pts;
            for (size_t k = 0; k < v.size(); ++k) {
                const double t = s0 + static_cast<double>(k) / 200.0 - shift;
                if (t >= t0 - 1e-9 && t <= t0 + kEcgRowSeconds + 1e-9) pts.emplace_back(t, v[k]);
            }
            Series s{"", color, {}, 0, 1, false, width};
            o << polylineMarkup(pts, s, px, py, lo, hi);
        };
        trace(input, 0, kBlack, 1.1);
        if (anyDisplay) trace(display, delay, kBlue, 1.1);
        o << beatMarks(beats, t0, std::min(t0 + kEcgRowSeconds, s0 + seconds), top, px);
    }
    if (!beats.empty())
        o << "<path d=\"M" << fmt(kWidth - kRight - 200) << " 19 l-4 -7 h8 z\" fill=\"" << kVermillion
          << "\"/><text x=\"" << fmt(kWidth - kRight - 192)
          << "\" y=\"18\" class=\"l\">beat confirmed by the library</text>\n";
    if (!anyDisplay)
        o << "<text x=\"" << kWidth - kRight << "\" y=\"18\" class=\"n\" text-anchor=\"end\">the library wrote no "
          << "display waveform here</text>\n";
    o << "</svg>\n";
    return o.str();
}

// RR tachogram: the reported RR interval of each beat, averaged per second of R peaks.
std::string rrTachogram(int32_t device, const std::vector<double>& times, const std::vector<double>& rrMs,
                        size_t seconds) {
    Series rr{"RR interval of the confirmed beats", kVermillion, std::vector<double>(seconds, kNaN), 0, 1, false, 1.4};
    std::vector<int> count(seconds, 0);
    for (size_t k = 0; k < times.size(); ++k) {
        if (!(times[k] >= 0) || times[k] >= static_cast<double>(seconds)) continue;
        const size_t sec = static_cast<size_t>(times[k]);
        rr.y[sec] = (count[sec] == 0 ? 0 : rr.y[sec] * count[sec]) + rrMs[k];
        rr.y[sec] /= ++count[sec];
    }
    Plot p("rr-tachogram", device, "RR tachogram (ms): the confirmed beats' RR intervals", "time (s)", 220);
    p.xRange(0, std::max(1.0, static_cast<double>(seconds)));
    p.emptyYRange(0, 2000);
    p.leastSpan(200, 100);
    p.add(rr);
    return p.svg();
}

std::vector<double> rateSeries(const std::vector<int32_t>& v) {
    // 0 means "no rate"; leave a gap rather than a plunge to zero.
    std::vector<double> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = v[i] > 0 ? v[i] : kNaN;
    return r;
}

// The rate only where `flag` holds `judged`; a gap elsewhere.
std::vector<double> judgedSeries(const std::vector<int32_t>& v, const std::vector<int32_t>& flag, int32_t judged) {
    std::vector<double> r = rateSeries(v);
    for (size_t i = 0; i < r.size(); ++i)
        if (flag[i] != judged) r[i] = kNaN;
    return r;
}

std::vector<double> truthSeries(const std::vector<double>& v) {
    std::vector<double> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = v[i] > 0 ? v[i] : kNaN;
    return r;
}

double median(std::vector<int32_t> v) {
    v.erase(std::remove_if(v.begin(), v.end(), [](int32_t x) { return x <= 0; }), v.end());
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t m = v.size() / 2;
    return v.size() % 2 ? v[m] : 0.5 * (static_cast<double>(v[m - 1]) + v[m]);
}

std::string clockText(size_t seconds) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%zu:%02zu", seconds / 60, seconds % 60);
    return buf;
}

// The heart-quality band as shown: the library's flag where there is a rate, warm-up or "no rate"
// where there is none (the library reports quality 1 before its first rate).
std::vector<int32_t> heartBand(const std::vector<int32_t>& rate, const std::vector<int32_t>& quality) {
    std::vector<int32_t> r(rate.size());
    bool rated = false;
    for (size_t i = 0; i < rate.size(); ++i) {
        rated = rated || rate[i] > 0;
        r[i] = rate[i] > 0 ? quality[i] : rated ? kShownNoRate : kShownWarmUp;
    }
    return r;
}

// The respiration band as shown: warm-up until the first rate; "regular" never without a rate.
std::vector<int32_t> breathBand(const std::vector<int32_t>& rate, const std::vector<int32_t>& state) {
    std::vector<int32_t> r(rate.size());
    bool rated = false;
    for (size_t i = 0; i < rate.size(); ++i) {
        rated = rated || rate[i] > 0;
        if (rate[i] > 0 || state[i] == 2) r[i] = state[i];
        else r[i] = rated ? 0 : kShownWarmUp;
    }
    return r;
}

std::vector<int32_t> inputBand(const std::vector<int32_t>& rate, const std::vector<uint8_t>& doubt) {
    std::vector<int32_t> r(rate.size());
    for (size_t i = 0; i < rate.size(); ++i)
        r[i] = !doubt[i] ? kInputFine : rate[i] > 0 ? kInputDoubtWithRate : kInputDoubtNoRate;
    return r;
}

// A rate figure for the summary, from the judged seconds only, naming how many they were; not
// given as the record's value when they are fewer than 10 s or a tenth of the record.
std::string judgedFigure(const std::vector<int32_t>& rate, const std::vector<int32_t>& flag, const char* judgedAs) {
    std::vector<int32_t> judged;
    for (size_t i = 0; i < rate.size(); ++i)
        if (flag[i] == 1 && rate[i] > 0) judged.push_back(rate[i]);
    const size_t n = judged.size(), all = rate.size();
    const std::string basis = std::to_string(n) + " s " + judgedAs;
    if (n == 0) return std::string("none: no second ") + judgedAs;
    if (n < 10 || n * 10 < all)
        return "not shown: only " + basis + " (" + fmt(100.0 * static_cast<double>(n) / static_cast<double>(all), 0) +
               " %)";
    const auto [lo, hi] = std::minmax_element(judged.begin(), judged.end());
    return fmt(median(judged), 0) + " /min (" + std::to_string(*lo) + "&ndash;" + std::to_string(*hi) + "), from " +
           basis;
}

}  // namespace

bool ecgInputDoubtful(const int32_t (&samples)[200]) {
    // At 5 uV per count a live ECG never holds one value for 0.3 s; a few samples at a rail mean
    // the front end or the conversion clipped.
    constexpr int kRailSamples = 4, kFlatRun = 60;
    int rail = 0, run = 1, longest = 1;
    for (int i = 0; i < 200; ++i) {
        if (samples[i] <= 0 || samples[i] >= 1023) ++rail;
        run = i > 0 && samples[i] == samples[i - 1] ? run + 1 : 1;
        longest = std::max(longest, run);
    }
    return rail >= kRailSamples || longest >= kFlatRun;
}

Report::Report(std::string title, int stretchStart)
    : title_(std::move(title)), stretchStart_(std::max(0, stretchStart)) {}

void Report::add(size_t device, const ParamsIn& in, const ParamsOut& out, const SecondTruth* truth) {
    if (device >= devices_.size()) devices_.resize(device + 1);
    Device& d = devices_[device];
    d.id = in.nDeviceId;
    const size_t second = d.hr.size();
    d.hr.push_back(out.nHeartRate);
    d.quality.push_back(out.nHeartStatus);
    d.br.push_back(out.nBreathRate);
    d.breathState.push_back(out.nBreathState);
    d.posture.push_back(out.nPosture);
    d.moveMax.push_back(movementMax(out));
    d.moveMean.push_back(movementMean(out));
    d.inputDoubt.push_back(ecgInputDoubtful(in.nHeartData) ? 1 : 0);
    const int32_t* axes[3] = {in.nAccX, in.nAccY, in.nAccZ};
    if (second == 0) {
        d.resp0 = in.nBreathChan1[0];
        for (int a = 0; a < 3; ++a) d.acc0[a] = axes[a][0];
    }
    for (int i = 0; i < 25; ++i) {
        d.respVaries = d.respVaries || in.nBreathChan1[i] != d.resp0;
        for (int a = 0; a < 3; ++a) d.accVaries = d.accVaries || axes[a][i] != d.acc0[a];
    }
    for (int i = 0; i < 200; ++i) {
        d.ecgIn.push_back(static_cast<int16_t>(std::clamp(in.nHeartData[i], -32768, 32767)));
        d.ecgOut.push_back(static_cast<int16_t>(std::clamp(out.nHeartWave[i], -32768, 32767)));
    }
    if (truth) {
        d.hasTruth = true;
        d.hrTrue.push_back(truth->heartRate);
        d.brTrue.push_back(truth->breathRate);
        d.postureTrue.push_back(truth->posture);
    }
    if (!d.frozen) {
        StretchFrame f;
        std::copy(std::begin(in.nHeartData), std::end(in.nHeartData), f.ecgIn.begin());
        std::copy(std::begin(out.nHeartWave), std::end(out.nHeartWave), f.ecgOut.begin());
        std::copy(std::begin(out.nBreathDisplay1), std::end(out.nBreathDisplay1), f.disp1.begin());
        std::copy(std::begin(out.nBreathDisplay0), std::end(out.nBreathDisplay0), f.disp0.begin());
        std::copy(std::begin(in.nBreathChan1), std::end(in.nBreathChan1), f.resp1In.begin());
        d.stretch.push_back(f);
        if (d.stretch.size() > static_cast<size_t>(kStretchSeconds)) {
            d.stretch.pop_front();
            ++d.stretchFirst;
        }
        if (second + 1 == static_cast<size_t>(stretchStart_ + kStretchSeconds)) d.frozen = true;
    }
}

void Report::addBeats(size_t device, const std::vector<rtm_beat>& beats) {
    if (device >= devices_.size()) return;
    Device& d = devices_[device];
    for (const rtm_beat& b : beats) {
        d.beatTimes.push_back(static_cast<double>(b.sample) / 200.0);
        d.beatRr.push_back(b.rr_ms);
    }
}

void Report::setReference(int32_t deviceId, std::vector<double> heart, std::vector<double> breath, std::string label) {
    references_[deviceId] = Reference{std::move(heart), std::move(breath), std::move(label)};
}

const Report::Reference* Report::referenceOf(int32_t deviceId) const {
    const auto it = references_.find(deviceId);
    return it == references_.end() ? nullptr : &it->second;
}

std::string Report::respirationMissing(const Device& d) const {
    if (noRespiration_) return "no respiration signal; the input held a flat substitute";
    if (!d.respVaries && !d.hr.empty())
        return "the respiration input is constant at " + std::to_string(d.resp0) +
               " throughout (a substitute, or no "
               "sensor)";
    return "";
}

std::string Report::accelerometerMissing(const Device& d) const {
    if (noAccelerometer_) return "no accelerometer; the input held a still sensor lying on the back";
    if (!d.accVaries && !d.hr.empty())
        return "the accelerometer input is constant at " + std::to_string(d.acc0[0]) + ", " +
               std::to_string(d.acc0[1]) + ", " + std::to_string(d.acc0[2]) +
               " throughout (a substitute, or no sensor)";
    return "";
}

std::string Report::summaryTable() const {
    std::ostringstream o;
    o << "<table class=\"summary-table\">\n<tr><th>device</th><th>duration</th>"
      << "<th>heart rate median (range), good-quality seconds</th><th>good heart quality</th>"
      << "<th>ECG input clipped or flat (tool's check)</th><th>breathing rate median (range), regular seconds</th>"
      << "<th>regular breathing</th><th>time in each posture</th></tr>\n";
    auto share = [](size_t part, size_t whole) { return whole ? fmt(100.0 * part / whole, 0) + " %" : "-"; };
    auto notHere = [](const std::string& why) {
        return "<td class=\"not-in-recording\" title=\"" + escape(why) + "\">not in this recording</td>";
    };
    for (const Device& d : devices_) {
        const size_t n = d.hr.size();
        const std::vector<int32_t> heart = heartBand(d.hr, d.quality);
        const size_t good = static_cast<size_t>(std::count(heart.begin(), heart.end(), 1));
        const size_t regular = static_cast<size_t>(std::count(d.breathState.begin(), d.breathState.end(), 1));
        const std::vector<int32_t> input = inputBand(d.hr, d.inputDoubt);
        const size_t doubtful = n - static_cast<size_t>(std::count(input.begin(), input.end(), kInputFine));
        const size_t doubtRated = static_cast<size_t>(std::count(input.begin(), input.end(), kInputDoubtWithRate));
        std::map<int32_t, size_t> postures;
        for (int32_t c : d.posture) ++postures[c];
        std::string inPosture;
        for (const auto& [cls, secs] : postures)
            inPosture += (inPosture.empty() ? "" : ", ") + std::string(postureName(cls)) + " " + clockText(secs);
        o << "<tr data-device=\"" << d.id << "\"><td>" << d.id << "</td><td>" << clockText(n) << "</td><td>"
          << judgedFigure(d.hr, d.quality, "of good quality") << "</td><td>" << share(good, n) << "</td><td>"
          << (doubtful == 0 ? std::string("none")
                            : std::to_string(doubtful) + " s, " + std::to_string(doubtRated) + " s of them with a rate")
          << "</td>";
        const std::string noResp = respirationMissing(d), noAcc = accelerometerMissing(d);
        if (!noResp.empty()) o << notHere(noResp) << notHere(noResp);
        else o << "<td>" << judgedFigure(d.br, d.breathState, "regular") << "</td><td>" << share(regular, n) << "</td>";
        if (!noAcc.empty()) o << notHere(noAcc);
        else o << "<td>" << escape(inPosture) << "</td>";
        o << "</tr>\n";
    }
    o << "</table>\n";
    return o.str();
}

std::string Report::ratePlots(const Device& d) const {
    std::ostringstream o;
    const double duration = static_cast<double>(d.hr.size());
    const Reference* ref = referenceOf(d.id);
    auto ratePlot = [&](const char* key, const char* title, const std::vector<int32_t>& rate,
                        const std::vector<int32_t>& flag, const char* color, std::vector<CodeBand> bands,
                        const std::vector<double>* truth, const std::vector<double>* reference, double span,
                        double floor, const char* none) {
        Plot p(key, d.id, title, "time (s)", 240);
        p.xRange(0, std::max(1.0, duration));
        p.emptyYRange(floor, floor + span * 2);
        p.leastSpan(span, 10);
        p.floor(floor);
        p.add({"not judged", color, rateSeries(rate), 0.5, 1, false, 1.8, kFaint});
        p.add({std::string("library, ") + bands[0].name(1), color, judgedSeries(rate, flag, 1), 0.5, 1, false, 1.8});
        if (truth) p.add({"generator truth", kBlack, truthSeries(*truth), 0.5, 1, true, 1.3});
        if (reference && !reference->empty()) p.add({ref->label, kBlack, truthSeries(*reference), 0.5, 1, true, 1.3});
        if (median(rate) == 0) p.note(none);
        for (CodeBand& b : bands) p.addBand(std::move(b));
        return p;
    };
    Plot heart =
        ratePlot("heart-rate", "Heart rate (beats/min)", d.hr, d.quality, kVermillion,
                 {{"quality", "quality", heartBand(d.hr, d.quality), kHeartBandNames, 4, heartBandColor, heartBandName},
                  {"input-check", "input", inputBand(d.hr, d.inputDoubt), kInputBandNames, 3, inputBandColor,
                   inputBandName, false}},
                 d.hasTruth ? &d.hrTrue : nullptr, ref ? &ref->heart : nullptr, 40, 40, "no heart rate reported");
    heart.footnote(
        "Good quality is the library's judgement of the ECG, not a check of the rate beside it. "
        "The input row is this tool's own look at the ECG samples (clipped at 0 or 1023, or flat).");
    o << heart.svg();
    if (!respirationMissing(d).empty()) {
        o << notInRecordingPlot("breath-rate", d.id, "Breathing rate (breaths/min)", respirationMissing(d));
    } else {
        o << ratePlot("breath-rate", "Breathing rate (breaths/min)", d.br, d.breathState, kBlue,
                      {{"breath-state", "status", breathBand(d.br, d.breathState), kBreathBandNames, 4, breathBandColor,
                        breathBandName}},
                      d.hasTruth ? &d.brTrue : nullptr, ref ? &ref->breath : nullptr, 20, 0,
                      "no breathing rate reported")
                 .svg();
    }
    return o.str();
}

namespace {

// The second where the rate is furthest from the reference, as a strip offered to `offer`.
template <class Offer>
void offerReferenceDifference(const std::vector<int32_t>& hr, const std::vector<double>& ref, const std::string& label,
                              Offer offer) {
    size_t worstAt = 0;
    double worst = 0;
    for (size_t i = 0; i < hr.size() && i < ref.size(); ++i)
        if (hr[i] > 0 && ref[i] > 0 && std::fabs(hr[i] - ref[i]) > worst)
            worst = std::fabs(hr[i] - ref[i]), worstAt = i;
    if (worst > 0)
        offer(worstAt, "largest difference from the " + label + ", " + std::to_string(hr[worstAt]) + " against " +
                           fmt(ref[worstAt], 0) + " /min at " + std::to_string(worstAt) + " s");
}

}  // namespace

// The chosen time first, then the events worth a look, each strip at most once.
std::vector<Report::Strip> Report::ecgStrips(const Device& d) const {
    const size_t n = d.hr.size();
    std::vector<Strip> strips;
    auto offer = [&](size_t at, const std::string& why) {
        const size_t start = at >= kEcgSeconds / 2 ? at - kEcgSeconds / 2 : 0;
        const size_t begin = n > static_cast<size_t>(kEcgSeconds) ? std::min(start, n - kEcgSeconds) : 0;
        for (const Strip& s : strips)
            if (begin + kEcgSeconds / 2 > s.start && begin < s.start + kEcgSeconds / 2) return;
        if (strips.size() < static_cast<size_t>(kMaxEcgStrips)) strips.push_back({begin, why});
    };
    const size_t at = n > static_cast<size_t>(stretchStart_ + kEcgSeconds) ? static_cast<size_t>(stretchStart_)
                      : n > static_cast<size_t>(kEcgSeconds)               ? n - kEcgSeconds
                                                                           : 0;
    strips.push_back({at, "from " + std::to_string(at) + " s (the chosen time, --at)"});
    size_t jumpAt = 0;
    int jump = 0;
    for (size_t i = 1; i < n; ++i)
        if (d.hr[i] > 0 && d.hr[i - 1] > 0 && std::abs(d.hr[i] - d.hr[i - 1]) > jump)
            jump = std::abs(d.hr[i] - d.hr[i - 1]), jumpAt = i;
    if (jump > 0)
        offer(jumpAt, "largest heart-rate change, " + std::to_string(d.hr[jumpAt - 1]) + " to " +
                          std::to_string(d.hr[jumpAt]) + " /min at " + std::to_string(jumpAt) + " s");
    const std::vector<int32_t> input = inputBand(d.hr, d.inputDoubt);
    for (size_t i = 0; i < n; ++i)
        if (input[i] == kInputDoubtWithRate && (i == 0 || input[i - 1] != kInputDoubtWithRate))
            offer(i + kEcgSeconds / 2, "rate during clipped or flat ECG input from " + std::to_string(i) + " s");
    if (const Reference* ref = referenceOf(d.id)) offerReferenceDifference(d.hr, ref->heart, ref->label, offer);
    // Quality drops of 3 s or more (a flickering flag is not an event), the longest first.
    const std::vector<int32_t> heart = heartBand(d.hr, d.quality);
    std::vector<std::pair<size_t, size_t>> drops;  // (length, start)
    for (size_t i = 1; i < n; ++i) {
        if (heart[i - 1] != 1 || heart[i] == 1) continue;
        size_t e = i;
        while (e < n && heart[e] != 1) ++e;
        if (e - i >= 3) drops.emplace_back(e - i, i);
    }
    std::sort(drops.rbegin(), drops.rend());
    for (const auto& [length, at] : drops)
        offer(at, "heart quality drops at " + std::to_string(at) + " s for " + std::to_string(length) + " s");
    return strips;
}

std::string Report::ecgStrip(const Device& d, const Strip& s) const {
    const size_t n = d.hr.size();
    const size_t frames = std::min(n - std::min(n, s.start), static_cast<size_t>(kEcgSeconds));
    std::vector<double> in, disp;
    bool anyOut = false;
    for (size_t k = s.start * 200; k < (s.start + frames) * 200; ++k) {
        in.push_back(toMv(d.ecgIn[k]));
        disp.push_back(toMv(d.ecgOut[k]));
        anyOut = anyOut || d.ecgOut[k] != 0;
    }
    return ecgPlot(d.id, in, disp, static_cast<double>(s.start), std::max<double>(1.0, static_cast<double>(frames)),
                   anyOut, s.why, d.beatTimes);
}

std::string Report::waveformAndPosture(const Device& d) const {
    std::ostringstream o;
    const double s0 = static_cast<double>(d.stretchFirst);
    if (!respirationMissing(d).empty()) {
        o << notInRecordingPlot("respiration", d.id, "Respiration display waveforms", respirationMissing(d));
    } else {
        Series c1{"channel 1 display", kBlue, {}, s0, 1.0 / 25, false, 1.6};
        Series c0{"channel 0 display", kOrange, {}, s0, 1.0 / 25, true, 1.4};
        bool any = false;
        for (const StretchFrame& f : d.stretch)
            for (int i = 0; i < 25; ++i) {
                c1.y.push_back(f.disp1[static_cast<size_t>(i)]);
                c0.y.push_back(f.disp0[static_cast<size_t>(i)]);
                any = any || f.disp1[static_cast<size_t>(i)] != 0 || f.disp0[static_cast<size_t>(i)] != 0;
            }
        // The input on the display scale, for comparison: its range in the stretch maps to 0..1000.
        Series raw{"input channel 1, scaled", kGrey, {}, s0, 1.0 / 25, false, 1.0};
        double lo = 1e300, hi = -1e300;
        for (const StretchFrame& f : d.stretch)
            for (int32_t v : f.resp1In) lo = std::min<double>(lo, v), hi = std::max<double>(hi, v);
        for (const StretchFrame& f : d.stretch)
            for (int32_t v : f.resp1In) raw.y.push_back((v - lo) * 1000.0 / (hi - lo));
        Plot p("respiration", d.id, "Respiration display waveforms (0..1000)", "time (s)", 240);
        p.xRange(s0, s0 + std::max<double>(1.0, static_cast<double>(d.stretch.size())));
        p.yRange(-20, 1020);
        if (hi > lo) p.add(raw);
        if (any) {
            p.add(c1);
            p.add(c0);
        }
        if (d.stretch.empty()) p.note("no frames");
        else if (!(hi > lo))
            p.note("respiration input constant at " + fmt(lo, 0) + ": no breathing signal, no display waveform");
        else if (!any) p.note("the library wrote no display waveform here");
        o << p.svg();
    }
    if (const std::string why = accelerometerMissing(d); !why.empty()) {
        o << notInRecordingPlot("posture", d.id, "Posture class per second", why)
          << notInRecordingPlot("movement", d.id, "Movement level per second", why);
        return o.str();
    }
    o << posturePlot(d.id, d.posture, d.hasTruth ? &d.postureTrue : nullptr);
    Plot p("movement", d.id, "Movement level per second (1..1023)", "time (s)", 220);
    p.xRange(0, std::max(1.0, static_cast<double>(d.hr.size())));
    std::vector<double> mx(d.moveMax.begin(), d.moveMax.end());
    // A device at rest reads 1 throughout; keep such a trace flat at the bottom.
    const double top = mx.empty() ? 0.0 : *std::max_element(mx.begin(), mx.end());
    p.yRange(0, std::max(50.0, top * 1.08));
    p.add({"largest", kVermillion, mx, 0.5, 1, false, 1.4});
    p.add({"mean", kBlack, d.moveMean, 0.5, 1, false, 1.2});
    o << p.svg();
    return o.str();
}

std::string Report::deviceSection(const Device& d) const {
    std::ostringstream o;
    o << "<section class=\"device\" data-device=\"" << d.id << "\">\n<h2>Device " << d.id << "</h2>\n";
    o << ratePlots(d);
    for (const Strip& s : ecgStrips(d)) o << ecgStrip(d, s);
    if (!d.beatTimes.empty()) o << rrTachogram(d.id, d.beatTimes, d.beatRr, d.hr.size());
    o << waveformAndPosture(d);
    o << "</section>\n";
    return o.str();
}

std::string Report::html() const {
    std::ostringstream o;
    o << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" << escape(title_)
      << "</title>\n<style>\n"
      << "body{font-family:sans-serif;margin:16px;color:#222;background:#f4f4f4}\n"
      << "section{background:#fff;border:1px solid #ccc;margin:12px 0;padding:8px 12px}\n"
      << "svg.plot{display:block;margin:6px 0;width:100%;height:auto}\n"
      << "td.not-in-recording{color:#777;font-style:italic}\n"
      << "svg .t{font:bold 14px sans-serif} svg .l{font:12px sans-serif} svg .a{font:11px sans-serif;fill:#555}\n"
      << "svg .n{font:14px sans-serif;fill:#777} svg .g{stroke:#e4e4e4;stroke-width:1}\n"
      << "svg .f{fill:none;stroke:#888;stroke-width:1}\n"
      << "svg .ei{stroke:#f4cccc;stroke-width:0.5} svg .em{stroke:#e69999;stroke-width:1}\n"
      << "table.summary-table{border-collapse:collapse;background:#fff;margin:8px 0}\n"
      << "table.summary-table td,table.summary-table th{border:1px solid #ccc;padding:4px 8px;text-align:left;"
      << "font-size:13px}\n"
      << "pre{background:#fff;border:1px solid #ccc;padding:8px} .note{color:#b71c1c}\n"
      << "</style>\n</head>\n<body>\n<h1>" << escape(title_) << "</h1>\n";
    for (const std::string& n : notes_) o << "<p class=\"note\">" << escape(n) << "</p>\n";
    if (!devices_.empty()) o << summaryTable();
    if (!summary_.empty()) {
        o << "<pre class=\"summary\">";
        for (const std::string& s : summary_) o << escape(s) << '\n';
        o << "</pre>\n";
    }
    if (devices_.empty()) o << "<p>No frames were analysed.</p>\n";
    for (const Device& d : devices_) o << deviceSection(d);
    o << "</body>\n</html>\n";
    return o.str();
}

bool Report::write(const std::string& path, std::string& error) const { return writeWholeFile(path, html(), error); }

}  // namespace rtmtool
