/// The protocol for programs: one JSON request a line, one JSON answer a line. docs/protocol.md describes both.
#ifndef KYBRIDGE_HOST_DIALOGUE_H
#define KYBRIDGE_HOST_DIALOGUE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/run/session.h"
#include "host/serve/request.h"

namespace host {

/// Answers requests.
class RequestDialogue final : public Dialogue {
public:
    /// @param files that commands may read and make
    RequestDialogue(Host &host, Outlet &answers, const Files &files)
        : host_(host), answers_(answers), interpreter_(host, screens_, files)
    {
    }

    void begin(const std::string &line) override;
    bool is_busy() const override { return interpreter_.is_busy() || sent_ < send_.frames.size(); }
    void go_on() override;
    void refuse_line() override;
    std::size_t longest_line() const override { return request_bytes_max; }

private:
    /// Keeps the screens that a command shows. Of its words, the answer has those of its result.
    class Screens final : public Output {
    public:
        void print(std::string_view) override {}
        void complain(const std::string &) override {}
        void show(const Table &screen) override { data.push_back(screen.data()); }

        Json data = Json::array();
    };

    void carry_out(const Hello &);
    void carry_out(const Words &words);
    void carry_out(Send &send);
    void send_some();
    void tell(const std::optional<Answer> &answer);
    void refuse(const char *kind, const std::string &text, const std::string &expected);
    void reply();

    Host &host_;
    Outlet &answers_;
    Screens screens_;
    Interpreter interpreter_;
    Json answer_;                     ///< to the request that is being carried out
    Send send_;                       ///< its frames
    std::size_t sent_ = 0;            ///< so many of them
    std::uint64_t frames_before_ = 0; ///< frames sent by hand before its command
};

/// A client of the control socket: commands of scripts, or the protocol from the first line that begins with a brace.
class ClientDialogue final : public Dialogue {
public:
    /// @param files that commands may read and make
    ClientDialogue(Host &host, Outlet &answers, const Files &files)
        : commands_(host, answers, answers, files), requests_(host, answers, files)
    {
    }

    void begin(const std::string &line) override;
    bool is_busy() const override { return current_->is_busy(); }
    void go_on() override { current_->go_on(); }
    void refuse_line() override { current_->refuse_line(); }
    std::size_t longest_line() const override { return current_->longest_line(); }

private:
    CommandDialogue commands_;
    RequestDialogue requests_;
    Dialogue *current_ = &commands_;
};

} // namespace host

#endif
