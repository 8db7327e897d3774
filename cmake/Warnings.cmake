# One interface target carries the warnings and the instrumentation that every part of the project
# is built with.
add_library(wqevents_options INTERFACE)

target_compile_options(wqevents_options INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wshadow
    $<$<BOOL:${WQEVENTS_WERROR}>:-Werror>)

if(WQEVENTS_SANITIZE)
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_compile_options(wqevents_options INTERFACE ${sanitizers})
    target_link_options(wqevents_options INTERFACE ${sanitizers})
endif()

if(WQEVENTS_COVERAGE)
    target_compile_options(wqevents_options INTERFACE --coverage)
    target_link_options(wqevents_options INTERFACE --coverage)
endif()

if(WQEVENTS_FUZZ)
    # The library is instrumented for coverage; only the targets link libFuzzer's main.
    set(fuzzing -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
                -fno-omit-frame-pointer)
    target_compile_options(wqevents_options INTERFACE ${fuzzing})
    target_link_options(wqevents_options INTERFACE ${fuzzing})
endif()
