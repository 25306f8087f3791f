#include "host/language/script.h"

#include <algorithm>
#include <charconv>
#include <numeric>

#include <fmt/format.h>

namespace host {

namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

/// The fewest characters to insert, delete or replace that turn one word into the other.
std::size_t edit_distance(std::string_view from, std::string_view to)
{
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            const std::size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

Words parse_line(std::string_view line)
{
    if (line.ends_with('\r'))
        line.remove_suffix(1);

    Words words;
    std::size_t at = 0;
    while (true) {
        while (at < line.size() && is_blank(line[at]))
            ++at;
        if (at == line.size() || line[at] == '#')
            return words;

        const bool quoted = line[at] == '"';
        const std::size_t begin = quoted ? at + 1 : at;
        std::size_t end = begin;
        while (end < line.size() && (quoted ? line[end] != '"' : !is_blank(line[end]))) {
            if (static_cast<unsigned char>(line[end]) < ' ' && line[end] != '\t')
                throw ScriptError(fmt::format("control character 0x{:02x} in column {}", line[end], end + 1));
            ++end;
        }
        if (quoted && end == line.size())
            throw ScriptError(fmt::format("the quote in column {} does not end; a closing \" is missing", at + 1));
        words.emplace_back(line.substr(begin, end - begin));
        at = quoted ? end + 1 : end;
    }
}

std::optional<std::uint32_t> parse_number(std::string_view word)
{
    const bool hexadecimal = word.starts_with("0x") || word.starts_with("0X");
    if (hexadecimal)
        word.remove_prefix(2);
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || end != word.data() + word.size())
        return std::nullopt;
    return number;
}

std::string did_you_mean(std::string_view word, std::span<const std::string> candidates)
{
    const std::string *nearest = nullptr;
    std::size_t fewest = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string &candidate : candidates) {
        const std::size_t edits = edit_distance(word, candidate);
        if (edits < fewest && edits < candidate.size()) {
            fewest = edits;
            nearest = &candidate;
        }
    }
    return nearest != nullptr ? fmt::format("; did you mean '{}'?", *nearest) : "";
}

std::string join(std::span<const std::string> words)
{
    return fmt::format("{}", fmt::join(words, " "));
}

} // namespace host
