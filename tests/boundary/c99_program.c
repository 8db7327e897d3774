/*
 * A program in C99 that uses the channel, the trace and the codec: a trap is encoded, decoded, and
 * sent from one end of a channel to the other.
 */
#include <wqevents.h>
#include <wqplatform.h>

#include <stdio.h>
#include <string.h>
#include <unistd.h>

#define CHECK(condition)                                                            \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                               \
        }                                                                           \
    } while (0)

static const uint32_t enterprise[] = {1, 3, 6, 1, 4, 1, 4242, 7};
static const uint32_t variable[] = {1, 3, 6, 1, 4, 1, 4242, 7, 1, 0};

static void fill_binding(SnmpVarBindEMS* var, uint32_t last, uint8_t type) {
    memset(var, 0, sizeof *var);
    memcpy(var->oid, variable, sizeof variable);
    var->oid[9] = last;
    var->oid_length = 10;
    var->type = type;
}

static void fill_trap(snmp_trap_infoEMS* sti, SnmpVarBindEMS vars[3]) {
    memset(sti, 0, sizeof *sti);
    memcpy(sti->community, "public", 6);
    sti->clen = 6;
    memcpy(sti->enterprise, enterprise, sizeof enterprise);
    sti->elen = 8;
    sti->agent = 0x0A010203;
    sti->time = 123456;
    sti->gen = ENTERPRISE_SPECIFIC;
    sti->specific = 77;
    sti->vars = 3;
    sti->maxvars = 3;
    fill_binding(&vars[0], 1, ASN_INTEGER09);
    vars[0].val.integer = -129;
    vars[0].val_len = 4;
    fill_binding(&vars[1], 2, ASN_OCTETSTR09);
    memcpy(vars[1].val.string, "link down", 9);
    vars[1].val_len = 9;
    fill_binding(&vars[2], 3, ASN_OBJID09);
    memcpy(vars[2].val.objid, enterprise, sizeof enterprise);
    vars[2].val_len = 8;
}

/* What arrived is what fill_trap() made. */
static int check_trap(const snmp_trap_infoEMS* sti, const SnmpVarBindEMS vars[3]) {
    static const uint8_t agent_octets[] = {10, 1, 2, 3};

    CHECK(sti->clen == 6 && strcmp((const char*)sti->community, "public") == 0);
    CHECK(sti->elen == 8 && memcmp(sti->enterprise, enterprise, sizeof enterprise) == 0);
    CHECK(memcmp(&sti->agent, agent_octets, sizeof agent_octets) == 0);
    CHECK(sti->time == 123456);
    CHECK(sti->gen == ENTERPRISE_SPECIFIC && sti->specific == 77);
    CHECK(sti->vars == 3);
    CHECK(vars[0].oid_length == 10 && vars[0].oid[9] == 1);
    CHECK(vars[0].type == ASN_INTEGER09 && vars[0].val.integer == -129);
    CHECK(vars[1].oid_length == 10 && vars[1].oid[9] == 2);
    CHECK(vars[1].type == ASN_OCTETSTR09 && vars[1].val_len == 9);
    CHECK(memcmp(vars[1].val.string, "link down", 9) == 0);
    CHECK(vars[2].type == ASN_OBJID09 && vars[2].val_len == 8);
    CHECK(memcmp(vars[2].val.objid, enterprise, sizeof enterprise) == 0);
    return 0;
}

static int encode_and_decode(void) {
    static snmp_trap_infoEMS sent, received;
    static SnmpVarBindEMS sent_vars[3], received_vars[3];
    unsigned char message[EMS_TRAP_MAX];
    int length = sizeof message;
    int32_t pdu_length = 0;

    fill_trap(&sent, sent_vars);
    CHECK(snmpBuildTrapEMS(message, &length, &sent, NULL, sent_vars) == 0);
    CHECK(message[0] == ASN_SEQUENCE09);
    CHECK(get_pdu_len(message + 1, &pdu_length) == 0 && pdu_length + 2 == length);

    received.clen = EMS_COMMUNITY_MAX - 1;
    received.elen = EMS_OID_MAX;
    received.maxvars = 3;
    CHECK(snmp_parse_trap(message, length, &received, NULL, received_vars) == 0);
    return check_trap(&received, received_vars);
}

static int send_and_receive(void) {
    static snmp_trap_infoEMS sent, received;
    static SnmpVarBindEMS sent_vars[3], received_vars[3];
    event_infoEMS sender, receiver;
    trap_headerEMS* header = NULL;
    int ends[2], length;

    CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    memset(&sender, 0, sizeof sender);
    sender.sd = ends[0];
    sender.trans = 2;
    sender.source = 12;
    sender.status = -5;
    sender.target = 0xFFFFFFFF;
    receiver = sender;
    receiver.sd = ends[1];

    fill_trap(&sent, sent_vars);
    CHECK(send_trap(&sender, &sent, sent_vars) == 0);
    received.maxvars = 3;
    length = recv_event_hdr(&receiver, &received, received_vars, &header);
    CHECK(length >= 20 && header->len == length);
    CHECK(header->src == 12 && header->pid == (int32_t)getpid() && header->time == 0);
    CHECK(header->status == -5 && header->target == 0xFFFFFFFF);
    CHECK(check_trap(&received, received_vars) == 0);

    CHECK(close(ends[0]) == 0);
    CHECK(recv_event(&receiver, &received, received_vars) == 0);
    CHECK(close(ends[1]) == 0);
    return 0;
}

static int small_things(void) {
    CHECK(tracelogfp == NULL && dumpFp == NULL && traceStartingAndStopping == 1);
    CHECK(dump_packetEMS == 0 && snmptracemaskEMS == 0 && wqc_recv_event == NULL);
    log_trace("c99_program", "%s", "nothing is written: no trace is open");
    CHECK(printTime() == -1);
    CHECK(strcmp(getApplName(12), "zelcollect") == 0);
    CHECK(open_event(NULL, 12, NULL, 2) == -1 && close_event(NULL) == -1);
    CHECK(strcmp(errstring(5), "genErr") == 0);
    return 0;
}

int main(void) {
    return encode_and_decode() != 0 || send_and_receive() != 0 || small_things() != 0;
}
