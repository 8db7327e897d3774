/*
 * Listens on a local socket in the daemon's place, takes one peer and shows its events until it
 * closes the connection. A program that receives from the daemon opens its channel with
 * open_event() instead and has the same loop.
 */
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <wqevents.h>

enum { local_stream = 2, most_bindings = 10, description = 2 };

/* Waits for one peer at `path`: a connected socket, or -1. */
static int accept_one(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    if (strlen(path) >= sizeof address.sun_path) {
        fprintf(stderr, "receive: the path is too long\n");
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path) + 1);
    int listener = socket(AF_UNIX, SOCK_STREAM, 0);
    int peer = -1;
    if (listener == -1 || bind(listener, (struct sockaddr*)&address, sizeof address) == -1 ||
        listen(listener, 1) == -1 || (peer = accept(listener, NULL, NULL)) == -1) {
        perror("receive: cannot listen");
    }
    if (listener != -1) {
        close(listener);
    }
    return peer;
}

static void show(const snmp_trap_infoEMS* trap, const SnmpVarBindEMS* bindings,
                 const trap_headerEMS* header) {
    printf("event %u of application %u", (unsigned)trap->specific, (unsigned)header->src);
    if (trap->vars > description && bindings[description].type == ASN_OCTETSTR09) {
        const SnmpVarBindEMS* text = &bindings[description];
        printf(": %.*s", (int)text->val_len, (const char*)text->val.string);
    }
    printf("\n");
}

int main(int argc, char** argv) {
    static SnmpVarBindEMS bindings[most_bindings];
    static snmp_trap_infoEMS trap;
    trap_headerEMS* header = NULL;
    event_infoEMS channel = {.trans = local_stream};
    if (argc != 2) {
        fprintf(stderr, "usage: receive SOCKET\n");
        return 2;
    }
    channel.sd = accept_one(argv[1]);
    if (channel.sd == -1) {
        return 1;
    }
    trap.maxvars = most_bindings;
    int length = 0;
    while ((length = recv_event_hdr(&channel, &trap, bindings, &header)) > 0) {
        show(&trap, bindings, header);
    }
    close(channel.sd);
    unlink(argv[1]);
    return length == 0 ? 0 : 1;
}
