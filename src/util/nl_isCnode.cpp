#include <wqevents/status.h>

/* Client nodes do not exist any more; programs still ask. */
int isCnode(void) noexcept {
    return 0;
}

char* getServerName(void) noexcept {
    return nullptr;
}
