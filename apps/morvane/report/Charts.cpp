#include "report/Charts.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "report/Html.h"

namespace halvern::morvane::client {

namespace {

std::string attribute(const char* name, double value) {
    std::string number = fixed(value, 1);
    if (number.ends_with(".0")) {
        number.resize(number.size() - 2);
    }
    return std::string(" ") + name + "=\"" + number + "\"";
}

std::string rectangle(double x, double y, double width, double height) {
    return "<rect" + attribute("x", x) + attribute("y", y) + attribute("width", width) +
           attribute("height", height);
}

std::string line(const char* style, double x1, double y1, double x2, double y2) {
    return std::string("<line class=\"") + style + "\"" + attribute("x1", x1) + attribute("y1", y1) +
           attribute("x2", x2) + attribute("y2", y2) + "/>\n";
}

std::string label(double x, double y, const char* anchor, const std::string& text,
                  const std::string& more = "") {
    return "<text" + attribute("x", x) + attribute("y", y) + " text-anchor=\"" + anchor + "\"" + more + ">" +
           escapeHtml(text) + "</text>\n";
}

std::string beginSvg(double width, double height, const char* id, const std::string& title,
                     const std::string& description) {
    return "<svg viewBox=\"0 0 " + fixed(width, 0) + " " + fixed(height, 0) +
           "\" style=\"width:" + fixed(width, 0) + "px\" role=\"img\" aria-labelledby=\"" + id + "-t " + id +
           "-d\">\n<title id=\"" + id + "-t\">" + escapeHtml(title) + "</title>\n<desc id=\"" + id + "-d\">" +
           escapeHtml(description) + "</desc>\n";
}

// In the order of the classes.
std::vector<std::size_t> shownClasses(const Metrics& metrics) {
    std::vector<std::size_t> shown(metrics.classes.size());
    std::iota(shown.begin(), shown.end(), std::size_t{0});
    if (shown.size() > MATRIX_LIMIT) {
        const auto mistakes = [&metrics](std::size_t i) {
            const ClassScore& score = metrics.classes[i];
            return score.support + score.predicted - 2 * score.hits;
        };
        std::stable_sort(shown.begin(), shown.end(),
                         [&](std::size_t a, std::size_t b) { return mistakes(a) > mistakes(b); });
        shown.resize(MATRIX_LIMIT);
        std::sort(shown.begin(), shown.end());
    }
    return shown;
}

}  // namespace

std::string matrixChart(const Metrics& metrics) {
    const std::vector<std::size_t> shown = shownClasses(metrics);
    const double count = static_cast<double>(shown.size());
    const bool hasNumbers = shown.size() <= 20;
    const double cell = hasNumbers ? std::clamp(560 / std::max(count, 1.0), 34.0, 84.0) : 11;
    const double font = hasNumbers ? 13 : 9;
    std::size_t longest = 4;
    for (const std::size_t i : shown) {
        longest = std::max(longest, std::min<std::size_t>(metrics.classes[i].name.size(), 44));
    }
    const double names = static_cast<double>(longest) * font * 0.6 + 14;
    const double side = count * cell;
    // Names above the columns stand upright if they fit there.
    const bool isUpright = static_cast<double>(longest) * font * 0.62 < cell;
    const double left = names + 20;
    const double top = (isUpright ? 24 : names) + 20;

    std::string svg = beginSvg(
        left + side + 8, top + side + 8, "matrix", "Confusion matrix",
        "Rows are the actual classes, columns the predicted ones. The diagonal holds " +
            percent(metrics.accuracy) + " of all texts. The table of confused pairs tells the rest.");
    svg += "<g class=\"names\" font-size=\"" + fixed(font, 0) + "\">\n";
    svg += label(left + side / 2, 14, "middle", "predicted", " class=\"axis\"");
    svg += label(0, 0, "middle", "actual",
                 " class=\"axis\" transform=\"translate(14 " + fixed(top + side / 2, 0) + ") rotate(-90)\"");
    for (std::size_t i = 0; i < shown.size(); ++i) {
        const std::string name = shorten(metrics.classes[shown[i]].name, 44);
        const double middle = (static_cast<double>(i) + 0.5) * cell;
        svg += label(left - 6, top + middle + font * 0.35, "end", name);
        svg += isUpright ? label(left + middle, top - 8, "middle", name)
                         : label(0, 0, "start", name,
                                 " transform=\"translate(" + fixed(left + middle + font * 0.35, 1) + " " +
                                     fixed(top - 6, 1) + ") rotate(-90)\"");
    }
    svg += "</g>\n" + rectangle(left, top, side, side) + " class=\"ground\"/>\n<g font-size=\"13\">\n";
    for (std::size_t row = 0; row < shown.size(); ++row) {
        const ClassScore& actual = metrics.classes[shown[row]];
        for (std::size_t column = 0; column < shown.size(); ++column) {
            const std::uint64_t texts = metrics.matrix[shown[row]][shown[column]];
            if (texts == 0) {
                continue;
            }
            const double share = static_cast<double>(texts) / static_cast<double>(actual.support);
            // The root lifts the rare mistakes out of the ground, for which one looks here.
            const double strength = 0.12 + 0.88 * std::sqrt(share);
            const double x = left + static_cast<double>(column) * cell;
            const double y = top + static_cast<double>(row) * cell;
            svg += rectangle(x + 0.5, y + 0.5, cell - 1, cell - 1) + " class=\"" +
                   (row == column ? "hit" : "miss") + "\" fill-opacity=\"" + fixed(strength, 2) +
                   "\"><title>" + escapeHtml(actual.name) + " as " +
                   escapeHtml(metrics.classes[shown[column]].name) + ": " + std::to_string(texts) + " of " +
                   std::to_string(actual.support) + " (" + percent(share) + ")</title></rect>\n";
            if (hasNumbers) {
                svg += label(x + cell / 2, y + cell / 2 + 4.5, "middle", std::to_string(texts),
                             strength > 0.7 ? " class=\"on\"" : "");
            }
        }
    }
    return svg + "</g>\n</svg>\n";
}

std::string reliabilityChart(const Metrics& metrics) {
    const double side = 360;
    const double left = 64;
    const double top = 12;
    const double bottom = top + side;
    const double countsTop = bottom + 26;
    const double countsHeight = 70;
    std::string svg =
        beginSvg(left + side + 28, countsTop + countsHeight + 58, "reliability", "Reliability",
                 "How often the server is right, over how sure it is. On the dashed line both agree. "
                 "The expected calibration error is " +
                     fixed(metrics.expectedCalibrationError, 3) + ". The table below holds the figures.");
    svg += "<g font-size=\"12\">\n";
    for (int tick = 0; tick <= 5; ++tick) {
        const double at = side * tick / 5;
        svg += line("grid", left, bottom - at, left + side, bottom - at);
        svg += label(left - 8, bottom - at + 4, "end", std::to_string(tick * 20) + " %");
        svg += label(left + at, countsTop + countsHeight + 18, "middle", std::to_string(tick * 20) + " %");
    }
    std::uint64_t most = 1;
    for (const ReliabilityBin& bin : metrics.bins) {
        most = std::max(most, bin.count);
    }
    std::string points;
    for (const ReliabilityBin& bin : metrics.bins) {
        if (bin.count == 0) {
            continue;
        }
        const double x = left + bin.lower * side;
        const double width = (bin.upper - bin.lower) * side;
        const std::string figures = "<title>" + std::to_string(bin.count) + " texts, confidence " +
                                    escapeHtml(percent(bin.confidence)) + ", right " +
                                    escapeHtml(percent(bin.accuracy)) + "</title></rect>\n";
        svg += rectangle(x + 1, bottom - bin.accuracy * side, width - 2, bin.accuracy * side) +
               " class=\"hit\" fill-opacity=\"0.3\">" + figures;
        // Few texts still show as a line.
        const double height =
            std::max(countsHeight * static_cast<double>(bin.count) / static_cast<double>(most), 1.5);
        svg += rectangle(x + 1, countsTop + countsHeight - height, width - 2, height) + " class=\"count\">" +
               figures;
        points += fixed(left + bin.confidence * side, 1) + "," + fixed(bottom - bin.accuracy * side, 1) + " ";
    }
    svg += line("ideal", left, bottom, left + side, top);
    svg += "<polyline class=\"curve\" points=\"" + points + "\"/>\n";
    for (const ReliabilityBin& bin : metrics.bins) {
        if (bin.count > 0) {
            svg += "<circle class=\"point\" r=\"4\"" + attribute("cx", left + bin.confidence * side) +
                   attribute("cy", bottom - bin.accuracy * side) + "/>\n";
        }
    }
    svg += label(left + side / 2, countsTop + countsHeight + 42, "middle", "confidence", " class=\"axis\"");
    svg += label(0, 0, "middle", "right",
                 " class=\"axis\" transform=\"translate(14 " + fixed(top + side / 2, 0) + ") rotate(-90)\"");
    svg += label(0, 0, "middle", "texts",
                 " class=\"axis\" transform=\"translate(14 " + fixed(countsTop + countsHeight / 2, 0) +
                     ") rotate(-90)\"");
    svg += label(left - 8, countsTop + 8, "end", std::to_string(most));
    return svg + "</g>\n</svg>\n";
}

}  // namespace halvern::morvane::client
