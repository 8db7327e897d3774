/*
 * Looking for single-byte delimiters and for tokens in multibyte text of the current locale.
 */
#ifndef WQEVENTS_PLATFORM_MULTIBYTE_H
#define WQEVENTS_PLATFORM_MULTIBYTE_H

namespace wq {

/* The first character of `s` that is the single byte `c`; the terminator counts as one. */
const char* find_character(const char* s, char c);

/*
 * strtok_r() by characters: `s` starts a new text, null goes on at `rest`. Null when there is no
 * token left; `rest` is null then, too.
 */
char* next_token(char* s, const char* delimiters, char*& rest);

}  // namespace wq

#endif
