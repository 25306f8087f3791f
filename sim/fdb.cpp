#include "sim/fdb.h"

#include <algorithm>
#include <bit>
#include <tuple>
#include <utility>

namespace sim {
namespace {

using std::chrono::floor;
using std::chrono::seconds;

constexpr unsigned mac_bits = 48;

std::uint64_t make_key(std::uint16_t vlan, const Mac &mac)
{
    std::uint64_t key = vlan;
    for (const std::uint8_t byte : mac.bytes)
        key = key << 8 | byte;
    return key;
}

std::uint16_t vlan_of(std::uint64_t key)
{
    return static_cast<std::uint16_t>(key >> mac_bits);
}

Mac mac_of(std::uint64_t key)
{
    Mac mac;
    for (auto byte = mac.bytes.rbegin(); byte != mac.bytes.rend(); ++byte, key >>= 8)
        *byte = static_cast<std::uint8_t>(key);
    return mac;
}

/// Place of a key among `count` buckets. Addresses differ in few bits; the multiplication spreads them over the upper.
std::size_t bucket_number(std::uint64_t key, std::size_t count)
{
    constexpr std::uint64_t golden_ratio = 0x9E3779B97F4A7C15;
    return key * golden_ratio >> 32 & (count - 1);
}

} // namespace

Fdb::Fdb(std::size_t limit) : limit_(limit), buckets_(std::bit_ceil(limit), none), holders_(limit + 1, none) {}

Learning Fdb::learn(std::uint16_t vlan, const Mac &mac, std::uint32_t log_port)
{
    using enum Learning::Result;
    const std::uint64_t key = make_key(vlan, mac);
    if (const Index known_station = find(key); known_station != none) {
        Station &station = stations_[known_station];
        const Learning known_where{ports_[station.port].log_port == log_port ? known : moved,
                                   ports_[station.port].log_port};
        station.heard = now_;
        if (known_where.result == moved) {
            leave(known_station);
            join(known_station, port_of(log_port));
        } else if (station.newer != none) {
            unlink(known_station);
            link_as_newest(known_station);
        }
        return known_where;
    }

    const Index port = port_of(log_port);
    Learning learning{added};
    if (size_ == limit_) {
        const Port &fullest = ports_[ports_[port].stations == most_ ? port : holders_[most_]];
        learning = {replaced, fullest.log_port};
        remove(fullest.oldest);
        ++evictions_;
    }
    const Index place = take_place();
    Index &bucket = bucket_of(key);
    stations_[place].key = key;
    stations_[place].heard = now_;
    stations_[place].next = std::exchange(bucket, place);
    join(place, port);
    ++size_;
    return learning;
}

std::optional<std::uint32_t> Fdb::find(std::uint16_t vlan, const Mac &mac) const
{
    const Index station = find(make_key(vlan, mac));
    if (station == none)
        return std::nullopt;
    return ports_[stations_[station].port].log_port;
}

void Fdb::advance(std::chrono::nanoseconds time)
{
    const auto before = floor<seconds>(now_);
    now_ += time;
    if (floor<seconds>(now_) != before)
        forget_unheard();
}

void Fdb::set_ageing(seconds ageing)
{
    ageing_ = ageing;
    forget_unheard();
}

void Fdb::flush()
{
    for (const Port &port : ports_)
        flush(port.log_port);
}

void Fdb::flush(std::uint32_t log_port)
{
    const auto port = ports_by_number_.find(log_port);
    while (port != ports_by_number_.end() && ports_[port->second].oldest != none)
        remove(ports_[port->second].oldest);
}

void Fdb::flush(std::uint32_t log_port, std::uint16_t vlan)
{
    const auto port = ports_by_number_.find(log_port);
    if (port == ports_by_number_.end())
        return;
    for (Index station = ports_[port->second].oldest; station != none;) {
        const Index next = stations_[station].newer;
        if (vlan_of(stations_[station].key) == vlan)
            remove(station);
        station = next;
    }
}

std::vector<Fdb::Entry> Fdb::entries() const
{
    std::vector<Entry> list;
    list.reserve(size_);
    for (const Port &port : ports_) {
        for (Index i = port.oldest; i != none; i = stations_[i].newer) {
            const Station &station = stations_[i];
            list.push_back(
                {vlan_of(station.key), mac_of(station.key), port.log_port, floor<seconds>(now_ - station.heard)});
        }
    }
    std::sort(list.begin(), list.end(),
              [](const Entry &a, const Entry &b) { return std::tie(a.vlan, a.mac) < std::tie(b.vlan, b.mac); });
    return list;
}

// ---- Places and lists -----------------------------------------------------------------------------

Fdb::Index &Fdb::bucket_of(std::uint64_t key)
{
    return buckets_[bucket_number(key, buckets_.size())];
}

Fdb::Index Fdb::find(std::uint64_t key) const
{
    Index station = buckets_[bucket_number(key, buckets_.size())];
    while (station != none && stations_[station].key != key)
        station = stations_[station].next;
    return station;
}

Fdb::Index Fdb::port_of(std::uint32_t log_port)
{
    const auto [port, is_new] = ports_by_number_.try_emplace(log_port, static_cast<Index>(ports_.size()));
    if (is_new)
        ports_.push_back({.log_port = log_port});
    return port->second;
}

Fdb::Index Fdb::take_place()
{
    if (free_ != none)
        return std::exchange(free_, stations_[free_].next);
    stations_.emplace_back();
    return static_cast<Index>(stations_.size() - 1);
}

/// Puts a station at the end of its port's list.
void Fdb::link_as_newest(Index index)
{
    Station &station = stations_[index];
    Port &port = ports_[station.port];
    station.newer = none;
    station.older = std::exchange(port.newest, index);
    (station.older != none ? stations_[station.older].newer : port.oldest) = index;
}

void Fdb::unlink(Index index)
{
    const Station &station = stations_[index];
    Port &port = ports_[station.port];
    (station.older != none ? stations_[station.older].newer : port.oldest) = station.newer;
    (station.newer != none ? stations_[station.newer].older : port.newest) = station.older;
}

void Fdb::join(Index station, Index port)
{
    stations_[station].port = port;
    link_as_newest(station);
    count(port, ports_[port].stations + 1);
}

void Fdb::leave(Index station)
{
    const Index port = stations_[station].port;
    unlink(station);
    count(port, ports_[port].stations - 1);
}

/// Moves a port among those that hold as many stations as it does now, one more or one less than before.
void Fdb::count(Index index, std::uint32_t stations)
{
    Port &port = ports_[index];
    if (port.stations != 0) {
        (port.previous != none ? ports_[port.previous].next : holders_[port.stations]) = port.next;
        if (port.next != none)
            ports_[port.next].previous = port.previous;
    }
    port.stations = stations;
    if (stations != 0) {
        port.previous = none;
        port.next = std::exchange(holders_[stations], index);
        if (port.next != none)
            ports_[port.next].previous = index;
    }
    most_ = std::max(most_, stations);
    if (holders_[most_] == none)
        most_ = stations; // it was the last to hold one more
}

void Fdb::remove(Index station)
{
    leave(station);
    Index *link = &bucket_of(stations_[station].key);
    while (*link != station)
        link = &stations_[*link].next;
    *link = stations_[station].next;
    stations_[station].next = std::exchange(free_, station);
    --size_;
}

void Fdb::forget_unheard()
{
    for (Port &port : ports_) {
        while (port.oldest != none && now_ - stations_[port.oldest].heard >= ageing_)
            remove(port.oldest);
    }
}

} // namespace sim
