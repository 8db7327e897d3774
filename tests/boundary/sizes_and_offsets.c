/* The records seen from C. */
#include "layout_checks.h"
