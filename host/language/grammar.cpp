#include "host/language/grammar.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

#include "sim/frame.h"

namespace host {

namespace {

/// Words that an error lists of those that would be right; help lists them all.
constexpr std::size_t few = 6;

bool can_be_name(const std::string &word)
{
    const auto is_allowed = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.'; };
    return !word.empty() && std::isalpha(static_cast<unsigned char>(word.front())) != 0 &&
           std::ranges::all_of(word, is_allowed);
}

/// Reads the name of a port or a bridge, or its number.
std::uint32_t read_named(const Kind &kind, const std::string &word, const NameBook *names)
{
    if (const auto number = parse_number(word); number && *number <= kind.max)
        return *number;
    if (!can_be_name(word))
        throw ScriptError(fmt::format("'{}' is no {}: expected {}", word, kind.meaning, kind.choices()));
    if (names == nullptr)
        return 0;
    if (const auto number = names->find(word))
        return *number;
    throw ScriptError(fmt::format("no {} is called '{}'{}", kind.meaning, word, did_you_mean(word, names->all())));
}

std::uint32_t read_number(const Kind &kind, const std::string &word)
{
    if (const auto number = number_of(kind.words, word))
        return *number;
    const auto number = parse_number(word);
    if (kind.source == Kind::Source::number && number && *number >= kind.min && *number <= kind.max)
        return *number;

    std::vector<std::string> candidates;
    for (const NamedNumber &named : kind.words)
        candidates.push_back(named.name);
    throw ScriptError(fmt::format("'{}' is no {}: expected {}{}", word, kind.meaning, kind.choices(few),
                                  did_you_mean(word, candidates)));
}

bool is_value(std::string_view word)
{
    return std::isupper(static_cast<unsigned char>(word.front())) != 0;
}

} // namespace

std::string Kind::choices(std::size_t most) const
{
    if (source == Source::new_name)
        return "letters, digits, '-', '_' and '.', a letter first";

    if (source == Source::mac)
        return "six pairs of hexadecimal digits, for example 02:00:00:00:00:0a";
    if (source == Source::hex)
        return "its bytes, two hexadecimal digits each";
    if (source == Source::file)
        return "a path";

    std::vector<std::string> choices;
    for (const NamedNumber &named : words)
        choices.push_back(named.name);
    if (choices.size() > most) {
        choices.resize(most);
        choices.emplace_back("...");
    }
    if (source == Source::port || source == Source::bridge)
        choices.emplace_back("its name");
    if (source == Source::number && min != 0)
        choices.push_back(fmt::format("a number from {} to {}", min, max));
    else if (source != Source::words)
        choices.push_back(max == UINT32_MAX && !choices.empty() ? "a number" : fmt::format("a number up to {}", max));

    const std::string last = choices.back();
    choices.pop_back();
    return choices.empty() ? last : fmt::format("{} or {}", fmt::join(choices, ", "), last);
}

std::vector<std::string> Kind::all_words(const Names &names_known) const
{
    if (source == Source::port)
        return names_known.ports.all();
    if (source == Source::bridge)
        return names_known.bridges.all();
    std::vector<std::string> all;
    for (const NamedNumber &named : words)
        all.push_back(named.name);
    return all;
}

Grammar::Grammar(std::string_view synopsis)
{
    bool optional = false;
    bool belongs = false; // whether a value now would belong to the part before it
    for (std::string word : parse_line(synopsis)) {
        if (word.find("...") != std::string::npos) {
            takes_rest_ = true;
            break;
        }
        const bool opens = word.starts_with('[');
        const bool closes = word.ends_with(']');
        word = word.substr(opens ? 1 : 0, word.size() - (opens ? 1 : 0) - (closes ? 1 : 0));
        optional = optional || opens;

        if (!is_value(word))
            parts_.push_back({word, nullptr, optional});
        else if (belongs && !opens)
            parts_.back().value = &kind(word);
        else
            parts_.push_back({"", &kind(word), optional});
        belongs = !is_value(word) && !closes;
        optional = optional && !closes;
    }
}

std::string Grammar::Part::text() const
{
    if (value == nullptr)
        return keyword;
    return keyword.empty() ? value->name : keyword + " " + value->name;
}

std::vector<const Kind *> Grammar::kinds() const
{
    std::vector<const Kind *> kinds;
    for (const Part &part : parts_)
        if (part.value != nullptr && std::ranges::find(kinds, part.value) == kinds.end())
            kinds.push_back(part.value);
    return kinds;
}

const Grammar::Part *Grammar::optional_part(const std::string &word, const Arguments &so_far) const
{
    std::vector<std::string> expected;
    const Part *value = nullptr;
    for (const Part &part : parts_) {
        if (part.optional && part.keyword == word && so_far.has(word))
            throw ScriptError(fmt::format("'{}' is given twice", word));
        if (!part.optional || so_far.has(part.key()))
            continue;
        if (part.keyword == word)
            return &part;
        if (part.keyword.empty())
            value = &part;
        else
            expected.push_back(part.keyword);
    }
    if (value == nullptr)
        throw ScriptError(fmt::format("'{}' is not expected here{}", word, did_you_mean(word, expected)));
    return value;
}

void Grammar::read_value(const Part &part, const std::string &word, const Names *names, Arguments &arguments)
{
    Arguments::Value value{word};
    switch (part.value->source) {
    case Kind::Source::port:
        value.number = read_named(*part.value, word, names != nullptr ? &names->ports : nullptr);
        break;
    case Kind::Source::bridge:
        value.number = read_named(*part.value, word, names != nullptr ? &names->bridges : nullptr);
        break;
    case Kind::Source::new_name:
        if (!can_be_name(word))
            throw ScriptError(fmt::format("'{}' cannot be a name: expected {}", word, part.value->choices()));
        break;
    case Kind::Source::mac:
        if (!sim::parse_mac(word))
            throw ScriptError(
                fmt::format("'{}' is no {}: expected {}", word, part.value->meaning, part.value->choices()));
        break;
    case Kind::Source::hex:
        if (!sim::parse_hex(word))
            throw ScriptError(
                fmt::format("'{}' is no {}: expected {}", word, part.value->meaning, part.value->choices()));
        break;
    case Kind::Source::file:
        break;
    case Kind::Source::number:
    case Kind::Source::words:
        value.number = read_number(*part.value, word);
        break;
    }
    arguments.values_[part.key()] = value;
}

Arguments Grammar::read(std::span<const std::string> words, const Names *names) const
{
    Arguments arguments;
    std::size_t at = 0;
    const auto read_part = [&](const Part &part) {
        if (!part.keyword.empty()) {
            if (at == words.size())
                throw ScriptError(fmt::format("'{}' is missing at the end", part.text()));
            if (words[at] != part.keyword)
                throw ScriptError(fmt::format("expected '{}' where '{}' stands", part.text(), words[at]));
            ++at;
            arguments.values_[part.key()] = {part.keyword};
        }
        if (part.value != nullptr) {
            if (at == words.size())
                throw ScriptError(fmt::format("{} is missing at the end ({})", part.text(), part.value->choices(few)));
            read_value(part, words[at], names, arguments);
            ++at;
        }
    };

    for (const Part &part : parts_)
        if (!part.optional)
            read_part(part);
    if (takes_rest_) {
        arguments.rest_.assign(words.begin() + static_cast<std::ptrdiff_t>(at), words.end());
        return arguments;
    }
    while (at < words.size())
        read_part(*optional_part(words[at], arguments));
    return arguments;
}

NextWords Grammar::next_words(std::span<const std::string> words, const Names &names) const
{
    const auto values = [&names](const Part &part) {
        return NextWords{part.value->all_words(names), part.value->source == Kind::Source::file};
    };
    std::size_t at = 0;
    for (const Part &part : parts_) {
        if (part.optional)
            break;
        if (!part.keyword.empty() && at++ == words.size())
            return {{part.keyword}};
        if (part.value != nullptr && at++ == words.size())
            return values(part);
    }
    if (takes_rest_)
        return {};

    std::vector<std::string> given;
    while (at < words.size()) {
        const std::string &word = words[at++];
        given.push_back(word);
        for (const Part &part : parts_)
            if (part.optional && part.keyword == word && part.value != nullptr && at++ == words.size())
                return values(part);
    }
    std::vector<std::string> next;
    for (const Part &part : parts_) {
        if (part.optional && part.keyword.empty())
            std::ranges::copy(part.value->all_words(names), std::back_inserter(next));
        else if (part.optional && std::ranges::find(given, part.keyword) == given.end())
            next.push_back(part.keyword);
    }
    return {next};
}

} // namespace host
