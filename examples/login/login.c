/*
 * Logs in to whatever asks for a name and a password at the other end of a line, runs one command there and
 * prints what it says.
 *
 *     login DEVICE NAME PASSWORD COMMAND
 *     login /dev/ttyUSB0 operator secret "uptime"
 */
#include <brisolt.h>
#include <brisolt_host.h>

#include <stdio.h>
#include <string.h>

enum { line = 1, most = 9000, patience = 10 /* seconds */ };

/* What the other end may say, and the results that stand for it. */
static const char *const prompts[] = {"ogin: ", "assword: ", "incorrect", "$ ", "# "};
enum { askedName = 1, askedPassword, refused, ready, readyAsRoot, count = 5 };

/* Answers until there is a prompt or nothing more to answer. */
static int32_t logIn(const char *name, const char *password) {
    char nameLine[100], passwordLine[100];
    const char *answers[count] = {"", "", "", "", ""};
    int32_t seen;

    /* An answer is sent as ComPuts sends: a `|` in it is a carriage return. */
    snprintf(nameLine, sizeof nameLine, "%s|", name);
    snprintf(passwordLine, sizeof passwordLine, "%s|", password);
    answers[askedName - 1] = nameLine;
    answers[askedPassword - 1] = passwordLine;

    seen = ComStimulusArray(line, prompts, answers, count, most, 2);
    if (seen == -2) { /* silence: a carriage return makes most ask */
        ComPuts(line, "|");
        seen = ComStimulusArray(line, prompts, answers, count, most, patience);
    }
    while (seen == askedName || seen == askedPassword)
        seen = ComStimulusArray(line, prompts, answers, count, most, patience);
    return seen;
}

/* Sends a command and prints all up to the next prompt, the echo of the command included. */
static int32_t run(const char *command) {
    const char *const silence[] = {"", ""};
    char bytes[500];
    int32_t seen;

    /* Not ComPuts: a `|` or `~` of the command is to arrive as it stands. */
    snprintf(bytes, sizeof bytes, "%s\r", command);
    ComWrite(line, bytes, (int32_t)strlen(bytes));
    seen = ComStimulusArray(line, prompts + ready - 1, silence, 2, most, patience);
    if (seen > 0)
        printf("%s\n", ComGettestbuffer(line));
    return seen;
}

int main(int argc, char **argv) {
    char why[256] = "";
    int32_t result;

    if (argc != 5) {
        fprintf(stderr, "usage: login DEVICE NAME PASSWORD COMMAND\n");
        return 2;
    }
    ComHostMapDevice(line, argv[1]);
    if (ComOpen("login", line, 9600, 8, 1, 1, 4096, 4096) != line) {
        ComHostGetErrorText(why, sizeof why);
        fprintf(stderr, "%s\n", why);
        return 1;
    }
    result = logIn(argv[2], argv[3]);
    if (result == ready || result == readyAsRoot)
        result = run(argv[4]);
    else if (result == refused)
        fprintf(stderr, "name or password refused\n");
    if (result < 0)
        fprintf(stderr, "%s\n", result == -2 ? "no answer in time" : "the line has failed");
    ComClose(line);
    return result > 0 && result != refused ? 0 : 1;
}
