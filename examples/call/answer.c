/*
 * Waits for a call on a telephony line, answers it, and prints what the caller sends, line by line, until the
 * caller says goodbye or nothing any more. dial.c is the caller.
 *
 *     answer LINE [RINGS]
 *     answer "Modem" 2
 *
 * The lines are those of telephony.ini; without one there, the program lists them.
 */
#include <brisolt.h>
#include <brisolt_host.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { answered = 105, carriageReturn = 13, most = 200, patience = 30 /* seconds */ };

static int listLines(void) {
    char name[75];
    int32_t line;

    for (line = 0; line < ComTAPI_GetModemCount(); ++line)
        if (ComTAPI_GetModemName(line, name) == 1)
            printf("%s\n", name);
    return 2;
}

/* Everything about a call comes as a message, so there is nothing to look at before the next one. */
static void waitForCall(const char *line) {
    ComHostMessage message;

    while (ComTAPI_GetAutoAnswerState(line) != answered)
        if (ComHostGetMessage(&message, -1) == 1)
            ComHostDispatchMessage(&message);
}

/* An empty line asks whether somebody is there; any other is told to be taken. */
static void converse(int32_t port) {
    char text[most + 1];

    while (ComReadBuf(port, text, carriageReturn, most, patience) == 2) {
        text[strcspn(text, "\r")] = '\0';
        if (strcmp(text, "goodbye") == 0)
            return;
        if (*text != '\0')
            printf("%s\n", text);
        fflush(stdout);
        ComPuts(port, *text == '\0' ? "here|" : "taken|");
    }
}

int main(int argc, char **argv) {
    const char *line = argc > 1 ? argv[1] : "";
    int32_t result = ComTAPI_INIT("");

    if (result < 1) {
        fprintf(stderr, "no telephony lines (%d)\n", (int)result);
        return 1;
    }
    if (argc < 2)
        return listLines();
    result = ComTAPI_AutoAnswer(line, argc > 2 ? atoi(argv[2]) : 1);
    if (result == 1) {
        printf("waiting\n");
        fflush(stdout);
        waitForCall(line);
        converse(ComTAPI_GetAutoAnswer_ConnectPort(line));
        ComTAPI_Disconnect(line);
    } else {
        fprintf(stderr, "%s cannot wait for calls (%d)\n", line, (int)result);
    }
    Com_TAPI_Shutdown();
    return result == 1 ? 0 : 1;
}
