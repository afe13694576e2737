// Tables of text for a terminal.
#ifndef ZEMP_TABLE_H
#define ZEMP_TABLE_H

#include <ostream>
#include <string>
#include <vector>

namespace zemp {

using Row = std::vector<std::string>;

// Text fit for a terminal, "-" for none.
std::string printable(std::string text);

// Prints rows, the heading first, in columns as wide as their widest entry and two blanks apart; the first
// `numbers` columns are aligned to the right.
void printTable(const std::vector<Row>& rows, size_t numbers, std::ostream& out);

} // namespace zemp

#endif
