// The border that no exception crosses.
#pragma once

#include <cerrno>
#include <exception>
#include <utility>

namespace wq {

// The result of `call`, or `failure` when memory is exhausted, with ENOMEM in errno. The
// cancellation of a thread unwinds its stack by something that is no std::exception; it must pass.
template <class Result, class Call>
Result guarded(Result failure, Call&& call) {
    try {
        return std::forward<Call>(call)();
    } catch (const std::exception&) {
        errno = ENOMEM;
        return failure;
    }
}

// For calls without a result.
template <class Call>
void guarded(Call&& call) {
    try {
        std::forward<Call>(call)();
    } catch (const std::exception&) {
        errno = ENOMEM;
    }
}

}  // namespace wq
