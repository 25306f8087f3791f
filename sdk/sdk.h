/// The stand-in SDK: every platform service that the module calls, with real state behind it.
///
/// A process links it (libkysdk.so) and thereby supplies the services of kybridge/ky_sdk.h. They act on
/// the one `Device` of the process, which hosts, tests and the software switch read and set up through
/// `device()`. It answers as a real SDK would where the module can tell the difference, keeps a journal
/// of every call, and fails calls on request.
#ifndef KYBRIDGE_SDK_SDK_H
#define KYBRIDGE_SDK_SDK_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "kybridge/ky_sdk.h"
#include "record/calls.h"

namespace sdk {

// ---- Services, journal, planned faults ------------------------------------------------------------

/// Every call of the module into the SDK that the journal records and a planned fault can hit.
/// The log is left out: it is output, not state.
/// A planned fault of cl_malloc makes it return NULL, whatever the status; cl_free cannot fail.
#define KYSDK_SERVICE(answer, name, ...) name,
enum class Service : unsigned { KYBRIDGE_SERVICES(KYSDK_SERVICE) };
#undef KYSDK_SERVICE
inline constexpr std::size_t service_count = std::size(record::service_names);

/// The symbol's name, for example "acl_rules_set".
std::string_view name(Service service);
std::optional<Service> find_service(std::string_view name);

/// One call as the journal keeps it.
struct Call {
    std::uint64_t number = 0; ///< 1 for the first call since the device was reset
    Service service{};        ///< who was called
    /// The numbers passed, in order, the state of rstp_port_state_set among them; addresses are left out.
    std::vector<std::uint64_t> arguments;
    std::vector<std::uint8_t> sent;     ///< bytes of the record (or entries) as the module passed it
    std::vector<std::uint8_t> returned; ///< the same bytes after the call
    /// What was written through a plain out-argument (swid, mode, state); for memory that was given back, its bytes.
    std::uint64_t result = 0;
    ky_status_t status = 0; ///< what was answered
    bool planned = false;   ///< answered by a planned fault: nothing was done
    unsigned depth = 0;     ///< 1 for a call made inside another (bridge_port_set), else 0
};

/// The call in words, decoded: "acl_rules_set SET region 1 offset 3: port 0x00010001 vlan 100 -> vlan 1, don't learn".
/// A status that is not 0 follows, "-> 5", and for a planned fault "(planned fault)".
std::string describe(const Call &call);

class Journal {
public:
    /// Keeps the last `calls` calls; 0 keeps none and only counts. The default keeps 10000 (a rule write
    /// takes 13 kilobytes).
    void keep(std::size_t calls);
    const std::deque<Call> &calls() const { return calls_; } ///< oldest first
    std::uint64_t count() const { return count_; }           ///< calls since the device was reset
    const Call *find(std::uint64_t number) const;            ///< NULL when it is not kept any more
    void clear();                                            ///< forgets the calls; the numbers go on

private:
    friend class Recorder; ///< the services' side, in sdk/recorder.h
    std::deque<Call> calls_;
    std::size_t capacity_ = 10000;
    std::uint64_t count_ = 0;
    unsigned depth_ = 0;
};

/// Faults that are still to come. A planned fault answers a call with a status instead of doing it.
class Faults {
public:
    /// Fails the `nth` next call of a service, 1 being the very next, with `status`. For
    /// port_db_check_port_mode_router_port, where 0 means router port, the status is answered as it is. A
    /// status of 0 answers success, with nothing done. Counted from now; of two that fall on one call the
    /// earlier one answers.
    /// @return false: nothing is planned, since cl_free cannot fail or `nth` is 0
    bool fail(Service service, unsigned nth, ky_status_t status);
    /// Fails the `nth` next call of any service that can fail, 1 being the very next. The query
    /// port_db_check_port_mode_router_port is answered 0 then (a router port), whatever the status.
    /// @return false: nothing is planned, since `nth` is 0
    bool fail_any(unsigned nth, ky_status_t status);
    void clear();
    bool pending() const { return !planned_.empty(); }

    struct Planned {
        std::optional<Service> service; ///< none: any service
        unsigned remaining;             ///< calls until it hits, 1: the next
        ky_status_t status;
    };
    const std::vector<Planned> &planned() const { return planned_; }

private:
    friend class Recorder;
    std::optional<ky_status_t> take(Service service); ///< counts a call; the status when a fault hits it
    std::vector<Planned> planned_;
};

// ---- ACL manager ----------------------------------------------------------------------------------

enum class Direction : std::uint32_t { ingress = KY_ACL_DIRECTION_INGRESS, egress = KY_ACL_DIRECTION_EGRESS };
std::string_view name(Direction direction);

/// One valid rule. A frame matches when (value ^ key) & mask is 0 for port and VLAN.
struct Rule {
    std::uint32_t key_log_port = 0;
    std::uint32_t log_port_mask = 0;
    std::uint16_t key_vlan = 0;
    std::uint16_t vlan_mask = 0;
    std::uint16_t new_vlan = 0;
    bool dont_learn = false;
    std::uint64_t call = 0; ///< journal number of the call that wrote it last

    bool matches(std::uint32_t log_port, std::uint16_t vlan) const
    {
        return ((log_port ^ key_log_port) & log_port_mask) == 0 && ((vlan ^ key_vlan) & vlan_mask) == 0;
    }
};

/// The rules of a region by offset, the order in which they are tried. A hash table for each pair of masks in use
/// finds the first that matches in a time that does not depend on their number.
class RuleTable {
public:
    using Rules = std::map<std::uint16_t, Rule>;

    RuleTable() = default;
    RuleTable(RuleTable &&) = default;
    RuleTable &operator=(RuleTable &&) = default;

    void write(std::uint16_t offset, const Rule &rule);
    bool erase(std::uint16_t offset); ///< false: the offset held no rule

    /// Offset and rule of the first match in offset order, or NULL.
    const Rules::value_type *first_match(std::uint32_t log_port, std::uint16_t vlan) const;

    Rules::const_iterator find(std::uint16_t offset) const { return rules_.find(offset); }
    Rules::const_iterator begin() const { return rules_.begin(); }
    Rules::const_iterator end() const { return rules_.end(); }
    std::size_t size() const { return rules_.size(); }
    bool empty() const { return rules_.empty(); }

private:
    /// The rules of one pair of masks.
    struct MaskedRules {
        std::uint32_t log_port_mask = 0;
        std::uint16_t vlan_mask = 0;
        /// By masked log_port and VLAN; rules of the same key by offset.
        std::unordered_map<std::uint64_t, std::vector<const Rules::value_type *>> by_key;

        std::uint64_t key(std::uint32_t log_port, std::uint16_t vlan) const
        {
            return std::uint64_t{log_port & log_port_mask} << 16 | (vlan & vlan_mask);
        }
    };
    std::vector<MaskedRules>::iterator masked_rules_of(const Rule &rule);

    Rules rules_;
    std::vector<MaskedRules> tables_; ///< one for each pair of masks in use; points into rules_
};

struct Region {
    std::uint32_t size = 0; ///< offsets run from 1 to this
    RuleTable rules;
    std::uint64_t call = 0;
};

struct Acl {
    Direction direction{};
    std::uint32_t region_id = 0;
    std::uint64_t call = 0;
};

struct Binding {
    std::uint32_t acl_id = 0;
    std::uint64_t call = 0;
};

struct VlanGroup {
    std::set<std::uint16_t> vlans;
    std::uint64_t call = 0;
};

struct AclManager {
    std::map<std::uint32_t, Region> regions;                         ///< by region_id
    std::map<std::uint32_t, Acl> acls;                               ///< by acl_id
    std::map<std::pair<std::uint32_t, Direction>, Binding> bindings; ///< by log_port and direction
    std::map<std::uint16_t, VlanGroup> vlan_groups;                  ///< by vlan_group
    std::uint32_t next_region_id = 1;                                ///< handed out ascending, never reused
    std::uint32_t next_acl_id = 1;                                   ///< likewise
    std::uint16_t next_vlan_group = 1; ///< ascending, from 1 again after 0xFFFE; a group in use is passed over

    /// The rules that act on a port's frames in a direction; NULL when it is bound to no ACL.
    const Region *region_of(std::uint32_t log_port, Direction direction) const;
};

// ---- Ports, VLANs, spanning tree ------------------------------------------------------------------

/// RSTP port states of IEEE 802.1D-2004, 17.10, numbered by this SDK.
enum class RstpState : std::uint32_t { discarding = 0, learning = 1, forwarding = 2 };
std::string_view name(RstpState state);

struct Port {
    std::uint8_t swid = 0;
    std::uint32_t kind = 0; ///< KY_PORT_KIND_TCA_CONNECTOR, or anything else for a network port
    bool router_port = false;
    bool lag_member = false;
    bool link_up = true;               ///< a port that is down neither receives nor sends
    std::optional<std::uint16_t> pvid; ///< VLAN of untagged and priority-tagged frames; none: dropped
    RstpState rstp_state = RstpState::forwarding;
    std::uint64_t rstp_call = 0; ///< journal number of the module's last rstp_port_state_set, or 0
};

struct Membership {
    std::uint32_t mode = KY_EGRESS_MODE_TAGGED; ///< ky_egress_mode; a repeated join sets it anew
    std::uint64_t call = 0;                     ///< journal number of the last join; 0: made by the host itself
};

struct PortModule {
    std::map<std::uint32_t, Port> ports; ///< by log_port

    /// The port, or NULL. The services answer KY_STATUS_ENTRY_NOT_FOUND for an unknown port.
    Port *find(std::uint32_t log_port);
    const Port *find(std::uint32_t log_port) const;
};

class VlanModule {
public:
    /// Joins or leaves outside the module's services, as a host's own VLAN configuration does.
    void join(std::uint32_t log_port, std::uint16_t vlan, std::uint32_t mode, std::uint64_t call = 0);
    bool leave(std::uint32_t log_port, std::uint16_t vlan); ///< false: it was no member

    const Membership *find(std::uint32_t log_port, std::uint16_t vlan) const; ///< NULL: no member
    /// All memberships by VLAN, then by port.
    const std::map<std::uint16_t, std::map<std::uint32_t, Membership>> &members() const { return members_; }
    /// Members of one VLAN by port; an empty map when it has none.
    const std::map<std::uint32_t, Membership> &members(std::uint16_t vlan) const;

    /// Called after a port has left a VLAN: (log_port, vlan). The software switch flushes its FDB by it.
    std::function<void(std::uint32_t, std::uint16_t)> on_leave;

private:
    static std::uint64_t key(std::uint32_t log_port, std::uint16_t vlan)
    {
        return std::uint64_t{log_port} << 16 | vlan;
    }

    std::map<std::uint16_t, std::map<std::uint32_t, Membership>> members_;
    std::unordered_map<std::uint64_t, const Membership *> by_port_and_vlan_; ///< points into members_
};

// ---- Memory, adviser, log -------------------------------------------------------------------------

struct Memory {
    struct Block {
        std::size_t size = 0;
        std::uint32_t tag = 0;
    };
    std::map<void *, Block> outstanding;           ///< of utils_clr_memory_get
    std::map<void *, std::size_t> raw_outstanding; ///< of cl_malloc
    std::size_t bytes() const;                     ///< of both
};

class Adviser {
public:
    std::multimap<std::uint32_t, ky_adviser_callback_t> callbacks; ///< by event, in the order of registration
    bool strict = false; ///< keeps every registration, so that an event comes twice after a restart; else each once

    /// Delivers an event to every callback registered for it.
    /// @return the first status that is not 0, else 0; 0 when nobody registered
    ky_status_t deliver(std::uint32_t event_type, const ky_port_event_t &event);
};

/// One line of the SDK log.
struct LogLine {
    std::uint32_t severity = 0; ///< ky_log_severity
    std::string module;
    std::string format; ///< as passed
    std::string text;   ///< formatted, with the line end that the message brings
};

// ---- The device -----------------------------------------------------------------------------------

struct Device {
    AclManager acl;
    PortModule ports;
    VlanModule vlans;
    std::map<std::uint8_t, std::uint32_t> mstp_modes; ///< by SWID; a SWID that is not listed is in RSTP mode
    std::set<std::uint8_t> bridge_swids{0};           ///< SWIDs that sdk_validate_swid accepts; starts as {0}
    Memory memory;
    Adviser adviser;
    Journal journal;
    Faults faults;

    /// Where the log goes; none: thrown away.
    std::function<void(const LogLine &)> log;
    /// What bridge_port_set passes on to: the module's ky_bridge_port_set. None: answered with 13.
    std::function<ky_status_t(ky_access_cmd_t, std::uint16_t, std::uint32_t, std::uint16_t, std::uint32_t,
                              std::uint32_t)>
        bridge_port_set;
    /// Called at the end of every service call, with the call as the journal would keep it.
    std::function<void(const Call &)> on_call;

    /// Calls that a real SDK would call a bug of their caller, each in words: an unknown identifier, an
    /// offset that is not in use deleted, a double bind, a membership removed twice, memory put twice,
    /// a byte set in a record where zero is due. Such a call is refused as well.
    std::vector<std::string> violations;

    /// As after power-on: no state, no journal, no faults, no violations, no hooks; memory that is
    /// still outstanding is released. Not from inside a service call. Limits are 4094 bridges and 256 logical ports.
    void reset();

    /// The hardware state that the module can change (ACL manager, VLANs, RSTP), in words, one fact a line, sorted,
    /// without journal numbers: equal texts mean equal hardware. Rule offsets are part of it only with `with_offsets`.
    std::string snapshot(bool with_offsets = true) const;
};

/// The one device of the process.
Device &device();

/// Sets the limits in rm_resource_global.
void set_limits(std::uint32_t max_bridges, std::uint32_t max_log_ports);

} // namespace sdk

/// The SWID validation that hosts install in swid_validation_func_ptr: 0 for the device's bridge SWIDs,
/// KY_STATUS_PARAM_ERROR for others. Journalled and faultable as Service::swid_validation.
extern "C" ky_status_t sdk_validate_swid(unsigned int swid);

/// Adds ports 0x10001 to 0x10004 in SWID 0 to the device, and passes bridge_port_set on to the module that the process
/// has loaded for everybody (RTLD_GLOBAL). @return 0
extern "C" int sdk_setup(void);

#endif
