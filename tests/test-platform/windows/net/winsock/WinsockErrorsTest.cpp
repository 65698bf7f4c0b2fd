#include "windows/net/winsock/WinsockErrors.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "platform/errorresources/SystemErrorText.h"

namespace windows::net::winsock {
namespace {

TEST(WinsockErrorsTest, KnowsTheCodesOfThisSystem) {
    const WinsockErrors errors;
    const struct {
        std::int32_t code;
        std::string begin;
    } rows[] = {
        {EBADF, "Bad file handle"},
        {EMFILE, "Too many open files"},
        {EADDRINUSE, "Address already in use"},
        {ECONNRESET, "Connection reset by peer"},
        {ETIMEDOUT, "Connection timed out"},
        {ECONNREFUSED, "Connection refused"},
        {EHOSTUNREACH, "No route to host"},
        {11002, "Non-authoritative host not found"},
        {11003, "This is a non-recoverable error"},
        {11004, "Valid name, no data record of requested type"},
    };
    for (const auto& row : rows) {
        const WinsockErrors::Mapping mapping = errors.map(row.code);
        ASSERT_TRUE(mapping.found) << row.code;
        EXPECT_EQ(std::string(mapping.text).find(row.begin + "."), 0u) << row.code << ": " << mapping.text;
    }
    // Numbers of another system's socket interface, and none at all.
    for (const std::int32_t code : {10054, 11000, 11005, 0, -1}) {
        EXPECT_FALSE(errors.map(code).found) << code;
    }
    EXPECT_EQ(platform::errorresources::systemErrorText(11001, &errors),
              "System error message: Host not found. No machine has that name. Error code: 11001.");
}

}  // namespace
}  // namespace windows::net::winsock
