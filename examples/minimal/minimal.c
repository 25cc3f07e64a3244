/*
 * Sends a line from one port to another and prints what arrived.
 *
 *     minimal                              the two ports are the ends of a null modem inside the process
 *     minimal /dev/ttyUSB0 /dev/ttyUSB1    two real ports with a null-modem cable between them
 */
#include <brisolt.h>
#include <brisolt_host.h>

#include <stdio.h>
#include <string.h>

/* Opens `path` as port `port`: 9600 baud, 8 data bits, no parity, 1 stop bit. */
static int openPort(int32_t port, const char *path) {
    char why[256] = "";
    int32_t result;

    ComHostMapDevice(port, path);
    result = ComOpen("minimal", port, 9600, 8, 1, 1, 4096, 4096);
    if (result != port) {
        ComHostGetErrorText(why, sizeof why);
        fprintf(stderr, "port %d: %d %s\n", (int)port, (int)result, why);
        return 0;
    }
    /* Bytes move as soon as they are there instead of every 50 ms. */
    ComSetBackgroundTimeout(port, 0);
    return 1;
}

int main(int argc, char **argv) {
    const int32_t sender = 1, receiver = 2;
    char line[] = "hello\r\n"; /* not const: a scrambling port changes what it sends in place */
    const int32_t length = (int32_t)strlen(line);
    char received[sizeof line] = "";
    int32_t count = -1;

    if (openPort(sender, argc > 2 ? argv[1] : "null-modem:minimal")) {
        if (openPort(receiver, argc > 2 ? argv[2] : "null-modem:minimal")) {
            ComWrite(sender, line, length);
            count = ComReadTimed(receiver, received, length, 200); /* at most 2 s */
            printf("%d bytes: %s", (int)count, received);
            ComClose(receiver);
        }
        ComClose(sender);
    }
    return count == length ? 0 : 1;
}
