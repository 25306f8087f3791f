// The ACL manager: regions, ACLs, rules, bindings and VLAN groups.
#include <array>
#include <set>

#include "conform/calls.h"
#include "conform/check.h"

namespace conform {

namespace {

constexpr std::uint32_t region_size = KY_VIRTUAL_PORTS_MAX; ///< the largest ingress region
constexpr std::uint32_t ingress = KY_ACL_DIRECTION_INGRESS;
constexpr std::uint32_t egress = KY_ACL_DIRECTION_EGRESS;

/// A region for as long as this lives; made on the way to something else.
class Region {
public:
    explicit Region(std::uint32_t size = region_size) : size_(size)
    {
        const Answered made = create_region(size);
        expect_status(made.status);
        id = made.id;
    }
    Region(const Region &) = delete;
    Region &operator=(const Region &) = delete;
    ~Region()
    {
        clean_up([this] { destroy_region(id, size_); });
    }

    std::uint32_t id = 0;

private:
    std::uint32_t size_;
};

/// A region with an ACL on it for as long as this lives.
class Acl {
public:
    explicit Acl(std::uint32_t direction, std::uint32_t size = region_size) : region(size), direction_(direction)
    {
        const Answered made = create_acl(region.id, direction);
        expect_status(made.status);
        id = made.id;
    }
    Acl(const Acl &) = delete;
    Acl &operator=(const Acl &) = delete;
    ~Acl()
    {
        clean_up([this] { destroy_acl(id, region.id, direction_); });
    }

    Region region;
    std::uint32_t id = 0;

private:
    std::uint32_t direction_;
};

// ---- Regions and ACLs -----------------------------------------------------------------------------------

std::string create_a_region(const Settings & /*settings*/)
{
    for (const std::uint32_t size : {std::uint32_t{1}, region_size}) {
        const Answered made = create_region(size);
        expect_status(made.status);
        destroy_region(made.id, size);
    }
    return "";
}

std::string destroy_a_region(const Settings & /*settings*/)
{
    for (int again = 0; again < 3; ++again) {
        const Answered made = create_region(region_size);
        expect_status(made.status);
        expect_status(destroy_region(made.id, region_size));
    }
    return "";
}

std::string distinct_regions(const Settings & /*settings*/)
{
    const Region first, second;
    expect(first.id != second.id, fmt::format("0, region {} again", second.id), "another region");
    return fmt::format("regions {} and {}", first.id, second.id);
}

std::string create_an_acl(const Settings & /*settings*/)
{
    const Region region;
    for (const std::uint32_t direction : {ingress, egress}) {
        const Answered made = create_acl(region.id, direction);
        expect_status(made.status);
        destroy_acl(made.id, region.id, direction);
    }
    return "";
}

std::string destroy_an_acl(const Settings & /*settings*/)
{
    const Region region;
    for (int again = 0; again < 3; ++again) {
        const Answered made = create_acl(region.id, ingress);
        expect_status(made.status);
        expect_status(destroy_acl(made.id, region.id, ingress));
    }
    return "";
}

std::string distinct_acls(const Settings & /*settings*/)
{
    const Acl first(ingress), second(egress);
    expect(first.id != second.id, fmt::format("0, ACL {} again", second.id), "another ACL");
    return fmt::format("ACLs {} and {}", first.id, second.id);
}

std::string acl_is_not_none(const Settings & /*settings*/)
{
    for (const std::uint32_t direction : {ingress, egress}) {
        const Acl made(direction);
        expect(made.id != KY_ACL_ID_NONE, fmt::format("0, ACL 0x{:X}", made.id), "any other number");
    }
    return "";
}

// ---- Rules ----------------------------------------------------------------------------------------------

std::string write_a_rule(const Settings &settings)
{
    const Acl in(ingress), out(egress);
    expect_status(write_rule(in.region.id, 1, settings.ports[0], 100, 1));
    expect_status(write_egress_rule(out.region.id, 1, 1, 100));
    delete_rule(in.region.id, 1);
    delete_rule(out.region.id, 1);
    return "";
}

std::string write_every_offset(const Settings &settings)
{
    const auto bridges = std::min<std::uint32_t>(PROCESS_SYMBOL(rm_resource_global).max_bridges, KY_VLAN_ID_MAX);
    const Acl in(ingress), out(egress, bridges);
    for (std::uint16_t offset = 1; offset <= region_size; ++offset)
        expect_status(write_rule(in.region.id, offset, settings.ports[0], offset, 1));
    for (std::uint16_t offset = 1; offset <= bridges; ++offset)
        expect_status(write_egress_rule(out.region.id, offset, offset, 100));
    for (std::uint16_t offset = 1; offset <= region_size; ++offset)
        delete_rule(in.region.id, offset);
    for (std::uint16_t offset = 1; offset <= bridges; ++offset)
        delete_rule(out.region.id, offset);
    return fmt::format("{} ingress and {} egress rules", +region_size, bridges);
}

std::string replace_a_rule(const Settings &settings)
{
    const Acl in(ingress);
    for (const bool dont_learn : {true, false, true})
        expect_status(write_rule(in.region.id, 7, settings.ports[0], 100, 1, dont_learn));
    expect_status(write_rule(in.region.id, 7, settings.ports[1], 200, 2));
    delete_rule(in.region.id, 7);
    return "";
}

std::string delete_a_rule(const Settings &settings)
{
    const Acl in(ingress);
    for (const std::uint16_t offset : {std::uint16_t{1}, std::uint16_t{region_size - 1}})
        for (int again = 0; again < 2; ++again) {
            expect_status(write_rule(in.region.id, offset, settings.ports[0], 100, 1));
            expect_status(delete_rule(in.region.id, offset));
        }
    return "";
}

constexpr std::array region_rows = {
    Check{"region.create", "a region of 1 or 512 rules can be made; its number alone is written into the record",
          "it does not start", "", create_a_region},
    Check{"region.destroy", "a region can be destroyed, and made again", "a refused start leaves the region behind",
          "region.create", destroy_a_region},
    Check{"region.distinct", "two regions have different numbers", "ingress rules land among the egress rules",
          "region.destroy", distinct_regions},
    Check{"acl.create", "an ACL of each direction can be made; its number alone is written into the record",
          "it does not start", "region.destroy", create_an_acl},
    Check{"acl.destroy", "an ACL can be destroyed, and made again", "a refused start leaves the ACL behind",
          "acl.create", destroy_an_acl},
    Check{"acl.distinct", "two ACLs have different numbers", "a port's ingress and egress bindings are mixed up",
          "acl.destroy", distinct_acls},
    Check{"acl.not-none", "an ACL is not number 0xFFFFF, which stands for none",
          "ky_bridge_port_acl_binding_get tells a bound port as unbound", "acl.destroy", acl_is_not_none},
    Check{"rule.write", "a rule of each direction can be written", "no virtual port can be attached", "acl.destroy",
          write_a_rule},
    Check{"rule.every-offset", "each offset from 1 to the region's size can be written",
          "ky_bridge_port_set answers that status once so many virtual ports or bridges are in use", "rule.write",
          write_every_offset},
    Check{"rule.replace", "a write at an offset in use replaces the rule",
          "ky_bridge_set_learning_mode answers that status, and a bridge learns in one direction only", "rule.write",
          replace_a_rule},
    Check{"rule.delete", "a rule can be deleted, and its offset written again", "a virtual port cannot be deleted",
          "rule.write", delete_a_rule},
};

// ---- Bindings -------------------------------------------------------------------------------------------

/// A port's binding for as long as this lives; made on the way to something else.
class Binding {
public:
    Binding(const Acl &acl, std::uint32_t direction, std::uint32_t port)
        : acl_(acl.id), direction_(direction), port_(port)
    {
        expect_status(bind_port(acl_, direction_, port_));
    }
    Binding(const Binding &) = delete;
    Binding &operator=(const Binding &) = delete;
    ~Binding()
    {
        clean_up([this] { unbind_port(acl_, direction_, port_); });
    }

private:
    std::uint32_t acl_, direction_, port_;
};

void expect_bound(const Acl &acl, std::uint32_t direction, std::uint32_t port)
{
    const Answered bound = read_binding(direction, port);
    expect(bound.status == KY_STATUS_SUCCESS && bound.id == acl.id, fmt::format("{}, ACL {}", bound.status, bound.id),
           fmt::format("0, ACL {}", acl.id));
}

void expect_unbound(std::uint32_t direction, std::uint32_t port)
{
    const Answered bound = read_binding(direction, port);
    expect(bound.status == KY_STATUS_ENTRY_NOT_FOUND, fmt::format("{}, ACL {}", bound.status, bound.id), "21");
}

std::string unbound_is_21(const Settings &settings)
{
    for (const std::uint32_t port : settings.ports)
        for (const std::uint32_t direction : {ingress, egress})
            expect_unbound(direction, port);
    return "";
}

std::string bind_every_port(const Settings &settings)
{
    for (const std::uint32_t direction : {ingress, egress}) {
        const Acl acl(direction);
        for (const std::uint32_t port : settings.ports)
            expect_status(bind_port(acl.id, direction, port));
        for (const std::uint32_t port : settings.ports)
            unbind_port(acl.id, direction, port);
    }
    return "";
}

std::string read_back(const Settings &settings)
{
    const Acl in(ingress);
    const Binding first(in, ingress, settings.ports[0]), second(in, ingress, settings.ports[1]);
    expect_bound(in, ingress, settings.ports[0]);
    expect_bound(in, ingress, settings.ports[1]);
    return "";
}

std::string bind_both_directions(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    const Acl in(ingress), out(egress);
    const Binding inwards(in, ingress, port), outwards(out, egress, port);
    expect_bound(in, ingress, port);
    expect_bound(out, egress, port);
    return "";
}

std::string unbind(const Settings &settings)
{
    const std::uint32_t port = settings.ports[0];
    const Acl in(ingress), out(egress);
    const Binding other(in, ingress, port);
    for (int again = 0; again < 2; ++again) {
        expect_status(bind_port(out.id, egress, port));
        expect_status(unbind_port(out.id, egress, port));
        expect_unbound(egress, port);
        expect_bound(in, ingress, port);
    }
    return "";
}

constexpr std::array binding_rows = {
    Check{"binding.unbound-is-21", "asked for a port that is bound to nothing, 21 is answered",
          "clearing a port that is not bound answers 13 or that status, and the port stays known", "acl.destroy",
          unbound_is_21},
    Check{"binding.bind", "each port can be bound to one ACL of each direction",
          "announcing the port, or attaching its first virtual port, answers that status", "binding.unbound-is-21",
          bind_every_port},
    Check{"binding.read-back", "the ACL that a port is bound to is read back; its number alone is written",
          "clearing the port answers 13: it seems to be bound to another ACL", "binding.bind", read_back},
    Check{"binding.both-directions", "a port is bound in both directions at once",
          "a port loses its ingress rules with its first virtual port", "binding.read-back", bind_both_directions},
    Check{"binding.unbind",
          "a port that was unbound in one direction is bound in the other only, and can be bound again",
          "a port cannot be cleared, or stays unbound once its last virtual port was gone", "binding.both-directions",
          unbind},
};

// ---- VLAN groups ----------------------------------------------------------------------------------------

/// A VLAN group with one VLAN for as long as this lives.
class Group {
public:
    explicit Group(std::uint16_t vlan) : vlan_(vlan)
    {
        const Answered made = create_group();
        expect_status(made.status);
        id = static_cast<std::uint16_t>(made.id);
        expect_status(set_group(KY_ACCESS_CMD_ADD, id, vlan_));
    }
    Group(const Group &) = delete;
    Group &operator=(const Group &) = delete;
    ~Group()
    {
        clean_up([this] {
            set_group(KY_ACCESS_CMD_DELETE, id, vlan_);
            set_group(KY_ACCESS_CMD_DESTROY, id, vlan_);
        });
    }

    std::uint16_t id = 0;

private:
    std::uint16_t vlan_;
};

std::string make_a_group(const Settings & /*settings*/)
{
    const Group group(1);
    return "";
}

std::string end_a_group(const Settings & /*settings*/)
{
    for (int again = 0; again < 3; ++again) {
        const Answered made = create_group();
        expect_status(made.status);
        const auto id = static_cast<std::uint16_t>(made.id);
        expect_status(set_group(KY_ACCESS_CMD_ADD, id, KY_VLAN_ID_MAX));
        expect_status(set_group(KY_ACCESS_CMD_DELETE, id, KY_VLAN_ID_MAX));
        expect_status(set_group(KY_ACCESS_CMD_DESTROY, id, KY_VLAN_ID_MAX));
    }
    return "";
}

std::string distinct_groups(const Settings & /*settings*/)
{
    const Group first(1), second(2);
    expect(first.id != second.id, fmt::format("group {} again", second.id), "another group");
    return fmt::format("groups {} and {}", first.id, second.id);
}

std::string group_is_not_none(const Settings & /*settings*/)
{
    const Group first(1), second(2);
    for (const std::uint16_t id : {first.id, second.id})
        expect(id != KY_VLAN_GROUP_NONE, "0, group 0xFFFF", "any other number");
    return "";
}

constexpr std::array group_rows = {
    Check{"group.create", "a VLAN group can be made, and given a VLAN, with a record of 14 bytes",
          "no bridge can be bound to a user's ACL", "", make_a_group},
    Check{"group.end", "a VLAN can be taken out of its group, and the group destroyed",
          "a bridge that was bound once cannot be destroyed any more", "group.create", end_a_group},
    Check{"group.distinct", "two VLAN groups have different numbers", "two bridges share a user's ACL", "group.end",
          distinct_groups},
    Check{"group.not-none", "a VLAN group is not number 0xFFFF, which stands for none",
          "a bound bridge seems to be unbound, and its group is never destroyed", "group.end", group_is_not_none},
};

} // namespace

std::span<const Check> region_checks()
{
    return region_rows;
}

std::span<const Check> binding_checks()
{
    return binding_rows;
}

std::span<const Check> group_checks()
{
    return group_rows;
}

} // namespace conform
