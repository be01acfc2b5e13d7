// state_diagram ROOT: writes the pages about the state machine below ROOT/docs. ROOT is the top of the sources.
#include "launcher/model/diagram/state_diagram.h"

#include <cstdio>
#include <fstream>
#include <iterator>

namespace {

std::string read(const std::string& file) {
    std::ifstream in(file);
    if (!in)
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return {std::istreambuf_iterator<char>(in), {}};
}

bool write(const std::string& file, const std::string& text) {
    std::ofstream out(file);
    out << text;
    out.close();
    if (!out)
        std::fprintf(stderr, "cannot write %s\n", file.c_str());
    return static_cast<bool>(out);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: state_diagram ROOT\n");
        return 2;
    }
    const std::string root = argv[1];
    const std::string docs = root + "/docs/";
    const std::string overview = read(docs + "state-machine.md");
    const std::string states = read(root + "/launcher/states.h");
    if (overview.empty() || states.empty())
        return 1;
    for (const auto& [name, text] : diagram::allPages(overview, diagram::readMeanings(states)))
        if (!write(docs + name, text))
            return 1;
    return 0;
}
