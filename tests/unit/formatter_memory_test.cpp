/*
 * Traps are formatted with whatever memory there is: each allocation of a call fails in its turn.
 */
#include <gtest/gtest.h>
#include <wqevents/alerts.h>
#include <wqevents/formatter.h>

#include <cerrno>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "support/code_points.h"
#include "support/formatting.h"

namespace {

/* Counts down with each allocation; the one that finds 0 fails, and none at all below. */
int until_failure = -1;
bool has_failed = false;

bool fails_now() {
    if (until_failure < 0 || until_failure-- > 0) {
        return false;
    }
    has_failed = true;
    errno = ENOMEM;
    return true;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return fails_now() ? nullptr : std::malloc(size);
}
void* operator new(std::size_t size) {
    void* memory = operator new(size, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

using namespace wq::test;

class FormatterMemory : public Formatting {
  protected:
    void SetUp() override {
        configure(conf({{.name = "All", .format = "$*$A$a$C$E$e$G$S$s$T$#$+1$=1$i1$I3$t1$L1$-9$2"},
                        {.name = "Alert", .specific = 2, .format = "$\\x251 $2"},
                        {.name = "Long", .specific = 3, .format = "$1$1$1$1$1$1$1$1"}}));
        name_identifiers("1.2=\"a name\"\n");
        codeptpath(dir_.write("codepoint.cat", catalogue({{3, 0x33C1, "a cause"}})).c_str());
    }

    static std::vector<Trap> traps() {
        Trap all = received_trap(acme, 1);
        add(all, text_binding({1, 3, 6, 1, 2, 1, 1, 1, 0}, std::string(1000, 'x')));
        add(all, text_binding({1, 3, 6, 1, 2, 1, 1, 1, 0}, std::string("\x01\x02\xff", 3)));
        add(all, objid_binding({1, 3, 6, 1, 2, 1, 1, 2, 0}, Oid(EMS_OID_MAX, 7)));
        add(all, number_binding(Oid(EMS_OID_MAX, 1), ASN_INTEGER09, 5));
        Trap alert = received_trap(acme, 2);
        add(alert, alert_number("13.1.1.1", 0x33C1));
        add(alert, alert_number("13.2.1.1", 0x2000));
        Trap longer = all;
        longer.info.specific = 3;
        return {all, alert, longer, platform_event(0x2800001, 2, "gate", "its own text")};
    }
};

struct Plain {
    int result = 0;
    std::vector<char> text = std::vector<char>(16384);
};

/* As format() of the fixture, without an allocation of its own. */
void format_into(Plain& into, Trap& trap, int user) {
    char* host = nullptr;
    into.result = trp_format(user, &trap.info, into.text.data(), static_cast<int>(into.text.size()),
                             trap.vars.data(), &host, 1000000000);
}

TEST_F(FormatterMemory, NoAllocationThatFailsLosesALine) {
    for (const Trap& made : traps()) {
        Trap trap = made;
        Plain whole;
        format_into(whole, trap, VORTD_USER);
        format_into(whole, trap, VORTD_USER);
        ASSERT_GE(whole.result, 0);
        const std::string expected(whole.text.data());
        has_failed = true;
        for (int n = 0; has_failed; ++n) {
            ASSERT_LT(n, 1000);
            Plain cut;
            has_failed = false;
            until_failure = n;
            format_into(cut, trap, VORTD_USER);
            until_failure = -1;
            EXPECT_EQ(cut.result, whole.result) << n;
            const std::string text(cut.text.data());
            /* What comes before the text of the trap is there in any case. */
            EXPECT_EQ(text.substr(0, 60), expected.substr(0, std::min<size_t>(60, text.size())))
                << n;
            EXPECT_TRUE(has_failed || text == expected);
        }
    }
}

/* With memory the text is told to be too long, without it is cut where the room ends. */
TEST_F(FormatterMemory, ATextThatIsTooLongIsCut) {
    Trap trap = traps()[0];
    Element element("$1$1");
    char text[100];
    trap_sprintf(text, sizeof text, element.get(), &trap.info, trap.vars.data(), nullptr, nullptr,
                 nullptr);
    EXPECT_STREQ(text, "FMT ERROR: size (100) exceeded 2000)\n");
    until_failure = 0;
    trap_sprintf(text, sizeof text, element.get(), &trap.info, trap.vars.data(), nullptr, nullptr,
                 nullptr);
    until_failure = -1;
    EXPECT_EQ(std::string(text), std::string(97, 'x'));
}

}  // namespace
