/*
 * Whether the platform's companion daemons are enabled, running or healthy, and white-space
 * stripping.
 *
 * A daemon is enabled when the registration file "/usr/WQ/conf/wqsuf" lists it, and running when a
 * process holds a lock on its pid file. Questions return 1 for yes and 0 for no, also where a file
 * cannot be read.
 */
#ifndef WQEVENTS_STATUS_H
#define WQEVENTS_STATUS_H

#include <wqevents/export.h>

WQEVENTS_BEGIN_DECLS

/* isKmCollectordHappy, isKmPollerdHappy: isDaemonHappy_() for the collecting and polling daemon. */
WQEVENTS_API int isKmCollectordHappy(void);
WQEVENTS_API int isKmPollerdHappy(void);

/*
 * isSnmpGleanHappy: 0 if the data-collection daemon is enabled and its program installed, this host
 * is no client node, and the daemon is not running; else 1.
 */
WQEVENTS_API int isSnmpGleanHappy(void);

/* isKmCollectordEnabled, isKmPollerdEnabled, isSnmpGleanEnabled: isDaemonEnabled_() for each. */
WQEVENTS_API int isKmCollectordEnabled(void);
WQEVENTS_API int isKmPollerdEnabled(void);
WQEVENTS_API int isSnmpGleanEnabled(void);

/*
 * isDaemonHappy_: 0 if the daemon is enabled, this host is no client node and the daemon is not
 * running by its pid file; else 1: a daemon that is not wanted counts as happy.
 */
WQEVENTS_API int isDaemonHappy_(const char* daemon, const char* pidfile);

/*
 * isDaemonEnabled_: 1 if a line of the registration file, "0:NAME:...", enables the daemon: its
 * first field reads as the number 0, as any text does that does not begin with a number, and its
 * second is exactly the daemon's name, leading blanks aside. Fields are parted by ':'; a line that
 * ends behind the name does not count, since its newline belongs to the field.
 */
WQEVENTS_API int isDaemonEnabled_(const char* daemon);

/* isDaemonRunning_: 1 if another process holds a lock on the pid file that excludes readers. */
WQEVENTS_API int isDaemonRunning_(const char* pidfile);

/*
 * getSnmpGleanPidFile: the path of the data-collection daemon's pid file: the value that the
 * environment variable WQSNMPGLNPIDFILE had at the first call, else "/usr/WQ/pids/snmpGleanPid".
 * The text is the library's.
 */
WQEVENTS_API const char* getSnmpGleanPidFile(void) WQEVENTS_NOEXCEPT;

/* isSnmpGleanRunning: 1 if another process holds any lock on that pid file. */
WQEVENTS_API int isSnmpGleanRunning(void);

/* eventConfiguratorExists: 1 if the event configurator is installed, as found at the first call. */
WQEVENTS_API int eventConfiguratorExists(void) WQEVENTS_NOEXCEPT;

/* isCnode: whether this host is a client node: always 0. */
WQEVENTS_API int isCnode(void) WQEVENTS_NOEXCEPT;

/* getServerName: the name of this client node's server: always null. */
WQEVENTS_API char* getServerName(void) WQEVENTS_NOEXCEPT;

/*
 * _WQstrip_whitespace: removes white space in place: mode 0 the leading, 1 the trailing, 2 both;
 * other modes change nothing. A character of two bytes in the current locale is no white space.
 */
WQEVENTS_API void _WQstrip_whitespace(char* string, int mode) WQEVENTS_NOEXCEPT;

WQEVENTS_END_DECLS

#endif
