#!/bin/sh
# Writes functions that end the program, one for each function that the shared library exports and
# that a program may not replace.
#
#   namesakes.sh NM LIBRARY OUTPUT
set -eu
LC_ALL=C
export LC_ALL

{
    printf '#include <stdio.h>\n#include <stdlib.h>\n\n'
    printf 'static void called(const char* name) {\n'
    printf '    fprintf(stderr, "the library called the %%s of the program\\n", name);\n'
    printf '    _Exit(1);\n}\n\n'
    "$1" -D --defined-only "$2" | sed 's/@.*//' |
        awk '$2 == "T" && $3 !~ /^__(asan|odr_asan|ubsan)/ {
            printf "void %s(void);\nvoid %s(void) {\n    called(\"%s\");\n}\n", $3, $3, $3
        }'
} >"$3"
