#include "conform/side_by_side.h"

#include <algorithm>

#include <fmt/ranges.h>

#include "bridge/bridge.h"
#include "conform/model/database.h"

namespace conform {

using operations::Answer;
using operations::Kind;
using operations::Operation;
using operations::State;
using operations::Surroundings;

namespace {

const bridge_db_t *database()
{
    return PROCESS_SYMBOL(bridge_db);
}

/// Whether a refusal may leave an operation between its two ends.
bool can_be_half_done(Kind kind)
{
    return kind == Kind::start || kind == Kind::stop || kind == Kind::remove || kind == Kind::remove_port ||
           kind == Kind::clear || kind == Kind::announce || kind == Kind::restore || kind == Kind::learn ||
           kind == Kind::unbind;
}

std::string text(const Answer &answer)
{
    return answer.values.empty() ? fmt::format("{}", answer.status)
                                 : fmt::format("{}, {}", answer.status, fmt::join(answer.values, " "));
}

/// The lines of one text that are not in the other, for a state that has many.
std::string difference(const State &of, const State &from)
{
    const std::string other = operations::text(from);
    std::string lines;
    std::string::size_type begin = 0;
    const std::string all = operations::text(of);
    while (begin < all.size()) {
        const auto end = all.find('\n', begin) + 1;
        const std::string line = all.substr(begin, end - begin);
        if (other.find(line) == std::string::npos)
            lines += line;
        begin = end;
    }
    return fmt::format("the module holds: {}", lines.empty() ? "nothing of that" : lines);
}

void expect_sound_database()
{
    const std::vector<std::string> findings = consistency::check_database(database());
    expect(findings.empty(), fmt::format("the module's database: {}", fmt::join(findings, "; ")),
           "a database that agrees with itself");
}

} // namespace

Surroundings SideBySide::surroundings(const Answer &answer) const
{
    Surroundings sdk = {};
    sdk.limits = PROCESS_SYMBOL(rm_resource_global);
    sdk.check_port = [this](std::uint32_t log_port) {
        const auto &ports = settings_.ports;
        return ky_status_t{std::find(ports.begin(), ports.end(), log_port) != ports.end() ? KY_STATUS_SUCCESS
                                                                                          : KY_STATUS_ENTRY_NOT_FOUND};
    };
    sdk.serves = [this](std::uint8_t swid) { return swid == settings_.swid; };
    if (expected_.is_1d() && database() != nullptr)
        sdk.acls = {database()->ingress_region.acl_id, database()->egress_region.acl_id};
    sdk.next_group =
        answer.values.empty() ? std::uint32_t{KY_VLAN_GROUP_NONE} : answer.values.front(); // the SDK's own number
    return sdk;
}

/// Delivers an event as the adviser would.
ky_status_t SideBySide::deliver(std::uint32_t event_type, std::uint32_t log_port, std::uint8_t swid) const
{
    ky_port_event_t event = {};
    event.log_port = log_port;
    event.swid = event_type == KY_ADVISER_EVENT_PORT_ADD_INTO_SWID ? swid : settings_.swid;
    return PROCESS_SYMBOL(__bridge_port_add_swid_callbacks)(event_type, &event);
}

void SideBySide::follow_refusal(const Operation &operation, ky_status_t status, const State &before)
{
    if (refusals_++ == 0)
        first_refusal_ = fmt::format("'{}' answered {}", operations::text(operation), status);
    const State after = operations::read_state(database());
    half_done_ = after != before && after != expected_;
    expect(!half_done_ || can_be_half_done(operation.kind),
           fmt::format("{}, and {}", status, difference(after, before)), "what was before, since it was refused");
    expected_ = after;
}

void SideBySide::run(const Operation &operation, Refusal refusal)
{
    ++operations_;
    calling(fmt::format("'{}', operation {}", operations::text(operation), operations_));
    const State before = expected_;
    const Answer answer =
        carry_out(operation, [this](std::uint32_t event_type, std::uint32_t log_port, std::uint8_t swid) {
            return deliver(event_type, log_port, swid);
        });
    const Answer predicted = predict(expected_, operation, surroundings(answer));
    if (refusal == Refusal::is_allowed && predicted.status == KY_STATUS_SUCCESS && answer.status != KY_STATUS_SUCCESS) {
        follow_refusal(operation, answer.status, before);
    } else {
        expect(answer == predicted, text(answer), text(predicted));
        const State actual = operations::read_state(database());
        expect(actual == expected_, difference(actual, expected_), difference(expected_, actual));
    }
    if (operation.kind == Kind::bind && answer.status == KY_STATUS_SUCCESS)
        expect(std::count_if(expected_.bridges.begin(), expected_.bridges.end(),
                             [&](const auto &each) { return each.second.group == answer.values.front(); }) == 1,
               fmt::format("group {}, which is another bridge's too", answer.values.front()), "a group of its own");
    expect_sound_database();
}

} // namespace conform
