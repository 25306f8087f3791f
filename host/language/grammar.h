/// What the arguments of a command look like. A command's synopsis, the line that help shows, is itself
/// the grammar that its arguments are read by, so the two cannot drift apart:
///
///     BRIDGE PORT vlan VLAN TAGGING [internal]
///
/// A word in capitals is a value of that kind, a word in small letters stands for itself, and a value that
/// follows such a word belongs to it. What stands in brackets may be left out and comes last, in any order.
/// A kind that ends in ... takes the rest of the line.
#ifndef KYBRIDGE_HOST_GRAMMAR_H
#define KYBRIDGE_HOST_GRAMMAR_H

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/language/names.h"
#include "host/language/script.h"

namespace host {

/// A kind of value.
struct Kind {
    enum class Source {
        number,   ///< a number, or one of the kind's words
        words,    ///< one of the kind's words only
        port,     ///< a number, or the name of a port
        bridge,   ///< a number, or the name of a bridge
        new_name, ///< text that can be a name
        mac,      ///< a MAC address
        hex,      ///< bytes in hexadecimal digits
        file      ///< a path
    };
    std::string name;    ///< as in synopses: "VLAN"
    std::string meaning; ///< what it is, with its unit: "VLAN ID"
    Source source = Source::number;
    std::uint32_t max = UINT32_MAX; ///< highest number
    NamedNumbers words;             ///< words that stand for numbers
    std::uint32_t min = 0;          ///< lowest number

    /// What can be written for it: "tagged, untagged or a number up to 255".
    /// @param most words listed before the rest is left out
    std::string choices(std::size_t most = SIZE_MAX) const;

    /// The words and names that can be written for it, without numbers.
    std::vector<std::string> all_words(const Names &names_known) const;
};

const Kind &kind(std::string_view name); ///< the kind of that name, which must exist

/// The argument values of one command line.
class Arguments {
public:
    struct Value {
        std::string text;         ///< as written
        std::uint32_t number = 0; ///< what it stands for
    };

    bool has(const std::string &key) const { return values_.contains(key); }
    std::uint32_t number(const std::string &key) const { return values_.at(key).number; }
    std::uint32_t number_or(const std::string &key, std::uint32_t otherwise) const
    {
        return has(key) ? number(key) : otherwise;
    }
    std::uint16_t number16(const std::string &key) const { return static_cast<std::uint16_t>(number(key)); }
    const std::string &text(const std::string &key) const { return values_.at(key).text; }
    std::span<const std::string> rest() const { return rest_; } ///< of the kind that ends in ...

private:
    friend class Grammar;
    std::map<std::string, Value> values_;
    Words rest_;
};

/// What could be the next word.
struct NextWords {
    std::vector<std::string> words;
    bool or_file = false; ///< or the path of a file
};

class Grammar {
public:
    explicit Grammar(std::string_view synopsis);

    /// Reads arguments. A value is kept under the word that it belongs to, else under its kind.
    /// @param names what the script has named; NULL: names of ports and bridges are taken on trust
    /// @throws ScriptError that tells what was expected
    Arguments read(std::span<const std::string> words, const Names *names) const;

    /// What could be the next word, as far as there is a list of it: keywords, words of a kind, names.
    /// @param words the arguments so far; a wrong one is taken for a right one
    NextWords next_words(std::span<const std::string> words, const Names &names) const;

    /// Kinds of value that occur, once each.
    std::vector<const Kind *> kinds() const;

private:
    struct Part {
        std::string keyword;         ///< the word that introduces it; empty: none
        const Kind *value = nullptr; ///< NULL: the word alone
        bool optional = false;

        const std::string &key() const { return keyword.empty() ? value->name : keyword; }
        std::string text() const; ///< as in a synopsis, without brackets
    };

    const Part *optional_part(const std::string &word, const Arguments &so_far) const;
    static void read_value(const Part &part, const std::string &word, const Names *names, Arguments &arguments);

    std::vector<Part> parts_; ///< the required ones, then the optional ones
    bool takes_rest_ = false;
};

} // namespace host

#endif
