#include "host/pictures/picture.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <utility>

#include <fmt/format.h>

#include "bridge/db.h"

namespace host {

namespace {

/// What a frame that came to a row did there.
enum class Mark { none, passed, dropped };

/// A VLAN of a port: a virtual port, or a plain membership.
struct Row {
    std::uint16_t vlan = 0;   ///< that frames carry outside
    std::uint16_t inside = 0; ///< that connects it: the internal VLAN of its bridge, or the same one
    std::string text = {};
    std::string rule = {}; ///< its ingress rule; empty: none
    Mark mark = Mark::none;
    std::string note = {}; ///< what became of the frame there
};

struct PortNode {
    std::uint32_t log_port = 0;
    std::string state;
    std::string_view colour;
    std::vector<Row> rows;
    Mark mark = Mark::none;
    std::string note; ///< what became of a frame that came to none of its rows
};

/// What connects rows of ports.
struct Middle {
    std::vector<std::string> lines; ///< the first one is its title
    std::string colour;
};

// Colours of a port by its state, light enough for black text.
constexpr std::string_view forwarding_colour = "#d5f0d5";
constexpr std::string_view learning_colour = "#fff2b3";
constexpr std::string_view discarding_colour = "#d9d9d9";
constexpr std::string_view down_colour = "#f8cccc";
constexpr std::string_view passed_colour = "#0a7d0a";
constexpr std::string_view dropped_colour = "#c00000";
constexpr std::string_view faint_colour = "#c8c8c8";

/// Colours of bridges, each with its lines; darker than those of ports and told apart by most eyes.
constexpr std::array<std::string_view, 8> bridge_colours = {"#0072b2", "#d55e00", "#009e73", "#cc79a7",
                                                            "#8a6d00", "#56b4e9", "#6a3d9a", "#7f5539"};

std::string escaped(std::string_view text)
{
    std::string html;
    for (const char c : text)
        switch (c) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        default:
            html += c;
        }
    return html;
}

class Painter {
public:
    explicit Painter(const Host &host) : host_(host)
    {
        for (const auto &[log_port, port] : host.device.ports.ports)
            add_port(log_port, port);
        if (host.module.is_started() && (*host.module.bridge_db)->sdk_mode == KY_BRIDGE_SDK_MODE_802_1D)
            add_bridges(**host.module.bridge_db);
        add_plain_vlans();
        for (auto &[log_port, node] : ports_)
            std::ranges::sort(node.rows, {}, &Row::vlan);
    }

    /// Shows the way of a frame on the picture.
    void show(const sim::Outcome &frame)
    {
        frame_ = &frame;
        title_ = frame.header ? frame.header->text() : fmt::format("{} bytes that are no frame", frame.size);
        const std::uint16_t inside = frame.rule ? frame.rule->vlan : 0;
        const bool dropped = frame.drop != sim::Drop::none;
        mark(frame.port, frame.vlan ? std::optional(frame.vlan->vlan) : std::nullopt, inside,
             dropped ? Mark::dropped : Mark::passed,
             dropped ? fmt::format("dropped: {}", sim::text(frame.drop)) : "the frame comes in");
        for (const sim::Exit &exit : frame.exits) {
            const bool left = exit.drop == sim::Drop::none;
            const auto vlan = exit.rule ? std::optional(exit.rule->vlan) : std::nullopt;
            mark(exit.port, vlan, inside, left ? Mark::passed : Mark::dropped,
                 left ? fmt::format("leaves {}", exit.tag ? exit.tag->text() : "untagged")
                      : fmt::format("dropped: {}", sim::text(exit.drop)));
        }
    }

    std::string draw() const
    {
        std::string dot = "digraph switch {\n"
                          "  graph [rankdir=LR, ranksep=1.4, nodesep=0.12, fontname=\"Helvetica\", fontsize=14, "
                          "labelloc=t, tooltip=\" \"";
        if (!title_.empty())
            dot += fmt::format(", label=<<B>{}</B>>", escaped(title_));
        dot += "];\n"
               "  node [shape=plain, fontname=\"Helvetica\", fontsize=10, tooltip=\" \"];\n"
               "  edge [arrowhead=none, penwidth=1.5, tooltip=\" \"];\n";
        for (const auto &[inside, middle] : middles_)
            dot += draw_middle(inside, middle);
        // The first half of the ports stands to the left of the bridges, the other half to the right.
        std::size_t at = 0;
        const std::size_t half = (ports_.size() + 1) / 2;
        std::array<std::string, 2> sides;
        for (const auto &[log_port, node] : ports_) {
            const bool right = at++ >= half;
            dot += draw_port(node, right);
            sides.at(right ? 1 : 0) += fmt::format(" port_{};", log_port);
        }
        for (const std::string &side : sides)
            if (!middles_.empty() && !side.empty())
                dot += fmt::format("  {{ rank=same;{} }}\n", side);
        return dot + "}\n";
    }

private:
    void add_port(std::uint32_t log_port, const sdk::Port &port)
    {
        PortNode &node = ports_[log_port];
        node.log_port = log_port;
        node.state = fmt::format("{}{}{}{}{}", sdk::name(port.rstp_state), port.link_up ? "" : ", link down",
                                 port.pvid ? fmt::format(", PVID {}", *port.pvid) : "",
                                 port.router_port ? ", router port" : "", port.lag_member ? ", LAG member" : "");
        node.colour = !port.link_up                                   ? down_colour
                      : port.rstp_state == sdk::RstpState::forwarding ? forwarding_colour
                      : port.rstp_state == sdk::RstpState::learning   ? learning_colour
                                                                      : discarding_colour;
    }

    void add_bridges(const bridge_db_t &db)
    {
        const auto &bridges = db.bridge_map;
        for (const auto *bridge = bridges.first(); bridge != nullptr; bridge = bridges.next(bridge)) {
            Middle &middle = middles_[bridge->int_vlan];
            middle.colour = bridge_colours.at(middles_.size() % bridge_colours.size());
            middle.lines = {host_.names.bridge(bridge->bridge_id),
                            fmt::format("bridge {}, internal VLAN {}", bridge->bridge_id, bridge->int_vlan),
                            fmt::format("learning {}", name_of(learning_names(), bridge->learning_mode))};
            if (bridge->egress_offset != nullptr)
                middle.lines.push_back(fmt::format("egress rule {}, {} {}", bridge->egress_offset->offset,
                                                   bridge->egress_rule_ref_cnt,
                                                   bridge->egress_rule_ref_cnt == 1 ? "use" : "uses"));
            if (bridge->ref_cnt != 0)
                middle.lines.push_back(fmt::format("{} references", bridge->ref_cnt));
            const auto &vports = bridge->virtual_port_map;
            for (const auto *vport = vports.first(); vport != nullptr; vport = vports.next(vport))
                add_virtual_port(*bridge, *vport);
        }
    }

    void add_virtual_port(const bridge_db_bridge_t &bridge, const bridge_db_virtual_port_t &vport)
    {
        Row row{.vlan = vport.vlan, .inside = bridge.int_vlan};
        row.text = fmt::format("VLAN {} {}", vport.vlan, name_of(tagging_names(), vport.egress_mode));
        row.rule = vport.ingress_offset != nullptr ? fmt::format("rule {}", vport.ingress_offset->offset) : "no rule";
        ports_[vport.log_port].log_port = vport.log_port; // also one that the SDK has no more
        ports_[vport.log_port].rows.push_back(std::move(row));
        attached_.insert({vport.log_port, vport.vlan});
        attached_.insert({vport.log_port, bridge.int_vlan});
    }

    /// Memberships that no virtual port accounts for.
    void add_plain_vlans()
    {
        for (const auto &[vlan, members] : host_.device.vlans.members())
            for (const auto &[log_port, membership] : members) {
                if (attached_.contains({log_port, vlan}))
                    continue;
                if (!middles_.contains(vlan))
                    middles_[vlan] = {{fmt::format("VLAN {}", vlan)}, "#555555"};
                PortNode &node = ports_[log_port];
                node.log_port = log_port;
                node.rows.push_back({.vlan = vlan,
                                     .inside = vlan,
                                     .text = fmt::format("VLAN {} {}", vlan, name_of(tagging_names(), membership.mode)),
                                     .rule = ""});
            }
    }

    /// Marks a row of a port.
    /// @param vlan that the frame carries outside; none: not known, the row is that of `inside`
    void mark(std::uint32_t log_port, std::optional<std::uint16_t> vlan, std::uint16_t inside, Mark mark,
              const std::string &note)
    {
        PortNode &node = ports_[log_port];
        node.log_port = log_port;
        const auto row = std::ranges::find_if(node.rows, [&](const Row &candidate) {
            return vlan ? candidate.vlan == *vlan : candidate.inside == inside;
        });
        if (row == node.rows.end()) {
            node.mark = mark;
            node.note = note;
        } else {
            row->mark = mark;
            row->note = note;
        }
    }

    static std::string draw_middle(std::uint16_t inside, const Middle &middle)
    {
        std::string rows;
        for (const std::string &line : middle.lines)
            rows += line == middle.lines.front()
                        ? fmt::format("<TR><TD BGCOLOR=\"{}\"><FONT COLOR=\"white\"><B>{}</B></FONT></TD></TR>",
                                      middle.colour, escaped(line))
                        : fmt::format("<TR><TD>{}</TD></TR>", escaped(line));
        return fmt::format("  middle_{} [label=<<TABLE BORDER=\"2\" CELLBORDER=\"0\" CELLSPACING=\"0\" "
                           "CELLPADDING=\"4\" COLOR=\"{}\">{}</TABLE>>];\n",
                           inside, middle.colour, rows);
    }

    std::string draw_port(const PortNode &node, bool right) const
    {
        std::string rows =
            fmt::format("<TR><TD COLSPAN=\"2\" BGCOLOR=\"{}\"><B>{}</B><BR/>{}</TD></TR>",
                        node.colour.empty() ? down_colour : node.colour, escaped(host_.names.port(node.log_port)),
                        node.state.empty() ? "not in the SDK" : node.state);
        rows += draw_note(node.mark, node.note);
        std::string edges;
        for (const Row &row : node.rows) {
            rows += fmt::format("<TR><TD PORT=\"v{}\"{}>{}</TD>{}</TR>", row.vlan,
                                row.rule.empty() ? " COLSPAN=\"2\"" : "", row.text,
                                row.rule.empty() ? "" : fmt::format("<TD PORT=\"r{}\">{}</TD>", row.vlan, row.rule));
            rows += draw_note(row.mark, row.note);
            edges += draw_edge(node, row, right);
        }
        return fmt::format("  port_{} [label=<<TABLE BORDER=\"0\" CELLBORDER=\"1\" CELLSPACING=\"0\" "
                           "CELLPADDING=\"3\">{}</TABLE>>];\n{}",
                           node.log_port, rows, edges);
    }

    static std::string draw_note(Mark mark, const std::string &note)
    {
        if (mark == Mark::none)
            return "";
        return fmt::format("<TR><TD COLSPAN=\"2\"><FONT COLOR=\"{}\"><B>{}</B></FONT></TD></TR>",
                           mark == Mark::dropped ? dropped_colour : passed_colour, escaped(note));
    }

    std::string draw_edge(const PortNode &node, const Row &row, bool right) const
    {
        std::string style = fmt::format("color=\"{}\"", middles_.at(row.inside).colour);
        if (frame_ != nullptr && row.mark == Mark::none) {
            style = fmt::format("color=\"{}\"", faint_colour);
        } else if (frame_ != nullptr) {
            // The arrow points into the picture's middle where the frame comes in, else out of it.
            const bool comes_in = node.log_port == frame_->port;
            style = fmt::format(
                "color=\"{}\", penwidth=3, dir={}, {}", row.mark == Mark::dropped ? dropped_colour : passed_colour,
                comes_in == right ? "back" : "forward", comes_in == right ? "arrowtail=normal" : "arrowhead=normal");
        }
        const char cell = right || row.rule.empty() ? 'v' : 'r'; // the one that faces the middle
        const std::string outer = fmt::format("port_{}:{}{}:{}", node.log_port, cell, row.vlan, right ? 'w' : 'e');
        return right ? fmt::format("  middle_{} -> {} [{}];\n", row.inside, outer, style)
                     : fmt::format("  {} -> middle_{} [{}];\n", outer, row.inside, style);
    }

    const Host &host_;
    const sim::Outcome *frame_ = nullptr;
    std::string title_;
    std::map<std::uint32_t, PortNode> ports_;
    std::map<std::uint16_t, Middle> middles_;                    ///< by the VLAN that connects
    std::set<std::pair<std::uint32_t, std::uint16_t>> attached_; ///< memberships of virtual ports: (port, VLAN)
};

} // namespace

std::string picture(const Host &host, const sim::Outcome *frame)
{
    Painter painter(host);
    if (frame != nullptr)
        painter.show(*frame);
    return painter.draw();
}

} // namespace host
