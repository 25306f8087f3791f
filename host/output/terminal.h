/// What only a person at a terminal gets to see: colours, and how far long work has come.
#ifndef KYBRIDGE_HOST_TERMINAL_H
#define KYBRIDGE_HOST_TERMINAL_H

#include <cstddef>
#include <string>

namespace terminal {

/// Forbids colours from now on.
void forbid_colours();

/// Forbids progress lines from now on: a terminal that takes nothing would hold up the work.
void forbid_progress();

/// Whether text to a descriptor may have colours: a terminal, not forbidden, and no NO_COLOR in the environment.
bool has_colours(int descriptor);

std::string bold(const std::string &text);
std::string red(const std::string &text);

/// A line on standard error that tells how far a long piece of work has come, and that goes away with its owner.
/// There is none unless standard error is a terminal.
class Progress {
public:
    /// @param work what is being done, "long.kyb"
    /// @param unit what is counted, "lines"
    /// @param wanted false: the work shows by itself how far it has come
    Progress(std::string work, std::string unit, bool wanted = true);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void step(); ///< one more is done

private:
    std::string work_;
    std::string unit_;
    std::size_t done_ = 0;
    bool visible_;
};

/// Takes such a line away, for something else to be written to the terminal in its place.
void clear_progress();

} // namespace terminal

#endif
