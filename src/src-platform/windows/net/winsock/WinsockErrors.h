#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/errorresources/ErrorMapper.h"

namespace windows::net::winsock {

// Resolver failures have no errno of their own; these are the numbers under which messages show them.
inline constexpr std::int32_t UNKNOWN_HOST = 11001;
inline constexpr std::int32_t NO_NAME_SERVER = 11002;
inline constexpr std::int32_t NAME_SERVER_FAILED = 11003;
inline constexpr std::int32_t HOST_WITHOUT_ADDRESS = 11004;

// Words for socket errors: for the errno values that socket calls can give, and for the resolver's failures.
// Where the system has words of its own for a code, messages show those.
class WinsockErrors final : public platform::errorresources::ErrorMapper {
public:
    WinsockErrors();
    Mapping map(std::int32_t code) const override;

private:
    void add(std::int32_t errorCode, const char* text);

    std::map<std::int32_t, std::string> _map;
};

}  // namespace windows::net::winsock
