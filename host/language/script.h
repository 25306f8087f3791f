/// The text of a script, below the meaning of any command: lines into words, words into numbers, and the
/// nearest of several words to a mistyped one. Nothing here does input or output.
#ifndef KYBRIDGE_HOST_SCRIPT_H
#define KYBRIDGE_HOST_SCRIPT_H

#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host {

/// A script that says something that cannot be carried out. The text tells what is wrong and what would
/// be right; whoever reads the script adds file and line.
class ScriptError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    /// Of the arguments of a command. @param usage_of_command a line that is added to the text
    ScriptError(const std::string &text, const std::string &usage_of_command)
        : std::runtime_error(text + "\n  usage: " + usage_of_command), usage(usage_of_command)
    {
    }

    std::string usage; ///< empty: the command is not known, or not at fault
};

using Words = std::vector<std::string>;

/// Splits a line at blanks. "Double quotes" keep blanks in a word, and a word that begins with # starts a
/// comment. Blank lines and comments give no words.
/// @throws ScriptError for a control character or a quote that does not end
Words parse_line(std::string_view line);

/// A decimal number, or a hexadecimal one after 0x. Nothing for other text and for numbers beyond 32 bits.
std::optional<std::uint32_t> parse_number(std::string_view word);

/// The candidate that takes the fewest edits to reach, when it is close enough to be what was meant, in
/// the form "; did you mean 'port add'?"; else the empty string.
std::string did_you_mean(std::string_view word, std::span<const std::string> candidates);

/// Words joined by single blanks.
std::string join(std::span<const std::string> words);

} // namespace host

#endif
