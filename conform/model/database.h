/// Whether the module's database agrees with itself; and how checks walk through it.
#ifndef KYBRIDGE_CONFORM_MODEL_DATABASE_H
#define KYBRIDGE_CONFORM_MODEL_DATABASE_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "bridge/db.h"

namespace consistency {

/// Checks the database alone: every record in its pool or its map and nowhere else, every link returned,
/// every offset held once, every count right. Holds whatever the SDK refused. `db` may be NULL or that of
/// 802.1Q mode, of which nothing is asked.
/// @return what does not hold, one sentence each; empty: all well
std::vector<std::string> check_database(const bridge_db_t *db);

/// A logical port and a VLAN.
using PortVlan = std::pair<std::uint32_t, std::uint16_t>;

/// Collects what does not hold.
class Findings {
public:
    template <typename... Args> void expect(bool holds, fmt::format_string<Args...> text, Args &&...args)
    {
        if (!holds)
            texts_.push_back(fmt::format(text, std::forward<Args>(args)...));
    }
    std::vector<std::string> take() { return std::move(texts_); }

private:
    std::vector<std::string> texts_;
};

/// Whether there is a database with bridges and ports. @param db may be NULL
inline bool is_running(const bridge_db_t *db)
{
    return db != nullptr && db->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D;
}

/// Visits every record of a map, in the order of its keys.
template <typename Map, typename Visit> void for_each(const Map &map, Visit visit)
{
    for (auto *record = map.first(); record != nullptr; record = map.next(record))
        visit(*record);
}

/// Counts the uses of VLANs on ports that virtual ports hold: one of the own, one of the internal VLAN.
std::map<PortVlan, unsigned> vlan_uses(const bridge_db_t &db);

} // namespace consistency

#endif
