// The rules of an ACL region, and how the one that acts on a frame is found among them.
#include "sdk/sdk.h"

#include <algorithm>

namespace sdk {

std::vector<RuleTable::MaskedRules>::iterator RuleTable::masked_rules_of(const Rule &rule)
{
    return std::ranges::find_if(tables_, [&rule](const MaskedRules &table) {
        return table.log_port_mask == rule.log_port_mask && table.vlan_mask == rule.vlan_mask;
    });
}

void RuleTable::write(std::uint16_t offset, const Rule &rule)
{
    erase(offset);
    const Rules::value_type *written = &*rules_.emplace(offset, rule).first;
    auto table = masked_rules_of(rule);
    if (table == tables_.end())
        table = tables_.insert(table, {rule.log_port_mask, rule.vlan_mask, {}});
    auto &same_key = table->by_key[table->key(rule.key_log_port, rule.key_vlan)];
    same_key.insert(std::ranges::upper_bound(same_key, offset, {}, [](const auto *entry) { return entry->first; }),
                    written);
}

bool RuleTable::erase(std::uint16_t offset)
{
    const auto entry = rules_.find(offset);
    if (entry == rules_.end())
        return false;
    const auto table = masked_rules_of(entry->second);
    const auto same_key = table->by_key.find(table->key(entry->second.key_log_port, entry->second.key_vlan));
    std::erase(same_key->second, &*entry);
    if (same_key->second.empty())
        table->by_key.erase(same_key);
    if (table->by_key.empty())
        tables_.erase(table);
    rules_.erase(entry);
    return true;
}

const RuleTable::Rules::value_type *RuleTable::first_match(std::uint32_t log_port, std::uint16_t vlan) const
{
    const Rules::value_type *first = nullptr;
    for (const MaskedRules &table : tables_) {
        const auto match = table.by_key.find(table.key(log_port, vlan));
        if (match != table.by_key.end() && (first == nullptr || match->second.front()->first < first->first))
            first = match->second.front();
    }
    return first;
}

} // namespace sdk
