/// Tables as the screens show them.
#ifndef KYBRIDGE_HOST_TABLES_H
#define KYBRIDGE_HOST_TABLES_H

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

namespace host {

class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string heading;
        Align align = Align::left;
    };

    /// @param title what the rows are, in lower case: "bridges"
    Table(std::string title, std::vector<Column> columns);

    /// Adds a row with one cell for each column. An empty cell shows as "-".
    void add(std::vector<std::string> cells);

    /// A line after the title, for what is true of all rows.
    void note(std::string note) { note_ = std::move(note); }

    /// A blank line, the title, the headings and the aligned rows; one line alone when there is no row.
    /// @param bold whether a terminal is to show the title in bold
    std::string text(bool bold = false) const;

    /// {"title": ..., "note": ..., "rows": [{HEADING: CELL, ...}, ...]}. Without a note there is none in it. A cell in
    /// a column of numbers is a number, an empty one null.
    nlohmann::ordered_json data() const;
    std::string json() const; ///< the same in one line

    /// One line for each row that stands alone: "bridges: BRIDGE red, ID 1".
    std::vector<std::string> facts() const;

private:
    std::string title_;
    std::string note_;
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace host

#endif
