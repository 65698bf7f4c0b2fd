#include "report/ReportPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/Charts.h"
#include "report/Html.h"
#include "support/Xml.h"

namespace halvern::morvane::client {
namespace {

using testing::HasSubstr;
using testing::Not;

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// The problem that an XML parser has with it, if any.
std::string problemOf(const std::string& markup) {
    try {
        const windows::com::xml::Library library;
        windows::com::xml::Document document;
        document.loadXml(markup);
        return "";
    } catch (const exceptions::Exception& e) {
        return e.what();
    }
}

Report report() {
    Report report;
    report.classifier = "c";
    report.input = "test.tsv";
    report.metrics = measure({{"ham", "ham", 0.95, 0.95, 0.1, 0.5}, {"spam", "ham", 0.9, 0.1, 1.6, 0.5}}, 10);
    Mistake mistake;
    mistake.place = "line 2";
    mistake.text = "Win a PRIZE, see you";
    mistake.outcome = {"spam", "ham", 0.9, 0.1, 1.6, 0.5};
    mistake.words = {{"you", "ham", 0.9}, {"prize", "spam", 0.8}};
    report.mistakes = {mistake};
    return report;
}

TEST(HtmlTest, NothingInATextCanActOnThePage) {
    const std::pair<const char*, const char*> cases[] = {
        {"<b>&\"'", "&lt;b&gt;&amp;&quot;&#39;"},
        {"caf\xc3\xa9 \xf0\x9f\x98\x80", "caf\xc3\xa9 \xf0\x9f\x98\x80"},
        {"caf\xe9<", "caf\xef\xbf\xbd&lt;"},
        {"\xe2\x82", "\xef\xbf\xbd\xef\xbf\xbd"},
        {"a\x01\x7f\x1b[31m\n\t", "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd[31m\n\t"},
        {"\xc2\x85", "\xef\xbf\xbd"},
    };
    for (const auto& [text, escaped] : cases) {
        EXPECT_EQ(escapeHtml(text), escaped);
    }
    for (std::size_t bytes = 0; bytes < 8; ++bytes) {
        EXPECT_TRUE(shorten("a\xc3\xa9\xf0\x9f\x98\x80z", bytes).ends_with("\xe2\x80\xa6")) << bytes;
        EXPECT_THAT(escapeHtml(shorten("a\xc3\xa9\xf0\x9f\x98\x80z", bytes)), Not(HasSubstr("\xef\xbf\xbd")))
            << bytes;
    }
    const std::pair<double, const char*> parts[] = {
        {0, "0.0 %"}, {1, "100.0 %"}, {0.9999, "> 99.9 %"}, {0.0001, "< 0.1 %"}, {0.1234, "12.3 %"}};
    for (const auto& [part, text] : parts) {
        EXPECT_EQ(percent(part), text);
    }
}

TEST(ReportPageTest, PageStandsAloneWhateverNamesAndTextsSay) {
    const std::string plain = reportPage(report());
    Report hostile = report();
    const std::string attack = "</title></svg><script>alert(1)</script>\" onload='x' &\x01";
    hostile.classifier = hostile.input = hostile.mistakes[0].place = attack;
    hostile.mistakes[0].text = attack;
    hostile.mistakes[0].words[0].word = attack;
    hostile.mistakes[0].words[1].className = attack;
    hostile.mistakes[0].outcome.predicted = attack;
    hostile.metrics = measure({{attack, attack, 0.9, 0.9, 0, 0.5}, {attack, "b", 0.9, 0.1, 0, 0.5}}, 10);
    const std::string page = reportPage(hostile);
    for (const char* part :
         {"<script", "onload='", "</title></svg>", "\x01", "src=", "href=", "url(", "http://"}) {
        EXPECT_THAT(page, Not(HasSubstr(part)));
    }
    // All tags but those that HTML leaves open: if they are balanced with hostile words, no word became one.
    std::string body = page.substr(page.find("<body>"));
    body.resize(body.find("</html>"));
    EXPECT_EQ(problemOf(body), "");
    EXPECT_EQ(countOf(page, "<li class=\"panel\">"), countOf(plain, "<li class=\"panel\">"));
}

TEST(ReportPageTest, MistakeShowsWhichWordsSpeakForWhat) {
    const std::string page = reportPage(report());
    EXPECT_THAT(
        page, HasSubstr("Win a <mark class=\" right\">PRIZE</mark>, see <mark class=\" wrong\">you</mark>"));
    EXPECT_THAT(page, HasSubstr("<bdi>prize</bdi> \xe2\x86\x92 <bdi>spam</bdi> 80.0 %"));
    Report blind = report();
    blind.mistakes[0].words.clear();
    EXPECT_THAT(reportPage(blind), HasSubstr("No single word speaks"));
    blind.mistakes.clear();
    EXPECT_THAT(reportPage(blind), Not(HasSubstr("<h2>Most confident mistakes")));
}

TEST(ChartsTest, MatrixOfManyClassesKeepsThoseThatAreMistakenMostOften) {
    std::vector<Outcome> outcomes;
    for (int i = 0; i < 150; ++i) {
        const std::string name = "class" + std::to_string(i);
        outcomes.push_back({name, i % 3 == 0 ? "class0" : name, 0.5, 0.5, 0, 1});
    }
    const std::string svg = matrixChart(measure(outcomes, 10));
    EXPECT_EQ(problemOf(svg), "");
    EXPECT_NE(svg.find(">class99<"), std::string::npos);
    EXPECT_EQ(svg.find(">class98<"), std::string::npos);
    // Each class twice, once at each side.
    EXPECT_EQ(countOf(svg, "<text"), 2 * MATRIX_LIMIT + 2);
    EXPECT_EQ(problemOf(matrixChart(measure({{"a", "a", 1, 1, 0, 1}}, 10))), "");
}

TEST(ChartsTest, ReliabilityShowsOnlyBinsThatHoldTexts) {
    const std::string svg = reliabilityChart(report().metrics);
    EXPECT_EQ(problemOf(svg), "");
    EXPECT_EQ(countOf(svg, "<circle"), 2u);
    EXPECT_THAT(svg, HasSubstr("1 texts, confidence 95.0 %, right 100.0 %"));
}

}  // namespace
}  // namespace halvern::morvane::client
