/*
 * A thread that works beside the test and is joined when the object goes. It takes no signals, so
 * that those of a storm all hit the thread under test.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_WRITER_H
#define WQEVENTS_TESTS_SUPPORT_WRITER_H

#include <csignal>
#include <functional>
#include <thread>
#include <utility>

namespace wq::test {

class Writer {
  public:
    explicit Writer(std::function<void()> block) {
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &before);
        thread_ = std::thread(std::move(block));
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    ~Writer() { thread_.join(); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

  private:
    std::thread thread_;
};

}  // namespace wq::test

#endif
