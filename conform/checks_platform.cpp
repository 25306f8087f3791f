// The symbols of the process, the resource manager, memory, the adviser and the log.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include <fmt/ranges.h>

#include "bridge/db.h"
#include "conform/calls.h"
#include "conform/check.h"

namespace conform {

namespace {

// ---- Symbols --------------------------------------------------------------------------------------------

std::string all_present(const Settings & /*settings*/)
{
    const std::vector<std::string> names = service_names();
    std::vector<std::string> missing = names;
    std::erase_if(missing, [](const std::string &name) { return find_symbol(name.c_str()) != nullptr; });
    calling("dlsym for each of the services");
    expect(missing.empty(), fmt::format("missing: {}", fmt::join(missing, ", ")), "every service of ky_sdk.h");
    return fmt::format("{} symbols", names.size());
}

/// Whether the SDK brings cl_malloc, cl_free, both or neither. A block of the one is given to the other.
bool brings_raw_memory()
{
    const bool brings_malloc = find_symbol("cl_malloc") != nullptr;
    calling("dlsym for cl_malloc and cl_free");
    expect(brings_malloc == (find_symbol("cl_free") != nullptr), brings_malloc ? "cl_malloc alone" : "cl_free alone",
           "both or neither");
    return brings_malloc;
}

constexpr std::array symbol_rows = {
    Check{"symbols.present", "the process supplies every service", "it cannot be loaded", "", all_present},
    Check{"symbols.raw-memory", "the process supplies cl_malloc and cl_free, or neither",
          "memory of one allocator is given to another", "",
          [](const Settings & /*settings*/) -> std::string {
              return brings_raw_memory() ? "both" : "neither: the module brings its own";
          }},
};

// ---- Limits ---------------------------------------------------------------------------------------------

std::string limit_on_bridges(const Settings & /*settings*/)
{
    const rm_resource_t &limits = PROCESS_SYMBOL(rm_resource_global);
    calling("rm_resource_global.max_bridges, at byte 0");
    expect(limits.max_bridges != 0, "0", "the highest number of bridges, before ky_bridge_init");
    return fmt::format("{} bridges", limits.max_bridges);
}

std::string limit_on_ports(const Settings &settings)
{
    const rm_resource_t &limits = PROCESS_SYMBOL(rm_resource_global);
    calling("rm_resource_global.max_log_ports, at byte 4");
    expect(limits.max_log_ports >= settings.ports.size(), fmt::format("{}", limits.max_log_ports),
           fmt::format("{} or more: so many ports were named", settings.ports.size()));
    return fmt::format("{} logical ports", limits.max_log_ports);
}

// ---- Memory ---------------------------------------------------------------------------------------------

/// Memory of the utility, as large as the module's database, for as long as this lives.
class Memory {
public:
    static constexpr std::uint32_t size = sizeof(bridge_db_t);

    Memory()
    {
        expect_status(get_memory(address, size));
        expect(address != nullptr, "0, and the address was not written", "0 and an address");
    }
    Memory(const Memory &) = delete;
    Memory &operator=(const Memory &) = delete;
    ~Memory()
    {
        clean_up([this] { put_memory(address); });
    }

    void expect_zero() const
    {
        const auto *const bytes = static_cast<const std::uint8_t *>(address);
        const auto *const found = std::find_if(bytes, bytes + size, [](std::uint8_t byte) { return byte != 0; });
        if (found != bytes + size)
            expect(false, fmt::format("byte {} is 0x{:02X}", found - bytes, *found), "every byte is 0");
    }
    void use() const { std::memset(address, 0x5A, size); }

    void *address = nullptr;
};

void expect_aligned(const void *address)
{
    expect(reinterpret_cast<std::uintptr_t>(address) % alignof(std::max_align_t) == 0, fmt::format("{}", address),
           fmt::format("a multiple of {}", alignof(std::max_align_t)));
}

std::string zero_again(const Settings & /*settings*/)
{
    for (int again = 0; again < 3; ++again) { // a block that is given back is often the next to be given out
        const Memory memory;
        memory.expect_zero();
        memory.use();
    }
    return "";
}

std::string separate_blocks(const Settings & /*settings*/)
{
    const Memory first, second;
    first.use();
    calling("the second of two calls of utils_clr_memory_get");
    second.expect_zero();
    return "";
}

std::string raw_memory(const Settings & /*settings*/)
{
    if (!brings_raw_memory())
        throw NotRun{"the SDK brings none; the module's own is used"};
    struct Block {
        std::size_t size;
        std::uint8_t fill;
        std::uint8_t *address;
    };
    std::array<Block, 3> blocks = {{{BRIDGE_DB_VLAN_REF_CNT_SIZE, 1, nullptr}, // a port's VLAN counters
                                    {14, 2, nullptr},                          // the record of a VLAN group
                                    {BRIDGE_DB_VLAN_REF_CNT_SIZE, 3, nullptr}}};
    for (Block &block : blocks) {
        calling(fmt::format("cl_malloc({})", block.size));
        block.address = static_cast<std::uint8_t *>(PROCESS_SYMBOL(cl_malloc)(block.size));
        expect(block.address != nullptr, "NULL", "memory");
        expect_aligned(block.address);
        std::memset(block.address, block.fill, block.size);
    }
    for (const Block &block : blocks) {
        calling(fmt::format("cl_malloc({}), called with other sizes since", block.size));
        expect(std::all_of(block.address, block.address + block.size,
                           [&block](std::uint8_t byte) { return byte == block.fill; }),
               "the memory was also given to somebody else", "memory of its own");
    }
    for (const Block &block : blocks) {
        calling(fmt::format("cl_free({})", fmt::ptr(block.address)));
        PROCESS_SYMBOL(cl_free)(block.address);
    }
    return "";
}

// ---- Adviser and log ------------------------------------------------------------------------------------

ky_status_t ignore_event(uint32_t /*event_type*/, const ky_port_event_t * /*event*/)
{
    return KY_STATUS_SUCCESS;
}

std::string register_both(const Settings & /*settings*/)
{
    for (const std::uint32_t event : {KY_ADVISER_EVENT_PORT_ADD_INTO_SWID, KY_ADVISER_EVENT_PORT_DEL_FROM_SWID})
        expect_status(register_event(event, ignore_event));
    return "";
}

std::string register_again(const Settings &settings)
{
    register_both(settings);
    return register_both(settings);
}

std::string log_severities(const Settings & /*settings*/)
{
    for (const std::uint32_t severity : {KY_LOG_ERROR, KY_LOG_NOTICE, KY_LOG_DEBUG, KY_LOG_FUNCTION_TRACE}) {
        calling(fmt::format("ky_log({}, \"BRIDGE\", ...)", severity));
        PROCESS_SYMBOL(ky_log)(severity, "BRIDGE", "a line of severity %d\n", static_cast<int>(severity));
    }
    return "";
}

std::string log_formats(const Settings & /*settings*/)
{
    auto &log = PROCESS_SYMBOL(ky_log);
    const std::string long_text(300, 'x');
    calling("ky_log(63, \"BRIDGE\", \"%s[%d]- %s: %s: [\\n\", ...), with texts of 300 characters");
    log(KY_LOG_FUNCTION_TRACE, "BRIDGE", "%s[%d]- %s: %s: [\n", long_text.c_str(), 1, long_text.c_str(),
        long_text.c_str());
    calling("ky_log(1, \"BRIDGE\", \"... (0x%08X) ... (%d) ...\\n\", ...)");
    log(KY_LOG_ERROR, "BRIDGE", "port(0x%08X) vlan(%d) ACL(%d)\n", 0xFFFFFFFFU, 4094, -1);
    calling("ky_log(1, \"BRIDGE\", \"... 0x%x ... %u ... (%s)\\n\", ...), with an empty text");
    log(KY_LOG_ERROR, "BRIDGE", "port 0x%x, bridge_id (%u), (%s)\n", 0x10001U, 65535U, "");
    calling("ky_log(1, \"BRIDGE\", \"Invalid egress_mode: %d\", ...), without a line end");
    log(KY_LOG_ERROR, "BRIDGE", "Invalid egress_mode: %d", 2);
    calling("ky_log(7, \"BRIDGE\", \"...\\n\"), without arguments");
    log(KY_LOG_NOTICE, "BRIDGE", "SDK initiates in 802.1D mode\n");
    return "";
}

constexpr std::array platform_rows = {
    Check{"limits.bridges", "the device's limit on bridges is set before the start", "every start answers 14", "",
          limit_on_bridges},
    Check{"limits.ports", "the device's limit on logical ports is set before the start",
          "announcing a port beyond it answers 5", "", limit_on_ports},
    Check{"memory.get", "memory for the database can be had, and all of it written", "it does not start, or crashes",
          "",
          [](const Settings & /*settings*/) -> std::string {
              Memory().use();
              return fmt::format("{} bytes", +Memory::size);
          }},
    Check{"memory.put", "memory can be given back", "ky_bridge_deinit answers that status", "memory.get",
          [](const Settings & /*settings*/) -> std::string {
              void *memory = nullptr;
              expect_status(get_memory(memory, Memory::size));
              expect_status(put_memory(memory));
              return "";
          }},
    Check{"memory.zeroed", "fresh memory is zero-filled",
          "a pool or map seems to be built: a port's first announcement answers 22, or it crashes", "memory.get",
          [](const Settings & /*settings*/) -> std::string {
              Memory().expect_zero();
              return "";
          }},
    Check{"memory.zeroed-again", "memory is zero-filled also when it was used before",
          "the first start works and the second one does not", "memory.zeroed", zero_again},
    Check{"memory.aligned", "memory is aligned for any type", "it crashes on some processors", "memory.get",
          [](const Settings & /*settings*/) -> std::string {
              expect_aligned(Memory().address);
              return "";
          }},
    Check{"memory.separate", "two blocks of memory do not overlap", "its database is overwritten",
          "memory.zeroed-again", separate_blocks},
    Check{"raw-memory.blocks", "cl_malloc gives memory of the size asked for, aligned for any type; cl_free takes it",
          "VLAN counters of ports are overwritten, or it crashes", "symbols.raw-memory", raw_memory},
    Check{"adviser.register", "a callback is registered for events 9 and 12", "it does not start", "", register_both},
    Check{"adviser.again", "the same registration is accepted again, as at every start", "only the first start works",
          "adviser.register", register_again},
    Check{"log.severities", "the log takes each severity", "it crashes or ends where it would log", "", log_severities},
    Check{"log.formats", "the log takes each form of text, long ones and those without a line end too",
          "it crashes or ends where it would log", "log.severities", log_formats},
};

} // namespace

std::span<const Check> symbol_checks()
{
    return symbol_rows;
}

std::span<const Check> platform_checks()
{
    return platform_rows;
}

} // namespace conform
