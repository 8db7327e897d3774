#include <wqevents/alerts.h>

void call_formatZYNcp(char* buffer, int buflen, SnmpVarBindEMS* var, int count, int index) {
    formatZYNcp(buffer, buflen, var, count, index);
}
