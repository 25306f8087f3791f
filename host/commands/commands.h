/// The commands of scripts. Each is one entry of a table, which help, checking and running all read.
#ifndef KYBRIDGE_HOST_COMMANDS_H
#define KYBRIDGE_HOST_COMMANDS_H

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/language/grammar.h"
#include "host/language/script.h"

namespace host {

struct Command {
    std::string name;        ///< one word or two: "vport add"
    std::string synopsis;    ///< its arguments, in the form that Grammar reads
    std::string description; ///< what it does, in one line
    std::string example;     ///< a whole line of a script
    /// Carries it out. `expect` alone has none: it is about the command that follows it.
    std::function<Result(Host &, const Arguments &)> run;
    /// Looks for what is wrong with arguments that fit the synopsis, without carrying anything out. Throws ScriptError.
    /// The names are NULL where those of ports and bridges are taken on trust.
    std::function<void(const Arguments &, const Names *)> check = {};
    Grammar grammar = Grammar(synopsis);
};

struct CommandGroup {
    std::string title;
    std::vector<Command> commands;
};

CommandGroup module_commands(); ///< start, stop, the device's limits
CommandGroup port_commands();
CommandGroup bridge_commands();
CommandGroup vport_commands();
CommandGroup sdk_commands();   ///< what a host sets up in the SDK, and planned faults
CommandGroup frame_commands(); ///< the software switch
CommandGroup show_commands();
CommandGroup draw_commands();   ///< pictures
CommandGroup script_commands(); ///< what is about the script itself
CommandGroup call_commands();   ///< every exported function with any arguments

const std::vector<CommandGroup> &command_groups();

/// The command that a line begins with.
/// @param words at least one @throws ScriptError with the nearest command
const Command &find_command(std::span<const std::string> words);

/// The words that follow a command's name.
std::span<const std::string> arguments_of(const Command &command, std::span<const std::string> words);

/// What could be the next word of a line, as far as there is a list of it, sorted. Nothing after wrong words.
NextWords completions(std::span<const std::string> words, const Names &names);

std::string usage(const Command &command); ///< name and synopsis
std::string help(const Command &command);  ///< a screen on one command
std::string help_on_all_commands();        ///< every command with its description and an example

/// The port of the stand-in. @throws ScriptError when there is none
sdk::Port &known_port(Host &host, std::uint32_t log_port);

/// The result of a call into the module. A module that is not started does nothing and answers 0; the
/// text then says so.
Result answer_of(const Host &host, ky_status_t status, std::string text);

} // namespace host

#endif
