// What a thread that is being cancelled may and may not interrupt.
#pragma once

#include <pthread.h>

namespace wq {

// Puts off the cancellation of the thread: for steps that must not be left half done, and for calls
// in destructors, from which a cancellation would end the process.
class CancelHeld {
  public:
    CancelHeld() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancelHeld() { pthread_setcancelstate(before_, nullptr); }
    CancelHeld(const CancelHeld&) = delete;
    CancelHeld& operator=(const CancelHeld&) = delete;

  private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace wq
