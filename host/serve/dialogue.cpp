#include "host/serve/dialogue.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace host {

namespace {

constexpr std::size_t frames_at_once = 50; ///< about a millisecond's work

Json status_data(ky_status_t status)
{
    const std::string name = name_of(status_names(), status);
    return {{"number", status}, {"name", name == fmt::to_string(status) ? Json() : Json(name)}};
}

/// What became of a frame.
Json frame_data(const Host &host, const sim::Outcome &outcome, bool with_trace)
{
    const auto drop_data = [](sim::Drop drop) { return drop == sim::Drop::none ? Json() : Json(sim::name(drop)); };
    Json sent = Json::array();
    for (const sim::Transmission &transmission : outcome.transmissions)
        sent.push_back({{"port", host.names.port(transmission.port)}, {"frame", sim::hex(transmission.frame)}});
    Json not_sent = Json::array();
    for (const sim::Exit &exit : outcome.exits)
        if (exit.drop != sim::Drop::none)
            not_sent.push_back({{"port", host.names.port(exit.port)}, {"why", drop_data(exit.drop)}});
    Json frame = {{"port", host.names.port(outcome.port)},
                  {"dropped", drop_data(outcome.drop)},
                  {"sent", std::move(sent)},
                  {"not_sent", std::move(not_sent)}};
    if (with_trace) {
        std::string trace = sim::trace(outcome, host.port_names());
        trace.pop_back(); // the last line end
        frame["trace"] = std::move(trace);
    }
    return frame;
}

Json log_data(const std::vector<Log::Line> &lines)
{
    Json data = Json::array();
    for (const Log::Line &line : lines)
        data.push_back(
            {{"severity", severity_name(line.severity)}, {"module", line.module}, {"message", line.message}});
    return data;
}

Json error_data(const char *kind, const std::string &text, const std::string &expected)
{
    return {{"kind", kind}, {"text", text}, {"expected", expected}};
}

} // namespace

void RequestDialogue::begin(const std::string &line)
{
    answer_ = Json::object();
    try {
        const Json object = parse_request(line);
        if (Json id = request_id(object); !id.is_null())
            answer_["id"] = std::move(id);
        Request request = read_request(object, host_.names);
        std::visit([this](auto &asked) { carry_out(asked); }, request);
    } catch (const RequestError &error) {
        refuse("request", error.what(), error.expected);
    } catch (const ScriptError &error) {
        refuse("command", error.what(), error.usage);
    }
}

void RequestDialogue::go_on()
{
    if (!interpreter_.is_busy())
        return send_some();
    try {
        tell(interpreter_.continue_command());
    } catch (const ScriptError &error) {
        refuse("command", error.what(), error.usage);
    }
}

void RequestDialogue::refuse_line()
{
    answer_ = Json::object();
    refuse("request", "the line is too long; this ends the session",
           fmt::format("at most {} bytes", request_bytes_max));
}

void RequestDialogue::carry_out(const Hello &)
{
    answer_["ok"] = true;
    answer_["protocol"] = protocol_version;
    answer_["program"] = "kybridge-host";
    answer_["version"] = KYBRIDGE_VERSION;
    answer_["module"] = host_.module.file;
    answer_["limits"] = {{"bytes", request_bytes_max}, {"frames", request_frames_max}};
    reply();
}

void RequestDialogue::carry_out(const Words &words)
{
    screens_.data = Json::array();
    frames_before_ = interpreter_.giver().frames_sent;
    tell(interpreter_.begin_command(words));
}

void RequestDialogue::carry_out(Send &send)
{
    answer_["ok"] = true;
    answer_["frames"] = Json::array();
    send_ = std::move(send);
    sent_ = 0;
    send_some();
}

/// Sends the next frames, and answers after the last.
void RequestDialogue::send_some()
{
    const std::size_t end = std::min(send_.frames.size(), sent_ + frames_at_once);
    for (; sent_ < end; ++sent_) {
        const auto &[log_port, frame] = send_.frames[sent_];
        answer_["frames"].push_back(frame_data(host_, interpreter_.send(log_port, frame), send_.trace));
    }
    if (sent_ == send_.frames.size())
        reply();
}

/// Tells what became of a command, unless it goes on.
void RequestDialogue::tell(const std::optional<Answer> &answer)
{
    if (!answer)
        return;
    answer_["ok"] = answer->as_expected() && answer->misuses.empty();
    answer_["status"] = status_data(answer->result.status);
    answer_["did"] = answer->as_expected() ? answer->text() : "";
    answer_["log"] = log_data(answer->log);
    answer_["screens"] = std::exchange(screens_.data, Json::array());
    if (const Giver &giver = interpreter_.giver(); giver.frames_sent != frames_before_)
        answer_["frames"] = Json::array({frame_data(host_, *giver.last_frame, true)});
    if (!answer->misuses.empty())
        answer_["error"] =
            error_data("misuse", fmt::format("the SDK was misused: {}", fmt::join(answer->misuses, "; ")),
                       "calls that a real SDK takes");
    else if (!answer->as_expected())
        answer_["error"] = error_data(answer->result.failed ? "failed" : "status", answer->complaint(),
                                      numbered_status(answer->expected));
    reply();
}

void RequestDialogue::refuse(const char *kind, const std::string &text, const std::string &expected)
{
    answer_["ok"] = false;
    answer_["error"] = error_data(kind, text, expected);
    reply();
}

void RequestDialogue::reply()
{
    answers_.write(answer_.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

void ClientDialogue::begin(const std::string &line)
{
    if (line.starts_with('{'))
        current_ = &requests_;
    current_->begin(line);
}

} // namespace host
