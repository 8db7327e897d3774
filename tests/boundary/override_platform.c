/*
 * A program that defines functions of the platform interface itself. The shared library calls these
 * instead of its stand-ins.
 */
#define _POSIX_C_SOURCE 200809L

#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/un.h>
#include <unistd.h>

#include <wqevents.h>
#include <wqplatform.h>

#define CHECK(condition)                                                            \
    do {                                                                            \
        if (!(condition)) {                                                         \
            fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            return 1;                                                               \
        }                                                                           \
    } while (0)

static int log_lines, client_questions;
static char first_line[128], host_asked[128];

void WQuLogS(int component, int level, const char* catalog, int set, int msg, const char* fmt,
             ...) {
    if (log_lines++ == 0 && component == 84 && level == 2 && strcmp(catalog, "events.cat") == 0 &&
        set == 1 && msg == 0) {
        snprintf(first_line, sizeof first_line, "%s", fmt);
    }
}

int _KMisClient(void) {
    client_questions++;
    return 1;
}

char* _WQDefaultServerName(void) {
    char* name = malloc(sizeof "server.example");
    return name == NULL ? NULL : strcpy(name, "server.example");
}

/* Knows every host but the server: the automatic mode ends there, with nothing connected. */
struct hostent* gethostbyname_new(const char* name) {
    static char octets[] = {10, 20, 30, 40};
    static char* addresses[] = {octets, NULL};
    static struct hostent host = {NULL, NULL, AF_INET, sizeof octets, addresses};

    snprintf(host_asked, sizeof host_asked, "%s", name);
    return strcmp(name, "server.example") == 0 ? NULL : &host;
}

int get_myaddress(struct sockaddr_in* address) {
    memset(address, 0, sizeof *address);
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(0x0A010203);
    return 0;
}

/* The automatic mode asks whether this host is a client, and looks its server up. */
static int automatic_mode(void) {
    event_infoEMS ei;

    memset(&ei, 0, sizeof ei);
    CHECK(open_event(&ei, 12, NULL, 5) == -1);
    CHECK(client_questions == 1);
    CHECK(strcmp(host_asked, "server.example") == 0);
    CHECK(log_lines > 0 && strcmp(first_line, "Beginning of open_event() call.\n") == 0);
    return 0;
}

/*
 * Opens a channel to `listener`, which finds this host's address by get_myaddress(), and reads the
 * event that announces it, which carries the address that the host's own name stands for.
 */
static int announced_address(int listener, char* path) {
    static snmp_trap_infoEMS sti;
    static SnmpVarBindEMS vars[5];
    static const uint8_t octets[] = {10, 20, 30, 40};
    event_infoEMS ei, peer;

    memset(&ei, 0, sizeof ei);
    CHECK(open_event(&ei, 12, path, 2) >= 0);
    CHECK(ei.agent == htonl(0x0A010203));

    memset(&peer, 0, sizeof peer);
    peer.trans = 2;
    peer.sd = accept(listener, NULL, NULL);
    CHECK(peer.sd >= 0);
    sti.maxvars = 5;
    CHECK(recv_event(&peer, &sti, vars) >= 20);
    CHECK(memcmp(&sti.agent, octets, sizeof octets) == 0);
    CHECK(vars[2].val_len == strlen("zelcollect connected to vortd."));
    CHECK(memcmp(vars[2].val.string, "zelcollect connected to vortd.", vars[2].val_len) == 0);
    CHECK(close_event(&ei) == 0);
    CHECK(close(peer.sd) == 0);
    return 0;
}

static int own_address(void) {
    char folder[] = "wqevents.XXXXXX";
    struct sockaddr_un address;
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    int failed;

    CHECK(listener >= 0 && mkdtemp(folder) != NULL);
    memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/socket", folder);
    failed = bind(listener, (struct sockaddr*)&address, sizeof address) != 0 ||
             listen(listener, 1) != 0 || announced_address(listener, address.sun_path) != 0;
    close(listener);
    unlink(address.sun_path);
    rmdir(folder);
    return failed;
}

int main(void) {
    return automatic_mode() != 0 || own_address() != 0;
}
