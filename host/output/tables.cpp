#include "host/output/tables.h"

#include <algorithm>
#include <cassert>
#include <charconv>
#include <cstdint>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/output/terminal.h"

namespace host {

namespace {

using Json = nlohmann::ordered_json;

const std::string &shown(const std::string &cell)
{
    static const std::string nothing = "-";
    return cell.empty() ? nothing : cell;
}

/// A number in a column of numbers.
Json cell_data(const Table::Column &column, const std::string &cell)
{
    if (cell.empty())
        return {};
    std::uint64_t number = 0;
    const char *end = cell.data() + cell.size();
    const bool is_number = column.align == Table::Align::right &&
                           std::from_chars(cell.data(), end, number) == std::from_chars_result{end, {}};
    return is_number ? Json(number) : Json(cell);
}

} // namespace

Table::Table(std::string title, std::vector<Column> columns) : title_(std::move(title)), columns_(std::move(columns)) {}

void Table::add(std::vector<std::string> cells)
{
    assert(cells.size() == columns_.size());
    rows_.push_back(std::move(cells));
}

std::string Table::text(bool bold) const
{
    const std::string title = bold ? terminal::bold(title_) : title_;
    std::string text = rows_.empty() ? fmt::format("{}: none", title) : "\n" + title;
    if (!note_.empty())
        text += fmt::format(" ({})", note_);
    text += '\n';
    if (rows_.empty())
        return text;

    std::vector<std::size_t> widths;
    for (std::size_t column = 0; column < columns_.size(); ++column) {
        std::size_t width = columns_[column].heading.size();
        for (const auto &row : rows_)
            width = std::max(width, shown(row[column]).size());
        widths.push_back(width);
    }
    const auto add_line = [&](const auto &cell_of) {
        for (std::size_t column = 0; column < columns_.size(); ++column) {
            const std::string &cell = cell_of(column);
            const std::size_t padding = widths[column] - cell.size();
            text.append(columns_[column].align == Align::left ? 2 : 2 + padding, ' ');
            text += cell;
            text.append(columns_[column].align == Align::left ? padding : 0, ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    };
    add_line([&](std::size_t column) -> const std::string & { return columns_[column].heading; });
    for (const auto &row : rows_)
        add_line([&](std::size_t column) -> const std::string & { return shown(row[column]); });
    return text;
}

Json Table::data() const
{
    Json screen = {{"title", title_}};
    if (!note_.empty())
        screen["note"] = note_;
    screen["rows"] = Json::array();
    for (const auto &row : rows_) {
        Json cells = Json::object();
        for (std::size_t column = 0; column < columns_.size(); ++column)
            cells[columns_[column].heading] = cell_data(columns_[column], row[column]);
        screen["rows"].push_back(std::move(cells));
    }
    return screen;
}

std::string Table::json() const
{
    return data().dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::vector<std::string> Table::facts() const
{
    std::vector<std::string> facts;
    for (const auto &row : rows_) {
        std::string fact = title_ + ":";
        for (std::size_t column = 0; column < columns_.size(); ++column)
            fact += fmt::format("{} {} {}", column == 0 ? "" : ",", columns_[column].heading, shown(row[column]));
        facts.push_back(fact);
    }
    return facts;
}

} // namespace host
