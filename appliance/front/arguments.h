// The complete arguments of a player, from its front.
#pragma once

#include <string>
#include <vector>

namespace front {

class Arguments {
public:
    // The arguments that the front stored, or those of main() when the program was started without its front.
    Arguments(int argc, char** argv);
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;

    int count() const { return static_cast<int>(pointers_.size()) - 1; }
    char** values() { return pointers_.data(); } // writable, with a null at the end

private:
    std::string text_; // the stored arguments, each with its NUL; "": those of main() are used
    std::vector<char*> pointers_;
};

} // namespace front
