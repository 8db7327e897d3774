#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <wqplatform.h>

#include <string>

#include "support/capture.h"
#include "support/env_value.h"

namespace {

using wq::test::EnvValue;

TEST(AsyncSnmp, OpensADatagramSocket) {
    const int sd = init_async_snmp();
    ASSERT_GE(sd, 0);
    const auto option = [sd](int name) {
        int value = -1;
        socklen_t size = sizeof value;
        EXPECT_EQ(0, getsockopt(sd, SOL_SOCKET, name, &value, &size));
        return value;
    };
    EXPECT_EQ(SOCK_DGRAM, option(SO_TYPE));
    EXPECT_EQ(AF_INET, option(SO_DOMAIN));
    EXPECT_EQ(FD_CLOEXEC, fcntl(sd, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(0, fcntl(sd, F_GETFL) & O_NONBLOCK);
    EXPECT_EQ(0, close(sd));
}

TEST(SnmpPort, IsTheVariableOrTheWellKnownOne) {
    const struct {
        const char* value;
        uint16_t port;
    } rows[] = {
        {nullptr, 161},  {"1161", 1161},
        {"1", 1},        {"65535", 65535},
        {"65536", 161},  {"0", 161},
        {"", 161},       {"-1", 161},
        {" 1161", 161},  {"1161 ", 161},
        {"snmp", 161},   {"0x489", 161},
        {"01161", 1161}, {"99999999999999999999", 161},
    };
    for (const auto& row : rows) {
        const EnvValue variable("WQSNMPPORT", row.value);
        EXPECT_EQ(htons(row.port), getSnmpPort()) << (row.value != nullptr ? row.value : "unset");
    }
}

TEST(RawObjid, IsPrintedWithDots) {
    const uint32_t oid[] = {1, 3, 6, 1, 4294967295U, 0};
    const auto printed = [&oid](int count) {
        return wq::test::captured_stdout([&] { print_rawobjid(oid, count); });
    };
    EXPECT_EQ("1.3.6.1.4294967295.0", printed(6));
    EXPECT_EQ("1", printed(1));
    EXPECT_EQ("", printed(0));
    EXPECT_EQ("", printed(-1));
    EXPECT_EQ("", wq::test::captured_stdout([] { print_rawobjid(nullptr, 4); }));
}

}  // namespace
