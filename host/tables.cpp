#include "host/tables.h"

#include <algorithm>
#include <cassert>

#include <fmt/format.h>

namespace host {

Table::Table(std::string title, std::vector<Column> columns) : title_(std::move(title)), columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> cells)
{
    assert(cells.size() == columns_.size());
    for (std::string &cell : cells)
        if (cell.empty())
            cell = "-";
    rows_.push_back(std::move(cells));
}

std::string Table::text() const
{
    std::string text = rows_.empty() ? fmt::format("{}: none", title_) : "\n" + title_;
    if (!note_.empty())
        text += fmt::format(" ({})", note_);
    text += '\n';
    if (rows_.empty())
        return text;

    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        std::size_t width = columns_[column].heading.size();
        for (const auto &row : rows_)
            width = std::max(width, row[column].size());
        widths.push_back(width);
    }
    const auto add_line = [&](const auto &cell_of) {
        std::string line;
        for (std::size_t column = 0; column < columns_.size(); ++column)
            line +=
                "  " + (columns_[column].align == Align::left ? fmt::format("{:<{}}", cell_of(column), widths[column])
                                                              : fmt::format("{:>{}}", cell_of(column), widths[column]));
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + '\n';
    };
    add_line([&](std::size_t column) { return columns_[column].heading; });
    for (const auto &row : rows_)
        add_line([&](std::size_t column) { return row[column]; });
    return text;
}

std::vector<std::string> Table::facts() const
{
    std::vector<std::string> facts;
    for (const auto &row : rows_) {
        std::string fact = title_ + ":";
        for (std::size_t column = 0; column < columns_.size(); ++column)
            fact += fmt::format("{} {} {}", column == 0 ? "" : ",", columns_[column].heading, row[column]);
        facts.push_back(fact);
    }
    return facts;
}

} // namespace host
