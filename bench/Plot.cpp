// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace {

constexpr char wireColour[] = "#4c78a8";
constexpr char deviceColour[] = "#e45756";
constexpr char driverColour[] = "#f2a900";

std::string Text(double value, int places) {
    char text[32];
    snprintf(text, sizeof text, "%.*f", places, value);
    return text;
}

/// An SVG under construction; coordinates are pixels from the upper left corner.
class Svg {
  public:
    Svg(int width, int height) {
        const std::string size = std::to_string(width) + "\" height=\"" + std::to_string(height);
        text_ = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + size + "\" viewBox=\"0 0 " +
                std::to_string(width) + " " + std::to_string(height) +
                "\" font-family=\"DejaVu Sans, Verdana, sans-serif\" font-size=\"13\">\n";
        Box(0, 0, width, height, "#ffffff");
    }
    void Box(double x, double y, double width, double height, const std::string& colour) {
        text_ += "<rect x=\"" + Text(x, 1) + "\" y=\"" + Text(y, 1) + "\" width=\"" +
                 Text(width, 1) + "\" height=\"" + Text(height, 1) + "\" fill=\"" + colour +
                 "\"/>\n";
    }
    void Line(double x1, double y1, double x2, double y2, const std::string& colour,
              double width = 1, const std::string& dashes = "none") {
        text_ += "<line x1=\"" + Text(x1, 1) + "\" y1=\"" + Text(y1, 1) + "\" x2=\"" + Text(x2, 1) +
                 "\" y2=\"" + Text(y2, 1) + "\" stroke=\"" + colour + "\" stroke-width=\"" +
                 Text(width, 1) + "\" stroke-dasharray=\"" + dashes + "\"/>\n";
    }
    void Dot(double x, double y, const std::string& colour) {
        text_ += "<circle cx=\"" + Text(x, 1) + "\" cy=\"" + Text(y, 1) + "\" r=\"4\" fill=\"" +
                 colour + "\"/>\n";
    }
    /// anchor: start, middle or end.
    void Write(double x, double y, const std::string& words, const std::string& anchor = "start",
               const std::string& style = "fill=\"#222222\"") {
        text_ += "<text x=\"" + Text(x, 1) + "\" y=\"" + Text(y, 1) + "\" text-anchor=\"" + anchor +
                 "\" " + style + ">" + words + "</text>\n";
    }
    void Title(double x, double y, const std::string& words) {
        Write(x, y, words, "start", "fill=\"#222222\" font-size=\"16\" font-weight=\"bold\"");
    }
    void Save(const std::string& path) const {
        std::ofstream out(path);
        out << text_ << "</svg>\n";
        out.close();
        if (!out) throw std::runtime_error("cannot write '" + path + "'");
    }

  private:
    std::string text_;
};

// --- one sale, a bar per frame -------------------------------------------------------------------

constexpr double barHeight = 20;
constexpr double barStep = 30;
constexpr double barLeft = 190;
constexpr double barRight = 790;

double Total(const FrameTimes& frame) {
    return frame.wire + frame.device + frame.driver;
}

void DrawLegend(Svg& svg, double y) {
    struct Key {
        const char* colour;
        const char* words;
        double x;
    };
    const Key keys[] = {{wireColour, "bytes on the wire", 190},
                        {deviceColour, "emulated register", 360},
                        {driverColour, "driver and its system", 540}};
    for (const Key& key : keys) {
        svg.Box(key.x, y - 11, 14, 14, key.colour);
        svg.Write(key.x + 20, y + 1, key.words);
    }
}

void DrawFrame(Svg& svg, const FrameTimes& frame, double y, double pixelsPerMs) {
    svg.Write(barLeft - 10, y + 15, frame.name + (frame.fromDriver ? " →" : " ←"), "end");
    double x = barLeft;
    const auto part = [&](double ms, const char* colour) {
        svg.Box(x, y, ms * pixelsPerMs, barHeight, colour);
        x += ms * pixelsPerMs;
    };
    part(frame.driver, driverColour);
    part(frame.device, deviceColour);
    part(frame.wire, wireColour);
    const double other = frame.driver + frame.device;
    svg.Write(x + 8, y + 15,
              Text(frame.wire, 2) + " ms wire + " + Text(other, 2) + " ms " +
                  (frame.fromDriver ? "driver" : "register"));
}

void DrawSale(Svg& svg, const SaleTimes& sale, double top, double pixelsPerMs) {
    double all = 0;
    double wire = 0;
    for (const FrameTimes& frame : sale.frames) {
        all += Total(frame);
        wire += frame.wire;
    }
    svg.Title(20, top,
              sale.family + " frames: " + Text(all, 1) + " ms, " + Text(100 * wire / all, 1) +
                  " % of them on the wire");
    double y = top + 14;
    for (const FrameTimes& frame : sale.frames) {
        DrawFrame(svg, frame, y, pixelsPerMs);
        y += barStep;
    }
}

void DrawSales(const std::vector<SaleTimes>& sales, const std::string& path) {
    double longest = 0;
    for (const SaleTimes& sale : sales) {
        for (const FrameTimes& frame : sale.frames) longest = std::max(longest, Total(frame));
    }
    constexpr double panel = 235;
    const double height = 70 + panel * static_cast<double>(sales.size());
    Svg svg(1020, static_cast<int>(height));
    svg.Write(20, 26,
              "One department sale at 19200 baud, frame by frame (→ to the register, ← from it)");
    DrawLegend(svg, 52);
    double top = 92;
    for (const SaleTimes& sale : sales) {
        DrawSale(svg, sale, top, (barRight - barLeft) / longest);
        top += panel;
    }
    svg.Save(path);
}

// --- cost against the size of the file -----------------------------------------------------------

struct Point {
    double x;
    double y;
};

struct Curve {
    std::string name;
    std::string colour;
    std::vector<Point> points;
    double nameShift = 0;  // down, where two names would meet
};

/// One diagram, the horizontal axis in powers of ten.
struct Axes {
    double left, top, width, height;
    double xFrom, xTo;  // exponents of ten
    double yFrom, yTo;
    bool logarithmic;  // the vertical axis: then yFrom and yTo are exponents of ten, too

    double X(double value) const {
        return left + (std::log10(value) - xFrom) / (xTo - xFrom) * width;
    }
    double Y(double value) const {
        const double place = logarithmic ? std::log10(value) : value;
        return top + height - (place - yFrom) / (yTo - yFrom) * height;
    }
};

std::string PowerOfTen(double exponent) {
    const double value = std::pow(10, exponent);
    return Text(value, exponent < 0 ? static_cast<int>(-exponent) : 0);
}

void DrawAxes(Svg& svg, const Axes& axes, const std::string& title, double yStep) {
    svg.Title(axes.left - 50, axes.top - 18, title);
    for (double x = axes.xFrom; x <= axes.xTo; ++x) {
        const double at = axes.X(std::pow(10, x));
        svg.Line(at, axes.top, at, axes.top + axes.height, "#e0e0e0");
        svg.Write(at, axes.top + axes.height + 20, PowerOfTen(x), "middle");
    }
    for (double y = axes.yFrom; y <= axes.yTo + yStep / 2; y += yStep) {
        const double at = axes.Y(axes.logarithmic ? std::pow(10, y) : y);
        svg.Line(axes.left, at, axes.left + axes.width, at, "#e0e0e0");
        svg.Write(axes.left - 8, at + 4, axes.logarithmic ? PowerOfTen(y) : Text(y, 0), "end");
    }
    svg.Write(axes.left + axes.width / 2, axes.top + axes.height + 42, "commands in the file",
              "middle");
}

/// Its name is to the right of its last point.
void DrawCurve(Svg& svg, const Axes& axes, const Curve& curve, const std::string& dashes = "none") {
    for (std::size_t i = 0; i < curve.points.size(); ++i) {
        const double x = axes.X(curve.points[i].x);
        const double y = axes.Y(curve.points[i].y);
        if (dashes == "none") svg.Dot(x, y, curve.colour);
        if (i == 0) continue;
        const Point& before = curve.points[i - 1];
        svg.Line(axes.X(before.x), axes.Y(before.y), x, y, curve.colour, 2, dashes);
    }
    if (curve.points.empty()) return;
    svg.Write(axes.left + axes.width + 10, axes.Y(curve.points.back().y) + 4 + curve.nameShift,
              curve.name, "start", "fill=\"" + curve.colour + "\"");
}

Curve PartCurve(const PartTimes& parts, const std::string& part, const std::string& name,
                const std::string& colour, double nameShift = 0) {
    Curve curve{name, colour, {}, nameShift};
    for (const auto& [key, ns] : parts) {
        if (!key.starts_with(part + "/")) continue;
        curve.points.push_back({std::stod(key.substr(part.size() + 1)), ns / 1000});
    }
    std::ranges::sort(curve.points, {}, &Point::x);
    return curve;
}

void DrawTimes(Svg& svg, const Pictures& pictures, double decades) {
    const Axes axes{90, 60, 430, 380, 1, decades, -1, 3, true};
    DrawAxes(svg, axes, "Processor time per command, µs", 1);
    Curve whole{"whole run, log on", "#222222", {}};
    for (const RunCost& run : pictures.runs)
        whole.points.push_back({static_cast<double>(run.commands), run.processorUsPerCommand});
    DrawCurve(svg, axes, whole);
    DrawCurve(svg, axes,
              PartCurve(pictures.parts, "ExecuteOcelot", "executing pass", deviceColour));
    DrawCurve(svg, axes, PartCurve(pictures.parts, "Check", "check pass", "#3a8a32", -7));
    DrawCurve(svg, axes, PartCurve(pictures.parts, "Read", "reading the file", wireColour, 7));
    DrawCurve(svg, axes, PartCurve(pictures.parts, "ReadPlain", "fgets and strtok", "#888888"));
}

void DrawMemory(Svg& svg, const std::vector<RunCost>& runs, double decades) {
    const Axes axes{760, 60, 330, 380, 1, decades, 0, 70, false};
    DrawAxes(svg, axes, "Peak resident memory, MB", 10);
    Curve peak{"measured", wireColour, {}};
    Curve limit{"limit", deviceColour, {}};
    constexpr double limitKbPerCommand = 0.6;
    for (const RunCost& run : runs) {
        const double commands = run.commands;
        peak.points.push_back({commands, static_cast<double>(run.peakKb) / 1024});
        limit.points.push_back(
            {commands, 8 + std::max(0.0, commands - 1000) * limitKbPerCommand / 1024});
    }
    DrawCurve(svg, axes, peak);
    DrawCurve(svg, axes, limit, "6 4");
}

void DrawSizes(const Pictures& pictures, const std::string& path) {
    const double decades = std::log10(pictures.runs.back().commands);
    Svg svg(1180, 510);
    DrawTimes(svg, pictures, decades);
    DrawMemory(svg, pictures.runs, decades);
    svg.Save(path);
}

}  // namespace

void Draw(const Pictures& pictures, const std::string& folder) {
    DrawSales(pictures.sales, folder + "/sale-time.svg");
    DrawSizes(pictures, folder + "/file-size.svg");
}
