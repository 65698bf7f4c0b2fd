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

// Fails if these bytes aren't well-formed XML.
void expectWellFormed(const std::string& markup) {
    const windows::com::xml::Library library;
    windows::com::xml::Document document;
    EXPECT_NO_THROW(document.loadXml(markup)) << markup;
}

Report report() {
    Report report;
    report.classifier = "c";
    report.input = "test.tsv";
    report.metrics = measure({{"ham", "ham", 0.95, 0.95, 0.1, 0.5}, {"spam", "ham", 0.9, 0.1, 1.6, 0.5}}, 10);
    report.mistakes = {{"line 2",
                        "Win a PRIZE, see you",
                        {"spam", "ham", 0.9, 0.1, 1.6, 0.5},
                        {{"you", "ham", 0.9}, {"prize", "spam", 0.8}}}};
    return report;
}

TEST(HtmlTest, NothingInATextCanActOnThePage) {
    const std::pair<const char*, const char*> cases[] = {
        {"<b>&\"'", "&lt;b&gt;&amp;&quot;&#39;"},
        {"caf\xc3\xa9 \xf0\x9f\x98\x80", "caf\xc3\xa9 \xf0\x9f\x98\x80"},
        {"caf\xe9< \xe2\x82", "caf\xef\xbf\xbd&lt; \xef\xbf\xbd\xef\xbf\xbd"},
        {"a\x01\x7f\x1b[31m\n\t\xc2\x85", "a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd[31m\n\t\xef\xbf\xbd"},
    };
    for (const auto& [text, escaped] : cases) {
        EXPECT_EQ(escapeHtml(text), escaped);
    }
    for (std::size_t bytes = 0; bytes < 8; ++bytes) {
        EXPECT_THAT(escapeHtml(shorten("a\xc3\xa9\xf0\x9f\x98\x80z", bytes)), Not(HasSubstr("\xef\xbf\xbd")))
            << bytes;
    }
}

TEST(ReportPageTest, PageStandsAloneWhateverNamesAndTextsSay) {
    Report hostile = report();
    const std::string attack = "</title></svg><script>alert(1)</script>\" onload='x' &\x01";
    Mistake& mistake = hostile.mistakes[0];
    for (std::string* text :
         {&hostile.classifier, &hostile.input, &mistake.place, &mistake.text, &mistake.words[0].word,
          &mistake.words[1].className, &mistake.outcome.predicted}) {
        *text = attack;
    }
    hostile.metrics = measure({{attack, attack, 0.9, 0.9, 0, 0.5}, {attack, "b", 0.9, 0.1, 0, 0.5}}, 10);
    const std::string page = reportPage(hostile);
    for (const char* part :
         {"<script", "onload='", "</title></svg>", "\x01", "src=", "href=", "url(", "http://"}) {
        EXPECT_THAT(page, Not(HasSubstr(part)));
    }
    // All tags but those that HTML leaves open: if they are balanced with hostile words, no word became one.
    std::string body = page.substr(page.find("<body>"));
    body.resize(body.find("</html>"));
    expectWellFormed(body);
}

TEST(ReportPageTest, MistakeShowsWhichWordsSpeakForWhat) {
    const std::string page = reportPage(report());
    EXPECT_THAT(
        page, HasSubstr("Win a <mark class=\" right\">PRIZE</mark>, see <mark class=\" wrong\">you</mark>"));
    EXPECT_THAT(page, HasSubstr("<bdi>prize</bdi> \xe2\x86\x92 <bdi>spam</bdi> 80.0 %"));
}

TEST(ChartsTest, MatrixOfManyClassesKeepsThoseThatAreMistakenMostOften) {
    std::vector<Outcome> outcomes;
    for (int i = 0; i < 150; ++i) {
        const std::string name = "class" + std::to_string(i);
        outcomes.push_back({name, i % 3 == 0 ? "class0" : name, 0.5, 0.5, 0, 1});
    }
    const std::string svg = matrixChart(measure(outcomes, 10));
    expectWellFormed(svg);
    EXPECT_THAT(svg, HasSubstr(">class99<"));
    EXPECT_THAT(svg, Not(HasSubstr(">class98<")));
    EXPECT_THAT(svg, HasSubstr("\"><title>class3 as class0: 1 of 1 (100.0 %)</title>"));
    EXPECT_THAT(reliabilityChart(report().metrics),
                HasSubstr("<title>1 texts, confidence 95.0 %, right 100.0 %</title>"));
}

}  // namespace
}  // namespace halvern::morvane::client
