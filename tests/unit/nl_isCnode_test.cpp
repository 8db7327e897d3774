#include <gtest/gtest.h>
#include <wqevents/status.h>

namespace {

TEST(ClientNode, IsNoHost) {
    EXPECT_EQ(isCnode(), 0);
    EXPECT_EQ(getServerName(), nullptr);
}

}  // namespace
