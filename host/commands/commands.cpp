#include "host/commands/commands.h"

#include <algorithm>

#include <fmt/format.h>

namespace host {

namespace {

std::vector<std::string> names_of_commands()
{
    std::vector<std::string> names;
    for (const CommandGroup &group : command_groups())
        for (const Command &command : group.commands)
            names.push_back(command.name);
    return names;
}

/// What may follow a word that begins the names of several commands: "add, delete"; empty: it begins none.
std::string continuations(const std::string &word)
{
    std::string list;
    for (const std::string &name : names_of_commands())
        if (name.starts_with(word + " "))
            list += (list.empty() ? "" : ", ") + name.substr(word.size() + 1);
    return list;
}

} // namespace

const std::vector<CommandGroup> &command_groups()
{
    static const std::vector<CommandGroup> groups = {
        module_commands(), port_commands(),  bridge_commands(), vport_commands(),  sdk_commands(),
        show_commands(),   frame_commands(), draw_commands(),   script_commands(), call_commands()};
    return groups;
}

const Command &find_command(std::span<const std::string> words)
{
    const std::string two_words = join(words.first(std::min<std::size_t>(2, words.size())));
    for (const std::string &name : {two_words, words.front()})
        for (const CommandGroup &group : command_groups())
            for (const Command &command : group.commands)
                if (command.name == name)
                    return command;

    const std::string nearest = did_you_mean(two_words, names_of_commands());
    const std::string verbs = continuations(words.front());
    if (verbs.empty())
        throw ScriptError(nearest.empty()
                              ? fmt::format("unknown command '{}'; 'help' lists the commands", words.front())
                              : fmt::format("unknown command '{}'{}", two_words, nearest));
    if (words.size() == 1)
        throw ScriptError(fmt::format("'{}' is not a whole command; it goes on with one of: {}", words.front(), verbs));
    throw ScriptError(
        fmt::format("unknown command '{}'{}", two_words,
                    nearest.empty() ? fmt::format("; '{}' goes on with one of: {}", words.front(), verbs) : nearest));
}

std::span<const std::string> arguments_of(const Command &command, std::span<const std::string> words)
{
    return words.subspan(parse_line(command.name).size());
}

NextWords completions(std::span<const std::string> words, const Names &names)
{
    NextWords next;
    for (const std::string &name : names_of_commands()) {
        const Words parts = parse_line(name);
        if (words.size() < parts.size() && std::equal(words.begin(), words.end(), parts.begin()))
            next.words.push_back(parts[words.size()]);
    }
    try {
        if (!words.empty()) {
            const Command &command = find_command(words);
            const auto arguments = arguments_of(command, words);
            const std::size_t before = command.name == "expect" ? 1 : 0; // its status
            const bool takes_command = command.name == "expect" || command.name == "help";
            const NextWords more = takes_command && arguments.size() >= before
                                       ? completions(arguments.subspan(before), names)
                                       : command.grammar.next_words(arguments, names);
            std::ranges::copy(more.words, std::back_inserter(next.words));
            next.or_file = more.or_file;
        }
    } catch (const ScriptError &) {
        // No command begins so, or only with one more word; then that is among the names above.
    }
    std::ranges::sort(next.words);
    next.words.erase(std::unique(next.words.begin(), next.words.end()), next.words.end());
    return next;
}

std::string usage(const Command &command)
{
    return command.synopsis.empty() ? command.name : command.name + " " + command.synopsis;
}

std::string help(const Command &command)
{
    std::string text = fmt::format("{}\n    {}.\n", usage(command), command.description);
    for (const Kind *kind : command.grammar.kinds())
        text += fmt::format("    {:<9} {}: {}\n", kind->name, kind->meaning, kind->choices());
    return text + fmt::format("    example:  {}\n", command.example);
}

std::string help_on_all_commands()
{
    std::string text = "COMMANDS, one a line; # starts a comment. Numbers are decimal, or hexadecimal after 0x; ports "
                       "and\nbridges go by the names that a script gave them, or by their numbers. 'help COMMAND' "
                       "tells more.\n";
    for (const CommandGroup &group : command_groups()) {
        text += fmt::format("\n{}\n", group.title);
        for (const Command &command : group.commands)
            text += fmt::format("  {}\n      {}.\n      example:  {}\n", usage(command), command.description,
                                command.example);
    }
    return text;
}

Result answer_of(const Host &host, ky_status_t status, std::string text)
{
    if (status == KY_STATUS_SUCCESS && !host.module.is_started())
        text = "nothing done: the module is not started";
    return {status, std::move(text)};
}

} // namespace host
