#include "sim/fdb.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace sim {
namespace {

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

} // namespace

Learning Fdb::learn(std::uint16_t vlan, const Mac &mac, std::uint32_t port)
{
    const std::uint64_t key = make_key(vlan, mac);
    const auto entry = ports_.find(key);
    if (entry == ports_.end()) {
        if (ports_.size() >= limit_) {
            ++refused_;
            return {Learning::Result::full};
        }
        ports_.emplace(key, port);
        return {Learning::Result::added};
    }
    if (entry->second == port)
        return {Learning::Result::known};
    return {Learning::Result::moved, std::exchange(entry->second, port)};
}

std::optional<std::uint32_t> Fdb::find(std::uint16_t vlan, const Mac &mac) const
{
    const auto entry = ports_.find(make_key(vlan, mac));
    if (entry == ports_.end())
        return std::nullopt;
    return entry->second;
}

void Fdb::flush()
{
    ports_.clear();
}

void Fdb::flush(std::uint32_t port)
{
    std::erase_if(ports_, [port](const auto &entry) { return entry.second == port; });
}

void Fdb::flush(std::uint32_t port, std::uint16_t vlan)
{
    std::erase_if(ports_,
                  [port, vlan](const auto &entry) { return entry.second == port && vlan_of(entry.first) == vlan; });
}

std::vector<Fdb::Entry> Fdb::entries() const
{
    std::vector<Entry> list;
    list.reserve(ports_.size());
    for (const auto &[key, port] : ports_)
        list.push_back({vlan_of(key), mac_of(key), port});
    std::sort(list.begin(), list.end(),
              [](const Entry &a, const Entry &b) { return std::tie(a.vlan, a.mac) < std::tie(b.vlan, b.mac); });
    return list;
}

} // namespace sim
