#include "appliance/panel/api/parameter_texts.h"

#include "appliance/panel/api/embedded.h"

#include <libcommon/text.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace panel {
namespace {

// The columns of a row of a table, without those of a heading.
std::vector<std::string> columnsOf(std::string_view line) {
    std::vector<std::string> columns;
    if (!line.starts_with("| `"))
        return columns;
    line.remove_prefix(1);
    for (std::size_t end = 0; (end = line.find(" |")) != std::string_view::npos; line.remove_prefix(end + 2))
        columns.emplace_back(libcommon::trimmed(line.substr(0, end)));
    return columns;
}

// Without `marks` and without the addresses of links.
std::string plainText(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == ']' && i + 1 < text.size() && text[i + 1] == '(')
            i = std::min(text.find(')', i), text.size() - 1);
        else if (text[i] != '`' && text[i] != '[' && text[i] != ']')
            plain += text[i];
    }
    return plain;
}

// "Name" of "`Name`, `Other`": all names in the first column.
std::vector<std::string> namesOf(std::string_view column) {
    std::vector<std::string> names;
    for (std::size_t begin = 0; (begin = column.find('`')) != std::string_view::npos;) {
        const std::size_t end = column.find('`', begin + 1);
        if (end == std::string_view::npos)
            break;
        names.emplace_back(column.substr(begin + 1, end - begin - 1));
        column.remove_prefix(end + 1);
    }
    return names;
}

std::map<std::string, std::string, std::less<>> readPage() {
    constexpr std::size_t effectColumn = 3; // name, values, missing, effect, read
    std::map<std::string, std::string, std::less<>> texts;
    std::string_view page = parametersPage();
    while (!page.empty()) {
        const std::size_t end = std::min(page.find('\n'), page.size());
        const std::vector<std::string> columns = columnsOf(page.substr(0, end));
        if (columns.size() > effectColumn) {
            for (const std::string& name : namesOf(columns[0]))
                texts.emplace(name, plainText(columns[effectColumn]));
        }
        page.remove_prefix(std::min(end + 1, page.size()));
    }
    return texts;
}

} // namespace

std::string parameterText(std::string_view name) {
    static const std::map<std::string, std::string, std::less<>> texts = readPage();
    const auto found = texts.find(name);
    return found == texts.end() ? "" : found->second;
}

} // namespace panel
