/*
 * A program that has a function of its own under each name that the library exports, the platform's
 * apart. It loads the library and uses it: none of the program's functions is ever called.
 */
#define _POSIX_C_SOURCE 200809L

#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>

#include <wqevents.h>

#include "echo_agent.h"

#define CHECK(condition)                                                            \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                               \
        }                                                                           \
    } while (0)

static void* library;

/* ISO C knows no way from an object pointer to a function pointer but a copy of its bytes. */
static void load(const char* name, void* function) {
    void* found = dlsym(library, name);
    if (found == NULL) {
        fprintf(stderr, "no %s in the library\n", name);
        exit(1);
    }
    memcpy(function, &found, sizeof found);
}

static int a_value_is_asked_for(void) {
    snmp_call_info* (*init)(unsigned int, unsigned int);
    int (*init_request)(snmp_call_info*, uint32_t, const char*);
    int (*get)(snmp_call_info*, SnmpVarBindEMS*, SnmpVarBindEMS*);
    void (*end)(snmp_call_info*);
    static SnmpVarBindEMS in, out;
    static const uint32_t name[] = {1, 3, 6, 1, 2, 1, 1, 5, 0};
    snmp_call_info* client;
    pid_t agent;
    int result;

    load("init_snmp_call", &init);
    load("init_snmp_request", &init_request);
    load("getvar", &get);
    load("close_snmp_call", &end);
    agent = start_echo_agent();
    CHECK(agent > 0);
    client = init(10, 3);
    CHECK(client != NULL && init_request(client, htonl(INADDR_LOOPBACK), "public") == 0);
    memcpy(in.oid, name, sizeof name);
    in.oid_length = sizeof name / sizeof name[0];
    result = get(client, &in, &out);
    stop_echo_agent(agent);
    end(client);
    CHECK(result == 0 && out.oid_length == in.oid_length);
    CHECK(memcmp(out.oid, name, sizeof name) == 0);
    return 0;
}

static int an_event_is_sent_and_received(void) {
    int (*send)(event_infoEMS*, int, const char*, const char*, const char*, const char*);
    int (*receive)(event_infoEMS*, snmp_trap_infoEMS*, SnmpVarBindEMS*);
    static snmp_trap_infoEMS trap;
    static SnmpVarBindEMS vars[5];
    event_infoEMS channel;
    int ends[2];

    load("send_event", &send);
    load("recv_event", &receive);
    CHECK(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    memset(&channel, 0, sizeof channel);
    channel.trans = 2;
    channel.sd = ends[0];
    CHECK(send(&channel, 42, "alpha", "disk is full", NULL, NULL) == 0);
    CHECK(write(ends[0], "not a trap, but as long as a header", 35) == 35);
    channel.sd = ends[1];
    trap.maxvars = 5;
    CHECK(receive(&channel, &trap, vars) > 20);
    CHECK(trap.specific == 42 && vars[2].val_len == strlen("disk is full"));
    CHECK(receive(&channel, &trap, vars) < 0); /* which is logged */
    close(ends[0]);
    close(ends[1]);
    return 0;
}

/* Reads, edits, writes and formats: most of the library's names call each other there. */
static int a_configuration_is_used(const char* file) {
    void (*name_file)(const char*);
    int (*read_file)(char**);
    int (*find)(const char*, trap_record**, enterprise_info**);
    int (*delete_trap)(const char*);
    int (*write_file)(FILE*);
    int (*format)(int, snmp_trap_infoEMS*, char*, int, SnmpVarBindEMS*, char**, time_t);
    void (*free_all)(void);
    static snmp_trap_infoEMS trap;
    static char text[8192];
    char* message = NULL;
    char* host = NULL;
    trap_record* record = NULL;
    enterprise_info* enterprise = NULL;
    FILE* copy;

    load("setVortdConfFile", &name_file);
    load("read_trapspec_file", &read_file);
    load("nameToTrapAndEnterprise", &find);
    load("deleteTrapRecord", &delete_trap);
    load("write_trapspec_file", &write_file);
    load("trp_format", &format);
    load("free_all_info", &free_all);
    name_file(file);
    CHECK(read_file(&message) == 0);
    CHECK(find("snmpLinkDown", &record, &enterprise) == 0 && record != NULL);
    trap.elen = 1;
    trap.gen = LINK_DOWN;
    CHECK(format(ZLEEVENT_USER, &trap, text, sizeof text, NULL, &host, 0) >= 0);
    CHECK(delete_trap("snmpLinkDown") == 0);
    copy = tmpfile();
    CHECK(copy != NULL && write_file(copy) == 0);
    free_all();
    return 0;
}

int main(int count, char** arguments) {
    CHECK(count == 3);
    library = dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    return a_value_is_asked_for() != 0 || an_event_is_sent_and_received() != 0 ||
           a_configuration_is_used(arguments[2]) != 0;
}
