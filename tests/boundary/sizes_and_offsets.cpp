/*
 * The records seen from C++. The checks are made while compiling; what runs shows that the words of
 * a transmission header are in this host's byte order in the order of the wire.
 */
#include "layout_checks.h"

#include <cstring>

int main() {
    const trap_headerEMS header = {0x01020304, 0x05060708, -2, 0, -1, 0x090A0B0C};
    const uint32_t words[] = {0x01020304, 0x05060708, 0xFFFFFFFE, 0, 0xFFFFFFFF, 0x090A0B0C};
    return std::memcmp(&header, words, EMS_HEADER_LEN) == 0 ? 0 : 1;
}
