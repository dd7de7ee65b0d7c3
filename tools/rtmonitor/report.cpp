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
#include <cerrno>
#include <cstring>

#include "host.h"

namespace rtmtool {

const char* const kReportSeries[6] = {"heart-rate", "breath-rate", "ecg", "respiration", "posture", "movement"};

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kWidth = 1000;
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

struct Series {
    std::string name, color;
    std::vector<double> y;  // sample k at x = x0 + k * dx
    double x0 = 0, dx = 1;
    bool dashed = false;
    double width = 1.5;
};

class Plot {
public:
    Plot(std::string series, int32_t device, std::string title, std::string xLabel, int height)
        : series_(std::move(series)), device_(device), title_(std::move(title)), xLabel_(std::move(xLabel)),
          height_(height) {}

    void add(Series s) { lines_.push_back(std::move(s)); }
    void xRange(double a, double b) { x0_ = a, x1_ = b; }
    void yRange(double a, double b) { y0_ = a, y1_ = b, fixedY_ = true; }
    void note(std::string n) { note_ = std::move(n); }
    // Range shown when no series has a value, and the least span the axis covers otherwise.
    void emptyYRange(double a, double b) { emptyLo_ = a, emptyHi_ = b; }

    std::string svg() const {
        double y0 = y0_, y1 = y1_;
        if (!fixedY_) autoY(y0, y1);
        const double plotW = kWidth - kLeft - kRight, plotH = height_ - kTop - kBottom;
        auto px = [&](double x) { return kLeft + (x - x0_) / (x1_ - x0_) * plotW; };
        auto py = [&](double y) { return kTop + (1.0 - (y - y0) / (y1 - y0)) * plotH; };
        std::ostringstream o;
        o << "<svg class=\"plot\" data-device=\"" << device_ << "\" data-series=\"" << series_
          << "\" xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height_
          << "\" viewBox=\"0 0 " << kWidth << ' ' << height_ << "\">\n";
        o << "<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << height_ << "\" fill=\"#fff\"/>\n";
        o << "<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">" << escape(title_) << "</text>\n";
        // Legend, right-aligned in the title row.
        double lx = kWidth - kRight;
        for (auto it = lines_.rbegin(); it != lines_.rend(); ++it) {
            lx -= 8.0 * static_cast<double>(it->name.size()) + 34;
            o << "<line x1=\"" << fmt(lx) << "\" y1=\"14\" x2=\"" << fmt(lx + 20) << "\" y2=\"14\" stroke=\""
              << it->color << "\" stroke-width=\"2\"" << (it->dashed ? " stroke-dasharray=\"5,3\"" : "")
              << "/><text x=\"" << fmt(lx + 24) << "\" y=\"18\" class=\"l\">" << escape(it->name) << "</text>\n";
        }
        grid(o, y0, y1, px, py, plotH);
        for (const Series& s : lines_) polylines(o, s, px, py, y0, y1);
        if (!note_.empty())
            o << "<text x=\"" << kLeft + plotW / 2 << "\" y=\"" << kTop + plotH / 2
              << "\" class=\"n\" text-anchor=\"middle\">" << escape(note_) << "</text>\n";
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
        if (hi - lo < 1e-9) lo -= 1, hi += 1;
        const double pad = (hi - lo) * 0.06;
        lo -= pad, hi += pad;
    }

    template <class PX, class PY>
    void grid(std::ostringstream& o, double y0, double y1, PX px, PY py, double plotH) const {
        const double ys = niceStep(y1 - y0, 5);
        for (double v = std::ceil(y0 / ys) * ys; v <= y1 + 1e-9; v += ys) {
            o << "<line x1=\"" << kLeft << "\" x2=\"" << kWidth - kRight << "\" y1=\"" << fmt(py(v))
              << "\" y2=\"" << fmt(py(v)) << "\" class=\"g\"/><text x=\"" << kLeft - 6 << "\" y=\""
              << fmt(py(v) + 4) << "\" class=\"a\" text-anchor=\"end\">" << tickLabel(v, ys) << "</text>\n";
        }
        const double xs = niceStep(x1_ - x0_, 10);
        for (double v = std::ceil(x0_ / xs) * xs; v <= x1_ + 1e-9; v += xs) {
            o << "<line y1=\"" << kTop << "\" y2=\"" << fmt(kTop + plotH) << "\" x1=\"" << fmt(px(v))
              << "\" x2=\"" << fmt(px(v)) << "\" class=\"g\"/><text y=\"" << fmt(kTop + plotH + 16)
              << "\" x=\"" << fmt(px(v)) << "\" class=\"a\" text-anchor=\"middle\">" << tickLabel(v, xs)
              << "</text>\n";
        }
        o << "<rect x=\"" << kLeft << "\" y=\"" << kTop << "\" width=\"" << kWidth - kLeft - kRight
          << "\" height=\"" << fmt(plotH) << "\" class=\"f\"/>\n";
        o << "<text x=\"" << kWidth - kRight << "\" y=\"" << height_ - 2 << "\" class=\"a\" text-anchor=\"end\">"
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
        std::string line;
        int count = 0;
        auto flush = [&]() {
            if (count >= 1) {
                o << "<polyline fill=\"none\" stroke=\"" << s.color << "\" stroke-width=\"" << s.width << "\""
                  << (s.dashed ? " stroke-dasharray=\"5,3\"" : "") << " points=\"" << line << "\"/>\n";
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
            line += fmt(px(x)) + ',' + fmt(py(yc));
            ++count;
            if (count == 1) {
                // A lone point would not show as a polyline; give it a hair of length.
                line += ' ' + fmt(px(x) + 0.8) + ',' + fmt(py(yc));
            }
        }
        flush();
    }

    std::string series_;
    int32_t device_;
    std::string title_, xLabel_;
    int height_;
    std::vector<Series> lines_;
    double x0_ = 0, x1_ = 1, y0_ = 0, y1_ = 1;
    bool fixedY_ = false;
    double emptyLo_ = 0, emptyHi_ = 1;
    std::string note_;
};

const char* postureColor(int cls) {
    static const char* const colors[] = {"#d0d0d0", "#2e7d32", "#1565c0", "#6a1b9a", "#00897b",
                                         "#ef6c00", "#f9a825", "#c62828", "#4e342e", "#9e9e9e"};
    return cls >= 0 && cls <= 9 ? colors[cls] : "#000000";
}

// Posture as coloured runs of equal class: one band for the library, one for the truth if any.
std::string posturePlot(int32_t device, const std::vector<int32_t>& reported, const std::vector<int>* truth) {
    const int bands = truth ? 2 : 1;
    const int height = kTop + 34 * bands + kBottom + 26;
    const double plotW = kWidth - kLeft - kRight;
    const double n = std::max<double>(1.0, static_cast<double>(reported.size()));
    std::ostringstream o;
    o << "<svg class=\"plot\" data-device=\"" << device << "\" data-series=\"posture\" "
      << "xmlns=\"http://www.w3.org/2000/svg\" width=\"" << kWidth << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << kWidth << ' ' << height << "\">\n";
    o << "<rect x=\"0\" y=\"0\" width=\"" << kWidth << "\" height=\"" << height << "\" fill=\"#fff\"/>\n";
    o << "<text x=\"" << kLeft << "\" y=\"18\" class=\"t\">Posture class per second</text>\n";
    std::map<int, bool> seen;
    auto band = [&](const auto& v, int row, const char* label) {
        const double y = kTop + 34.0 * row;
        o << "<text x=\"" << kLeft - 6 << "\" y=\"" << fmt(y + 19) << "\" class=\"a\" text-anchor=\"end\">" << label
          << "</text>\n";
        size_t a = 0;
        while (a < v.size()) {
            size_t b = a;
            while (b < v.size() && v[b] == v[a]) ++b;
            const int cls = static_cast<int>(v[a]);
            seen[cls] = true;
            o << "<rect x=\"" << fmt(kLeft + plotW * static_cast<double>(a) / n) << "\" y=\"" << fmt(y)
              << "\" width=\"" << fmt(plotW * static_cast<double>(b - a) / n) << "\" height=\"28\" fill=\""
              << postureColor(cls) << "\"><title>" << a << "-" << b << " s: " << cls << " " << postureName(cls)
              << "</title></rect>\n";
            a = b;
        }
    };
    band(reported, 0, "library");
    if (truth) band(*truth, 1, "expected");
    const double axisY = kTop + 34.0 * bands;
    const double xs = niceStep(n, 10);
    for (double v = 0; v <= n + 1e-9; v += xs)
        o << "<text y=\"" << fmt(axisY + 12) << "\" x=\"" << fmt(kLeft + plotW * v / n)
          << "\" class=\"a\" text-anchor=\"middle\">" << tickLabel(v, xs) << "</text>\n";
    double lx = kLeft;
    for (const auto& [cls, unused] : seen) {
        (void)unused;
        const std::string label = std::to_string(cls) + " " + postureName(cls);
        o << "<rect x=\"" << fmt(lx) << "\" y=\"" << fmt(axisY + 22) << "\" width=\"12\" height=\"12\" fill=\""
          << postureColor(cls) << "\"/><text x=\"" << fmt(lx + 16) << "\" y=\"" << fmt(axisY + 32)
          << "\" class=\"l\">" << escape(label) << "</text>\n";
        lx += 30 + 7.5 * static_cast<double>(label.size());
    }
    o << "<text x=\"" << kWidth - kRight << "\" y=\"" << height - 2
      << "\" class=\"a\" text-anchor=\"end\">time (s)</text>\n";
    o << "</svg>\n";
    return o.str();
}

std::vector<double> rateSeries(const std::vector<int32_t>& v) {
    // 0 means "no rate"; leave a gap rather than a plunge to zero.
    std::vector<double> r(v.size());
    for (size_t i = 0; i < v.size(); ++i) r[i] = v[i] > 0 ? v[i] : kNaN;
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

}  // namespace

Report::Report(std::string title, int stretchStart) : title_(std::move(title)), stretchStart_(std::max(0, stretchStart)) {}

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

std::string Report::deviceSection(const Device& d) const {
    std::ostringstream o;
    const size_t n = d.hr.size();
    const double duration = static_cast<double>(n);
    o << "<section class=\"device\" data-device=\"" << d.id << "\">\n<h2>Device " << d.id << "</h2>\n";
    size_t q1 = 0, moving = 0;
    for (size_t i = 0; i < n; ++i) {
        q1 += d.quality[i] == 1;
        moving += d.posture[i] >= 6 && d.posture[i] <= 8;
    }
    auto rate = [](double m) { return m > 0 ? fmt(m) + " /min" : std::string("none"); };
    o << "<p class=\"facts\">" << n << " frames (" << fmt(duration / 60.0) << " min); median heart rate "
      << rate(median(d.hr)) << "; median breathing rate " << rate(median(d.br)) << "; heart quality 1 in "
      << q1 << " s; moving in " << moving << " s.</p>\n";

    {
        Plot p("heart-rate", d.id, "Heart rate (beats/min)", "time (s)", 240);
        p.xRange(0, std::max(1.0, duration));
        p.emptyYRange(0, 150);
        if (d.hasTruth) p.add({"generator truth", "#777", truthSeries(d.hrTrue), 0.5, 1, true, 1.5});
        p.add({"library", "#c62828", rateSeries(d.hr), 0.5, 1, false, 1.8});
        if (median(d.hr) == 0) p.note("no heart rate reported");
        o << p.svg();
    }
    {
        Plot p("breath-rate", d.id, "Breathing rate (breaths/min)", "time (s)", 240);
        p.xRange(0, std::max(1.0, duration));
        p.emptyYRange(0, 40);
        if (d.hasTruth) p.add({"generator truth", "#777", truthSeries(d.brTrue), 0.5, 1, true, 1.5});
        p.add({"library", "#1565c0", rateSeries(d.br), 0.5, 1, false, 1.8});
        if (median(d.br) == 0) p.note("no breathing rate reported");
        o << p.svg();
    }
    const double s0 = static_cast<double>(d.stretchFirst);
    {
        const size_t frames = std::min(d.stretch.size(), static_cast<size_t>(kEcgSeconds));
        Series in{"input", "#b0b0b0", {}, s0, 1.0 / 200, false, 1.0};
        Series outS{"display", "#c62828", {}, s0, 1.0 / 200, false, 1.2};
        bool anyOut = false;
        for (size_t f = 0; f < frames; ++f)
            for (int i = 0; i < 200; ++i) {
                in.y.push_back(d.stretch[f].ecgIn[static_cast<size_t>(i)]);
                outS.y.push_back(d.stretch[f].ecgOut[static_cast<size_t>(i)]);
                anyOut = anyOut || d.stretch[f].ecgOut[static_cast<size_t>(i)] != 0;
            }
        Plot p("ecg", d.id, "ECG (counts): input and the library's display waveform", "time (s)", 260);
        p.xRange(s0, s0 + std::max<double>(1.0, static_cast<double>(frames)));
        p.add(in);
        if (anyOut) p.add(outS);
        else p.note("no display waveform written");
        o << p.svg();
    }
    {
        Series c1{"channel 1 display", "#1565c0", {}, s0, 1.0 / 25, false, 1.4};
        Series c0{"channel 0 display", "#00897b", {}, s0, 1.0 / 25, false, 1.2};
        bool any = false;
        for (const StretchFrame& f : d.stretch)
            for (int i = 0; i < 25; ++i) {
                c1.y.push_back(f.disp1[static_cast<size_t>(i)]);
                c0.y.push_back(f.disp0[static_cast<size_t>(i)]);
                any = any || f.disp1[static_cast<size_t>(i)] != 0 || f.disp0[static_cast<size_t>(i)] != 0;
            }
        // The input on the display scale, for comparison: its range in the stretch maps to 0..1000.
        Series raw{"input channel 1, scaled", "#b0b0b0", {}, s0, 1.0 / 25, false, 1.0};
        double lo = 1e300, hi = -1e300;
        for (const StretchFrame& f : d.stretch)
            for (int32_t v : f.resp1In) lo = std::min<double>(lo, v), hi = std::max<double>(hi, v);
        for (const StretchFrame& f : d.stretch)
            for (int32_t v : f.resp1In) raw.y.push_back(hi > lo ? (v - lo) * 1000.0 / (hi - lo) : 500.0);
        Plot p("respiration", d.id, "Respiration display waveforms (0..1000)", "time (s)", 240);
        p.xRange(s0, s0 + std::max<double>(1.0, static_cast<double>(d.stretch.size())));
        p.yRange(-20, 1020);
        p.add(raw);
        p.add(c1);
        p.add(c0);
        if (!any) p.note("no display waveform written");
        o << p.svg();
    }
    o << posturePlot(d.id, d.posture, d.hasTruth ? &d.postureTrue : nullptr);
    {
        Plot p("movement", d.id, "Movement level per second (1..1023)", "time (s)", 220);
        p.xRange(0, std::max(1.0, duration));
        std::vector<double> mx(d.moveMax.begin(), d.moveMax.end());
        // A device at rest reads 1 throughout; keep such a trace flat at the bottom.
        const double top = mx.empty() ? 0.0 : *std::max_element(mx.begin(), mx.end());
        p.yRange(0, std::max(50.0, top * 1.08));
        p.add({"largest", "#ef6c00", mx, 0.5, 1, false, 1.4});
        p.add({"mean", "#4e342e", d.moveMean, 0.5, 1, false, 1.2});
        o << p.svg();
    }
    o << "</section>\n";
    return o.str();
}

std::string Report::html() const {
    std::ostringstream o;
    o << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>" << escape(title_)
      << "</title>\n<style>\n"
      << "body{font-family:sans-serif;margin:16px;color:#222;background:#f4f4f4}\n"
      << "section{background:#fff;border:1px solid #ccc;margin:12px 0;padding:8px 12px}\n"
      << "svg.plot{display:block;margin:6px 0}\n"
      << "svg .t{font:bold 14px sans-serif} svg .l{font:12px sans-serif} svg .a{font:11px sans-serif;fill:#555}\n"
      << "svg .n{font:14px sans-serif;fill:#999} svg .g{stroke:#e4e4e4;stroke-width:1}\n"
      << "svg .f{fill:none;stroke:#888;stroke-width:1}\n"
      << "pre{background:#fff;border:1px solid #ccc;padding:8px} .note{color:#b71c1c}\n"
      << "</style>\n</head>\n<body>\n<h1>" << escape(title_) << "</h1>\n";
    for (const std::string& n : notes_) o << "<p class=\"note\">" << escape(n) << "</p>\n";
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

bool Report::write(const std::string& path, std::string& error) const {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) {
        error = std::strerror(errno);
        return false;
    }
    const std::string text = html();
    const bool ok = std::fwrite(text.data(), 1, text.size(), f) == text.size();
    const bool closed = std::fclose(f) == 0;
    if (!ok || !closed) error = "write failed";
    return ok && closed;
}

}  // namespace rtmtool
