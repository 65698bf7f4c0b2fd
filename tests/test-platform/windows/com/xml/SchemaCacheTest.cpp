#include "windows/com/xml/SchemaCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/globals.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "support/TempDir.h"
#include "support/Xml.h"
#include "windows/com/xml/LibraryHooks.h"
#include "windows/com/xml/XMLException.h"

namespace {

using namespace testing;
using namespace windows::com::xml;
namespace hooks = windows::com::xml::hooks;

const char* const SCHEMA = R"(<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" xmlns:t="http://u/t"
    targetNamespace="http://u/t" elementFormDefault="qualified" version="1.01">
  <xs:simpleType name="Id"><xs:restriction base="xs:string"><xs:pattern value="[a-z0-9&#xC3;&#xA5;]+"/>
    </xs:restriction></xs:simpleType>
  <xs:complexType name="Item"><xs:attribute name="id" type="t:Id" use="required"/>
    <xs:attribute name="like" type="t:Id"/></xs:complexType>
  <xs:element name="list">
    <xs:complexType><xs:sequence><xs:element name="item" type="t:Item" maxOccurs="unbounded"/></xs:sequence>
    </xs:complexType>
    <xs:key name="ids"><xs:selector xpath="t:item"/><xs:field xpath="@id"/></xs:key>
    <xs:keyref name="likes" refer="t:ids"><xs:selector xpath="t:item"/><xs:field xpath="@like"/></xs:keyref>
  </xs:element></xs:schema>)";

std::string list(const std::string& items) { return "<list xmlns='http://u/t'>\n" + items + "\n</list>"; }

class SchemaCacheTest : public testing::Test {
protected:
    SchemaCacheTest() { support::writeFile(path, SCHEMA); }

    const support::TempDir folder;
    const std::string path = folder.file("s.xsd");
};

TEST_F(SchemaCacheTest, FaultsAreToldWithLineReasonAndSource) {
    const support::LoadedSchema schema(path);
    EXPECT_EQ(schema.version(), "1.01");
    EXPECT_EQ(schema.problemOf(list("<item id='b\xC3\xA5'/><item id='2' like='b\xC3\xA5'/>")), "");
    EXPECT_THAT(
        schema.problemOf(list("<item id='a'/>\n<item id='A\xC3\xA5'/><wrong/>")),
        AllOf(StartsWith("Problems validating the xml document.\r\nError Code: 1839\nLine: 3\nRow: 0\n"
                         "Description: Element '{http://u/t}item', attribute 'id': [facet 'pattern'] "
                         "The value 'A\xC3\xA5' is not accepted"),
              EndsWith("\nError line: <item id='A\xC3\xA5'/><wrong/>\n\n\n"
                       "System error message: Success. Error code: 0.")));
    const std::string lines(70'000, '\n');
    const struct {
        std::string document;
        const char* line;
        const char* reason;
        const char* source;
    } rows[] = {
        {list("<item id='a'/>\n<item id='b' like='c'/>"), "Line: 3\n", "No match found for key-sequence",
         "\nError line: <item id='b' like='c'/>\n"},
        // Beyond the lines that the library itself can tell.
        {list(lines + "<item\n x='1'/>"), "Line: 70003\n", "attribute 'x'", "\nError line:  x='1'/>\n"},
        {list(lines + "<item id='a'/>\n<item id='a'/>"), "Line: 70003\n", "Duplicate key-sequence ['a']",
         "\nError line: <item id='a'/>\n"},
        {list(lines + "<item id='a' like='c'/>"), "Line: 0\n", "No match found for key-sequence",
         "\nError line: N/A\n"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(schema.problemOf(row.document),
                    AllOf(HasSubstr(row.line), HasSubstr(row.reason), HasSubstr(row.source)));
    }
    // A document without a schema is never valid.
    EXPECT_THAT(schema.problemOf("<list/>"),
                StartsWith("Problems validating the xml document.\r\nError Code: 1845\n"));
    EXPECT_NE(
        schema.problemOf("<other xmlns='http://u/o' xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' "
                         "xsi:schemaLocation='http://u/o " +
                         path + "'/>"),
        "");
    Document free;
    free.loadXml(list("<item id='a'/>"));
    EXPECT_THROW(free.validate(), ValidateException);
}

// Lets the library's requests for memory fail from a given one on, once or for good.
class FailingMemory {
public:
    FailingMemory(int first, bool forGood) {
        _untilFailure = first;
        _forGood = forGood;
        hooks::setReallocate(&reallocate);
    }
    ~FailingMemory() { hooks::setReallocate(&std::realloc); }
    FailingMemory(const FailingMemory&) = delete;
    FailingMemory& operator=(const FailingMemory&) = delete;

    bool hasFailed() const { return _untilFailure <= 0; }
    static int requestsSinceFailure() { return -_untilFailure; }

private:
    static void* reallocate(void* block, std::size_t size) {
        --_untilFailure;
        const bool fails = _forGood ? _untilFailure <= 0 : _untilFailure == 0;
        return fails ? nullptr : std::realloc(block, size);
    }

    static inline int _untilFailure = 0;
    static inline bool _forGood = false;
};

TEST_F(SchemaCacheTest, ExhaustedMemoryIsBadAllocAndNeverAnotherAnswer) {
    const support::LoadedSchema schema(path);
    std::string many;
    for (int i = 0; i < 20; ++i) {
        many += "<item id='" + std::to_string(i) + "'/>";
    }
    const auto read = [&](const std::string& text) {
        Document document = schema.newDocument();
        document.loadXml(text);
        document.validate();
        std::string saved;
        document.saveXml(saved);
        return std::to_string(
                   document.getElement("mv:list").selectNodes("mv:item|mv:item[@id = '7']").size()) +
               saved;
    };
    const std::function<std::string()> actions[] = {
        [&] { return read(list(many)); },
        [&] { return schema.problemOf(list("<item id='" + std::string(100'000, 'a') + "'/><wrong/>")); },
        [&] { return support::LoadedSchema(path).problemOf(list("<item id='A'/>")); },
    };
    for (const auto& action : actions) {
        const std::string expected = action();
        for (const bool forGood : {false, true}) {
            bool reachedEnd = false;
            int refused = 0;
            for (int request = 1; !reachedEnd; ++request) {
                const FailingMemory memory(request, forGood);
                try {
                    EXPECT_EQ(action(), expected)
                        << "Action " << &action - actions << ", request " << request;
                    reachedEnd = !memory.hasFailed();
                } catch (const std::bad_alloc&) {
                    ++refused;
                }
            }
            EXPECT_GT(refused, 50);
        }
    }
    // Without memory the library would go on through the document with ever more missing that it relies on.
    std::string items;
    for (int i = 0; i < 5000; ++i) {
        items += "<item id='" + std::to_string(i) + "'/>";
    }
    for (int request = 1000; request < 100'000; request += 7001) {
        const FailingMemory memory(request, true);
        EXPECT_THROW(schema.problemOf(list(items)), std::bad_alloc) << request;
        EXPECT_LT(FailingMemory::requestsSinceFailure(), 1000) << request;
    }
    // A block that shrinks to nothing is freed once, and is no exhaustion.
    const hooks::MemoryWatch watch;
    void* const block = xmlRealloc(xmlMalloc(24), 0);
    EXPECT_NE(block, nullptr);
    xmlFree(block);
    EXPECT_NO_THROW(watch.check());
}

}  // namespace
