#include "host/host.h"

#include <utility>

#include <fmt/format.h>

#include "host/output/terminal.h"

namespace host {

namespace {

bool only_asks(sdk::Service service)
{
    switch (service) {
    case sdk::Service::acl_bind_port_get:
    case sdk::Service::port_db_check_port_mode_router_port:
    case sdk::Service::port_swid_alloc_get:
    case sdk::Service::port_lag_member_state_get:
    case sdk::Service::swid_validation:
    case sdk::Service::mstp_mode_get:
    case sdk::Service::rstp_port_state_get:
        return true;
    default:
        return false;
    }
}

} // namespace

std::string_view severity_name(std::uint32_t severity)
{
    switch (severity) {
    case KY_LOG_ERROR:
        return "error";
    case KY_LOG_NOTICE:
        return "notice";
    case KY_LOG_DEBUG:
        return "debug";
    default:
        return "trace";
    }
}

std::string Log::Line::text() const
{
    return fmt::format("{} {}: {}", module, severity_name(severity), message);
}

void Host::write_log(const sdk::LogLine &line)
{
    const bool has_place = line.format.starts_with("%s[%d]- ");
    const std::size_t start = has_place && !log.places ? line.text.find("]- ") + 3 : 0;
    std::string message = line.text.substr(start);
    message.erase(message.find_last_not_of(" \n") + 1);
    log.lines.push_back({line.severity, line.module, std::move(message)});
    write_log(log.lines.back().text());
}

void Host::write_log(const std::string &text)
{
    if (log.outlet == &err)
        out.flush(); // after everything that was printed before it
    terminal::clear_progress();
    log.outlet->write(text + "\n");
    if (log.outlet == &err)
        err.flush();
}

sim::Mac station_at(std::uint32_t log_port)
{
    const auto byte = [log_port](unsigned shift) { return static_cast<std::uint8_t>(log_port >> shift); };
    return {{0x02, 0x00, byte(24), byte(16), byte(8), byte(0)}};
}

const sim::Outcome &Host::send(std::uint32_t log_port, sim::BytesView frame)
{
    ++giver->frames_sent;
    return giver->last_frame.emplace(software_switch.forward(log_port, frame));
}

sim::PortNames Host::port_names() const
{
    return [this](std::uint32_t log_port) { return names.port(log_port); };
}

void Host::trace(Tracing what)
{
    tracing = what;
    log.places = what == Tracing::off;
    device.on_call = nullptr;
    if (what != Tracing::off)
        device.on_call = [this](const sdk::Call &call) {
            if (tracing == Tracing::on || call.planned || !only_asks(call.service))
                write_log(std::string(std::size_t{2} * call.depth, ' ') + "SDK " + names.in(describe(call)));
        };
}

} // namespace host
