#include "windows/seh/SehExceptionMapper.h"

#include "debug/Assertion.h"

namespace windows::seh {

SehExceptionMapperImpl::SehExceptionMapperImpl() {
    add(0xC0000005,
        "The thread tried to read from or write to a virtual address that it does not have appropriate "
        "access to. "
        "(EXCEPTION_ACCESS_VIOLATION)");
    add(0xC000008C,
        "The thread tried to access an array element that is out of bounds and the underlying hardware "
        "supports "
        "bounds checking. (EXCEPTION_ARRAY_BOUNDS_EXCEEDED)");
    add(0x80000003, "A breakpoint was encountered. (EXCEPTION_BREAKPOINT)");
    add(0x80000002,
        "The thread tried to read or write data that is misaligned on hardware that does not provide "
        "alignment. "
        "For example, 16-bit values must be aligned on 2-byte boundaries; 32-bit values on 4-byte "
        "boundaries, and "
        "so on. (EXCEPTION_DATATYPE_MISALIGNMENT)");
    add(0xC000008D,
        "An operand in a floating-point operation is too small to represent as a standard floating-point "
        "value. "
        "(EXCEPTION_FLT_DENORMAL_OPERAND)");
    add(0xC000008E,
        "The thread tried to divide a floating-point value by a floating-point divisor of zero. "
        "(EXCEPTION_FLT_DIVIDE_BY_ZERO)");
    add(0xC000008F,
        "The result of a floating-point operation cannot be represented exactly as a decimal fraction. "
        "(EXCEPTION_FLT_INEXACT_RESULT)");
    add(0xC0000090,
        "A floating-point exception not included in this list. (EXCEPTION_FLT_INVALID_OPERATION)");
    add(0xC0000091,
        "The exponent of a floating-point operation is greater than the magnitude allowed by the "
        "corresponding "
        "type. (EXCEPTION_FLT_OVERFLOW)");
    add(0xC0000092,
        "The stack overflowed or underflowed as the result of a floating-point operation. "
        "(EXCEPTION_FLT_STACK_CHECK)");
    add(0xC0000093,
        "The exponent of a floating-point operation is less than the magnitude allowed by the corresponding "
        "type. "
        "(EXCEPTION_FLT_UNDERFLOW)");
    add(0xC000001D, "The thread tried to execute an invalid instruction. (EXCEPTION_ILLEGAL_INSTRUCTION)");
    add(0xC0000006,
        "The thread tried to access a page that was not present and the system could not load the page. For "
        "example, this exception might occur if a network connection is lost while running a program over "
        "the "
        "network. (EXCEPTION_IN_PAGE_ERROR)");
    add(0xC0000094,
        "The thread tried to divide an integer value by an integer divisor of zero. "
        "(EXCEPTION_INT_DIVIDE_BY_ZERO)");
    add(0xC0000095,
        "The result of an integer operation caused a carry out of the most significant bit of the result. "
        "(EXCEPTION_INT_OVERFLOW)");
    add(0xC0000026,
        "An exception handler returned an invalid disposition to the exception dispatcher. Programmers using "
        "a "
        "high-level language, such as C, should never encounter this exception. "
        "(EXCEPTION_INVALID_DISPOSITION)");
    add(0xC0000025,
        "The thread tried to continue execution after a noncontinuable exception occurred. "
        "(EXCEPTION_NONCONTINUABLE_EXCEPTION)");
    add(0x80000004,
        "A trace trap or other single-instruction mechanism signaled that one instruction has been executed. "
        "(EXCEPTION_SINGLE_STEP)");
    add(STACK_OVERFLOW_CODE, "The thread used up its stack. (EXCEPTION_STACK_OVERFLOW)");
    add(0xE06D7363, "A C++ exception was caught in the SEH handler. (0xE06D7363)");
}

const char* SehExceptionMapperImpl::getText(std::uint32_t code) const noexcept {
    const auto found = _map.find(code);
    return found != _map.end() ? found->second : nullptr;
}

void SehExceptionMapperImpl::add(std::uint32_t exceptionCode, const char* text) {
    CHECK(_map.find(exceptionCode) == _map.end());
    _map[exceptionCode] = text;
}

std::uint32_t exceptionCodeOf(int signal, int signalCode) noexcept {
    // Codes up to 0 say that a process sent the signal; there was no fault.
    if (signalCode <= 0) {
        return 0;
    }
    switch (signal) {
        case SIGSEGV:
            return signalCode == SEGV_BNDERR ? 0xC000008C : 0xC0000005;
        case SIGBUS:
            return signalCode == BUS_ADRALN ? 0x80000002 : 0xC0000006;
        case SIGILL:
            return 0xC000001D;
        case SIGFPE:
            switch (signalCode) {
                case FPE_INTDIV:
                    return 0xC0000094;
                case FPE_INTOVF:
                    return 0xC0000095;
                case FPE_FLTDIV:
                    return 0xC000008E;
                case FPE_FLTOVF:
                    return 0xC0000091;
                case FPE_FLTUND:
                    return 0xC0000093;
                case FPE_FLTRES:
                    return 0xC000008F;
                case FPE_FLTSUB:
                    return 0xC000008C;
                default:
                    return 0xC0000090;
            }
        default:
            return 0;
    }
}

}  // namespace windows::seh
