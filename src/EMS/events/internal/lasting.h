// Objects that are made on their first use and never destroyed.
#pragma once

#include <cstddef>
#include <memory>

namespace wq {

// The one T of the process. T is a type of the module that calls, so no two modules share one. A
// program may call the library from constructors that run before main() and from destructors that
// run after it, so the object must not wait for its own constructor and must not have been
// destroyed.
template <class T>
T& lasting() {
    alignas(T) static std::byte room[sizeof(T)];
    static T* const made = std::construct_at(reinterpret_cast<T*>(room));
    return *made;
}

}  // namespace wq
