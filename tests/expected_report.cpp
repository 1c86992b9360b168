#include "expected_report.h"

#include <fstream>

std::vector<std::string> ExpectedRequests(bool user, bool bundle) {
    std::vector<std::string> requests;
    std::ifstream table(TEST_DATA "/board_report.tsv");
    std::string group = "-";
    for (std::string row; std::getline(table, row);) {
        if (row == "build type?" || row.starts_with("sleep\t")) {
            requests.push_back(row);
            continue;
        }
        const size_t tab = row.find('\t');
        const std::string guard = row.substr(0, tab);
        if (guard.starts_with("bundle") && !bundle) continue;
        const bool development = guard.find("development") != std::string::npos;
        if (development && guard != group) requests.emplace_back("build type?");
        group = guard;
        if (!development || !user) requests.push_back(row.substr(tab + 1));
    }
    return requests;
}

std::vector<std::string> ExpectedTitles(bool user, bool bundle) {
    std::vector<std::string> titles;
    for (const std::string& request : ExpectedRequests(user, bundle)) {
        if (!request.starts_with("command\t") && !request.starts_with("file\t")) continue;
        const size_t title = request.find('\t');
        titles.push_back(request.substr(title + 1, request.find('\t', title + 1) - title - 1));
    }
    return titles;
}
