/// The prompt: commands typed by a person, with line editing, history and completion.
#ifndef KYBRIDGE_HOST_PROMPT_H
#define KYBRIDGE_HOST_PROMPT_H

#include "host/run/interpreter.h"

namespace host {

/// Carries out lines that are typed at the terminal, until Ctrl-D. Wrong ones are told and do nothing else. The
/// history is kept in ~/.kybridge_history when HOME is set.
void run_prompt(Host &host, Interpreter &interpreter);

} // namespace host

#endif
