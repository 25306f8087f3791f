// Names of the services, the journal, planned faults, and the recorder that ties them to a call.
#include "sdk/recorder.h"

#include <algorithm>

namespace sdk {

std::string_view name(Service service)
{
    return record::service_names[static_cast<std::size_t>(service)];
}

std::optional<Service> find_service(std::string_view name)
{
    const auto *const found = std::ranges::find(record::service_names, name);
    if (found == std::end(record::service_names))
        return std::nullopt;
    return static_cast<Service>(found - std::begin(record::service_names));
}

// ---- Journal --------------------------------------------------------------------------------------

void Journal::keep(std::size_t calls)
{
    capacity_ = calls;
    while (calls_.size() > capacity_)
        calls_.pop_front();
}

const Call *Journal::find(std::uint64_t number) const
{
    const auto found = std::lower_bound(calls_.begin(), calls_.end(), number,
                                        [](const Call &call, std::uint64_t wanted) { return call.number < wanted; });
    return found != calls_.end() && found->number == number ? &*found : nullptr;
}

void Journal::clear()
{
    calls_.clear();
}

// ---- Planned faults -------------------------------------------------------------------------------

bool Faults::fail(Service service, unsigned nth, ky_status_t status)
{
    if (nth == 0 || service == Service::cl_free)
        return false;
    planned_.push_back({service, nth, status});
    return true;
}

bool Faults::fail_any(unsigned nth, ky_status_t status)
{
    if (nth == 0)
        return false;
    planned_.push_back({std::nullopt, nth, status});
    return true;
}

void Faults::clear()
{
    planned_.clear();
}

std::optional<ky_status_t> Faults::take(Service service)
{
    if (planned_.empty() || service == Service::cl_free)
        return std::nullopt;
    std::optional<ky_status_t> answer;
    for (auto planned = planned_.begin(); planned != planned_.end();) {
        const bool concerned = !planned->service || *planned->service == service;
        if (!concerned || --planned->remaining != 0) {
            ++planned;
            continue;
        }
        if (!answer) {
            const bool router_query = !planned->service && service == Service::port_db_check_port_mode_router_port;
            answer = router_query ? ky_status_t{KY_STATUS_SUCCESS} : planned->status;
        }
        planned = planned_.erase(planned);
    }
    return answer;
}

// ---- Recorder -------------------------------------------------------------------------------------

Recorder::Recorder(Service service, std::initializer_list<std::uint64_t> arguments, Bytes record)
    : service_(service), depth_(device().journal.depth_++), number_(++device().journal.count_),
      fault_(device().faults.take(service)), record_(record)
{
    if (device().journal.capacity_ != 0 || device().on_call) {
        call_.emplace();
        call_->number = number_;
        call_->service = service_;
        call_->arguments = arguments;
        call_->sent.assign(record_.begin(), record_.end());
        call_->depth = depth_;
    }
}

void Recorder::report(const std::string &text) const
{
    device().violations.push_back(fmt::format("call {} {}: {}", number_, name(service_), text));
}

void Recorder::report_difference(Bytes sent, Bytes expected) const
{
    const auto byte =
        static_cast<std::size_t>(std::mismatch(sent.begin(), sent.end(), expected.begin()).first - sent.begin());
    report(fmt::format("byte 0x{:03X} of the record is 0x{:02X}, expected 0x{:02X}", byte, sent[byte], expected[byte]));
}

void Recorder::finish(ky_status_t status)
{
    Journal &journal = device().journal;
    journal.depth_ = depth_;
    if (!call_)
        return;
    call_->returned.assign(record_.begin(), record_.end());
    call_->result = result_;
    call_->status = status;
    call_->planned = fault_.has_value();
    if (device().on_call)
        device().on_call(*call_);
    if (journal.capacity_ != 0) {
        // Calls that were made inside this one are kept already and belong behind it.
        auto place = journal.calls_.end();
        while (place != journal.calls_.begin() && std::prev(place)->number > number_)
            --place;
        journal.calls_.insert(place, std::move(*call_));
        journal.keep(journal.capacity_);
    }
}

} // namespace sdk
