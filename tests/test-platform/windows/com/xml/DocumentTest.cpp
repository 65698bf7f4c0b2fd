#include "windows/com/xml/Document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/Failure.h"
#include "windows/com/xml/Library.h"
#include "windows/com/xml/XMLException.h"

namespace {

using support::failureOf;
using namespace testing;
using namespace windows::com::xml;

std::string repeat(const std::string& text, int count) {
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

class DocumentTest : public testing::Test {
protected:
    Element load(const std::string& text) {
        _document.loadXml(text);
        return _document.getRootElement();
    }
    std::string refusal(const std::string& text) {
        return failureOf<DocumentException>([&] { _document.loadXml(text); });
    }

    Library _library;
    Document _document;
};

TEST_F(DocumentTest, BytesComeOutAsTheyWentInWhateverTheDeclarationSays) {
    std::string bytes = "\t ";
    for (int byte = 0x21; byte < 0x100; ++byte) {
        if (byte != '<' && byte != '&' && byte != '\'' && byte != '>') {
            bytes.push_back(static_cast<char>(byte));
        }
    }
    for (const char* declaration : {"", "<?xml version=\"1.0\" encoding=\"utf-16\"?>",
                                    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>"}) {
        SCOPED_TRACE(declaration);
        const Element root = load(declaration + ("<a b='" + bytes + "'>\n" + bytes + "</a>"));
        EXPECT_EQ(root.getText(), "\n" + bytes);
        EXPECT_EQ(root.getAttribute("b"), " " + bytes.substr(1)) << "A tab in an attribute becomes a blank";
    }
    EXPECT_EQ(load("<\xE5\xE4\xF6/>").getTagName(), "\xE5\xE4\xF6");

    // Only a reference beyond them has no byte.
    const Element root =
        load("<a b='&#233;&#xFF;&amp;&quot;&lt;' c='x&#256;'><d>&#233;&gt;</d><e>&#x20AC;</e></a>");
    EXPECT_EQ(root.getAttribute("b"), "\xE9\xFF&\"<");
    EXPECT_EQ(root.getElement("d").getText(), "\xE9>");
    EXPECT_THROW(root.getAttribute("c"), ElementException);
    EXPECT_THROW(root.getElement("e").getText(), ElementException);
}

TEST_F(DocumentTest, TextsAreReadWholeAcrossTheBoundariesOfTheParsersChunks) {
    std::string source;
    std::string expected;
    for (int i = 0; source.size() < 2'200'000; ++i) {
        const std::string number = std::to_string(i);
        source += number + "\xE5\n&amp;";
        expected += number + "\xE5\n&";
    }
    // Beyond 10 MB the parser's own limits would end a text or an attribute.
    const std::string filler(10'500'000, 'x');
    EXPECT_TRUE(load("<a>" + source + filler + "</a>").getText() == expected + filler);
    EXPECT_TRUE(load("<a b='" + filler + "\xF6'/>").getAttribute("b") == filler + "\xF6");
}

TEST_F(DocumentTest, WhatIsNotOneWellFormedDocumentIsRefused) {
    EXPECT_EQ(refusal("<a>\n <b x=1/>\r\n <c></d>\n</a>"),
              "Error when loading the XML document from the memory.\n\n"
              "Error Code: 39\nLine: 2\nRow: 7\nDescription: AttValue: \" or ' expected\n"
              "Error line:  <b x=1/>\n\n\n"
              "System error message: Success. Error code: 0.");
    const std::string longLine = refusal("<a>" + std::string(5000, 'x') + "</b>");
    EXPECT_EQ(longLine.size(), 4095u);
    EXPECT_THAT(longLine, AllOf(HasSubstr("Error line: <a>xxx"), Not(HasSubstr("System error"))));

    const Element before = load("<a b='1'><c/></a>");
    const std::string nul(1, '\0');
    for (const std::string& text :
         {std::string(), std::string("<a>"), std::string("<a/><b/>"), std::string("<a b='1' b='2'/>"),
          std::string("<p:a/>"), std::string("<a>&none;</a>"), std::string("<a>\x01</a>"),
          std::string("\xFF\xFE<\0a\0", 6), "<a>" + nul + "</a>", nul + "<a/>"}) {
        EXPECT_THAT(refusal(text), HasSubstr("Error Code: ")) << text;
        EXPECT_THROW(_document.getRootElement(), DocumentException);
    }
    EXPECT_EQ(before.getAttribute("b"), "1") << "What was taken from a document outlives it";
    EXPECT_EQ(before.getElement("c").getTagName(), "c");
    EXPECT_EQ(load("<d/>" + nul + "</d> what follows the end is not looked at").getTagName(), "d");
}

TEST_F(DocumentTest, MarkupThatIsMadeToBeSlowOrToReachOutIsRefused) {
    const std::string attributes64 = [] {
        std::string text;
        for (int i = 0; i < 64; ++i) {
            text += " a" + std::to_string(i) + (i % 2 == 0 ? "='>\"'" : "=\"'/>\"");
        }
        return text;
    }();
    const char* const opening = "Error when loading the XML document from the memory.\n\nError Code: ";
    const struct {
        std::string text;
        const char* reason;  // null if the text is fine
    } cases[] = {
        {"<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>", "A document type declaration"},
        {"<!-- x -->\n <!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>",
         "Line: 2\nRow: 2\nDescription: A document type declaration is not allowed."},
        {"<a><!-- <!DOCTYPE a> --><![CDATA[<!DOCTYPE a>]]><?p <!DOCTYPE a>?></a>", nullptr},
        {"<a" + attributes64 + "><b" + attributes64 + "/></a>", nullptr},
        {"<a" + attributes64 + " c='1'/>", "A tag has more than 64 attributes."},
        {repeat("<a>", 31) + repeat("<a/>", 99) + repeat("<a></a>", 99) + repeat("</a>", 31), nullptr},
        {repeat("<a>", 32) + "<a/>" + repeat("</a>", 32), "Elements stand in each other more than 32 deep."},
        {repeat("<a>", 1'000'000), "Elements stand in each other more than 32 deep."},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.text.substr(0, 200));
        if (each.reason == nullptr) {
            EXPECT_NO_THROW(_document.loadXml(each.text));
        } else {
            EXPECT_THAT(refusal(each.text), AllOf(StartsWith(opening), HasSubstr(each.reason)));
        }
    }
}

TEST_F(DocumentTest, SelectionsGoByPrefixAndKeepDocumentOrder) {
    _document.setSelectionNamespaces(" xmlns:mv='http://u/1' xmlns:o=\"http://u/2\"\n");
    const Element root = load("<r xmlns='http://u/1' xmlns:x='http://u/2'><x:b/><a/><x:b/><a/></r>");
    const NodeList found = root.selectNodes("mv:a|o:b");
    ASSERT_EQ(found.size(), 4);
    EXPECT_EQ(Element(found.getNode(2)).getTagName(), "x:b");
    EXPECT_THROW(root.getElement("o:b"), ElementException) << "two";
    EXPECT_THROW(root.getElement("a"), ElementException) << "none";
    EXPECT_THROW(root.selectNodes("none:a"), ElementException);
}

TEST_F(DocumentTest, ElementsGiveAttributesByTheirWholeNameAndAllTextInThem) {
    const Element root = load(
        "<a xmlns:p='http://u/' p:id='other' t='TRUE' o='1' f='false' z='0' y='yes' e=''>"
        "1<b>2<!--x--><![CDATA[<3>]]><?p y?></b> <c><d/>4</c></a>");
    EXPECT_EQ(root.getText(), "12<3> 4");
    EXPECT_EQ(root.getElement("b").getText(), "2<3>") << "What follows an element isn't its text";
    EXPECT_EQ(root.getElement("c/d").getText(), "");

    EXPECT_FALSE(root.hasAttribute("id"));
    EXPECT_EQ(root.getAttribute("p:id"), "other");
    EXPECT_EQ(root.getAttribute("e"), "");
    EXPECT_THROW(root.getAttribute("id"), ElementException);
    EXPECT_TRUE(root.getBoolean("t") && root.getBoolean("o"));
    EXPECT_FALSE(root.getBoolean("f") || root.getBoolean("z"));
    EXPECT_THROW(root.getBoolean("y"), ElementException);
}

// Each name would be compared with more and more of the others.
TEST_F(DocumentTest, TooManyDifferentNamesAreRefused) {
    const struct {
        const char* before;
        const char* after;
    } FORMS[] = {{"<a", "/>"}, {"<a b", "=''/>"}, {"<a xmlns:b", "='u'/>"}, {"<a xmlns='", "'/>"}};
    for (const auto& form : FORMS) {
        std::string many = "<r>";
        for (int i = 0; i < 200'000; ++i) {
            many += form.before + std::to_string(i) + form.after;
        }
        EXPECT_THROW(_document.loadXml(many + "</r>"), DocumentException) << form.before;
        // A tenth of it is nothing yet.
        const std::size_t tenth = many.find(form.before, many.size() / 10);
        EXPECT_NO_THROW(_document.loadXml(many.substr(0, tenth) + "</r>")) << form.before;
    }
}

}  // namespace
