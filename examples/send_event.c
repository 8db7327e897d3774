/* Sends one event to the platform's daemon, or to whatever listens on a local socket. */
#include <stdio.h>
#include <wqevents.h>

enum { vendor_application = 15, local_stream = 2, automatic = 5, disk_full = 59179100 };

int main(int argc, char** argv) {
    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: send_event DESCRIPTION [SOCKET]\n");
        return 2;
    }
    event_infoEMS channel = {0};
    char* path = argc == 3 ? argv[2] : NULL;
    if (open_event(&channel, vendor_application, path, path ? local_stream : automatic) == -1) {
        perror("send_event: cannot open the channel");
        return 1;
    }
    int result = send_event(&channel, disk_full, "alpha", argv[1], NULL, NULL);
    if (result == -1) {
        perror("send_event: cannot send");
    }
    close_event(&channel);
    return result == 0 ? 0 : 1;
}
