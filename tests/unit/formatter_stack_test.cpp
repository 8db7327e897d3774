/*
 * How much stack the formatter takes, against the figures of <wqevents/formatter.h>: for threads
 * with small ones.
 */
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wqevents/alerts.h>
#include <wqevents/formatter.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <span>
#include <string>

#include "support/code_points.h"
#include "support/formatting.h"

#if defined(__SANITIZE_ADDRESS__)
#define WITH_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define WITH_ADDRESS_SANITIZER
#endif
#endif

namespace {

using namespace wq::test;

/* A stack painted in one colour, with a forbidden page at its end. */
class Stack {
  public:
    explicit Stack(size_t size = 1 << 20)
        : page_(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
          size_((size + page_ - 1) / page_ * page_),
          area_(static_cast<uint8_t*>(mmap(nullptr, page_ + size_, PROT_READ | PROT_WRITE,
                                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        std::fill_n(area_, page_ + size_, colour);
        mprotect(area_, page_, PROT_NONE);
    }
    ~Stack() { munmap(area_, page_ + size_); }
    Stack(const Stack&) = delete;
    Stack& operator=(const Stack&) = delete;

    /* Runs the call in a thread on this stack. */
    void run(const std::function<void()>& call) {
        pthread_attr_t attributes;
        pthread_t thread{};
        ASSERT_EQ(pthread_attr_init(&attributes), 0);
        ASSERT_EQ(pthread_attr_setstack(&attributes, area_ + page_, size_), 0);
        const auto start = [](void* work) -> void* {
            (*static_cast<const std::function<void()>*>(work))();
            return nullptr;
        };
        ASSERT_EQ(
            pthread_create(&thread, &attributes, start, const_cast<std::function<void()>*>(&call)),
            0);
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }

    /* Bytes that have lost their colour. */
    size_t used() const {
        const std::span<const uint8_t> all(area_ + page_, size_);
        const auto first =
            std::find_if(all.begin(), all.end(), [](uint8_t byte) { return byte != colour; });
        return static_cast<size_t>(all.end() - first);
    }

  private:
    static constexpr uint8_t colour = 0xA5;

    size_t page_;
    size_t size_;
    uint8_t* area_;
};

/* What a thread takes that does nothing. */
size_t idle() {
    Stack stack;
    stack.run([] {});
    return stack.used();
}

size_t used_by(const std::function<void()>& call) {
    Stack stack;
    stack.run(call);
    return stack.used() - idle();
}

class FormatterStack : public Formatting {
  protected:
    void SetUp() override {
#ifdef WITH_ADDRESS_SANITIZER
        GTEST_SKIP() << "the sanitizer takes more";
#endif
        configure(conf({{.name = "Test", .format = "$*$A$a$C$E$e$G$S$s$T$#$+1$=1$i1$I1$t1$L1$-9"},
                        {.name = "Alert", .specific = 2, .format = "$\\x251"},
                        {.name = "Long", .specific = 3, .format = "$1$1$1$1$1$1$1$1"}}));
        codeptpath(dir_.write("codepoint.cat", catalogue({{3, 0x33C1, "a cause"}})).c_str());
    }

    static Trap trap(uint32_t specific) {
        Trap trap = received_trap(acme, specific);
        add(trap, text_binding({1, 3, 6, 1, 2, 1, 1, 1, 0}, std::string(1000, 'x')));
        add(trap, text_binding({1, 3, 6, 1, 2, 1, 1, 1, 0}, std::string("\x01\x02\xff", 3)));
        add(trap, objid_binding({1, 3, 6, 1, 2, 1, 1, 2, 0}, Oid(EMS_OID_MAX, 7)));
        add(trap, number_binding(Oid(EMS_OID_MAX, 1), ASN_INTEGER09, 5));
        return trap;
    }
    static Trap alert() {
        Trap trap = received_trap(acme, 2);
        add(trap, alert_number("13.1.1.1", 0x33C1));
        add(trap, alert_number("13.2.1.1", 0x2000));
        return trap;
    }
};

/* The figures of the header. */
constexpr size_t formatting = 16 * 1024;
constexpr size_t loading = 40 * 1024;

TEST_F(FormatterStack, OfATrapWhenAllIsLoaded) {
    name_identifiers("1.2=\"a name\"\n");
    Trap traps[] = {trap(1), alert(), trap(3)};
    format(VORTD_USER, traps[0]);
    format(VORTD_USER, traps[1]);
    for (Trap& one : traps) {
        for (const int user : {VORTD_USER, OBU_USER, PRX_USER}) {
            const size_t used = used_by([&] { format(user, one, 16384); });
            EXPECT_GT(used, 0U);
            EXPECT_LE(used, formatting) << one.info.specific << ' ' << user;
        }
    }
}

TEST_F(FormatterStack, OfSingleTextsIsLess) {
    Trap all = trap(1);
    Element element("$*$*$*$*$*$*");
    for (const int size : {1, 100, 5000, 100000}) {
        ExactArray<char> buffer(static_cast<size_t>(size));
        EXPECT_LE(used_by([&] {
                      trap_sprintf(buffer.data(), size, element.get(), &all.info, all.vars.data(),
                                   nullptr, nullptr, nullptr);
                      format_arg(1, ARG_NUM_DEF, &all.info, buffer.data(), size, all.vars.data());
                      formatValue(buffer.data(), size, &all.vars[2]);
                  }),
                  formatting)
            << size;
    }
}

TEST_F(FormatterStack, OfATrapThatLoads) {
    name_identifiers("1.2=\"a name\"\n");
    const EnvValue mib("WQMIBFILE", dir_.write("mib.txt", "version 1\nacme enterprises 4242\n"));
    Trap all = trap(1);
    EXPECT_LE(used_by([&] { format(VORTD_USER, all, 16384); }), loading);
    EXPECT_EQ(have_read_mappings, 1);
    EXPECT_EQ(have_read_vortdconf, 1);
}

/* In a thread that has no more, and the least that the system gives one to begin with. */
TEST_F(FormatterStack, OfTheDocumentedSizeIsEnough) {
    Trap all = trap(1);
    Trap alarm = alert();
    name_identifiers("1.2=\"a name\"\n");
    Formatted formatted;
    Stack(loading + PTHREAD_STACK_MIN).run([&] {
        formatted = format(VORTD_USER, all, 16384);
        formatted = format(VORTD_USER, alarm, 16384);
    });
    EXPECT_EQ(formatted.result, 3);
}

}  // namespace
