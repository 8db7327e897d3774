/*
 * A program that is linked with another SNMP library, whose names are partly this library's, too:
 * a request reaches an agent, and its answer the caller.
 */
#define _POSIX_C_SOURCE 200809L

#include <wqevents.h>

#include "echo_agent.h"

/* Of the other library; both are used, so that both are linked. */
void snmp_free_pdu(void* pdu);

#define CHECK(condition)                                                            \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                               \
        }                                                                           \
    } while (0)

int main(void) {
    static SnmpVarBindEMS in, out;
    static const uint32_t name[] = {1, 3, 6, 1, 2, 1, 1, 5, 0};
    snmp_call_info* client;
    pid_t agent = start_echo_agent();
    int result;

    CHECK(agent > 0);
    client = init_snmp_call(10, 3);
    CHECK(client != NULL && init_snmp_request(client, htonl(INADDR_LOOPBACK), "public") == 0);
    memcpy(in.oid, name, sizeof name);
    in.oid_length = sizeof name / sizeof name[0];
    result = getvar(client, &in, &out);
    stop_echo_agent(agent);
    close_snmp_call(client);
    snmp_free_pdu(NULL);
    CHECK(result == 0 && out.oid_length == in.oid_length);
    CHECK(memcmp(out.oid, name, sizeof name) == 0);
    return 0;
}
