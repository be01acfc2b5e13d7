// Shared by the tests of the network half: an appliance of their own, the log, time, and signals.
#pragma once

#include <array>
#include <csignal>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>

// Appliance root and log file are the process's own, made before anything reads the environment and removed at its end;
// parameters, log, interruption flag and the disposition of signals are reset for every test.
class NetworkTest : public testing::Test {
protected:
    NetworkTest();
    ~NetworkTest() override;

    // The text of the decoder's parameter file from now on.
    static void setParameters(const std::string& text);

    // Makes a file for the test with that content; returns its path.
    static std::string fileWith(const std::string& content);

    // Everything logged since the test began.
    static std::string log();

private:
    sigset_t savedMask_;
};

class Stopwatch {
public:
    Stopwatch();
    double milliseconds() const;

private:
    double start_;
};

// Counts how often a handler for `signal` ran, for the life of the object; restores the disposition.
class HandlerCount {
public:
    explicit HandlerCount(int signal);
    ~HandlerCount();
    HandlerCount(const HandlerCount&) = delete;
    HandlerCount& operator=(const HandlerCount&) = delete;
    int value() const;

private:
    int signal_;
    struct sigaction saved_;
};

void blockSignal(int signal);
bool isBlocked(int signal);
bool isPending(int signal);

// A thread that waits until `due` returns and then sends `signal` to the process.
class SignalWhen {
public:
    SignalWhen(int signal, std::function<void()> due);
    ~SignalWhen() { finish(); }
    SignalWhen(const SignalWhen&) = delete;
    SignalWhen& operator=(const SignalWhen&) = delete;

    // Milliseconds since the signal was sent.
    double sinceSent();

private:
    void finish();

    double sentAt_ = 0;
    std::thread thread_;
};

// Milliseconds from a SIGUSR1 until `operation` returned: the median of five, because a busy machine lets any
// one of them wait. `operation` gets the function to call as the stage is reached, from whatever thread, and
// returns after the interruption.
double medianInterruption(const std::function<void(int round)>& stageReached,
                          const std::function<void(int round)>& operation);

std::set<int> openDescriptors();
