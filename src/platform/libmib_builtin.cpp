/*
 * The built-in names: the top of the tree (RFC 1155, RFC 2578), MIB-II (RFC 1213) with what
 * SNMPv2-MIB (RFC 3418) adds to its groups, and the SNMPv2 branch (RFC 2578, 3417, 3418).
 */
#include <algorithm>

#include "platform/libmib.h"

namespace wq {
namespace {

/* The names of a node's children 1, 2 and so on, with blanks between; "-": no name. */
struct Group {
    std::string_view parent; /* a name of a group before; empty: the root */
    std::string_view names;
};

constexpr Group groups[] = {
    {"", "iso"},
    {"iso", "- - org"},
    {"org", "- - - - - dod"},
    {"dod", "internet"},
    {"internet", "directory mgmt experimental private security snmpV2"},
    {"mgmt", "mib-2"},
    {"private", "enterprises"},
    {"mib-2", "system interfaces at ip icmp tcp udp egp - transmission snmp"},

    {"system",
     "sysDescr sysObjectID sysUpTime sysContact sysName sysLocation sysServices sysORLastChange "
     "sysORTable"},
    {"sysORTable", "sysOREntry"},
    {"sysOREntry", "sysORIndex sysORID sysORDescr sysORUpTime"},

    {"interfaces", "ifNumber ifTable"},
    {"ifTable", "ifEntry"},
    {"ifEntry",
     "ifIndex ifDescr ifType ifMtu ifSpeed ifPhysAddress ifAdminStatus ifOperStatus ifLastChange "
     "ifInOctets ifInUcastPkts ifInNUcastPkts ifInDiscards ifInErrors ifInUnknownProtos "
     "ifOutOctets ifOutUcastPkts ifOutNUcastPkts ifOutDiscards ifOutErrors ifOutQLen ifSpecific"},

    {"at", "atTable"},
    {"atTable", "atEntry"},
    {"atEntry", "atIfIndex atPhysAddress atNetAddress"},

    {"ip",
     "ipForwarding ipDefaultTTL ipInReceives ipInHdrErrors ipInAddrErrors ipForwDatagrams "
     "ipInUnknownProtos ipInDiscards ipInDelivers ipOutRequests ipOutDiscards ipOutNoRoutes "
     "ipReasmTimeout ipReasmReqds ipReasmOKs ipReasmFails ipFragOKs ipFragFails ipFragCreates "
     "ipAddrTable ipRouteTable ipNetToMediaTable ipRoutingDiscards"},
    {"ipAddrTable", "ipAddrEntry"},
    {"ipAddrEntry",
     "ipAdEntAddr ipAdEntIfIndex ipAdEntNetMask ipAdEntBcastAddr ipAdEntReasmMaxSize"},
    {"ipRouteTable", "ipRouteEntry"},
    {"ipRouteEntry",
     "ipRouteDest ipRouteIfIndex ipRouteMetric1 ipRouteMetric2 ipRouteMetric3 ipRouteMetric4 "
     "ipRouteNextHop ipRouteType ipRouteProto ipRouteAge ipRouteMask ipRouteMetric5 ipRouteInfo"},
    {"ipNetToMediaTable", "ipNetToMediaEntry"},
    {"ipNetToMediaEntry",
     "ipNetToMediaIfIndex ipNetToMediaPhysAddress ipNetToMediaNetAddress ipNetToMediaType"},

    {"icmp",
     "icmpInMsgs icmpInErrors icmpInDestUnreachs icmpInTimeExcds icmpInParmProbs icmpInSrcQuenchs "
     "icmpInRedirects icmpInEchos icmpInEchoReps icmpInTimestamps icmpInTimestampReps "
     "icmpInAddrMasks icmpInAddrMaskReps icmpOutMsgs icmpOutErrors icmpOutDestUnreachs "
     "icmpOutTimeExcds icmpOutParmProbs icmpOutSrcQuenchs icmpOutRedirects icmpOutEchos "
     "icmpOutEchoReps icmpOutTimestamps icmpOutTimestampReps icmpOutAddrMasks "
     "icmpOutAddrMaskReps"},

    {"tcp",
     "tcpRtoAlgorithm tcpRtoMin tcpRtoMax tcpMaxConn tcpActiveOpens tcpPassiveOpens "
     "tcpAttemptFails tcpEstabResets tcpCurrEstab tcpInSegs tcpOutSegs tcpRetransSegs "
     "tcpConnTable tcpInErrs tcpOutRsts"},
    {"tcpConnTable", "tcpConnEntry"},
    {"tcpConnEntry",
     "tcpConnState tcpConnLocalAddress tcpConnLocalPort tcpConnRemAddress tcpConnRemPort"},

    {"udp", "udpInDatagrams udpNoPorts udpInErrors udpOutDatagrams udpTable"},
    {"udpTable", "udpEntry"},
    {"udpEntry", "udpLocalAddress udpLocalPort"},

    {"egp", "egpInMsgs egpInErrors egpOutMsgs egpOutErrors egpNeighTable egpAs"},
    {"egpNeighTable", "egpNeighEntry"},
    {"egpNeighEntry",
     "egpNeighState egpNeighAddr egpNeighAs egpNeighInMsgs egpNeighInErrs egpNeighOutMsgs "
     "egpNeighOutErrs egpNeighInErrMsgs egpNeighOutErrMsgs egpNeighStateUps egpNeighStateDowns "
     "egpNeighIntervalHello egpNeighIntervalPoll egpNeighMode egpNeighEventTrigger"},

    {"snmp",
     "snmpInPkts snmpOutPkts snmpInBadVersions snmpInBadCommunityNames snmpInBadCommunityUses "
     "snmpInASNParseErrs - snmpInTooBigs snmpInNoSuchNames snmpInBadValues snmpInReadOnlys "
     "snmpInGenErrs snmpInTotalReqVars snmpInTotalSetVars snmpInGetRequests snmpInGetNexts "
     "snmpInSetRequests snmpInGetResponses snmpInTraps snmpOutTooBigs snmpOutNoSuchNames "
     "snmpOutBadValues - snmpOutGenErrs snmpOutGetRequests snmpOutGetNexts snmpOutSetRequests "
     "snmpOutGetResponses snmpOutTraps snmpEnableAuthenTraps snmpSilentDrops snmpProxyDrops"},

    {"snmpV2", "snmpDomains snmpProxys snmpModules"},
    {"snmpDomains", "snmpUDPDomain snmpCLNSDomain snmpCONSDomain snmpDDPDomain snmpIPXDomain"},
    {"snmpProxys", "rfc1157Proxy"},
    {"rfc1157Proxy", "rfc1157Domain"},
    {"snmpModules", "snmpMIB"},
    {"snmpMIB", "snmpMIBObjects snmpMIBConformance"},
    {"snmpMIBObjects", "- - - snmpTrap snmpTraps snmpSet"},
    {"snmpTrap", "snmpTrapOID - snmpTrapEnterprise"},
    {"snmpTraps", "coldStart warmStart linkDown linkUp authenticationFailure egpNeighborLoss"},
    {"snmpSet", "snmpSetSerialNo"},
    {"snmpMIBConformance", "snmpMIBCompliances snmpMIBGroups"},
    {"snmpMIBCompliances", "- snmpBasicCompliance snmpBasicComplianceRev2"},
    {"snmpMIBGroups",
     "- - - - snmpSetGroup systemGroup snmpBasicNotificationsGroup snmpGroup snmpCommunityGroup "
     "snmpObsoleteGroup snmpWarmStartNotificationGroup snmpNotificationGroup"},
};

constexpr std::string_view no_name = "-";

void define_group(const Group& group, MibDefinitions& definitions) {
    const uint32_t parent = group.parent.empty() ? MibTree::root : definitions.find(group.parent);
    uint32_t sub_id = 0;
    for (std::string_view rest = group.names; !rest.empty();) {
        const std::string_view name = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(rest.size(), name.size() + 1));
        ++sub_id;
        if (name != no_name) {
            definitions.define(definitions.tree.make_child(parent, sub_id), name);
        }
    }
}

}  // namespace

MibDefinitions builtin_definitions() {
    MibDefinitions definitions;
    for (const Group& group : groups) {
        define_group(group, definitions);
    }
    return definitions;
}

}  // namespace wq
