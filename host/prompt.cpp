#include "host/prompt.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <editline/readline.h>
#include <fmt/format.h>
#include <unistd.h>

#include "host/commands.h"

namespace host {

namespace {

constexpr int lines_remembered = 1000;

// The line editor's callbacks take no context.
const Names *names_known = nullptr;
std::vector<std::string> candidates; ///< for the word that is being completed
std::size_t next_candidate = 0;

char *next_match(const char *text, int state)
{
    if (state == 0)
        next_candidate = 0;
    while (next_candidate < candidates.size()) {
        const std::string &candidate = candidates[next_candidate++];
        if (candidate.starts_with(text))
            return strdup(candidate.c_str()); // freed by the line editor
    }
    return nullptr;
}

char **complete(const char *text, int start, int)
{
    rl_attempted_completion_over = 1; // no names of files where nothing fits
    try {
        const std::string before(rl_line_buffer, static_cast<std::size_t>(start));
        candidates = completions(parse_line(before), *names_known);
    } catch (const ScriptError &) {
        return nullptr; // inside a quoted word
    }
    return rl_completion_matches(text, next_match);
}

/// Where the history is kept between runs; empty: nowhere.
std::string history_file()
{
    const char *home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe): nobody changes it
    return home != nullptr && *home != '\0' ? std::string(home) + "/.kybridge_history" : "";
}

struct Free {
    void operator()(char *text) const { std::free(text); } // NOLINT(cppcoreguidelines-no-malloc): the editor's own
};

} // namespace

void run_prompt(const Host &host, Interpreter &interpreter)
{
    names_known = &host.names;
    rl_readline_name = "kybridge-host";
    rl_outstream = isatty(STDOUT_FILENO) != 0 ? stdout : stderr;
    rl_attempted_completion_function = complete;
    using_history();
    stifle_history(lines_remembered);
    const std::string file = history_file();
    if (!file.empty())
        read_history(file.c_str());

    fmt::print("Type commands, one a line; 'help' lists them, Tab completes, Ctrl-D ends.\n");
    (void)std::fflush(stdout);
    std::string last;
    while (const std::unique_ptr<char, Free> line{readline("kybridge> ")}) {
        if (*line != '\0' && last != line.get())
            add_history(line.get());
        last = line.get();
        interpreter.run_line(last, "that line");
        (void)std::fflush(stdout);
    }
    fmt::print("\n");
    if (!file.empty() && write_history(file.c_str()) != 0)
        fmt::print(stderr, "{}: the history could not be written\n", file);
}

} // namespace host
