// Commands about the script itself.
#include "host/commands/commands.h"

#include <fmt/format.h>

namespace host {

namespace {

Result say(Host &, const Arguments &arguments)
{
    return {KY_STATUS_SUCCESS, join(arguments.rest())};
}

Result tell_help(Host &, const Arguments &arguments)
{
    std::string text = arguments.rest().empty() ? help_on_all_commands() : help(find_command(arguments.rest()));
    text.pop_back(); // the line end, which every result gets
    return {KY_STATUS_SUCCESS, text};
}

Result quit(Host &host, const Arguments &)
{
    host.quitting = true;
    return {};
}

} // namespace

CommandGroup script_commands()
{
    return {"THE SCRIPT",
            {
                {"expect", "STATUS COMMAND...", "Carries out a command that must be answered with this status",
                 "expect ENTRY_ALREADY_EXISTS vport add red north vlan 100 tagged", nullptr},
                {"say", "TEXT...", "Prints a line of text", "say The first tenant comes up", say},
                {"help", "[COMMAND...]", "Lists the commands, or tells more about one", "help vport add", tell_help},
                {"quit", "",
                 "Ends the scripts, the prompt, or forwarding between interfaces; the module is stopped if it runs",
                 "quit", quit},
            }};
}

} // namespace host
