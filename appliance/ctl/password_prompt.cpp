#include "appliance/ctl/password_prompt.h"

#include <iostream>
#include <termios.h>
#include <unistd.h>

std::string readPassword(bool fromInput) {
    termios before{};
    const bool hidden = !fromInput && tcgetattr(STDIN_FILENO, &before) == 0;
    if (hidden) {
        std::cerr << "Password: " << std::flush;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    std::string password;
    std::getline(std::cin, password);
    if (hidden) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
        std::cerr << '\n';
    }
    return password;
}
