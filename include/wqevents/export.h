/*
 * How the boundary is spelt: C linkage, default visibility, and no exception across it.
 */
#ifndef WQEVENTS_EXPORT_H
#define WQEVENTS_EXPORT_H

#ifdef __cplusplus
#define WQEVENTS_BEGIN_DECLS extern "C" {
#define WQEVENTS_END_DECLS }
#else
#define WQEVENTS_BEGIN_DECLS
#define WQEVENTS_END_DECLS
#endif

#define WQEVENTS_API __attribute__((visibility("default")))

/*
 * No function of the library throws. Those that may wait unwind the stack of a thread that is
 * cancelled; the others are marked, and are no place where that happens. Only the library's own
 * build says so in the type, so that a caller may repeat a prototype exactly as C spells it.
 */
#if defined(WQEVENTS_BUILD) && defined(__cplusplus)
#define WQEVENTS_NOEXCEPT noexcept
#else
#define WQEVENTS_NOEXCEPT
#endif

/* The library has its own printf formats checked; what a caller passes is the caller's matter. */
#ifdef WQEVENTS_BUILD
#define WQEVENTS_PRINTF(text, first) __attribute__((format(printf, text, first)))
#else
#define WQEVENTS_PRINTF(text, first)
#endif

#endif
