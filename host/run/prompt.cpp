#include "host/run/prompt.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <editline/readline.h>
#include <fmt/format.h>
#include <unistd.h>

#include "host/commands/commands.h"

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
    rl_attempted_completion_over = 1; // no names of files where none fits
    try {
        const std::string before(rl_line_buffer, static_cast<std::size_t>(start));
        NextWords next = completions(parse_line(before), *names_known);
        if (next.or_file)
            return rl_completion_matches(text, rl_filename_completion_function);
        candidates = std::move(next.words);
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

volatile std::sig_atomic_t interrupted = 0;

void note_interrupt(int)
{
    interrupted = 1;
}

struct Free {
    void operator()(char *text) const { std::free(text); } // NOLINT(cppcoreguidelines-no-malloc): the editor's own
};

using Line = std::unique_ptr<char, Free>;

/// A line that was typed, NULL at the end of the input. Ctrl-C takes back what has been typed so far and ends
/// nothing: the state that a session has built up is worth more.
Line read_line()
{
    struct sigaction taken_back {
    }, before{};
    taken_back.sa_handler = note_interrupt;
    sigaction(SIGINT, &taken_back, &before);
    Line line;
    do {
        interrupted = 0;
        line.reset(readline("kybridge> "));
        if (interrupted != 0 || line == nullptr)
            fmt::print("\n");
    } while (interrupted != 0);
    sigaction(SIGINT, &before, nullptr);
    return line;
}

} // namespace

void run_prompt(Host &host, Interpreter &interpreter)
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
    while (!host.quitting) {
        const Line line = read_line();
        if (line == nullptr)
            break;
        if (*line != '\0' && last != line.get())
            add_history(line.get());
        last = line.get();
        interpreter.run_line(last, "that line");
        host.out.flush();
    }
    if (!file.empty() && write_history(file.c_str()) != 0)
        fmt::print(stderr, "{}: the history could not be written\n", file);
}

} // namespace host
