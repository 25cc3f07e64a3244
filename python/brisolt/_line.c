/*
 * brisolt._line: the object of an open line, where a byte more or less counts: read, readline, write, in_waiting.
 * brisolt.Port and brisolt.serial.Serial are made from it and say in `_failure` which exceptions they raise.
 *
 * A call from Python holds the line while it is inside the library (`inside`), without the interpreter. A close
 * first ends those calls and waits until they have left: a port number that is free again may be another device's
 * a moment later.
 */
#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <math.h>
#include <stdatomic.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/ioctl.h>
#include <time.h>

#include "_calls.h"

/* What the calls of the library answer instead of a count. */
enum { CLOSED = -1, GONE = -2, CANCELLED = -3, INTERRUPTED = -5 };
/* Told to _failure beside those. */
enum { TIME_OVER = 0 };

enum {
    AHEAD_SIZE = 4096,   /* what is fetched at once for a program that reads byte by byte */
    SOME_SIZE = 1 << 20, /* more than any device holds */
    AHEAD_AFTER = 16     /* such reads in a row; who reads less than that may still take the descriptor */
};

/* Half-milliseconds for calls to leave before a close: on a busy host threads stand still. */
enum { LEAVING_TRIES = 4000 };

/* Seconds for which the kernel's answer to in_waiting is good: a program that polls asks some hundred times
 * meanwhile, and a byte takes longer to get from the line to the kernel's queue. */
static const double queuedGood = 10e-6;

typedef struct Line {
    int32_t port;   /* 0: closed */
    int32_t queue;  /* descriptor that tells how much is there; -1: the library is asked */
    int readsAhead; /* allowed: nobody reads or watches the descriptor */
    int inside;     /* calls that are in the library now */
    int readers;    /* of them, those that read */
    int writers;    /* and those that write */
    int cancels;    /* how often all waits were cancelled: those from before the last time end */
    int leaving;    /* readers and writers from before it */
    int streak;     /* small reads in a row */
    int aheadStart, aheadEnd;
    int queued;                         /* what the descriptor told last, */
    double queuedUntil;                 /* good until then */
    atomic_int cancelRead, cancelWrite; /* kept until a call takes them */
    double seconds, writeSeconds;       /* below 0: no limit */
    uint8_t ahead[2 * AHEAD_SIZE];
} Line;

static const BrisoltCalls *calls;
static Py_ssize_t lineOffset; /* of the Line behind what io.RawIOBase keeps */
static PyObject *ownRead;     /* Line.read, to see whether a class has another */
static PyObject *readName;

static Line *lineOf(PyObject *self) {
    return (Line *)((char *)self + lineOffset);
}

/* ---- Time ---------------------------------------------------------------------------------------- */

static double now(void) {
    struct timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return (double)time.tv_sec + (double)time.tv_nsec * 1e-9;
}

/* Milliseconds for the library, rounded up so that no wait ends early. */
static int32_t millisecondsOf(double seconds) {
    if (seconds < 0)
        return -1;
    double milliseconds = ceil(seconds * 1e3);
    return milliseconds < (double)INT32_MAX ? (int32_t)milliseconds : INT32_MAX;
}

/* Seconds as Python gives them; None is no limit, -1. Below 0 is an error, as is what is no number. */
static int secondsFrom(PyObject *value, double *seconds) {
    if (value == Py_None) {
        *seconds = -1;
        return 0;
    }
    double given = PyFloat_AsDouble(value);
    if (given == -1 && PyErr_Occurred())
        return -1;
    if (!(given >= 0)) {
        PyErr_Format(PyExc_ValueError, "Not a valid timeout: %R (seconds, 0 or above, or None)", value);
        return -1;
    }
    *seconds = given;
    return 0;
}

/*
 * A time limit, and how long the next wait for it may be. A signal ends a wait of the library. But one that comes
 * in the few microseconds between Python's last look and the beginning of the wait has come too early for the one
 * and too late for the other. So a wait has pieces, with a look for signals after each: the first is short, since
 * signals come when something has just been started, and each next is longer, so that an idle port costs next to
 * no wake-ups.
 */
typedef struct Limit {
    double seconds, end;
    int32_t piece; /* milliseconds */
} Limit;

enum { FIRST_PIECE = 250, LONGEST_PIECE = 64000 };

static Limit limitOf(double seconds) {
    Limit limit = {seconds, seconds > 0 ? now() + seconds : 0, FIRST_PIECE};
    return limit;
}

static int isOver(const Limit *limit) {
    return limit->seconds == 0 || (limit->seconds > 0 && now() >= limit->end);
}

static int32_t nextPiece(const Limit *limit) {
    if (limit->seconds <= 0)
        return limit->seconds < 0 ? limit->piece : 0;
    double left = limit->end - now();
    int32_t milliseconds = millisecondsOf(left > 0 ? left : 0);
    return milliseconds < limit->piece ? milliseconds : limit->piece;
}

/* The next is longer when nothing has moved for the whole piece: a signal that has ended one may have others behind
 * it. 0, or -1 with an exception: a signal's handler has raised one. */
static int endPiece(Limit *limit, int32_t result) {
    if (result == 0)
        limit->piece = limit->piece < LONGEST_PIECE / 4 ? limit->piece * 4 : LONGEST_PIECE;
    return PyErr_CheckSignals();
}

/* ---- Failing ------------------------------------------------------------------------------------- */

/* The class of the object knows which exception it is. */
static PyObject *fail(PyObject *self, const char *what, int code) {
    PyObject *none = PyObject_CallMethod(self, "_failure", "si", what, code);
    if (none != NULL) {
        Py_DECREF(none);
        PyErr_Format(PyExc_SystemError, "%s failed with %d", what, code);
    }
    return NULL;
}

/* ---- Being inside -------------------------------------------------------------------------------- */

/* Between these two no code of Python runs in the thread, so that whoever closes or cancels (a signal's handler, say)
 * never waits for a call of its own thread. `who`: the readers or the writers; null for neither. What `enter` gives
 * goes to `leave`. */
static int enter(Line *line, int *who) {
    ++line->inside;
    if (who != NULL)
        ++*who;
    return line->cancels;
}

static void leave(Line *line, int *who, int cancels) {
    --line->inside;
    if (who == NULL)
        return;
    --*who;
    if (cancels != line->cancels)
        --line->leaving;
}

/* ---- Reading ------------------------------------------------------------------------------------- */

static int takeAhead(Line *line, uint8_t *to, Py_ssize_t size) {
    int count = line->aheadEnd - line->aheadStart;
    if (count > size)
        count = (int)size;
    memcpy(to, line->ahead + line->aheadStart, (size_t)count);
    line->aheadStart += count;
    return count;
}

static int32_t readPort(Line *line, int32_t port, void *to, int32_t count, int32_t milliseconds) {
    int32_t got;
    int cancels = enter(line, &line->readers);
    line->queuedUntil = 0;
    PyThreadState *outside = PyEval_SaveThread();
    got = atomic_load(&line->cancelRead) ? CANCELLED : calls->read(port, to, count, milliseconds);
    PyEval_RestoreThread(outside);
    leave(line, &line->readers, cancels);
    line->queuedUntil = 0;
    return got;
}

/* Small reads, one after the other: what is there beyond them is fetched with them. */
static int32_t readAhead(Line *line, uint8_t *to, int32_t size, int32_t milliseconds) {
    uint8_t block[AHEAD_SIZE];
    int32_t got = readPort(line, line->port, block, AHEAD_SIZE, milliseconds);
    if (got <= 0)
        return got;
    int32_t taken = got < size ? got : size;
    memcpy(to, block, (size_t)taken);
    if (line->port == 0)
        return taken; /* closed meanwhile: the rest goes as the device's own queue does */
    /* Another thread may have stored some while this one waited; nobody can tell which came first then. */
    int kept = line->aheadEnd - line->aheadStart;
    int rest = got - taken;
    if (kept + rest > 2 * AHEAD_SIZE)
        rest = 2 * AHEAD_SIZE - kept;
    memmove(line->ahead, line->ahead + line->aheadStart, (size_t)kept);
    memcpy(line->ahead + kept, block + taken, (size_t)rest);
    line->aheadStart = 0;
    line->aheadEnd = kept + rest;
    return taken;
}

/* What is there, at least a byte when there is time: the count, or why there is none. */
static int32_t readSome(Line *line, uint8_t *to, Py_ssize_t size, int32_t milliseconds) {
    if (line->aheadStart < line->aheadEnd)
        return takeAhead(line, to, size);
    int32_t count = size < INT32_MAX ? (int32_t)size : INT32_MAX;
    if (count > AHEAD_AFTER)
        line->streak = 0;
    else if (line->streak < AHEAD_AFTER)
        ++line->streak;
    else if (line->readsAhead && line->readers == 0)
        return readAhead(line, to, count, milliseconds);
    return readPort(line, line->port, to, count, milliseconds);
}

/* A read that gave no byte. 1: go on; 0: it is over with what has come; -1: an exception is set. */
static int afterFailure(PyObject *self, int32_t got, int hasSome) {
    Line *line = lineOf(self);
    if (got == INTERRUPTED)
        return PyErr_CheckSignals() == 0 ? 1 : -1;
    if (got == CANCELLED) /* or by somebody who meant another call */
        return atomic_exchange(&line->cancelRead, 0) ? 0 : 1;
    if (hasSome)
        return 0;
    fail(self, "read", line->port == 0 ? CLOSED : got);
    return -1;
}

static int isOpen(PyObject *self, const char *what) {
    if (lineOf(self)->port != 0)
        return 1;
    fail(self, what, CLOSED);
    return 0;
}

/* Reads until `size` bytes are there or the time is over. The count; -1 with an exception, unless some bytes have
 * come before (`had`, in an earlier piece): those are given first, and the next call tells. */
static Py_ssize_t readAll(PyObject *self, uint8_t *to, Py_ssize_t size, Limit *limit, int had) {
    Line *line = lineOf(self);
    const int cancels = line->cancels;
    Py_ssize_t count = 0;
    while (count < size && cancels == line->cancels) {
        if (atomic_load(&line->cancelRead) && atomic_exchange(&line->cancelRead, 0))
            break;
        int32_t got = line->port == 0 ? CLOSED : readSome(line, to + count, size - count, nextPiece(limit));
        if (got > 0) {
            count += got;
        } else if (got < 0) {
            int on = afterFailure(self, got, had || count > 0);
            if (on < 0)
                return -1;
            if (on == 0)
                break;
            continue;
        } else if (endPiece(limit, got) != 0) {
            return -1;
        }
        if (count < size && isOver(limit))
            break;
    }
    return count;
}

/* A bytes object of at most `size` bytes that have come within the time. A large size is a limit rather than a
 * wish: memory follows what comes. */
static PyObject *readBytes(PyObject *self, Py_ssize_t size, double seconds) {
    enum { pieceSize = 1 << 16 };
    uint8_t few[AHEAD_AFTER];
    Limit limit = limitOf(seconds);
    if (size <= AHEAD_AFTER) {
        Py_ssize_t got = readAll(self, few, size, &limit, 0);
        return got < 0 ? NULL : PyBytes_FromStringAndSize((char *)few, got);
    }
    Py_ssize_t room = size < pieceSize ? size : pieceSize, count = 0;
    PyObject *bytes = PyBytes_FromStringAndSize(NULL, room);
    while (bytes != NULL) {
        Py_ssize_t got =
            readAll(self, (uint8_t *)PyBytes_AS_STRING(bytes) + count, room - count, &limit, count > 0);
        if (got < 0) {
            Py_DECREF(bytes);
            return NULL;
        }
        count += got;
        if (count < room || room == size) {
            _PyBytes_Resize(&bytes, count);
            return bytes;
        }
        room = room < size / 2 ? room * 2 : size;
        _PyBytes_Resize(&bytes, room);
    }
    return NULL;
}

/* The one argument of a call, given by position or by name: 1; 0 none; -1 with an exception. */
static int onlyArgument(const char *call, const char *name, Py_ssize_t count, PyObject *names) {
    Py_ssize_t named = names == NULL ? 0 : PyTuple_GET_SIZE(names);
    if (count + named > 1 ||
        (named == 1 && PyUnicode_CompareWithASCIIString(PyTuple_GET_ITEM(names, 0), name) != 0)) {
        PyErr_Format(PyExc_TypeError, "%s() takes one argument, %s", call, name);
        return -1;
    }
    return (int)(count + named);
}

static PyObject *lineRead(PyObject *self, PyObject *const *args, Py_ssize_t count, PyObject *names) {
    Py_ssize_t size = 1;
    if (!isOpen(self, "read"))
        return NULL;
    int given = onlyArgument("read", "size", count, names);
    if (given < 0)
        return NULL;
    if (given == 1) {
        size = PyNumber_AsSsize_t(args[0], PyExc_OverflowError);
        if (size == -1 && PyErr_Occurred())
            return NULL;
    }
    return size > 0 ? readBytes(self, size, lineOf(self)->seconds) : PyBytes_FromStringAndSize(NULL, 0);
}

/* _read_some(size, seconds): what is there, after a wait for the first byte; b"" none in time. */
static PyObject *lineReadSome(PyObject *self, PyObject *const *args, Py_ssize_t count) {
    double seconds;
    if (count != 2) {
        PyErr_SetString(PyExc_TypeError, "_read_some() takes size and seconds");
        return NULL;
    }
    Py_ssize_t size = PyNumber_AsSsize_t(args[0], NULL);
    if ((size == -1 && PyErr_Occurred()) || secondsFrom(args[1], &seconds) != 0 || !isOpen(self, "read"))
        return NULL;
    if (size <= 0)
        return PyBytes_FromStringAndSize(NULL, 0);
    if (size > SOME_SIZE)
        size = SOME_SIZE;
    PyObject *bytes = PyBytes_FromStringAndSize(NULL, size);
    if (bytes == NULL)
        return NULL;
    Limit limit = limitOf(seconds);
    Py_ssize_t got = readAll(self, (uint8_t *)PyBytes_AS_STRING(bytes), 1, &limit, 0);
    if (got > 0 && size > 1) {
        int32_t more = readSome(lineOf(self), (uint8_t *)PyBytes_AS_STRING(bytes) + 1, size - 1, 0);
        got += more > 0 ? more : 0;
    }
    if (got < 0) {
        Py_DECREF(bytes);
        return NULL;
    }
    _PyBytes_Resize(&bytes, got);
    return bytes;
}

/* _read_within(size, seconds): all of it, or what has come in time. */
static PyObject *lineReadWithin(PyObject *self, PyObject *const *args, Py_ssize_t count) {
    double seconds;
    if (count != 2) {
        PyErr_SetString(PyExc_TypeError, "_read_within() takes size and seconds");
        return NULL;
    }
    Py_ssize_t size = PyNumber_AsSsize_t(args[0], PyExc_OverflowError);
    if ((size == -1 && PyErr_Occurred()) || secondsFrom(args[1], &seconds) != 0 || !isOpen(self, "read"))
        return NULL;
    return size > 0 ? readBytes(self, size, seconds) : PyBytes_FromStringAndSize(NULL, 0);
}

/* ---- Reading up to something --------------------------------------------------------------------- */

/* A class with another read (one that traces, say) is asked for each byte. */
static int readIsOurs(PyObject *self) {
    return _PyType_Lookup(Py_TYPE(self), readName) == ownRead;
}

/* The next byte, -1 none in time, -2 an exception. */
static int nextByte(PyObject *self, int direct, double seconds) {
    Line *line = lineOf(self);
    if (direct) {
        if (line->aheadStart < line->aheadEnd && !atomic_load(&line->cancelRead))
            return line->ahead[line->aheadStart++];
        uint8_t byte;
        Limit limit = limitOf(seconds);
        Py_ssize_t got = readAll(self, &byte, 1, &limit, 0);
        return got > 0 ? byte : (int)got - 1;
    }
    PyObject *piece = PyObject_CallMethod(self, "read", "i", 1);
    if (piece == NULL)
        return -2;
    Py_buffer bytes;
    if (PyObject_GetBuffer(piece, &bytes, PyBUF_SIMPLE) != 0) {
        Py_DECREF(piece);
        return -2;
    }
    int byte = bytes.len > 0 ? ((uint8_t *)bytes.buf)[0] : -1;
    PyBuffer_Release(&bytes);
    Py_DECREF(piece);
    return byte;
}

typedef struct Text {
    uint8_t few[256];
    uint8_t *bytes;
    Py_ssize_t count, room;
} Text;

static int append(Text *text, uint8_t byte) {
    if (text->count == text->room) {
        uint8_t *larger = PyMem_Malloc((size_t)text->room * 2);
        if (larger == NULL) {
            PyErr_NoMemory();
            return -1;
        }
        memcpy(larger, text->bytes, (size_t)text->count);
        if (text->bytes != text->few)
            PyMem_Free(text->bytes);
        text->bytes = larger;
        text->room *= 2;
    }
    text->bytes[text->count++] = byte;
    return 0;
}

typedef struct Wanted {
    const char *end; /* what it ends with */
    Py_ssize_t length;
    Py_ssize_t size; /* at most; below 0: no limit */
    double seconds;  /* for each byte */
    int total;       /* the whole call has that time, too */
    int direct;      /* past a read of the object's own */
} Wanted;

static PyObject *readUpTo(PyObject *self, Wanted wanted) {
    int byte = -1;
    int timed =
        wanted.total && wanted.seconds > 0; /* a time of 0 ends with the first byte that is not there */
    Limit limit = limitOf(timed ? wanted.seconds : -1);
    Text text = {.bytes = text.few, .room = sizeof text.few};
    while (wanted.size < 0 || text.count < wanted.size) {
        byte = nextByte(self, wanted.direct, wanted.seconds);
        if (byte < 0 || append(&text, (uint8_t)byte) != 0)
            break;
        Py_ssize_t start = text.count - wanted.length;
        if (start >= 0 && memcmp(text.bytes + start, wanted.end, (size_t)wanted.length) == 0)
            break;
        if (timed && lineOf(self)->aheadStart == lineOf(self)->aheadEnd && isOver(&limit))
            break;
    }
    int failed = byte == -2 || PyErr_Occurred() != NULL;
    PyObject *line = failed ? NULL : PyBytes_FromStringAndSize((char *)text.bytes, text.count);
    if (text.bytes != text.few)
        PyMem_Free(text.bytes);
    return line;
}

/* Absent or None is no limit, -1. `least` is what a smaller one counts as. */
static int sizeFrom(PyObject *value, Py_ssize_t least, Py_ssize_t *size) {
    *size = -1;
    if (value == NULL || value == Py_None)
        return 0;
    *size = PyNumber_AsSsize_t(value, NULL);
    if (*size == -1 && PyErr_Occurred())
        return -1;
    if (*size < least)
        *size = least;
    return 0;
}

static PyObject *lineReadline(PyObject *self, PyObject *args) {
    PyObject *given = NULL;
    Py_ssize_t size;
    if (!PyArg_ParseTuple(args, "|O:readline", &given) || sizeFrom(given, -1, &size) != 0)
        return NULL;
    Wanted wanted = {"\n", 1, size, lineOf(self)->seconds, 0, readIsOurs(self)};
    return readUpTo(self, wanted);
}

static PyObject *lineReadUntil(PyObject *self, PyObject *args, PyObject *named) {
    static char *names[] = {"expected", "size", NULL};
    Py_buffer expected = {.buf = "\n", .len = 1};
    PyObject *given = NULL;
    Py_ssize_t size;
    if (!PyArg_ParseTupleAndKeywords(args, named, "|y*O:read_until", names, &expected, &given))
        return NULL;
    PyObject *text = NULL;
    if (sizeFrom(given, 1, &size) == 0) {
        Wanted wanted = {expected.buf, expected.len, size, lineOf(self)->seconds, 1, readIsOurs(self)};
        text = readUpTo(self, wanted);
    }
    if (expected.obj != NULL)
        PyBuffer_Release(&expected);
    return text;
}

/* _read_until_within(expected, size, seconds): the time counts anew with each byte. */
static PyObject *lineReadUntilWithin(PyObject *self, PyObject *args) {
    Py_buffer expected;
    PyObject *given, *time, *text = NULL;
    Wanted wanted = {.direct = 1};
    if (!PyArg_ParseTuple(args, "y*OO:_read_until_within", &expected, &given, &time))
        return NULL;
    if (sizeFrom(given, -1, &wanted.size) == 0 && secondsFrom(time, &wanted.seconds) == 0) {
        wanted.end = expected.buf;
        wanted.length = expected.len;
        text = readUpTo(self, wanted);
    }
    PyBuffer_Release(&expected);
    return text;
}

/* ---- Writing ------------------------------------------------------------------------------------- */

static int32_t writePort(Line *line, int32_t port, const void *from, int32_t count, int32_t milliseconds) {
    int32_t taken;
    int cancels = enter(line, &line->writers);
    PyThreadState *outside = PyEval_SaveThread();
    taken = atomic_load(&line->cancelWrite) ? CANCELLED : calls->write(port, from, count, milliseconds);
    PyEval_RestoreThread(outside);
    leave(line, &line->writers, cancels);
    return taken;
}

/* Hands over all bytes within the time. The count; -1 with an exception. */
static Py_ssize_t writeAll(PyObject *self, const uint8_t *from, Py_ssize_t size, double seconds) {
    Line *line = lineOf(self);
    Limit limit = limitOf(seconds);
    const int cancels = line->cancels;
    Py_ssize_t count = 0;
    while (count < size) {
        if (!isOpen(self, "write"))
            return -1;
        Py_ssize_t rest = size - count;
        int32_t taken = writePort(line, line->port, from + count,
                                  rest < INT32_MAX ? (int32_t)rest : INT32_MAX, nextPiece(&limit));
        if (taken > 0)
            count += taken;
        if (count == size)
            return count;
        if (atomic_load(&line->cancelWrite) && atomic_exchange(&line->cancelWrite, 0))
            return count;
        if (endPiece(&limit, taken) != 0)
            return -1;
        if (cancels != line->cancels)
            return count;
        if (taken < 0 && taken != CANCELLED && taken != INTERRUPTED) {
            fail(self, "write", line->port == 0 ? CLOSED : taken);
            return -1;
        }
        if (isOver(&limit)) {
            if (seconds == 0)
                return count;
            fail(self, "write", TIME_OVER);
            return -1;
        }
    }
    return count;
}

static PyObject *writeObject(PyObject *self, PyObject *data, double seconds) {
    Py_buffer bytes;
    if (!isOpen(self, "write"))
        return NULL;
    PyObject *copy = NULL;
    if (!PyObject_CheckBuffer(data) || PyObject_GetBuffer(data, &bytes, PyBUF_SIMPLE) != 0) {
        PyErr_Clear();
        copy = PyObject_CallMethod(self, "_to_bytes", "O", data);
        if (copy == NULL)
            return NULL;
        if (PyObject_GetBuffer(copy, &bytes, PyBUF_SIMPLE) != 0) {
            Py_DECREF(copy);
            return NULL;
        }
    }
    Py_ssize_t count = writeAll(self, bytes.buf, bytes.len, seconds);
    PyBuffer_Release(&bytes);
    Py_XDECREF(copy);
    return count < 0 ? NULL : PyLong_FromSsize_t(count);
}

static PyObject *lineWrite(PyObject *self, PyObject *const *args, Py_ssize_t count, PyObject *names) {
    int given = onlyArgument("write", "data", count, names);
    if (given == 0)
        PyErr_SetString(PyExc_TypeError, "write() missing 1 required argument: 'data'");
    return given == 1 ? writeObject(self, args[0], lineOf(self)->writeSeconds) : NULL;
}

/* _write_within(data, seconds) */
static PyObject *lineWriteWithin(PyObject *self, PyObject *const *args, Py_ssize_t count) {
    double seconds;
    if (count != 2) {
        PyErr_SetString(PyExc_TypeError, "_write_within() takes data and seconds");
        return NULL;
    }
    return secondsFrom(args[1], &seconds) != 0 ? NULL : writeObject(self, args[0], seconds);
}

/* ---- Knowing ------------------------------------------------------------------------------------- */

/* True when `queued` is what the descriptor has. Whoever else reads it makes an old answer wrong. */
static int askQueue(Line *line) {
    double moment = now();
    if (line->readsAhead && moment < line->queuedUntil)
        return 1;
    if (ioctl(line->queue, FIONREAD, &line->queued) != 0)
        return 0;
    line->queuedUntil = moment + queuedGood;
    return 1;
}

static PyObject *lineInWaiting(PyObject *self, void *unused) {
    (void)unused;
    Line *line = lineOf(self);
    if (!isOpen(self, "in_waiting"))
        return NULL;
    int held = line->aheadEnd - line->aheadStart;
    if (line->queue >= 0 && askQueue(line))
        return PyLong_FromLong(held + line->queued);
    int32_t port = line->port, there;
    int cancels = enter(line, NULL);
    PyThreadState *outside = PyEval_SaveThread();
    there = calls->waiting(port);
    PyEval_RestoreThread(outside);
    leave(line, NULL, cancels);
    return there < 0 ? fail(self, "in_waiting", there) : PyLong_FromLong(held + (long)there);
}

static PyObject *lineInWaitingMethod(PyObject *self, PyObject *unused) {
    (void)unused;
    return PyObject_GetAttrString(self, "in_waiting");
}

/* ---- Ending calls -------------------------------------------------------------------------------- */

static void pauseShortly(void) {
    struct timespec half = {0, 500000};
    nanosleep(&half, NULL);
}

/* Ends the calls that wait in the library. A call that is about to enter misses a cancel, so it is given again
 * until `flag` (if any) has been taken or nobody of those that it is for is inside. */
static void endCalls(Line *line, const atomic_int *flag, const int *who) {
    int32_t port = line->port;
    for (int i = 0; i < 2000 && *who > 0 && (flag == NULL || atomic_load(flag)) && line->port == port; ++i) {
        PyThreadState *outside = PyEval_SaveThread();
        calls->cancel(port);
        pauseShortly();
        PyEval_RestoreThread(outside);
    }
}

static PyObject *lineCancelRead(PyObject *self, PyObject *unused) {
    (void)unused;
    Line *line = lineOf(self);
    if (line->port != 0) {
        atomic_store(&line->cancelRead, 1);
        endCalls(line, &line->cancelRead, &line->readers);
    }
    Py_RETURN_NONE;
}

static PyObject *lineCancelWrite(PyObject *self, PyObject *unused) {
    (void)unused;
    Line *line = lineOf(self);
    if (line->port != 0) {
        atomic_store(&line->cancelWrite, 1);
        endCalls(line, &line->cancelWrite, &line->writers);
    }
    Py_RETURN_NONE;
}

/* _cancel_waits(): ends the reads and writes that run, and no later ones. Those of this thread, which are below a
 * signal's handler, end when it returns. */
static PyObject *lineCancelWaits(PyObject *self, PyObject *unused) {
    (void)unused;
    Line *line = lineOf(self);
    ++line->cancels;
    line->leaving = line->readers + line->writers;
    endCalls(line, NULL, &line->leaving);
    Py_RETURN_NONE;
}

/* _attach(port, queue, ahead): the line is open from now on. */
static PyObject *lineAttach(PyObject *self, PyObject *args) {
    int port, queue, ahead;
    if (!PyArg_ParseTuple(args, "iii:_attach", &port, &queue, &ahead))
        return NULL;
    Line *line = lineOf(self);
    line->queue = queue;
    line->readsAhead = ahead;
    line->streak = line->aheadStart = line->aheadEnd = 0;
    atomic_store(&line->cancelRead, 0);
    atomic_store(&line->cancelWrite, 0);
    line->port = port;
    Py_RETURN_NONE;
}

/* _detach(milliseconds): closes the port. What ComHostClose answers; 1 when it was closed already. */
static PyObject *lineDetach(PyObject *self, PyObject *args) {
    int milliseconds;
    if (!PyArg_ParseTuple(args, "i:_detach", &milliseconds))
        return NULL;
    Line *line = lineOf(self);
    int32_t port = line->port, result = 1;
    if (port == 0)
        return PyLong_FromLong(1);
    line->port = 0;
    line->aheadStart = line->aheadEnd = 0;
    for (int i = 0; i < LEAVING_TRIES && line->inside > 0; ++i) {
        PyThreadState *outside = PyEval_SaveThread();
        calls->cancel(port);
        pauseShortly();
        PyEval_RestoreThread(outside);
    }
    PyThreadState *outside = PyEval_SaveThread();
    result = calls->close(port, milliseconds);
    PyEval_RestoreThread(outside);
    return PyLong_FromLong(result);
}

/* _on_port(call, ...): call(port, ...), a function of the library. */
static PyObject *lineOnPort(PyObject *self, PyObject *const *args, Py_ssize_t count) {
    enum { most = 16 };
    PyObject *given[most];
    if (count < 1 || count > most) {
        PyErr_Format(PyExc_TypeError, "_on_port() takes a call and at most %d arguments", most - 1);
        return NULL;
    }
    Line *line = lineOf(self);
    if (!isOpen(self, "call"))
        return NULL;
    memcpy(given, args, (size_t)count * sizeof *given);
    given[0] = PyLong_FromLong(line->port);
    if (given[0] == NULL)
        return NULL;
    int cancels = enter(line, NULL);
    PyObject *result = PyObject_Vectorcall(args[0], given, (size_t)count, NULL);
    leave(line, NULL, cancels);
    Py_DECREF(given[0]);
    return result;
}

/* _read_ahead(on): off for who takes the descriptor. What was fetched before stays to be read. */
static PyObject *lineReadAhead(PyObject *self, PyObject *on) {
    int allowed = PyObject_IsTrue(on);
    if (allowed < 0)
        return NULL;
    lineOf(self)->readsAhead = allowed;
    Py_RETURN_NONE;
}

/* _forget_ahead(): what was fetched is dropped. */
static PyObject *lineForgetAhead(PyObject *self, PyObject *unused) {
    (void)unused;
    lineOf(self)->aheadStart = lineOf(self)->aheadEnd = 0;
    lineOf(self)->queuedUntil = 0;
    Py_RETURN_NONE;
}

/* _set_times(read, write): the time-outs in seconds, None for no limit. */
static PyObject *lineSetTimes(PyObject *self, PyObject *const *args, Py_ssize_t count) {
    double reads, writes;
    if (count != 2) {
        PyErr_SetString(PyExc_TypeError, "_set_times() takes two time-outs");
        return NULL;
    }
    if (secondsFrom(args[0], &reads) != 0 || secondsFrom(args[1], &writes) != 0)
        return NULL;
    lineOf(self)->seconds = reads;
    lineOf(self)->writeSeconds = writes;
    Py_RETURN_NONE;
}

/* ---- The type ------------------------------------------------------------------------------------ */

static PyObject *lineNew(PyTypeObject *type, PyObject *args, PyObject *named) {
    (void)args;
    (void)named;
    PyObject *self = type->tp_alloc(type, 0);
    if (self != NULL) {
        lineOf(self)->seconds = lineOf(self)->writeSeconds = -1;
        lineOf(self)->queue = -1;
    }
    return self;
}

static PyMethodDef lineMethods[] = {
    {"read", (PyCFunction)(void (*)(void))lineRead, METH_FASTCALL | METH_KEYWORDS,
     "read($self, size=1)\n--\n\nThat many bytes, or those that came within the time-out."},
    {"readline", lineReadline, METH_VARARGS, "readline($self, size=-1, /)\n--\n\nUp to a line feed."},
    {"read_until", (PyCFunction)(void (*)(void))lineReadUntil, METH_VARARGS | METH_KEYWORDS,
     "read_until($self, expected=b'\\n', size=None)\n--\n\nUp to the expected bytes."},
    {"write", (PyCFunction)(void (*)(void))lineWrite, METH_FASTCALL | METH_KEYWORDS,
     "write($self, data)\n--\n\nHands over all of it within the write time-out."},
    {"inWaiting", lineInWaitingMethod, METH_NOARGS, "The same as in_waiting."},
    {"cancel_read", lineCancelRead, METH_NOARGS,
     "cancel_read($self)\n--\n\nEnds the read that runs, or else the next."},
    {"cancel_write", lineCancelWrite, METH_NOARGS,
     "cancel_write($self)\n--\n\nEnds the write that runs, or else the next."},
    {"_cancel_waits", lineCancelWaits, METH_NOARGS, NULL},
    {"_read_some", (PyCFunction)(void (*)(void))lineReadSome, METH_FASTCALL, NULL},
    {"_read_within", (PyCFunction)(void (*)(void))lineReadWithin, METH_FASTCALL, NULL},
    {"_read_until_within", lineReadUntilWithin, METH_VARARGS, NULL},
    {"_write_within", (PyCFunction)(void (*)(void))lineWriteWithin, METH_FASTCALL, NULL},
    {"_attach", lineAttach, METH_VARARGS, NULL},
    {"_detach", lineDetach, METH_VARARGS, NULL},
    {"_on_port", (PyCFunction)(void (*)(void))lineOnPort, METH_FASTCALL, NULL},
    {"_read_ahead", lineReadAhead, METH_O, NULL},
    {"_forget_ahead", lineForgetAhead, METH_NOARGS, NULL},
    {"_set_times", (PyCFunction)(void (*)(void))lineSetTimes, METH_FASTCALL, NULL},
    {NULL, NULL, 0, NULL}};

static PyObject *lineIsOpen(PyObject *self, void *unused) {
    (void)unused;
    return PyBool_FromLong(lineOf(self)->port != 0);
}

static PyGetSetDef lineProperties[] = {
    {"_is_open", lineIsOpen, NULL, NULL, NULL},
    {"in_waiting", lineInWaiting, NULL, "Bytes that are there to be read.", NULL},
    {NULL, NULL, NULL, NULL, NULL}};

static PyType_Slot lineSlots[] = {
    {Py_tp_new, lineNew}, {Py_tp_methods, lineMethods}, {Py_tp_getset, lineProperties}, {0, NULL}};
static PyType_Spec lineSpec = {
    .name = "brisolt._line.Line", .flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, .slots = lineSlots};

/* bind(address): the table of calls, once the library is loaded. */
static PyObject *bind(PyObject *module, PyObject *address) {
    (void)module;
    calls = PyLong_AsVoidPtr(address);
    if (calls == NULL && PyErr_Occurred())
        return NULL;
    Py_RETURN_NONE;
}

static PyMethodDef functions[] = {{"bind", bind, METH_O, NULL}, {NULL, NULL, 0, NULL}};
static struct PyModuleDef definition = {
    .m_base = PyModuleDef_HEAD_INIT, .m_name = "brisolt._line", .m_size = -1, .m_methods = functions};

/* The type stands on what io.RawIOBase stands on, whose size only the interpreter knows, and is told to be one. */
static PyObject *makeType(PyObject *io) {
    PyObject *abstract = PyObject_GetAttrString(io, "RawIOBase");
    if (abstract == NULL)
        return NULL;
    PyTypeObject *base = ((PyTypeObject *)abstract)->tp_base;
    lineOffset = base->tp_basicsize;
    lineSpec.basicsize = (int)(lineOffset + (Py_ssize_t)sizeof(Line));
    PyObject *type = PyType_FromSpecWithBases(&lineSpec, (PyObject *)base);
    PyObject *done = type == NULL ? NULL : PyObject_CallMethod(abstract, "register", "O", type);
    Py_DECREF(abstract);
    if (done == NULL)
        Py_CLEAR(type);
    Py_XDECREF(done);
    return type;
}

PyMODINIT_FUNC PyInit__line(void) {
    PyObject *module = PyModule_Create(&definition);
    PyObject *io = module == NULL ? NULL : PyImport_ImportModule("io");
    PyObject *type = io == NULL ? NULL : makeType(io);
    Py_XDECREF(io);
    if (type == NULL || PyModule_AddObjectRef(module, "Line", type) != 0) {
        Py_XDECREF(type);
        Py_XDECREF(module);
        return NULL;
    }
    readName = PyUnicode_InternFromString("read");
    ownRead = readName == NULL ? NULL : _PyType_Lookup((PyTypeObject *)type, readName);
    return module;
}
