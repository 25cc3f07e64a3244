/*
 * Calls a number on a telephony line and sends the lines of its standard input to answer.c there.
 *
 *     dial LINE NUMBER
 *     echo "good morning" | dial "Modem" 5551234
 */
#include <brisolt.h>
#include <brisolt_host.h>

#include <stdio.h>
#include <string.h>

enum { maximum = 9000, greetings = 10, patience = 10 /* seconds */ };

static const char *cause(int32_t failure) {
    switch (failure) {
    case -3: return "there is no such line";
    case -4: return "the line cannot be used";
    case -24: return "busy";
    case -25: return "no answer";
    case -27: return "no dial tone";
    default: return "the call has failed";
    }
}

/* The ends of a call do not connect at the same moment, so what is said first may be lost. */
static int32_t greet(int32_t port) {
    int32_t seen = 0;
    int32_t greeting;

    for (greeting = 0; greeting < greetings && seen != 1; ++greeting) {
        ComPuts(port, "|");
        seen = ComStimulus(port, "here", "", maximum, 1);
    }
    return seen;
}

/* A line as it stands: ComPuts would take some of its characters for commands. */
static int32_t sendLine(int32_t port, char *text) {
    text[strcspn(text, "\r\n")] = '\0';
    if (*text == '\0')
        return 1;
    strcat(text, "\r");
    ComWrite(port, text, (int32_t)strlen(text));
    return ComStimulus(port, "taken", "", maximum, patience);
}

static int32_t sendAll(int32_t port) {
    char text[160];
    int32_t result = greet(port);

    while (result == 1 && fgets(text, sizeof text - 1, stdin) != NULL)
        result = sendLine(port, text);
    if (result == 1)
        ComPuts(port, "goodbye|");
    return result;
}

int main(int argc, char **argv) {
    int32_t port, result;

    if (argc != 3) {
        fprintf(stderr, "usage: dial LINE NUMBER\n");
        return 2;
    }
    result = ComTAPI_INIT("");
    if (result < 1) {
        fprintf(stderr, "no telephony lines (%d)\n", (int)result);
        return 1;
    }
    port = ComTAPI_Connect(argv[1], argv[2], "T");
    if (port < 0) {
        fprintf(stderr, "%s (%d)\n", cause(port), (int)port);
        result = port;
    } else {
        result = sendAll(port);
        if (result != 1)
            fprintf(stderr, "the other end says no more\n");
        ComTAPI_Disconnect(argv[1]);
    }
    Com_TAPI_Shutdown();
    return result == 1 ? 0 : 1;
}
