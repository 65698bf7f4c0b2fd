#include "server/XmlErrorResponseImpl.h"

#include <gtest/gtest.h>

#include <string>

namespace halvern::morvane {
namespace {

TEST(XmlErrorResponseImplTest, RendersCodeAndCleanedMessage) {
    const std::string longMessage(100'000, 'm');
    const struct {
        std::int32_t code;
        std::string message;
        std::string status;
    } rows[] = {
        {5030, "", "statusCode=\"5030\">"},
        {-1, longMessage, "statusCode=\"-1\">" + longMessage},
        {4000, "Unexpected <a b=\"c\"> & 'd'\r\nsm\xE5",
         "statusCode=\"4000\">Unexpected &lt;a b=&quot;c&quot;&gt; &amp; 'd'\r\nsm\xC3\xA5"},
        // The client's own line goes, up to the system's words.
        {4000, "Line: 3\nError line: <a>\n\n\nSystem error message: Success. Error code: 0.",
         "statusCode=\"4000\">Line: 3\nSystem error message: Success. Error code: 0."},
        {4000, "System error first, Error line: kept",
         "statusCode=\"4000\">System error first, Error line: kept"},
    };
    const auto response = XmlErrorResponseFactoryImpl("http://example/R", "1.01").create();
    for (const auto& row : rows) {
        std::string out = "what stood here before";
        EXPECT_EQ(&response->render(out, row.code, row.message), &out);
        EXPECT_EQ(out,
                  "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<morvane xmlns=\"http://example/R\" "
                  "version=\"1.01\">\n\t<status success=\"false\" " +
                      row.status + "\t</status>\n</morvane>");
    }
}

}  // namespace
}  // namespace halvern::morvane
