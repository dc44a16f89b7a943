#include "CIPCounters.h"

#include "lwip/memp.h"
#include "lwip/stats.h"

namespace ipstack
{

std::atomic<std::uint64_t> CIPCounters::s_Values[CIPCounters::Count];

namespace
{

const char* const Names[] = {
#define UXPORT_IPSTACK_COUNTER_NAME(id, name) name,
    UXPORT_IPSTACK_COUNTERS(UXPORT_IPSTACK_COUNTER_NAME)
#undef UXPORT_IPSTACK_COUNTER_NAME
};

// One of lwIP's 32-bit counters.
struct CForeignCounter
{
    const char* m_szName;
    const u32_t* m_pValue;
};

#define UXPORT_LWIP_LAYER(layer)                                                                                  \
  {"lwip." #layer ".xmit", &lwip_stats.layer.xmit}, {"lwip." #layer ".recv", &lwip_stats.layer.recv},             \
      {"lwip." #layer ".drop", &lwip_stats.layer.drop}, {"lwip." #layer ".chkerr", &lwip_stats.layer.chkerr},     \
      {"lwip." #layer ".lenerr", &lwip_stats.layer.lenerr}, {"lwip." #layer ".memerr", &lwip_stats.layer.memerr}, \
      {"lwip." #layer ".rterr", &lwip_stats.layer.rterr}, {"lwip." #layer ".proterr", &lwip_stats.layer.proterr}, \
      {"lwip." #layer ".opterr", &lwip_stats.layer.opterr},                                                       \
  {                                                                                                               \
    "lwip." #layer ".err", &lwip_stats.layer.err                                                                  \
  }
#define UXPORT_LWIP_MIB(what)                 \
  {                                           \
    "lwip.mib2." #what, &lwip_stats.mib2.what \
  }

const CForeignCounter ForeignCounters[] = {
    UXPORT_LWIP_LAYER(link),          UXPORT_LWIP_LAYER(ip),           UXPORT_LWIP_LAYER(ip_frag),
    UXPORT_LWIP_LAYER(icmp),          UXPORT_LWIP_LAYER(udp),          UXPORT_LWIP_LAYER(tcp),
    UXPORT_LWIP_LAYER(ip6),           UXPORT_LWIP_LAYER(ip6_frag),     UXPORT_LWIP_LAYER(icmp6),
    UXPORT_LWIP_LAYER(nd6),           UXPORT_LWIP_MIB(tcpactiveopens), UXPORT_LWIP_MIB(tcppassiveopens),
    UXPORT_LWIP_MIB(tcpattemptfails), UXPORT_LWIP_MIB(tcpestabresets), UXPORT_LWIP_MIB(tcpoutsegs),
    UXPORT_LWIP_MIB(tcpretranssegs),  UXPORT_LWIP_MIB(tcpinsegs),      UXPORT_LWIP_MIB(tcpinerrs),
    UXPORT_LWIP_MIB(tcpoutrsts),      UXPORT_LWIP_MIB(ipreasmoks),     UXPORT_LWIP_MIB(ipreasmfails),
    UXPORT_LWIP_MIB(udpnoports),
};

// How many objects of one kind lwIP holds now.
struct CPoolGauge
{
    const char* m_szName;
    memp_t m_Pool;
};

const CPoolGauge PoolGauges[] = {
    {"lwip.used.tcp_pcb", MEMP_TCP_PCB},           {"lwip.used.tcp_pcb_listen", MEMP_TCP_PCB_LISTEN},
    {"lwip.used.tcp_seg", MEMP_TCP_SEG},           {"lwip.used.udp_pcb", MEMP_UDP_PCB},
    {"lwip.used.raw_pcb", MEMP_RAW_PCB},           {"lwip.used.reassembly", MEMP_REASSDATA},
    {"lwip.used.reassembly6", MEMP_IP6_REASSDATA}, {"lwip.used.pbuf", MEMP_PBUF},
    {"lwip.used.pbuf_pool", MEMP_PBUF_POOL},
};

}  // namespace

const char* CIPCounters::GetName(EId id) noexcept
{
    return id < Count ? Names[id] : "";
}

std::size_t CIPCounters::Snapshot(CIPStackCounter* counters, std::size_t room) noexcept
{
    std::size_t count = 0;
    const auto put = [&](const char* name, std::uint64_t value) {
        if (counters != nullptr && count < room) {
            counters[count] = CIPStackCounter{name, value};
        }
        ++count;
    };
    for (unsigned int id = 0; id < Count; ++id) {
        put(Names[id], Get(static_cast<EId>(id)));
    }
    for (const CForeignCounter& counter : ForeignCounters) {
        put(counter.m_szName, *counter.m_pValue);
    }
    for (const CPoolGauge& gauge : PoolGauges) {
        // The record exists from lwip_init on.
        put(gauge.m_szName, lwip_stats.memp[gauge.m_Pool] == nullptr ? 0U : lwip_stats.memp[gauge.m_Pool]->used);
    }
    return count;
}

}  // namespace ipstack
