/*
 * Names and addresses of hosts, looked up once and remembered for a while, failures included.
 */
#ifndef WQEVENTS_PLATFORM_RESOLVER_CACHE_H
#define WQEVENTS_PLATFORM_RESOLVER_CACHE_H

#include <netdb.h>
#include <sys/socket.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace wq {

/* One host as the resolver describes it. */
struct Host {
    int family = AF_INET;
    std::string name;
    std::vector<std::string> aliases;
    std::vector<std::string> addresses; /* their bytes, network byte order */
};

/* An answer of the resolver: a host, or why there is none (h_errno). */
struct Answer {
    int error = 0; /* 0: `host` is valid */
    Host host;
};

/* A question to the resolver. */
struct Question {
    int family;
    std::string_view text; /* a name, or the bytes of an address */
    bool by_name;
};

/* What struct hostent points at. It is never copied or moved: it points into itself. */
struct HostRecord {
    explicit HostRecord(Host from);
    HostRecord(const HostRecord&) = delete;
    HostRecord& operator=(const HostRecord&) = delete;

    Host host;
    std::vector<char*> aliases;
    std::vector<char*> addresses;
    hostent entry{};
};

struct ResolverCache {
    using Seconds = std::chrono::seconds;

    static constexpr size_t capacity = 4096;
    static constexpr Seconds found_lives{300};
    static constexpr Seconds failure_lives{60};
    static constexpr size_t name_max = 1025; /* NI_MAXHOST, more than any name of RFC 1035 */

    /* The two things that tests replace. */
    std::function<Answer(const Question&)> resolve;
    std::function<Seconds()> now;

    /*
     * Null when there is no such host, with h_errno set. The result is valid until the next call
     * of either; what is out of date is asked for again, what is unused longest gives way.
     */
    hostent* by_name(std::string_view name);
    hostent* by_address(std::string_view bytes, int family);

    size_t size() const { return index.size(); }

    struct Entry {
        Entry(std::string of, Answer answer, Seconds until)
            : key(std::move(of)),
              error(answer.error),
              record(std::move(answer.host)),
              expires(until) {}

        std::string key;
        int error;
        HostRecord record;
        Seconds expires;
    };
    hostent* look_up(const Question& question);
    void remember(std::string key, Answer answer);
    void forget(std::list<Entry>::iterator entry);

    std::list<Entry> entries; /* the last used first */
    std::unordered_map<std::string_view, std::list<Entry>::iterator> index; /* by Entry::key */
    std::optional<HostRecord> literal; /* the last answer that needed no resolver */
};

}  // namespace wq

#endif
