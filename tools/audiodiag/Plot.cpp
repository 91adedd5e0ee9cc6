#include "Plot.h"

#include "libAudio/SignalAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <vector>

namespace audiodiag {

namespace {

constexpr double kWidth = 960, kHeight = 720;
constexpr double kLeft = 84, kRight = 930;
constexpr const char* kTrace = "#1f77b4";
constexpr const char* kMarker = "#d62728";

struct Panel {
    double left, top, right, bottom;
    double width() const { return right - left; }
    double height() const { return bottom - top; }
};

// printf into a std::string; numbers in the C locale, which SVG wants.
__attribute__((format(printf, 1, 2))) std::string printed(const char* pattern, ...) {
    char text[512];
    va_list args;
    va_start(args, pattern);
    std::vsnprintf(text, sizeof text, pattern, args);
    va_end(args);
    return text;
}

std::string escaped(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

// The tick spacing of 1, 2 or 5 times a power of ten that gives about `ticks` ticks.
double niceStep(double range, int ticks) {
    double raw = range / ticks;
    double decade = std::pow(10.0, std::floor(std::log10(raw)));
    for (double m : {1.0, 2.0, 5.0}) {
        if (m * decade >= raw) {
            return m * decade;
        }
    }
    return 10.0 * decade;
}

// The smallest 1, 2 or 5 times a power of ten at or above value (value > 0).
double niceCeiling(double value) {
    double decade = std::pow(10.0, std::floor(std::log10(value)));
    for (double m : {1.0, 2.0, 5.0, 10.0}) {
        if (m * decade >= value * (1 - 1e-9)) {
            return m * decade;
        }
    }
    return 10.0 * decade;
}

std::string number(double v) {
    if (std::fabs(v) < 1e-12) {
        v = 0; // no "-0"
    }
    return printed("%g", v);
}

void frame(std::string& svg, const Panel& p) {
    svg += printed("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" class=\"frame\"/>\n",
                   p.left, p.top, p.width(), p.height());
}

void hLine(std::string& svg, const Panel& p, double y, const char* cls) {
    svg += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"%s\"/>\n", p.left,
                   y, p.right, y, cls);
}

void vLine(std::string& svg, const Panel& p, double x, const char* cls) {
    svg += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"%s\"/>\n", x,
                   p.top, x, p.bottom, cls);
}

void text(std::string& svg, double x, double y, const char* cls, const char* anchor,
          const std::string& content) {
    svg +=
        printed("<text x=\"%.1f\" y=\"%.1f\" class=\"%s\" text-anchor=\"%s\">", x, y, cls, anchor) +
        escaped(content) + "</text>\n";
}

void axisTitles(std::string& svg, const Panel& p, const std::string& heading,
                const std::string& xTitle, const std::string& yTitle) {
    text(svg, p.left, p.top - 10, "heading", "start", heading);
    text(svg, (p.left + p.right) / 2, p.bottom + 38, "label", "middle", xTitle);
    double x = p.left - 58, y = (p.top + p.bottom) / 2;
    svg += printed("<text x=\"%.1f\" y=\"%.1f\" class=\"label\" text-anchor=\"middle\" "
                   "transform=\"rotate(-90 %.1f %.1f)\">",
                   x, y, x, y) +
           escaped(yTitle) + "</text>\n";
}

void notice(std::string& svg, const Panel& p, const std::string& message) {
    text(svg, (p.left + p.right) / 2, (p.top + p.bottom) / 2, "notice", "middle", message);
}

void waveformPanel(std::string& svg, const Panel& p, const std::vector<double>& samples,
                   double rate) {
    frame(svg, p);
    axisTitles(svg, p, "Waveform", "time (s)", "amplitude (full scale)");
    if (samples.empty() || rate <= 0) {
        notice(svg, p, "no samples to show");
        return;
    }
    const double seconds = samples.size() / rate;
    double peak = 0;
    for (double s : samples) {
        peak = std::max(peak, std::fabs(s));
    }
    // Scaled to the signal: a quiet recording still shows its shape; the axis says how quiet.
    const double range = peak > 0 ? std::min(niceCeiling(peak * 1.05), 1.0) : 1.0;
    auto xOf = [&](double t) {
        return p.left + p.width() * t / seconds;
    };
    auto yOf = [&](double v) {
        return p.top + p.height() * (range - v) / (2 * range);
    };

    double yStep = niceStep(2 * range, 4);
    for (double v = -range; v <= range + yStep * 1e-6; v += yStep) {
        hLine(svg, p, yOf(v), std::fabs(v) < yStep * 1e-6 ? "zero" : "grid");
        text(svg, p.left - 8, yOf(v) + 4, "tick", "end", number(v));
    }
    double tStep = niceStep(seconds, 8);
    for (double t = 0; t <= seconds + tStep * 1e-6; t += tStep) {
        vLine(svg, p, xOf(t), "grid");
        text(svg, xOf(t), p.bottom + 18, "tick", "middle", number(t));
    }

    const std::size_t columns = std::size_t(p.width());
    std::string points;
    if (samples.size() > 2 * columns) {
        // More samples than pixels: the band between each column's lowest and highest sample.
        std::vector<double> low(columns), high(columns);
        for (std::size_t c = 0; c < columns; ++c) {
            std::size_t from = c * samples.size() / columns;
            std::size_t to = std::max(from + 1, (c + 1) * samples.size() / columns);
            auto [lo, hi] = std::minmax_element(samples.begin() + from, samples.begin() + to);
            low[c] = *lo;
            high[c] = *hi;
        }
        for (std::size_t c = 0; c < columns; ++c) {
            points += printed("%.1f,%.1f ", p.left + c + 0.5, yOf(high[c]));
        }
        for (std::size_t c = columns; c-- > 0;) {
            points += printed("%.1f,%.1f ", p.left + c + 0.5, yOf(low[c]));
        }
        svg += "<polygon class=\"envelope\" points=\"" + points + "\"/>\n";
    } else {
        for (std::size_t i = 0; i < samples.size(); ++i) {
            points += printed("%.1f,%.1f ", xOf(i / rate), yOf(samples[i]));
        }
        svg += "<polyline class=\"trace\" points=\"" + points + "\"/>\n";
    }
}

std::string hertz(double f) {
    return f >= 1000 ? number(f / 1000) + "k" : number(f);
}

void spectrumPanel(std::string& svg, const Panel& p, const libAudio::Spectrum& spectrum,
                   double rate, double peakHz) {
    frame(svg, p);
    axisTitles(svg, p, "Magnitude spectrum", "frequency (Hz)", "level (dBFS)");
    const std::vector<double>& db = spectrum.magnitudeDb;
    if (db.size() < 2 || spectrum.binHz <= 0 || rate <= 0) {
        notice(svg, p, "no spectrum to show");
        return;
    }
    const double fMax = rate / 2, fMin = std::min(20.0, fMax / 10);
    const double span = std::log(fMax / fMin);
    auto xOf = [&](double f) {
        return p.left + p.width() * std::log(f / fMin) / span;
    };
    auto binOf = [&](double f) {
        return std::min(db.size() - 1, std::size_t(std::max(0.0, std::round(f / spectrum.binHz))));
    };

    // One value per pixel column: the loudest bin inside it, or the nearest bin where the
    // bins are wider than the pixels (the low end of a logarithmic axis).
    const std::size_t columns = std::size_t(p.width());
    std::vector<double> column(columns);
    for (std::size_t c = 0; c < columns; ++c) {
        double f0 = fMin * std::exp(span * c / columns),
               f1 = fMin * std::exp(span * (c + 1) / columns);
        std::size_t first = std::size_t(std::ceil(f0 / spectrum.binHz));
        std::size_t last = std::min(db.size() - 1, std::size_t(std::floor(f1 / spectrum.binHz)));
        if (first > last) {
            column[c] = db[binOf(std::sqrt(f0 * f1))];
        } else {
            column[c] = *std::max_element(db.begin() + first, db.begin() + last + 1);
        }
    }
    // The floor sits below most of the noise; the top at 0 dBFS unless something exceeds it.
    std::vector<double> sorted = column;
    std::sort(sorted.begin(), sorted.end());
    double loud = sorted.back(), quiet = sorted[sorted.size() / 10];
    double top = std::max(0.0, 10 * std::ceil(loud / 10));
    double bottom =
        std::clamp(20 * std::floor((quiet - 10) / 20), libAudio::kSilenceDbfs, top - 40);
    auto yOf = [&](double v) {
        return p.top + p.height() * (top - std::clamp(v, bottom, top)) / (top - bottom);
    };

    double dbStep = niceStep(top - bottom, 6);
    for (double v = top; v >= bottom - dbStep * 1e-6; v -= dbStep) {
        hLine(svg, p, yOf(v), "grid");
        text(svg, p.left - 8, yOf(v) + 4, "tick", "end", number(v));
    }
    for (double decade = std::pow(10.0, std::floor(std::log10(fMin))); decade <= fMax;
         decade *= 10) {
        for (int m = 1; m < 10; ++m) {
            double f = m * decade;
            if (f < fMin * (1 - 1e-9) || f > fMax * (1 + 1e-9)) {
                continue;
            }
            bool labelled = m == 1 || m == 2 || m == 5;
            vLine(svg, p, xOf(f), labelled ? "grid" : "minor");
            if (labelled) {
                text(svg, xOf(f), p.bottom + 18, "tick", "middle", hertz(f));
            }
        }
    }

    std::string points;
    for (std::size_t c = 0; c < columns; ++c) {
        points += printed("%.1f,%.1f ", p.left + c + 0.5, yOf(column[c]));
    }
    svg += "<polyline class=\"trace\" points=\"" + points + "\"/>\n";

    if (peakHz <= 0) {
        notice(svg, p, "no tone found");
        return;
    }
    if (peakHz < fMin || peakHz > fMax) {
        return;
    }
    double x = xOf(peakHz), level = db[binOf(peakHz)];
    svg += printed("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"marker\"/>\n", x,
                   p.top, x, p.bottom);
    svg +=
        printed("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4\" fill=\"%s\"/>\n", x, yOf(level), kMarker);
    bool rightHalf = x > (p.left + p.right) / 2;
    text(svg, x + (rightHalf ? -8 : 8), p.top + 20, "peak", rightHalf ? "end" : "start",
         printed("peak %.1f Hz, %.1f dBFS", peakHz, level));
}

} // namespace

std::string plotSvg(const libAudio::StaticPCMBuffer& recording, const PlotRequest& request) {
    const double rate = recording.format().Format.nSamplesPerSec;
    std::string svg = printed("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" "
                              "height=\"%g\" viewBox=\"0 0 %g %g\">\n",
                              kWidth, kHeight, kWidth, kHeight);
    svg += "<style>\n"
           "text { font-family: 'DejaVu Sans', Helvetica, Arial, sans-serif; fill: #222; }\n"
           ".title { font-size: 20px; font-weight: bold; }\n"
           ".subtitle { font-size: 13px; fill: #555; }\n"
           ".heading { font-size: 14px; font-weight: bold; }\n"
           ".label { font-size: 13px; }\n"
           ".tick { font-size: 11px; fill: #444; }\n"
           ".notice { font-size: 16px; fill: #888; }\n"
           ".peak { font-size: 13px; font-weight: bold; fill: " +
           std::string(kMarker) +
           "; }\n"
           ".frame { fill: none; stroke: #555; stroke-width: 1; }\n"
           ".grid { stroke: #dcdcdc; stroke-width: 1; }\n"
           ".minor { stroke: #efefef; stroke-width: 1; }\n"
           ".zero { stroke: #aaa; stroke-width: 1; }\n"
           ".trace { fill: none; stroke: " +
           kTrace +
           "; stroke-width: 1.2; stroke-linejoin: round; }\n"
           ".envelope { fill: " +
           kTrace + "; fill-opacity: 0.8; stroke: " + kTrace +
           "; stroke-width: 0.5; }\n"
           ".marker { stroke: " +
           kMarker + "; stroke-width: 1.2; stroke-dasharray: 5 4; }\n</style>\n";
    svg += printed("<rect width=\"%g\" height=\"%g\" fill=\"white\"/>\n", kWidth, kHeight);
    text(svg, kLeft, 36, "title", "start", request.title);
    if (!request.subtitle.empty()) {
        text(svg, kLeft, 58, "subtitle", "start", request.subtitle);
    }
    waveformPanel(svg, {kLeft, 100, kRight, 330},
                  libAudio::channelSamples(recording, request.channel), rate);
    spectrumPanel(svg, {kLeft, 420, kRight, 650},
                  libAudio::magnitudeSpectrum(recording, request.channel), rate,
                  libAudio::dominantFrequency(recording, request.channel));
    svg += "</svg>\n";
    return svg;
}

bool writePlot(const std::string& path, const libAudio::StaticPCMBuffer& recording,
               const PlotRequest& request, std::string& why) {
    std::ofstream out(path, std::ios::binary);
    if (!out) {
        why = "cannot write " + path;
        return false;
    }
    out << plotSvg(recording, request);
    out.close();
    if (!out) {
        why = "cannot write " + path;
        return false;
    }
    return true;
}

} // namespace audiodiag
