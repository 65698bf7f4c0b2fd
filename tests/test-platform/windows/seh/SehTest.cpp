#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "windows/seh/ScopedSignalStack.h"
#include "windows/seh/SehExceptionMapper.h"

namespace windows::seh {
namespace {

// The signals that real faults raise are tried where they are caught.
TEST(SehExceptionMapperTest, RareFaultsHaveTheWordsOfTheirCodeToo) {
    const struct {
        int signal;
        int code;
        const char* words;
    } CASES[] = {
        {SIGSEGV, SI_KERNEL,
         "The thread tried to read from or write to a virtual address that it does not have appropriate "
         "access "
         "to. (EXCEPTION_ACCESS_VIOLATION)"},
        {SIGBUS, BUS_ADRALN,
         "The thread tried to read or write data that is misaligned on hardware that does not provide "
         "alignment. For example, 16-bit values must be aligned on 2-byte boundaries; 32-bit values on "
         "4-byte "
         "boundaries, and so on. (EXCEPTION_DATATYPE_MISALIGNMENT)"},
        {SIGFPE, FPE_FLTDIV,
         "The thread tried to divide a floating-point value by a floating-point divisor of zero. "
         "(EXCEPTION_FLT_DIVIDE_BY_ZERO)"},
        {SIGSEGV, SI_USER, nullptr},
    };
    const SehExceptionMapperImpl mapper;
    for (const auto& row : CASES) {
        EXPECT_STREQ(mapper.getText(exceptionCodeOf(row.signal, row.code)), row.words);
    }
    EXPECT_EQ(mapper.getText(0x12345678), nullptr);
}

TEST(ScopedSignalStackTest, ThreadHasAWritableStackUntilTheEndOfTheScope) {
    std::thread([] {
        const auto current = [] {
            stack_t stack{};
            sigaltstack(nullptr, &stack);
            return stack;
        };
        const stack_t before = current();
        {
            const ScopedSignalStack outer;
            const stack_t first = current();
            ASSERT_GE(first.ss_size, 64u * 1024);
            std::memset(first.ss_sp, 1, first.ss_size);
            {
                const ScopedSignalStack inner;
                EXPECT_NE(current().ss_sp, first.ss_sp);
            }
            EXPECT_EQ(current().ss_sp, first.ss_sp);
        }
        EXPECT_EQ(current().ss_flags, before.ss_flags);
        EXPECT_EQ(current().ss_sp, before.ss_sp);
    }).join();
}

}  // namespace
}  // namespace windows::seh
