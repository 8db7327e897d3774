/*
 * The trace log and the message catalogue.
 *
 * Process-wide and meant for one thread at a time. Write errors on the trace file are ignored.
 * Writing never waits and raises neither SIGPIPE nor SIGXFSZ: what a full pipe, a pipe that nobody
 * reads or a full disk does not take is lost.
 */
#ifndef WQEVENTS_TRACE_H
#define WQEVENTS_TRACE_H

#include <nl_types.h>
#include <stdio.h>

#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/* The open trace file; null while tracing is off. */
WQEVENTS_API extern FILE* tracelogfp;
/* Where hexdumpEMS() writes; equal to tracelogfp after open_trace_log() and close_trace_log(). */
WQEVENTS_API extern FILE* dumpFp;
/* Non-zero (the default, 1): opening and closing write "Tracing Started" and "Tracing Stopped". */
WQEVENTS_API extern int traceStartingAndStopping;
/* Non-zero: every trap sent or received is dumped. */
WQEVENTS_API extern int dump_packetEMS;
/*
 * Diagnostics of the codec and the request client on the standard error stream: 1 BER, 2 message
 * header, 4 bindings, 32 lower request layer, 64 request client.
 */
WQEVENTS_API extern int snmptracemaskEMS;

/*
 * open_trace_log: appends the trace to the file `path`, or writes it to the standard output where
 * `path` is "-". While a trace is open, the path is ignored. Returns 0, or -1 when the file cannot
 * be opened, as a FIFO that nobody reads.
 */
WQEVENTS_API int open_trace_log(const char* path) WQEVENTS_NOEXCEPT;

/* close_trace_log: closes the trace file; the standard output stays open. */
WQEVENTS_API void close_trace_log(void) WQEVENTS_NOEXCEPT;

/*
 * log_trace: writes a line to the trace file, if one is open: the time stamp of printTime(),
 * `routine`, a colon, a blank and the formatted message.
 */
WQEVENTS_API void log_trace(const char* routine, const char* fmt, ...) WQEVENTS_NOEXCEPT
    WQEVENTS_PRINTF(2, 3);

/*
 * sigblockhexdump: dumps `len` bytes to the trace file, 16 a row with an offset and a text column.
 * Nothing is flushed. Returns the signal mask that was in force, as sigblock() gives it, or 0 when
 * tracing is off.
 */
WQEVENTS_API int sigblockhexdump(const unsigned char* bufp, int len) WQEVENTS_NOEXCEPT;

/*
 * printTime: writes the local time ("Sat Nov 21 10:15:00 2026", 24 characters) and a blank to the
 * trace file. Returns what the write returned; -1 when tracing is off.
 */
WQEVENTS_API int printTime(void) WQEVENTS_NOEXCEPT;

/*
 * _eventsMsg: message `msg` of set `set` of the catalogue "events.cat", or `default_text` where
 * there is no such message. The text belongs to the library and stays valid; the same pointer comes
 * back on every later call. errno is left alone. Message number 0 gives `default_text` itself.
 */
WQEVENTS_API const char* _eventsMsg(int set, int msg, const char* default_text) WQEVENTS_NOEXCEPT;

/* ___eventsMsg_fd__: the catalogue's descriptor; (nl_catd)-1 before the first _eventsMsg(). */
WQEVENTS_API nl_catd ___eventsMsg_fd__(void) WQEVENTS_NOEXCEPT;

WQEVENTS_END_DECLS

#endif
