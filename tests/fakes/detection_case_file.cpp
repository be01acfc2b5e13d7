#include "tests/fakes/scripted_encoder.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <stdexcept>

namespace detect_test {
namespace {

std::string trimmed(const std::string& text) {
    const auto begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

} // namespace

// The text between double quotes, with \n, \r, \0, \\ and \" in it.
std::string unquoted(const std::string& text) {
    const auto end = text.rfind('"');
    if (text.empty() || text.front() != '"' || end == 0)
        throw std::runtime_error("no quoted text: " + text);
    std::string out;
    for (std::size_t i = 1; i < end; ++i) {
        if (text[i] != '\\') {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == '0' ? '\0' : c;
    }
    return out;
}

namespace {

class Reader {
public:
    explicit Reader(Case& target) : case_(target) {
        case_.entry.address = "127.0.0.9:8080";
        case_.entry.userName = "operator";
        case_.entry.password = "secret";
        case_.entry.sourceNumber = 1;
        case_.entry.index = 4;
        case_.entry.audioAvailable = true; // as an earlier detection may have left it
    }

    void read(const std::filesystem::path& file, std::string section = "") {
        std::ifstream in(file);
        if (!in)
            throw std::runtime_error("can't read " + file.string());
        std::string line;
        for (int number = 1; std::getline(in, line); ++number) {
            try {
                readLine(file, trimmed(line), section);
            } catch (const std::exception& error) {
                throw std::runtime_error(file.string() + ":" + std::to_string(number) + ": " + error.what());
            }
        }
    }

    void finish() {
        SourceEntry& expected = case_.expected;
        const SourceEntry& given = case_.entry;
        expected.index = given.index;
        expected.address = given.address;
        expected.userName = given.userName;
        expected.password = given.password;
        expected.configuredType = given.configuredType;
        if (!numberExpected_)
            expected.sourceNumber = given.sourceNumber;
    }

private:
    void readLine(const std::filesystem::path& file, const std::string& line, std::string& section) {
        if (line.empty() || line.front() == '#')
            return;
        if (line.front() == '[')
            section = line;
        else if (line.starts_with("include "))
            read(file.parent_path() / line.substr(8), section);
        else if (section == "[source]")
            readSource(line);
        else if (section == "[exchange]")
            readExchange(line);
        else if (section == "[expect]")
            readExpectation(line);
        else
            throw std::runtime_error("outside of a section");
    }

    // "NAME = VALUE"
    static std::pair<std::string, std::string> assignment(const std::string& line) {
        const auto equals = line.find('=');
        if (equals == std::string::npos)
            throw std::runtime_error("no '=' in " + line);
        return {trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))};
    }

    void readSource(const std::string& line) {
        const auto [name, value] = assignment(line);
        if (name == "address")
            case_.entry.address = value;
        else if (name == "user")
            case_.entry.userName = value;
        else if (name == "password")
            case_.entry.password = value;
        else if (name == "number")
            case_.entry.sourceNumber = std::stoi(value);
        else if (name == "type")
            case_.entry.configuredType = std::stoi(value);
        else if (name == "timeout")
            case_.timeout = std::stoi(value);
        else if (name == "ports")
            case_.portsFound = value == "found";
        else
            throw std::runtime_error("unknown: " + name);
    }

    void readExchange(const std::string& line) {
        if (line.starts_with("->"))
            last().reply.push_back(trimmed(line.substr(2)));
        else if (line.starts_with("|"))
            last().request += (line.size() > 2 ? line.substr(2) : "") + "\r\n";
        else if (line == "RTSP")
            case_.exchanges.push_back({"RTSP ", {}});
        else
            case_.exchanges.push_back({line, {}});
    }

    Exchange& last() {
        if (case_.exchanges.empty())
            throw std::runtime_error("no request before this");
        return case_.exchanges.back();
    }

    void readExpectation(const std::string& line) {
        if (line.starts_with("status "))
            case_.status.push_back(line.substr(7));
        else if (line.starts_with("entry."))
            expectMember(assignment(line.substr(6)));
        else if (line.starts_with("log "))
            case_.log.push_back({std::stoi(line.substr(4, 1)), line.substr(6)});
        else if (line.starts_with("stdout "))
            case_.output = unquoted(line.substr(7));
        else if (line.starts_with("trace | "))
            case_.trace.push_back(line.substr(8));
        else if (line.starts_with("returns"))
            case_.returns = assignment(line).second == "true";
        else
            throw std::runtime_error("unknown: " + line);
    }

    void expectMember(const std::pair<std::string, std::string>& member) {
        const auto& [name, value] = member;
        SourceEntry& expected = case_.expected;
        if (name == "detectedOK")
            expected.detectedOK = value == "yes";
        else if (name == "audioAvailable")
            expected.audioAvailable = value == "yes";
        else if (name == "rtspHost")
            expected.rtspHost = value;
        else if (name == "audioHost")
            expected.audioHost = value;
        else if (name == "streamOptions")
            expected.streamOptions = value;
        else
            expectNumber(name, std::stoi(value));
    }

    void expectNumber(const std::string& name, int value) {
        SourceEntry& expected = case_.expected;
        if (name == "sourceNumber")
            numberExpected_ = true;
        const std::map<std::string, int*> numbers = {{"errorCode", &expected.errorCode},
                                                     {"detectedType", &expected.detectedType},
                                                     {"connectMode", &expected.connectMode},
                                                     {"sourceNumber", &expected.sourceNumber}};
        if (name == "rtspPort")
            expected.rtspPort = static_cast<std::uint16_t>(value);
        else if (name == "audioPort")
            expected.audioPort = static_cast<std::uint16_t>(value);
        else
            *numbers.at(name) = value;
    }

    Case& case_;
    bool numberExpected_ = false;
};

} // namespace

Case readCase(const std::filesystem::path& file) {
    Case one;
    one.name = file.stem().string();
    Reader reader(one);
    reader.read(file);
    reader.finish();
    return one;
}

std::vector<std::filesystem::path> allCases(const std::filesystem::path& folder) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        if (entry.path().extension() == ".case")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace detect_test
