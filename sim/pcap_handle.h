/// What captures from files and from interfaces share of libpcap.
#ifndef KYBRIDGE_SIM_PCAP_HANDLE_H
#define KYBRIDGE_SIM_PCAP_HANDLE_H

#include <memory>

struct pcap;        // pcap_t
struct pcap_dumper; // pcap_dumper_t

namespace sim {

struct PcapClose {
    void operator()(pcap *handle) const;
    void operator()(pcap_dumper *file) const;
};
using PcapHandle = std::unique_ptr<pcap, PcapClose>;
using PcapDumper = std::unique_ptr<pcap_dumper, PcapClose>;

} // namespace sim

#endif
