#include <wqplatform.h>

#include <arpa/inet.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <exception>
#include <memory>
#include <new>
#include <optional>

#include "platform/resolver_cache.h"
#include "platform/weak.h"

namespace wq {
namespace {

constexpr size_t list_max = 35; /* aliases or addresses of a host, the resolver's usual limit */
constexpr size_t first_buffer = 1024;
constexpr size_t last_buffer = 65536; /* no answer is longer (RFC 1035 4.2.2) */

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> list;
    list.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        list.push_back(text.data());
    }
    list.push_back(nullptr);
    return list;
}

hostent* fail(int error) {
    h_errno = error;
    return nullptr;
}

int address_length(int family) {
    switch (family) {
        case AF_INET:
            return sizeof(in_addr);
        case AF_INET6:
            return sizeof(in6_addr);
        default:
            return -1;
    }
}

std::string key_of(const Question& question) {
    std::string key(question.by_name ? "n" : (question.family == AF_INET ? "4" : "6"));
    return key.append(question.text);
}

Host described(const hostent& from) {
    Host host;
    host.family = from.h_addrtype;
    host.name = from.h_name != nullptr ? from.h_name : "";
    for (char** at = from.h_aliases; at != nullptr && *at != nullptr; ++at) {
        if (host.aliases.size() < list_max) {
            host.aliases.emplace_back(*at);
        }
    }
    for (char** at = from.h_addr_list; at != nullptr && *at != nullptr; ++at) {
        if (host.addresses.size() < list_max) {
            host.addresses.emplace_back(*at, static_cast<size_t>(from.h_length));
        }
    }
    return host;
}

Answer ask_system(const Question& question) {
    const std::string text(question.text);
    for (size_t size = first_buffer; size <= last_buffer; size *= 2) {
        std::vector<char> buffer(size);
        hostent storage{};
        hostent* found = nullptr;
        int error = 0;
        const int result =
            question.by_name
                ? gethostbyname2_r(text.c_str(), question.family, &storage, buffer.data(), size,
                                   &found, &error)
                : gethostbyaddr_r(text.data(), static_cast<socklen_t>(text.size()), question.family,
                                  &storage, buffer.data(), size, &found, &error);
        if (found != nullptr) {
            return {0, described(*found)};
        }
        if (result != ERANGE) {
            return {error != 0 ? error : HOST_NOT_FOUND, {}};
        }
    }
    return {NO_RECOVERY, {}};
}

ResolverCache::Seconds seconds_up() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return ResolverCache::Seconds(now.tv_sec);
}

/*
 * Each thread has its own cache, so that neither a lock nor another thread's lookup comes between
 * an answer and its use. It is freed by a key's destructor: that of a thread_local object ends the
 * process when there is no memory to register it. A destructor that runs later may still ask for a
 * name.
 */
thread_local ResolverCache* thread_cache = nullptr;

void free_cache(void* cache) {
    thread_cache = nullptr;
    std::unique_ptr<ResolverCache>(static_cast<ResolverCache*>(cache)).reset();
}

bool free_with_thread(ResolverCache* cache) {
    static const std::optional<pthread_key_t> key = [] {
        pthread_key_t made = 0;
        return pthread_key_create(&made, free_cache) == 0 ? std::optional(made) : std::nullopt;
    }();
    return key && pthread_setspecific(*key, cache) == 0;
}

ResolverCache& own_cache() {
    if (thread_cache == nullptr) {
        auto fresh = std::make_unique<ResolverCache>();
        fresh->resolve = ask_system;
        fresh->now = seconds_up;
        if (!free_with_thread(fresh.get())) {
            throw std::bad_alloc();
        }
        thread_cache = fresh.release();
    }
    return *thread_cache;
}

}  // namespace

HostRecord::HostRecord(Host from)
    : host(std::move(from)),
      aliases(pointers_to(host.aliases)),
      addresses(pointers_to(host.addresses)) {
    entry.h_name = host.name.data();
    entry.h_aliases = aliases.data();
    entry.h_addrtype = host.family;
    entry.h_length = address_length(host.family);
    entry.h_addr_list = addresses.data();
}

void ResolverCache::forget(std::list<Entry>::iterator entry) {
    index.erase(entry->key);
    entries.erase(entry);
}

void ResolverCache::remember(std::string key, Answer answer) {
    const Seconds until = now() + (answer.error == 0 ? found_lives : failure_lives);
    std::list<Entry> fresh;
    fresh.emplace_front(std::move(key), std::move(answer), until);
    index.emplace(fresh.front().key, fresh.begin());
    /* From here on nothing can fail: the list and its index always agree. */
    entries.splice(entries.begin(), fresh);
    if (entries.size() > capacity) {
        forget(std::prev(entries.end()));
    }
}

hostent* ResolverCache::look_up(const Question& question) {
    std::string key = key_of(question);
    const auto known = index.find(key);
    if (known != index.end() && now() < known->second->expires) {
        entries.splice(entries.begin(), entries, known->second);
    } else {
        /* Asked before the old entry goes: the question's text may be part of its answer. */
        Answer answer = resolve(question);
        if (known != index.end()) {
            forget(known->second);
        }
        remember(std::move(key), std::move(answer));
    }
    Entry& entry = entries.front();
    return entry.error == 0 ? &entry.record.entry : fail(entry.error);
}

hostent* ResolverCache::by_name(std::string_view name) {
    if (name.empty() || name.size() > name_max) {
        return fail(HOST_NOT_FOUND);
    }
    const std::string text(name);
    std::string address(sizeof(in_addr), '\0');
    if (inet_pton(AF_INET, text.c_str(), address.data()) == 1) {
        literal.emplace(Host{AF_INET, text, {}, {address}});
        return &literal->entry;
    }
    return look_up({AF_INET, name, true});
}

hostent* ResolverCache::by_address(std::string_view bytes, int family) {
    if (address_length(family) != static_cast<int>(bytes.size())) {
        return fail(HOST_NOT_FOUND);
    }
    return look_up({family, bytes, false});
}

namespace {

/* Exhausted memory is a failed lookup, not an exception that crosses into C. */
template <class Lookup>
hostent* guarded(Lookup lookup) {
    try {
        return lookup(own_cache());
    } catch (const std::exception&) {
        return fail(NO_RECOVERY);
    }
}

}  // namespace
}  // namespace wq

WQ_STAND_IN struct hostent* gethostbyname_new(const char* name) {
    if (name == nullptr) {
        return wq::fail(HOST_NOT_FOUND);
    }
    return wq::guarded([name](wq::ResolverCache& cache) { return cache.by_name(name); });
}

WQ_STAND_IN struct hostent* gethostbyaddr_new(const void* address, socklen_t length, int family) {
    if (address == nullptr) {
        return wq::fail(HOST_NOT_FOUND);
    }
    const std::string_view bytes(static_cast<const char*>(address), length);
    return wq::guarded([=](wq::ResolverCache& cache) { return cache.by_address(bytes, family); });
}
