// What makes, frees and fetches the parts of a trap record.
#pragma once

#include <wqevents/configuration.h>

#include <cstddef>

namespace wq {

// makeFormatString() with memory for the compiled text by `allocate`; neither pointer is null.
void compile_format(char* raw, trap_element& element, void* (*allocate)(size_t));

// The strings of a compiled format; the element stays, and still points at them.
inline void release_texts(const trap_element& element) {
    doFree(element.rawstring);
    doFree(element.format);
}

// An element of its own, or null.
inline void release_element(trap_element* element) {
    if (element != nullptr) {
        release_texts(*element);
        doFree(element);
    }
}

// Fetches the parts of a record, which may be null, that say what belongs to it.
inline void prefetch_record(const trap_record* rec) {
    if (rec != nullptr) {
        __builtin_prefetch(rec);
        __builtin_prefetch(&rec->description);
        __builtin_prefetch(&rec->execargs_ptr);
        __builtin_prefetch(&rec->alert_element);
    }
}

}  // namespace wq
