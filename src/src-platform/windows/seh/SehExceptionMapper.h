#pragma once

#include <csignal>
#include <cstdint>
#include <map>

namespace windows::seh {

// Puts the code of a fault into words for a report.
class SehExceptionMapper {
public:
    virtual ~SehExceptionMapper() = default;

    // The words for the code, or null for a code without words. The text lives as long as the mapper.
    // Callable from a signal handler.
    virtual const char* getText(std::uint32_t code) const noexcept = 0;
};

class SehExceptionMapperImpl final : public SehExceptionMapper {
public:
    SehExceptionMapperImpl();

    const char* getText(std::uint32_t code) const noexcept override;

private:
    void add(std::uint32_t exceptionCode, const char* text);

    std::map<std::uint32_t, const char*> _map;
};

// The code of a thread that used up its stack. The signal alone does not tell: it looks like any wrong
// address.
inline constexpr std::uint32_t STACK_OVERFLOW_CODE = 0xC00000FD;

// The code that stands for a signal with a si_code in sigaction(2)'s sense. 0, which has no words, where none
// fits: a signal that somebody sent, or an abort.
std::uint32_t exceptionCodeOf(int signal, int signalCode) noexcept;

}  // namespace windows::seh
