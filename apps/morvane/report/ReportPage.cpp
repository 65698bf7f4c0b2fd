#include "report/ReportPage.h"

#include <algorithm>
#include <map>

#include "report/Charts.h"
#include "report/Html.h"
#include "report/ReportStyle.h"
#include "terminal/Table.h"

namespace halvern::morvane::client {

namespace {

constexpr std::size_t CONFUSED_PAIRS = 20;
constexpr std::size_t SMALL_MATRIX = 5;  // classes
constexpr std::size_t SHOWN_TEXT = 900;  // bytes
// The server cuts words here.
constexpr std::size_t LONGEST_WORD = 30;
constexpr std::string_view BETWEEN_WORDS = " \n\r\t,.!?:;\"";

std::string cell(const std::string& content) { return "<td>" + content + "</td>"; }

std::string number(std::uint64_t count) { return cell(countText(count)); }

std::string share(double part) { return escapeHtml(percent(part)); }

std::string tile(const char* name, const std::string& value, const char* explanation) {
    return std::string("<div title=\"") + explanation + "\"><dt>" + name + "</dt><dd>" + value +
           "</dd></div>\n";
}

std::string tiles(const Metrics& metrics) {
    std::string html = "<dl class=\"tiles\">\n";
    html += tile("Accuracy", share(metrics.accuracy), "Share of the texts that got their own class");
    html += tile("Macro F1", fixed(metrics.macroF1, 3), "Mean of the F1 of all classes");
    html += tile("Macro precision", fixed(metrics.macroPrecision, 3), "Mean of the precision of all classes");
    html += tile("Macro recall", fixed(metrics.macroRecall, 3), "Mean of the recall of all classes");
    if (metrics.textCoverage >= 0) {
        html += tile("Coverage", share(metrics.textCoverage),
                     "Mean share of a text&#39;s features that the classifier knows");
    }
    html += tile("Calibration error", fixed(metrics.expectedCalibrationError, 3),
                 "Expected calibration error: mean distance of confidence and accuracy");
    html += tile("Log loss", fixed(metrics.logLoss, 3), "Mean of -ln of the probability of the actual class");
    html += tile("Brier score", fixed(metrics.brierScore, 3),
                 "Mean squared error of the probabilities, summed over the classes: 0 to 2");
    return html + "</dl>\n";
}

std::string confusedPairs(const Metrics& metrics) {
    std::string html =
        "<div class=\"panel scroll\" tabindex=\"0\"><table><caption>Most confused pairs</caption><thead><tr>"
        "<th scope=\"col\">Actual</th><th scope=\"col\" class=\"left\">Predicted</th><th "
        "scope=\"col\">Texts</th>"
        "<th scope=\"col\">Of actual</th></tr></thead><tbody>\n";
    for (const Confusion& pair : metrics.mostConfused(CONFUSED_PAIRS)) {
        const ClassScore& actual = metrics.classes[pair.actual];
        html += "<tr><th scope=\"row\">" + escapeHtml(actual.name) + "</th><td class=\"left\">" +
                escapeHtml(metrics.classes[pair.predicted].name) + "</td>" + number(pair.count) +
                cell(share(static_cast<double>(pair.count) / static_cast<double>(actual.support))) +
                "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

std::string binTable(const Metrics& metrics) {
    std::string html =
        "<div class=\"panel scroll\" tabindex=\"0\"><table><caption>Reliability in "
        "figures</caption><thead><tr>"
        "<th scope=\"col\">Confidence</th><th scope=\"col\">Texts</th><th scope=\"col\">Mean</th>"
        "<th scope=\"col\">Right</th></tr></thead><tbody>\n";
    for (const ReliabilityBin& bin : metrics.bins) {
        if (bin.count > 0) {
            html += "<tr><th scope=\"row\">" + fixed(bin.lower * 100, 1) + " to " +
                    fixed(bin.upper * 100, 1) + " %" + "</th>" + number(bin.count) +
                    cell(share(bin.confidence)) + cell(share(bin.accuracy)) + "</tr>\n";
        }
    }
    return html + "</tbody></table></div>\n";
}

std::string classTable(const Metrics& metrics) {
    std::vector<ClassScore> scores = metrics.classes;
    std::stable_sort(scores.begin(), scores.end(),
                     [](const ClassScore& a, const ClassScore& b) { return a.f1 < b.f1; });
    std::string html =
        "<div class=\"panel scroll\" tabindex=\"0\"><table><caption>Weakest first</caption><thead><tr><th "
        "scope=\"col\">Class</th>"
        "<th scope=\"col\">Texts</th><th scope=\"col\">Predicted</th><th scope=\"col\">Precision</th>"
        "<th scope=\"col\">Recall</th><th scope=\"col\">F1</th></tr></thead><tbody>\n";
    for (const ClassScore& score : scores) {
        html += "<tr><th scope=\"row\">" + escapeHtml(score.name) + "</th>" + number(score.support) +
                number(score.predicted) + cell(fixed(score.precision, 3)) + cell(fixed(score.recall, 3)) +
                "<td>" + fixed(score.f1, 3) +
                "<meter aria-hidden=\"true\" min=\"0\" low=\"0.5\" high=\"0.8\" optimum=\"1\" max=\"1\" "
                "value=\"" +
                fixed(score.f1, 3) + "\"></meter></td></tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

const char* styleOf(const std::string& className, const Outcome& outcome) {
    return className == outcome.predicted ? " wrong" : className == outcome.actual ? " right" : "";
}

// The server's words are in lower case as far as ASCII goes, and cut.
std::string wordKey(std::string_view word) {
    std::string key(word.substr(0, LONGEST_WORD));
    std::transform(key.begin(), key.end(), key.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return key;
}

// The text with its speaking words marked for the class that they speak for.
std::string markedText(const Mistake& mistake) {
    std::map<std::string, std::string> styles;
    for (const SpeakingWord& word : mistake.words) {
        styles.emplace(wordKey(word.word), styleOf(word.className, mistake.outcome));
    }
    const std::string text = shorten(mistake.text, SHOWN_TEXT);
    std::string html;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t start = std::min(text.find_first_not_of(BETWEEN_WORDS, at), text.size());
        const std::size_t end = std::min(text.find_first_of(BETWEEN_WORDS, start), text.size());
        const std::string word = text.substr(start, end - start);
        html += escapeHtml(text.substr(at, start - at));
        const auto style = styles.find(wordKey(word));
        html += style == styles.end() || word.empty()
                    ? escapeHtml(word)
                    : "<mark class=\"" + style->second + "\">" + escapeHtml(word) + "</mark>";
        at = end;
    }
    return html;
}

std::string mistakeItem(const Mistake& mistake) {
    const Outcome& outcome = mistake.outcome;
    std::string html = "<li class=\"panel\"><p class=\"head\"><span>Predicted <strong class=\"wrong\">" +
                       escapeHtml(outcome.predicted) + "</strong> with " + share(outcome.confidence) +
                       "</span><span>actually <strong class=\"right\">" + escapeHtml(outcome.actual) +
                       "</strong>, given " + share(outcome.actualPart) + "</span><span class=\"soft\">" +
                       escapeHtml(mistake.place) + "</span></p>\n<p class=\"text\" dir=\"auto\">" +
                       markedText(mistake) + "</p>\n<ul class=\"chips\">\n";
    for (const SpeakingWord& word : mistake.words) {
        html += std::string("<li class=\"chip") + styleOf(word.className, outcome) + "\"><bdi>" +
                escapeHtml(word.word) + "</bdi> \xe2\x86\x92 <bdi>" + escapeHtml(word.className) + "</bdi> " +
                share(word.probability) + "</li>\n";
    }
    if (mistake.words.empty()) {
        html += "<li class=\"soft\">No single word speaks for a class.</li>\n";
    }
    return html + "</ul></li>\n";
}

std::string section(const char* heading, const char* words, const std::string& content) {
    return std::string("<section>\n<h2>") + heading + "</h2>\n<p class=\"soft\">" + words + "</p>\n" +
           content + "</section>\n";
}

}  // namespace

std::string reportPage(const Report& report) {
    const Metrics& metrics = report.metrics;
    const std::string title = escapeHtml(report.classifier) + " on " + escapeHtml(report.input);
    std::string html =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src "
        "'unsafe-inline'\">\n"
        "<title>" +
        title + "</title>\n<style>" + REPORT_STYLE + "</style>\n</head>\n<body>\n<main>\n<h1>" + title +
        "</h1>\n<p class=\"soft\">" + countText(metrics.texts) + " texts, " +
        countText(metrics.classes.size()) + " classes</p>\n" + tiles(metrics);
    const bool isCut = metrics.classes.size() > MATRIX_LIMIT;
    // A small matrix leaves room beside it.
    const std::string matrix = "<div class=\"panel wide\">" + matrixChart(metrics) + "</div>";
    const std::string pairs = confusedPairs(metrics);
    const bool isSmall = metrics.classes.size() <= SMALL_MATRIX;
    html += section(
        "Confusion",
        isCut ? "The classes that are mistaken most often. Each row is an actual class, each column a "
                "predicted one; blue is right, orange is wrong, and a stronger colour is a larger share "
                "of its row."
              : "Each row is an actual class, each column a predicted one; blue is right, orange is "
                "wrong, and a stronger colour is a larger share of its row.",
        isSmall ? "<div class=\"beside\">" + matrix + pairs + "</div>\n"
                : matrix + "\n<div class=\"gap\"></div>" + pairs);
    html += section(
        "Classes",
        "Precision is the share of what was put into a class that belongs there, recall the share of the "
        "class that got there, and F1 their harmonic mean.",
        classTable(metrics));
    html += section(
        "Calibration",
        "How often the server is right when it is so sure. A curve below the dashed line says that it is "
        "too sure of itself; the bars at the bottom tell how many texts stand behind each point.",
        "<div class=\"beside\"><div class=\"panel\">" + reliabilityChart(metrics) + "</div>" +
            binTable(metrics) + "</div>\n");
    if (!report.mistakes.empty()) {
        std::string items = "<ol class=\"mistakes\">\n";
        for (const Mistake& mistake : report.mistakes) {
            items += mistakeItem(mistake);
        }
        html += section("Most confident mistakes",
                        "Look here for wrong labels and for words that mislead: orange words speak for the "
                        "predicted class, blue ones for the actual class.",
                        items + "</ol>\n");
    }
    return html + "</main>\n</body>\n</html>\n";
}

}  // namespace halvern::morvane::client
