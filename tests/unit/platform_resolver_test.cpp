#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <wqplatform.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "platform/resolver_cache.h"

namespace {

using wq::Answer;
using wq::Host;
using wq::Question;
using wq::ResolverCache;
using Seconds = ResolverCache::Seconds;

std::string octets(const char* dotted) {
    in_addr address{};
    EXPECT_EQ(1, inet_pton(AF_INET, dotted, &address));
    return {reinterpret_cast<const char*>(&address), sizeof address};
}

/* A cache whose resolver is a table and whose clock stands still unless it is set. */
class Resolver : public ::testing::Test {
  protected:
    Resolver() {
        cache_.now = [this] { return time_; };
        cache_.resolve = [this](const Question& question) {
            ++asked_;
            const auto known = hosts_.find(std::string(question.text));
            return known != hosts_.end() ? Answer{0, known->second} : Answer{error_, {}};
        };
    }

    std::string name_of(const char* dotted) {
        const hostent* host = cache_.by_address(octets(dotted), AF_INET);
        return host != nullptr ? host->h_name : "";
    }

    ResolverCache cache_;
    std::map<std::string, Host> hosts_{
        {"alpha",
         {AF_INET, "alpha.example", {"a", "al"}, {octets("10.0.0.1"), octets("10.0.0.2")}}},
        {octets("10.0.0.1"), {AF_INET, "alpha.example", {}, {octets("10.0.0.1")}}}};
    int error_ = HOST_NOT_FOUND;
    Seconds time_{1000};
    int asked_ = 0;
};

TEST_F(Resolver, DescribesAHost) {
    const hostent* host = cache_.by_name("alpha");
    ASSERT_NE(nullptr, host);
    EXPECT_STREQ("alpha.example", host->h_name);
    EXPECT_STREQ("a", host->h_aliases[0]);
    EXPECT_STREQ("al", host->h_aliases[1]);
    EXPECT_EQ(nullptr, host->h_aliases[2]);
    EXPECT_EQ(AF_INET, host->h_addrtype);
    EXPECT_EQ(4, host->h_length);
    EXPECT_EQ(octets("10.0.0.1"), std::string(host->h_addr_list[0], 4));
    EXPECT_EQ(octets("10.0.0.2"), std::string(host->h_addr_list[1], 4));
    EXPECT_EQ(nullptr, host->h_addr_list[2]);
}

TEST_F(Resolver, NamesAndAddressesOfTheSameBytesAreApart) {
    hosts_["abcd"] = {AF_INET, "by either", {}, {octets("10.0.0.9")}};
    ASSERT_NE(nullptr, cache_.by_name("abcd"));
    ASSERT_NE(nullptr, cache_.by_address("abcd", AF_INET));
    EXPECT_EQ(2, asked_);
    EXPECT_EQ(2U, cache_.size());
}

TEST_F(Resolver, BelievesAnAnswerForFiveMinutes) {
    EXPECT_EQ("alpha.example", name_of("10.0.0.1"));
    hosts_[octets("10.0.0.1")].name = "renamed.example";
    time_ += Seconds(299);
    EXPECT_EQ("alpha.example", name_of("10.0.0.1"));
    EXPECT_EQ(1, asked_);
    time_ += Seconds(1);
    EXPECT_EQ("renamed.example", name_of("10.0.0.1"));
    EXPECT_EQ(2, asked_);
    EXPECT_EQ(1U, cache_.size());
}

TEST_F(Resolver, BelievesAFailureForAMinute) {
    for (const int error : {HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY, NO_DATA}) {
        error_ = error;
        asked_ = 0;
        for (int i = 0; i < 60; ++i) {
            h_errno = 0;
            EXPECT_EQ(nullptr, cache_.by_name("beta"));
            EXPECT_EQ(error, h_errno);
            time_ += Seconds(1);
        }
        EXPECT_EQ(1, asked_);
    }
    hosts_["beta"] = {AF_INET, "beta.example", {}, {octets("10.0.0.3")}};
    ASSERT_NE(nullptr, cache_.by_name("beta")) << "found as soon as the failure is old";
}

/* A lookup that times out must not use up the time that its failure is believed. */
TEST_F(Resolver, CountsFromTheEndOfALookup) {
    cache_.resolve = [this](const Question&) {
        ++asked_;
        time_ += Seconds(90);
        return Answer{TRY_AGAIN, {}};
    };
    EXPECT_EQ(nullptr, cache_.by_name("slow"));
    time_ += Seconds(59);
    EXPECT_EQ(nullptr, cache_.by_name("slow"));
    EXPECT_EQ(1, asked_);
}

TEST_F(Resolver, StormOfUnknownAddressesAsksOnceEach) {
    for (int round = 0; round < 10; ++round) {
        for (int i = 0; i < 100; ++i) {
            EXPECT_EQ("", name_of(("10.1.0." + std::to_string(i)).c_str()));
        }
    }
    EXPECT_EQ(100, asked_);
}

TEST_F(Resolver, LongestUnusedGivesWay) {
    for (size_t i = 0; i < ResolverCache::capacity; ++i) {
        EXPECT_EQ(nullptr, cache_.by_name("host" + std::to_string(i)));
    }
    EXPECT_EQ(4096U, cache_.size());
    asked_ = 0;
    cache_.by_name("host0");
    EXPECT_EQ(0, asked_) << "all of them are kept";
    cache_.by_name("one more");
    EXPECT_EQ(4096U, cache_.size());
    EXPECT_EQ(1, asked_);
    cache_.by_name("host0");
    EXPECT_EQ(1, asked_) << "used a moment ago";
    cache_.by_name("host1");
    EXPECT_EQ(2, asked_) << "was the longest unused";
    EXPECT_EQ(4096U, cache_.size());
}

TEST_F(Resolver, DottedQuadsNeedNoResolver) {
    const hostent* host = cache_.by_name("192.0.2.7");
    ASSERT_NE(nullptr, host);
    EXPECT_STREQ("192.0.2.7", host->h_name);
    EXPECT_EQ(nullptr, host->h_aliases[0]);
    EXPECT_EQ(octets("192.0.2.7"), std::string(host->h_addr_list[0], 4));
    EXPECT_EQ(nullptr, host->h_addr_list[1]);
    EXPECT_EQ(0, asked_);
    EXPECT_EQ(0U, cache_.size());
}

TEST_F(Resolver, ResultMayBeTheNextQuestion) {
    hosts_["self"] = {AF_INET, "self", {}, {octets("10.0.0.4")}};
    const hostent* host = cache_.by_name("self");
    ASSERT_NE(nullptr, host);
    time_ += Seconds(1000);
    host = cache_.by_name(host->h_name);
    ASSERT_NE(nullptr, host);
    EXPECT_STREQ("self", host->h_name);
    EXPECT_EQ(2, asked_);
    host = cache_.by_name("192.0.2.7");
    host = cache_.by_name(host->h_name);
    EXPECT_STREQ("192.0.2.7", host->h_name);
}

TEST_F(Resolver, BadQuestionsFailUnasked) {
    const auto fails = [this](const hostent* host) {
        const int error = h_errno;
        h_errno = 0;
        return host == nullptr && error == HOST_NOT_FOUND && asked_ == 0 && cache_.size() == 0;
    };
    EXPECT_TRUE(fails(cache_.by_name("")));
    EXPECT_TRUE(fails(cache_.by_name(std::string(1026, 'a'))));
    EXPECT_TRUE(fails(cache_.by_name(std::string(5000000, 'a'))));
    EXPECT_TRUE(fails(cache_.by_address("abc", AF_INET)));
    EXPECT_TRUE(fails(cache_.by_address("abcde", AF_INET)));
    EXPECT_TRUE(fails(cache_.by_address("", AF_INET)));
    EXPECT_TRUE(fails(cache_.by_address("abcd", AF_INET6)));
    EXPECT_TRUE(fails(cache_.by_address("abcd", AF_UNIX)));
    cache_.by_name(std::string(1025, 'a'));
    EXPECT_EQ(1, asked_);
}

TEST_F(Resolver, FailedLookupLeavesTheCacheWhole) {
    ASSERT_NE(nullptr, cache_.by_name("alpha"));
    time_ += Seconds(1000);
    const auto table = cache_.resolve;
    cache_.resolve = [](const Question&) -> Answer { throw std::bad_alloc(); };
    EXPECT_THROW(cache_.by_name("alpha"), std::bad_alloc);
    EXPECT_THROW(cache_.by_name("beta"), std::bad_alloc);
    cache_.resolve = table;
    ASSERT_NE(nullptr, cache_.by_name("alpha"));
    EXPECT_EQ(1U, cache_.size());
}

TEST(SystemResolver, KnowsThisHost) {
    const hostent* host = gethostbyname_new("localhost");
    ASSERT_NE(nullptr, host);
    EXPECT_EQ(AF_INET, host->h_addrtype);
    EXPECT_EQ(octets("127.0.0.1"), std::string(host->h_addr_list[0], 4));

    const in_addr loopback{htonl(INADDR_LOOPBACK)};
    host = gethostbyaddr_new(&loopback, sizeof loopback, AF_INET);
    ASSERT_NE(nullptr, host);
    EXPECT_NE(nullptr, std::strstr(host->h_name, "localhost"));
}

TEST(SystemResolver, ReadsDottedQuads) {
    const hostent* host = gethostbyname_new("10.1.2.3");
    ASSERT_NE(nullptr, host);
    EXPECT_EQ(octets("10.1.2.3"), std::string(host->h_addr_list[0], 4));
}

TEST(SystemResolver, FailsAsItsNamesakes) {
    h_errno = 0;
    EXPECT_EQ(nullptr, gethostbyname_new(nullptr));
    EXPECT_EQ(HOST_NOT_FOUND, h_errno);
    h_errno = 0;
    EXPECT_EQ(nullptr, gethostbyaddr_new(nullptr, 4, AF_INET));
    EXPECT_EQ(HOST_NOT_FOUND, h_errno);
    h_errno = 0;
    EXPECT_EQ(nullptr, gethostbyname_new("host name with blanks"));
    EXPECT_NE(0, h_errno);
}

TEST(SystemResolver, AnswersOfThreadsAreApart) {
    const hostent* mine = gethostbyname_new("10.0.0.1");
    std::thread other([] {
        const hostent* its = gethostbyname_new("10.0.0.2");
        ASSERT_NE(nullptr, its);
        EXPECT_STREQ("10.0.0.2", its->h_name);
    });
    other.join();
    EXPECT_STREQ("10.0.0.1", mine->h_name);
}

/* An exit handler may close a channel, which may ask for this host's address. */
TEST(SystemResolver, WorksUntilTheProcessEnds) {
    EXPECT_EXIT(
        {
            ASSERT_NE(nullptr, gethostbyname_new("localhost"));
            std::atexit([] {
                const hostent* host = gethostbyname_new("localhost");
                _exit(host != nullptr && host->h_length == 4 ? 7 : 8);
            });
            std::exit(0);
        },
        ::testing::ExitedWithCode(7), "");
}

}  // namespace
