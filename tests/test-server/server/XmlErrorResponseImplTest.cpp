#include "server/XmlErrorResponseImpl.h"

#include <gtest/gtest.h>

#include <string>

namespace halvern::morvane {
namespace {

std::string document(const std::string& status) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"http://example/R\" "
           "version=\"1.01\">\n"
           "\t<status success=\"false\" " +
           status + "\t</status>\n</morvane>";
}

TEST(XmlErrorResponseImplTest, RendersCodeAndCleanedMessage) {
    struct Row {
        std::int32_t code;
        std::string message;
        std::string status;
    };
    const Row rows[] = {
        {5030, "", "statusCode=\"5030\">"},
        {-1, "x", "statusCode=\"-1\">x"},
        {4000, "The requested classifier could not be found. './classifiers//cn.dat'.\nCall id: 1\n",
         "statusCode=\"4000\">The requested classifier could not be found. './classifiers//cn.dat'.\nCall "
         "id: 1\n"},
        {4000, "Unexpected <a b=\"c\"> & 'd'\r\nsm\xE5",
         "statusCode=\"4000\">Unexpected &lt;a b=&quot;c&quot;&gt; &amp; 'd'\r\nsm\xC3\xA5"},
        // The client's own line goes, up to the system's words.
        {4000, "Line: 3\nError line: <a>\n\n\nSystem error message: Success. Error code: 0.",
         "statusCode=\"4000\">Line: 3\nSystem error message: Success. Error code: 0."},
        {4000, "Error lineSystem error", "statusCode=\"4000\">System error"},
        {4000, "Error line 1 System error Error line 2 System error",
         "statusCode=\"4000\">System error Error line 2 System error"},
        {4000, "System error first, Error line: kept",
         "statusCode=\"4000\">System error first, Error line: kept"},
        {4000, "System error alone", "statusCode=\"4000\">System error alone"},
    };
    const XmlErrorResponseFactoryImpl factory("http://example/R", "1.01");
    const auto response = factory.create();
    for (const Row& row : rows) {
        std::string out = "what stood here before";
        EXPECT_EQ(&response->render(out, row.code, row.message), &out);
        EXPECT_EQ(out, document(row.status)) << row.message;
    }
}

TEST(XmlErrorResponseImplTest, RendersAMessageOfAnyLengthWhole) {
    const std::string message(100'000, 'm');
    std::string out;
    XmlErrorResponseImpl("http://example/R", "1.01").render(out, 5000, message);
    EXPECT_EQ(out, document("statusCode=\"5000\">" + message));
}

}  // namespace
}  // namespace halvern::morvane
