#include "host/output/output.h"

#include "host/output/terminal.h"

namespace host {

/// After everything that was printed before it.
void TextOutput::complain(const std::string &text)
{
    if (&complaints_ != &answers_)
        answers_.flush();
    terminal::clear_progress();
    complaints_.write((terminal::has_colours(complaints_.descriptor()) ? terminal::red(text) : text) + "\n");
    if (&complaints_ != &answers_)
        complaints_.flush();
}

void TextOutput::show(const Table &screen)
{
    print(json_ ? screen.json() + "\n" : screen.text(terminal::has_colours(answers_.descriptor())));
}

} // namespace host
