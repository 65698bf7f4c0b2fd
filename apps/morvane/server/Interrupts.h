#pragma once

namespace halvern::morvane::client {

// While one lives, the first Ctrl-C (SIGINT) is only noted, so that the work at hand can end at a good place;
// a second one ends the process as usual. Nested ones and ones in other threads share the note, which is
// forgotten when the last of them ends.
class Interrupts {
public:
    Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    ~Interrupts();

    bool requested() const;

    // Becomes readable with the first Ctrl-C and stays so: to be polled beside a socket. Don't read from it.
    int descriptor() const;

    // Throws Failure with INTERRUPTED if Ctrl-C was pressed.
    void check() const;
};

}  // namespace halvern::morvane::client
