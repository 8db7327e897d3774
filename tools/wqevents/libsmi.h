/*
 * libsmi's header, which is C and has a parameter called "class".
 */
#ifndef WQEVENTS_TOOL_LIBSMI_H
#define WQEVENTS_TOOL_LIBSMI_H

#include <cstdarg>
#include <cstdlib>
#include <ctime>

#ifdef __clang__
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#define class class_
#include <smi.h>
#undef class
#ifdef __clang__
#pragma clang diagnostic pop
#endif

#endif
