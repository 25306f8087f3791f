// The text of a script, from its lines to the arguments of its commands; nothing is carried out.
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "host/run/interpreter.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    std::istringstream script(text);
    host::check_script(script, "fuzz");

    // What a word says must not change by being written down again.
    try {
        for (const std::string &word : host::parse_line(text))
            if (const auto number = host::parse_number(word);
                number && host::parse_number(std::to_string(*number)) != number)
                std::abort();
    } catch (const host::ScriptError &) { // NOLINT(bugprone-empty-catch): most texts are no script
    }
    return 0;
}
