// What makes and frees the parts of a trap record.
#pragma once

#include <wqevents/configuration.h>

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

}  // namespace wq
