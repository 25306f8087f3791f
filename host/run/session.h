/// Lines come in, answers go out, and neither ever waits for the other end.
#ifndef KYBRIDGE_HOST_SESSION_H
#define KYBRIDGE_HOST_SESSION_H

#include <memory>
#include <string>

#include "host/output/outlet.h"
#include "host/run/interpreter.h"

namespace host {

/// What is spoken in a session: what a line means, and how it is answered.
class Dialogue {
public:
    Dialogue() = default;
    virtual ~Dialogue() = default;
    Dialogue(const Dialogue &) = delete;
    Dialogue &operator=(const Dialogue &) = delete;

    /// Carries out a line, given without its end, or begins to. What it says goes to the session's outlet.
    virtual void begin(const std::string &line) = 0;
    virtual bool is_busy() const = 0; ///< the last line is not yet carried out
    virtual void go_on() = 0;         ///< does the next part of it, a few milliseconds' work at most

    /// Says why the session ends: a line is longer than this.
    virtual void refuse_line() = 0;
    virtual std::size_t longest_line() const = 0; ///< in bytes, without the line end
};

/// The commands of scripts, answered with text.
class CommandDialogue final : public Dialogue {
public:
    /// @param complaints may be the same
    CommandDialogue(Host &host, Outlet &answers, Outlet &complaints, const Files &files);

    void begin(const std::string &line) override { interpreter_.begin(line, "control"); }
    bool is_busy() const override { return interpreter_.is_busy(); }
    void go_on() override { interpreter_.go_on(); }
    void refuse_line() override;
    std::size_t longest_line() const override { return 4096; }

private:
    TextOutput output_;
    Interpreter interpreter_;
};

class Session {
public:
    /// @param input readable without waiting when receive is called
    /// @param answers never waits
    Session(int input, Outlet &answers, std::unique_ptr<Dialogue> dialogue)
        : input_(input), answers_(answers), dialogue_(std::move(dialogue))
    {
    }

    int input() const { return input_; }
    void receive(); ///< takes what has arrived
    void work();    ///< carries out one line, or a part of one that takes long

    bool wants_input() const { return open_ && received_.size() <= dialogue_->longest_line(); }
    /// Whether there is something to carry out. A client that does not read its answers has to wait for the next.
    bool has_work() const;
    bool has_ended() const { return !open_ && received_.empty() && !dialogue_->is_busy(); }

private:
    int input_;
    Outlet &answers_;
    std::unique_ptr<Dialogue> dialogue_;
    std::string received_; ///< and not yet carried out
    bool open_ = true;     ///< more can come
};

} // namespace host

#endif
