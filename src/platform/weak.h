/*
 * What makes a stand-in replaceable: a weak symbol yields to a definition of the program's, and in
 * the shared library to that of whoever comes first.
 */
#ifndef WQEVENTS_PLATFORM_WEAK_H
#define WQEVENTS_PLATFORM_WEAK_H

#define WQ_STAND_IN __attribute__((weak))

#endif
