// Numbers that several folders of the supervisor, the appliance and its players have agreed on.
#pragma once

// Numbers of libcommon's semaphores.
inline constexpr int playerStartSemaphore = 2001;   // set to 0 before each launch, for the players
inline constexpr int forkHandshakeSemaphore = 2002; // holds a forked child until the parent has registered it
inline constexpr int lockSemaphore = 2003;          // raised once for each lock request

// The byte of a button event's value 2 that is not 0 for a press that was held.
inline constexpr int buttonHeldMask = 0xff;

// How long a player waits for its first frame, and for the next one, before it gives up: its option
// "-r", in milliseconds.
inline constexpr int playerPatience = 10000;
