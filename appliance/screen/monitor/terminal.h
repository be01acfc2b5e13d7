// The virtual terminal of a console without a desktop.
//
// The kernel shows one virtual terminal at a time; Ctrl-Alt-F2 changes to the second one. A program that draws on the
// display itself has to agree to that: the kernel asks with a signal, the program stops drawing and answers. Later the
// kernel tells with another signal that the terminal is in front again. Here the guard does that: it ends the shower,
// which gives the display back, answers, and starts a shower again when the terminal is back.
//
// While a Terminal exists, the terminal shows no text and has no echo, and no key of it raises a signal. What the
// operator types there is thrown away at the end.
#pragma once

#include <csignal>
#include <termios.h>
#include <unistd.h>

namespace screen {

// For one thread.
class Terminal {
public:
    static constexpr int leaveSignal = SIGUSR1;  // the kernel asks: call leave()
    static constexpr int returnSignal = SIGUSR2; // it is in front again: call comeBack()

    // Takes the terminal that is open as `fd`, until the destructor. Does nothing if that is no virtual terminal: then no
    // signal comes. Both signals must be blocked, because they end a process that does not wait for them. They come to
    // this process only, not to its children.
    explicit Terminal(int fd = STDIN_FILENO);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // True where the terminal is in front, and always where there is none.
    bool inFront() const { return inFront_; }

    // Agrees to another terminal. Nothing of ours may use the display any more.
    void leave();

    // Agrees to be in front.
    void comeBack();

private:
    bool take();

    int fd_;
    int number_ = 0; // of the virtual terminal; 0: there is none
    bool inFront_ = true;
    termios before_{};
};

} // namespace screen
