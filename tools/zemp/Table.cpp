#include "zemp/Table.h"

#include "common/printable.h"
#include <algorithm>
#include <utility>

namespace zemp {

std::string printable(std::string text) {
    text = ::printable(std::move(text));
    return text.empty() ? "-" : text;
}

void printTable(const std::vector<Row>& rows, size_t numbers, std::ostream& out) {
    std::vector<size_t> widths(rows.front().size(), 0);
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    for (const Row& row : rows) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string gap(widths[i] - row[i].size(), ' ');
            line += (i == 0 ? "" : "  ") + (i < numbers ? gap + row[i] : row[i] + gap);
        }
        out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
    }
}

} // namespace zemp
