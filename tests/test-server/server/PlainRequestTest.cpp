#include "server/PlainRequest.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "server/DocumentRequest.h"
#include "support/RequestContent.h"
#include "support/Xml.h"

namespace halvern::morvane {
namespace {

class PlainRequestTest : public testing::Test {
protected:
    std::string request(const std::string& content) const {
        return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n<morvane xmlns=\"" + _schema.targetNamespace() +
               "\" version=\"1.01\">" + content + "</morvane>";
    }
    // The content of a request in plain form, "" for any other.
    std::string plain(const std::string& bytes) const {
        const auto read = PlainRequest::read(bytes, _schema.targetNamespace());
        return read ? support::contentOf(*read) : "";
    }
    // The content that the document and the schema find, or the words with which they refuse it.
    std::string expected(const std::string& bytes) const {
        try {
            return support::contentOf(DocumentRequest(bytes, _schema.cache(), _schema.targetNamespace()));
        } catch (const exceptions::Exception& e) {
            return e.what();
        }
    }

    const support::LoadedSchema _schema{MORVANE_SCHEMAS "/server/RequestSchema.xsd"};
};

const std::string TEXTS =
    "<texts>\r\n\t<textBase64 id='b'>aGVq\n</textBase64><text id=\"t\">a&amp;b&#228;\r\n&lt;c</text>"
    "<text id='e'/></texts>";
const std::string READS =
    "<readCalls><classify id='1' classifierName='news' textId='t'/>\n<classifyKeywords textId='b' id='2' "
    "classifierName='n &amp; m'></classifyKeywords><getInformation id='3' classifierName='n.1'/></readCalls>";
const std::string WRITES =
    "<writeCalls classifierName='a' maxSize='10'><create id='4'/><addClass id='5' className=''/><train "
    "id='6' className='x&quot;' textId='b'/><untrain id='7' className='x' textId='e'/><removeClass id='8' "
    "className='x'/><remove id='9'/></writeCalls>";

TEST_F(PlainRequestTest, ReadsWhatProgramsWrite) {
    EXPECT_EQ(_schema.cache().fingerprint(_schema.targetNamespace()), PlainRequest::SCHEMA)
        << "The request schema has changed, and the rules of PlainRequest have to follow.";
    for (const std::string& content : {TEXTS + READS + WRITES, TEXTS + WRITES + READS, TEXTS + READS,
                                       std::string("\n<writeCalls classifierName='a'>\n<create "
                                                   "id='1'/>\n</writeCalls>\n")}) {
        const std::string bytes = request(content);
        EXPECT_NE(plain(bytes), "") << content;
        EXPECT_EQ(plain(bytes), expected(bytes));
        EXPECT_EQ(plain("\xEF\xBB\xBF" + bytes + "\n" + '\0' + "<"), expected(bytes));
    }
}

// The document refuses them: in a declaration a reference stands for nothing.
TEST_F(PlainRequestTest, LeavesADeclarationWithReferencesAlone) {
    const std::string known = request(TEXTS + WRITES);
    const std::string rest = known.substr(known.find('\n'));
    ASSERT_NE(plain("<?xml version='1.0' encoding='utf-8'?>" + rest), "");
    for (const char* const attributes :
         {"version='1&#46;0'", "version='1.0' encoding='utf&#45;8'", "version='1.0' encoding='&#x75;tf-8'"}) {
        EXPECT_EQ(plain("<?xml " + std::string(attributes) + "?>" + rest), "") << attributes;
    }
}

// Whatever a request looks like: what is read in plain form is what the document and the schema admit, with
// the same content.
TEST_F(PlainRequestTest, NeverDiffersFromTheDocument) {
    const std::vector<std::string> parts = {"<",
                                            ">",
                                            "/>",
                                            "</",
                                            "'",
                                            "\"",
                                            "=",
                                            " ",
                                            "\r\n",
                                            "\r",
                                            "\t",
                                            "&amp;",
                                            "&lt;",
                                            "&#65;",
                                            "&#x10;",
                                            "&#xe4;",
                                            "&#256;",
                                            "&#10;",
                                            "&#0;",
                                            "&#38;",
                                            "&#60;",
                                            "&",
                                            ";",
                                            "]]>",
                                            "]]",
                                            "\x7F",
                                            "\x80",
                                            "\xFF",
                                            "\x01",
                                            "\x0B",
                                            std::string(1, '\0'),
                                            "<!-- c -->",
                                            "<![CDATA[x]]>",
                                            "<?p?>",
                                            "<!DOCTYPE morvane>",
                                            " xmlns=''",
                                            " xmlns:m='u'",
                                            "m:",
                                            " id='1'",
                                            " id='t'",
                                            " id=''",
                                            " textId='t'",
                                            " textId='x'",
                                            " className='x'",
                                            " classifierName='y'",
                                            " maxSize='1'",
                                            " maxSize='&#9;'",
                                            " version='1.00'",
                                            "1.00",
                                            "2.00",
                                            "utf-16",
                                            "version=\"1.1\"",
                                            " standalone='yes'",
                                            "<texts>",
                                            "</texts>",
                                            "<text id='n'/>",
                                            "<text id='t'/>",
                                            "<textBase64 id='b2'>=</textBase64>",
                                            "<readCalls>",
                                            "</readCalls>",
                                            "<writeCalls classifierName='w'>",
                                            "</writeCalls>",
                                            "<create id='c'/>",
                                            "<classify id='d' classifierName='q' textId='t'/>",
                                            "morvane",
                                            ".",
                                            "*",
                                            "/",
                                            ":",
                                            "|",
                                            "?",
                                            "\\",
                                            "^",
                                            "~",
                                            std::string(128, 'l'),
                                            std::string(256, 'm'),
                                            "t",
                                            "e",
                                            "b"};
    std::mt19937 random(7);
    const auto below = [&random](std::size_t bound) { return random() % bound; };
    int plainOnes = 0;
    int validOthers = 0;
    for (int i = 0; i < 40'000; ++i) {
        std::string bytes = request(below(2) == 0 ? TEXTS + READS : TEXTS + WRITES + READS);
        for (std::size_t changes = 1 + below(2); changes > 0; --changes) {
            const std::size_t place = below(bytes.size() + 1);
            // Mostly beside or in place of a byte that means something.
            const std::size_t kept = std::min(bytes.find_first_of("<>'\"=&; ", place), bytes.size());
            const std::size_t at = below(4) == 0 ? place : kept + below(2) * (kept < bytes.size() ? 1 : 0);
            const std::size_t length =
                std::min<std::size_t>(below(3) == 0 ? below(12) : below(2), bytes.size() - at);
            bytes.replace(at, length, below(6) == 0 ? "" : parts[below(parts.size())]);
        }
        const std::string content = plain(bytes);
        const std::string fromDocument = expected(bytes);
        if (!content.empty()) {
            ++plainOnes;
            ASSERT_EQ(content, fromDocument) << bytes;
        } else if (fromDocument.starts_with("1.")) {
            ++validOthers;
        }
    }
    // Enough of either kind to mean something.
    EXPECT_GT(plainOnes, 1000);
    EXPECT_GT(validOthers, 100);
}

}  // namespace
}  // namespace halvern::morvane
