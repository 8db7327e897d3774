/*
 * A storm of signals: SIGALRM goes to the process again and again as long as the object lives. The
 * handler either lets system calls be restarted (SA_RESTART) or has them fail with EINTR.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_SIGNAL_STORM_H
#define WQEVENTS_TESTS_SUPPORT_SIGNAL_STORM_H

#include <sys/time.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace wq::test {

class SignalStorm {
  public:
    explicit SignalStorm(bool restarts, long microseconds = 200) {
        count = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { count.fetch_add(1, std::memory_order_relaxed); };
        action.sa_flags = restarts ? SA_RESTART : 0;
        sigaction(SIGALRM, &action, &before_);
        const itimerval every{{0, microseconds}, {0, microseconds}};
        setitimer(ITIMER_REAL, &every, nullptr);
    }
    ~SignalStorm() {
        const itimerval never{};
        setitimer(ITIMER_REAL, &never, nullptr);
        sigaction(SIGALRM, &before_, nullptr);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    static int signals() { return count.load(); }

    /* For a thread that the signals do not reach: lets `more` of them hit the others. */
    static void wait_for(int more) {
        for (const int enough = signals() + more; signals() < enough;) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

  private:
    static inline std::atomic<int> count{0};
    struct sigaction before_ {};
};

}  // namespace wq::test

#endif
