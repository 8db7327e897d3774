/*
 * The formatter's messages out of a real catalogue, each from where it is written. A catalogue is
 * opened once a process, so each text of the formatter is asked for in a child.
 */
#include <gtest/gtest.h>
#include <wqevents/formatter.h>
#include <wqplatform.h>

#include <cstdlib>
#include <functional>
#include <string>

#include "support/formatting.h"
#include "support/sandbox.h"

namespace {

using namespace wq::test;

constexpr uint32_t mib_changed = 0x3070027;
constexpr uint32_t configuration_changed = 0x3070026;

class FormatterMessages : public Formatting {
  protected:
    /* The catalogue's texts by their numbers, as its source has them. */
    void SetUp() override {
        dir_.write("events.msg",
                   "$quote \"\n$set 1\n"
                   "1 \"one\"\n"
                   "2 \"two: %2$d there, no %1$d\"\n"
                   "3 \"three: %1$s, %1$s, %2$s, %n\\n\"\n"
                   "4 \" four %s\"\n"
                   "5 \" five %1$d\"\n"
                   "6 \"six\"\n"
                   "7 \"seven\"\n");
        const std::string command =
            "gencat '" + dir_.path("events.cat") + "' '" + dir_.path("events.msg") + "'";
        ASSERT_EQ(std::system(command.c_str()), 0);
        configure(conf({{.name = "Test", .format = "$3"}}));
    }

    void with_catalogue(const std::function<void()>& body) {
        const EnvValue path("NLSPATH", dir_.path("events.cat"));
        const int result = sandbox::run_in_child([&] {
            body();
            return HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(result, 0);
    }
};

TEST_F(FormatterMessages, OfABindingThatIsNotThere) {
    with_catalogue([] {
        Trap trap = received_trap(acme, 1);
        add(trap, integer_binding({1, 3}, 5));
        EXPECT_EQ(format(PRX_USER, trap).text, "two: 1 there, no 3\n");
    });
}

TEST_F(FormatterMessages, OfAMibThatCannotBeRead) {
    with_catalogue([this] {
        const std::string path = dir_.path("missing.txt");
        const EnvValue missing("WQMIBFILE", path);
        const Formatted failed = format(PRX_USER, received_trap(acme, 1));
        EXPECT_EQ(failed.result, 2);
        EXPECT_EQ(failed.text, "three: " + path + ", " + path + ", %2$s, %n\n");
    });
}

TEST_F(FormatterMessages, OfReloads) {
    with_catalogue([] {
        const std::string mib =
            format(VORTD_USER, platform_event(mib_changed, 2, "gate", "Mib")).text;
        EXPECT_TRUE(mib.ends_with(" N Mib four %s\n")) << mib;
        const std::string file =
            format(VORTD_USER, platform_event(configuration_changed, 2, "gate", "Ed")).text;
        EXPECT_TRUE(file.ends_with(" N Ed five %1$d\n")) << file;
    });
}

}  // namespace
