#include "server/RequestWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/ClientRun.h"
#include "support/Xml.h"
#include "util/Base64.h"

namespace halvern::morvane::client {
namespace {

using support::clientFailureOf;
using testing::HasSubstr;

TEST(RequestWriterTest, WhateverTheNamesAndTextsTheRequestIsValidAndSaysThem) {
    const support::LoadedSchema schema(MORVANE_SCHEMAS "/server/RequestSchema.xsd");
    const std::string odd = "r\xC3\xA4\xC2\x9F & ' {1}";  // a C1 character, an ampersand
    const std::string oddClass = odd + " <\"/\\:*>";
    const std::string old = oddClass + "\xE4";  // no UTF-8: not for new names, but there may be such
    std::string bytes;
    for (int byte = 0; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    RequestWriter request(odd);
    request.setMaxSize(4096);
    const std::string text = request.addText(bytes);
    const std::string empty = request.addText("");
    request.classify(odd, text);
    request.classifyKeywords("other", empty);
    request.getInformation(std::string(128, 'n'));
    request.create();
    request.remove();
    request.addClass(oddClass);
    request.removeClass(std::string(256, 'c'));
    request.train(old, text);
    request.untrain(oddClass, empty);

    const std::string xml = request.document();
    EXPECT_EQ(schema.problemOf(xml), "");
    EXPECT_GE(request.size(), xml.size());
    windows::com::xml::Document document = schema.newDocument();
    document.loadXml(xml);
    util::Bytes decoded;
    util::Base64DecoderImpl().decode(document.getElement("//mv:textBase64[@id='1']").getText(), decoded);
    EXPECT_EQ(std::string(decoded.begin(), decoded.end()), bytes);
    EXPECT_EQ(document.getElement("//mv:writeCalls").getAttribute("classifierName"), odd);
    EXPECT_EQ(document.getElement("//mv:writeCalls").getAttribute("maxSize"), "4096");
    EXPECT_EQ(document.getElement("//mv:train").getAttribute("className"), old);
    EXPECT_EQ(document.getElement("//mv:untrain").getAttribute("textId"), empty);
}

TEST(RequestWriterTest, WhatTheSchemaWouldRefuseIsRefusedHereInWords) {
    using Names = std::vector<std::string>;
    for (const std::string& name : Names{"", "a\tb", "a\x7F", ".a", "a/b", "a\\b", "a:b", "a*", "a?", "a\"b",
                                         "<a", "a>", "a|b", std::string(129, 'n')}) {
        EXPECT_EQ(clientFailureOf([&] { RequestWriter().getInformation(name); }).code, ExitCode::USAGE)
            << name;
        EXPECT_EQ(clientFailureOf([&] { RequestWriter(name).create(); }).code, ExitCode::USAGE) << name;
    }
    for (const std::string& name :
         Names{"", "a\tb", "a\x7F", std::string(257, 'c'), "k\xff", "k\xef\xbf\xbf"}) {
        EXPECT_EQ(clientFailureOf([&] { RequestWriter("a").addClass(name); }).code, ExitCode::USAGE) << name;
    }
}

TEST(RequestWriterTest, ListsEndAtTheLengthThatTheServerTakes) {
    RequestWriter request("a");
    for (std::size_t i = 0; i < RequestWriter::MAX_ELEMENTS; ++i) {
        request.train("c", request.addText("x"));
    }
    const std::size_t before = request.size();
    for (const Failure& failure : {clientFailureOf([&] { request.addText("y"); }),
                                   clientFailureOf([&] { request.train("c", "1"); })}) {
        EXPECT_EQ(failure.code, ExitCode::USAGE);
        EXPECT_THAT(failure.message, HasSubstr("100000"));
    }
    EXPECT_EQ(request.size(), before);
    EXPECT_EQ(clientFailureOf([&] { request.getInformation("a"); }).code, ExitCode::DONE);
}

TEST(RequestWriterTest, ATrainingIsNeverLargerThanForetold) {
    for (const std::string& className : {std::string("c"), std::string(256, '&'), std::string(256, '"')}) {
        for (const std::size_t length : {0, 1, 2, 3, 1000}) {
            RequestWriter request("a");
            const std::size_t before = request.size();
            const std::string text(length, 't');
            request.train(className, request.addText(text));
            EXPECT_LE(request.size(), before + RequestWriter::sizeOfTraining(className, text));
        }
    }
}

}  // namespace
}  // namespace halvern::morvane::client
