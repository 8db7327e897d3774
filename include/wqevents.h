/*
 * Everything the library offers to a program. What the library asks of the platform is in
 * wqplatform.h.
 */
#ifndef WQEVENTS_H
#define WQEVENTS_H

#include <wqevents/alerts.h>
#include <wqevents/channel.h>
#include <wqevents/client.h>
#include <wqevents/codec.h>
#include <wqevents/configuration.h>
#include <wqevents/formatter.h>
#include <wqevents/names.h>
#include <wqevents/status.h>
#include <wqevents/trace.h>

#endif
