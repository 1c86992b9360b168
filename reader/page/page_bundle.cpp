// What came with the report in its log bundle.

#include <algorithm>
#include <map>

#include "bundle.h"
#include "page_parts.h"
#include "units.h"

namespace reader {
namespace {

// Nobody reads more names, and a browser takes long to lay them out.
constexpr size_t kMostListed = 5000;

// What the files of one series have in common: the directory, and the name up to its number.
std::string SeriesOf(std::string_view name) {
    const size_t base = name.rfind('/') + 1;  // 0 when there is none
    return std::string(
            name.substr(0, std::min(name.find_first_of("0123456789", base), name.size())));
}

}  // namespace

void WriteBundle(Html& html, const std::string& path) {
    Bundle bundle = ReadBundle(path);
    std::erase_if(bundle.members, &Bundle::Member::directory);
    std::map<std::string, std::vector<Bundle::Member>> series;
    uint64_t size = 0;
    for (Bundle::Member& member : bundle.members) {
        size += member.size;
        series[SeriesOf(member.name)].push_back(std::move(member));
    }

    html << "<section id=\"bundle\">\n<h2>Bundle</h2>\n<p class=\"note\">";
    html.Text(path + ": " + Grouped(bundle.members.size()) + " files, " + HumanSize(size) + "; ");
    if (bundle.fault.empty()) {
        html << "the archive is whole";
    } else {
        html << "<strong class=\"trouble\">not whole: ";
        html.Text(bundle.fault) << "</strong>";
    }
    html << "</p>\n";
    size_t listed = 0;
    for (auto& [name, members] : series) {
        if (listed + members.size() > kMostListed) break;
        listed += members.size();
        std::ranges::sort(members, std::ranges::greater(), &Bundle::Member::name);
        html << "<details open class=\"series\"><summary><span class=\"title\">";
        html.Text(name) << "</span> <span class=\"number\">" << members.size()
                        << "</span></summary>\n<table><tbody>\n";
        for (const Bundle::Member& member : members) {
            html << "<tr><td>";
            html.Text(member.name) << "</td><td class=\"number\">";
            html.Text(HumanSize(member.size)) << "</td></tr>\n";
        }
        html << "</tbody></table></details>\n";
    }
    if (listed < bundle.members.size()) {
        html << "<p class=\"left-out\">";
        html.Text(Grouped(bundle.members.size() - listed) +
                  " files more are not listed here; tar -tvf lists them");
        html << "</p>\n";
    }
    html << "</section>\n";
}

}  // namespace reader
