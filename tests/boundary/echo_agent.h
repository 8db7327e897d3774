/*
 * An SNMP agent in a child process: it answers each request with the request's own bindings.
 * WQSNMPPORT names its port.
 */
#ifndef WQEVENTS_TESTS_BOUNDARY_ECHO_AGENT_H
#define WQEVENTS_TESTS_BOUNDARY_ECHO_AGENT_H

#include <arpa/inet.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

enum { echo_request = 0xA0, echo_response = 0xA2 };

/* The tag of the PDU is the first octet of that value after the community. */
static void echo_requests(int sd) {
    unsigned char message[2048];
    struct sockaddr_in from;
    socklen_t from_length = sizeof from;
    ssize_t length;

    while ((length = recvfrom(sd, message, sizeof message, 0, (struct sockaddr*)&from,
                              &from_length)) > 0) {
        unsigned char* tag = memchr(message, echo_request, (size_t)length);
        if (tag != NULL) {
            *tag = echo_response;
        }
        sendto(sd, message, (size_t)length, 0, (struct sockaddr*)&from, from_length);
    }
    _exit(1);
}

/* The process of the agent, or -1. */
static pid_t start_echo_agent(void) {
    struct sockaddr_in here;
    socklen_t length = sizeof here;
    char port[16];
    int sd = socket(AF_INET, SOCK_DGRAM, 0);
    pid_t child;

    memset(&here, 0, sizeof here);
    here.sin_family = AF_INET;
    here.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (sd < 0 || bind(sd, (struct sockaddr*)&here, sizeof here) != 0 ||
        getsockname(sd, (struct sockaddr*)&here, &length) != 0) {
        return -1;
    }
    snprintf(port, sizeof port, "%d", ntohs(here.sin_port));
    setenv("WQSNMPPORT", port, 1);
    child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); /* a test that crashed takes the agent along */
        echo_requests(sd);
    }
    close(sd);
    return child;
}

static void stop_echo_agent(pid_t agent) {
    kill(agent, SIGKILL);
    waitpid(agent, NULL, 0);
}

#endif
