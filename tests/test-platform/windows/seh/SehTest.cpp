#include <gtest/gtest.h>
#include <sys/mman.h>

#include <csignal>
#include <cstring>
#include <thread>

#include "windows/seh/ScopedSignalStack.h"
#include "windows/seh/SehExceptionMapper.h"

namespace windows::seh {
namespace {

TEST(SehExceptionMapperTest, SignalsOfFaultsHaveTheWordsOfTheirCode) {
    const struct {
        int signal;
        int code;
        const char* mark;
    } CASES[] = {{SIGSEGV, SEGV_MAPERR, "ACCESS_VIOLATION"},
                 {SIGSEGV, SEGV_ACCERR, "ACCESS_VIOLATION"},
                 {SIGSEGV, SI_KERNEL, "ACCESS_VIOLATION"},
                 {SIGBUS, BUS_ADRALN, "DATATYPE_MISALIGNMENT"},
                 {SIGBUS, BUS_ADRERR, "IN_PAGE_ERROR"},
                 {SIGILL, ILL_ILLOPN, "ILLEGAL_INSTRUCTION"},
                 {SIGFPE, FPE_INTDIV, "INT_DIVIDE_BY_ZERO"},
                 {SIGFPE, FPE_INTOVF, "INT_OVERFLOW"},
                 {SIGFPE, FPE_FLTDIV, "FLT_DIVIDE_BY_ZERO"},
                 {SIGFPE, FPE_FLTINV, "FLT_INVALID_OPERATION"},
                 // Sent by a process, so nothing was at fault here.
                 {SIGSEGV, SI_USER, nullptr},
                 {SIGFPE, SI_TKILL, nullptr},
                 {SIGABRT, SI_TKILL, nullptr}};
    const SehExceptionMapperImpl mapper;
    for (const auto& row : CASES) {
        SCOPED_TRACE(strsignal(row.signal) + std::string(", code ") + std::to_string(row.code));
        const char* text = mapper.getText(exceptionCodeOf(row.signal, row.code));
        ASSERT_EQ(text != nullptr, row.mark != nullptr);
        if (text != nullptr) {
            EXPECT_NE(std::strstr(text, row.mark), nullptr) << text;
        }
    }
    EXPECT_EQ(mapper.getText(0x12345678), nullptr);
    EXPECT_STREQ(mapper.getText(STACK_OVERFLOW_CODE),
                 "The thread used up its stack. (EXCEPTION_STACK_OVERFLOW)");
}

stack_t currentSignalStack() {
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    return stack;
}

TEST(ScopedSignalStackTest, ThreadHasAWritableStackUntilTheEndOfTheScope) {
    std::thread([] {
        const stack_t before = currentSignalStack();
        {
            const ScopedSignalStack outer;
            const stack_t first = currentSignalStack();
            ASSERT_EQ(first.ss_flags & SS_DISABLE, 0);
            ASSERT_GE(first.ss_size, 64u * 1024);
            std::memset(first.ss_sp, 1, first.ss_size);
            {
                const ScopedSignalStack inner;
                EXPECT_NE(currentSignalStack().ss_sp, first.ss_sp);
            }
            EXPECT_EQ(currentSignalStack().ss_sp, first.ss_sp);
        }
        EXPECT_EQ(currentSignalStack().ss_flags, before.ss_flags);
        EXPECT_EQ(currentSignalStack().ss_sp, before.ss_sp);
    }).join();
}

}  // namespace
}  // namespace windows::seh
