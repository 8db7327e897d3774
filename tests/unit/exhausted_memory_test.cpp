// Every allocation of a call fails in turn. The process goes on and the next call works, unless the
// records of the configuration are what there was no memory for: that ends it, with a message.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <wqevents.h>
#include <wqplatform.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "support/sockets.h"
#include "support/temp_dir.h"

namespace {

// The allocation that fails, counted down, and whether those after it fail, too.
long to_go = 0;
bool fails_on = false;
bool has_failed = false;

[[maybe_unused]] bool fails_now() {
    if (to_go > 0 && --to_go == 0) {
        has_failed = true;
        to_go = fails_on ? 1 : 0;
        return true;
    }
    return false;
}

}  // namespace

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

extern "C" {
void* __libc_malloc(size_t size);                // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* p, size_t size);      // NOLINT(bugprone-reserved-identifier)

void* malloc(size_t size) noexcept {
    if (fails_now()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) noexcept {
    if (fails_now()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_calloc(count, size);
}
void* realloc(void* p, size_t size) noexcept {
    if (fails_now()) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_realloc(p, size);
}
}

namespace wq::test {
namespace {

// How a process ended whose n-th allocation failed.
enum Ending { worked = 0, ended_by_records = 1, call_broken = 3, had_fewer_allocations = 42 };

struct Case {
    const char* name;
    std::function<void()> prepare;
    std::function<void()> call;      // with failing allocations
    std::function<bool()> works_on;  // without
};

class ExhaustedMemory : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_.write("vortd.conf", example("vortd.conf"));
        dir_.write("ferlod.conf", example("ferlod.conf"));
        dir_.write("mib.txt", example("mib.txt"));
        dir_.write("oid_to_label", example("oid_to_label"));
        std::filesystem::create_directories(dir_.path("C"));
        dir_.write("C/vortd.conf", example("vortd.conf"));
        setenv("FERLOD_CONF", dir_.path("ferlod.conf").c_str(), 1);
        setenv("WQCONFDIR", dir_.path().c_str(), 1);
        setenv("NLSPATH", dir_.path("%N").c_str(), 1);
    }

    static std::string example(const std::string& name) {
        std::ifstream file(WQEVENTS_EXAMPLES "/" + name);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static Ending ending_of(int status, int said) {
        std::array<char, 4096> text{};
        const ssize_t length = pread(said, text.data(), text.size() - 1, 0);
        const bool told = length > 0 && std::strstr(text.data(), "alloc(") != nullptr;
        if (WIFEXITED(status) && (WEXITSTATUS(status) != ended_by_records || told)) {
            return static_cast<Ending>(WEXITSTATUS(status));
        }
        return call_broken;
    }

    static Ending run_with_failure(const Case& row, long number, bool and_on) {
        const int said = memfd_create("said", MFD_CLOEXEC);
        const pid_t child = fork();
        if (child == 0) {
            dup2(said, STDERR_FILENO);
            alarm(20);
            row.prepare();
            fails_on = and_on;
            to_go = number;
            try {
                row.call();
            } catch (const std::bad_alloc&) {
                _exit(call_broken);
            }
            to_go = 0;
            _exit(has_failed ? (row.works_on() ? worked : call_broken) : had_fewer_allocations);
        }
        int status = 0;
        waitpid(child, &status, 0);
        const Ending ending = ending_of(status, said);
        if (ending == call_broken) {
            ADD_FAILURE() << row.name << ": allocation " << number << (and_on ? " and on" : "")
                          << ", wait status " << status;
        }
        close(said);
        return ending;
    }

    // Where there are very many allocations, not each of them is tried.
    static void fail_each(const Case& row) {
        for (const bool and_on : {false, true}) {
            int broken = 0;
            for (long number = 1; broken < 3; number += 1 + number / 40) {
                const Ending ending = run_with_failure(row, number, and_on);
                if (ending == had_fewer_allocations) {
                    break;
                }
                broken += ending == call_broken ? 1 : 0;
            }
        }
    }

    void name_configuration() const { setVortdConfFile(dir_.path("vortd.conf").c_str()); }

    TempDir dir_;
};

const std::function<void()> nothing = [] {};

// What an event and a trap of this host ask the resolver for is then in its cache.
void get_own_name() {
    const uint32_t address = htonl(INADDR_LOOPBACK);
    gethostbyaddr_new(&address, sizeof address, AF_INET);
    const SocketPair pair = local_pair();
    event_infoEMS channel{};
    channel.sd = pair.ours.get();
    channel.trans = 2;
    send_event(&channel, 1, nullptr, "text", nullptr, nullptr);
}

bool is_read() {
    char* message = nullptr;
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
    return read_trapspec_file(&message) == 0 &&
           nameToTrapAndEnterprise("snmpLinkDown", &record, &enterprise) == 0;
}

TEST_F(ExhaustedMemory, NamingTheConfiguration) {
    const std::string name(3000, 'n');
    fail_each({"setVortdConfFile", nothing, [&] { setVortdConfFile(name.c_str()); },
               [&] {
                   setVortdConfFile(name.c_str());
                   return name == getVortdConfFile();
               }});
    fail_each({"getVortdConfFile", nothing, [] { getVortdConfFile(); },
               [&] { return dir_.path("C/vortd.conf") == getVortdConfFile(); }});
}

TEST_F(ExhaustedMemory, ReadingTheConfiguration) {
    const auto named = [&] { name_configuration(); };
    fail_each({"read_trapspec_file", named,
               [] {
                   char* message = nullptr;
                   read_trapspec_file(&message);
               },
               is_read});
    fail_each({"read_trapspec_file, of what is missing",
               [&] { setVortdConfFile(dir_.path("missing").c_str()); },
               [] {
                   char* message = nullptr;
                   read_trapspec_file(&message);
               },
               [&] {
                   name_configuration();
                   return is_read();
               }});
    const std::string file = dir_.path("vortd.conf");
    fail_each({"augmentTrapspecFile", [&] { name_configuration(), is_read(); },
               [&] {
                   char* message = nullptr;
                   augmentTrapspecFile(&message, file.c_str());
               },
               is_read});
    fail_each({"read_ferlospec_file", [&] { name_configuration(), is_read(); },
               [] {
                   char* message = nullptr;
                   read_ferlospec_file(&message);
               },
               is_read});
}

TEST_F(ExhaustedMemory, EditingTheModel) {
    const auto read = [&] { name_configuration(), is_read(); };
    static constexpr std::array<uint32_t, 8> oid{1, 3, 6, 1, 4, 1, 4242, 7};
    const auto insert = [] {
        if (insert_enterprise(oid.data(), oid.size(), "fresh") != 0) {
            return false;
        }
        enterprise_info* enterprise = nullptr;
        return find_enterprise(oid.data(), oid.size(), &enterprise) == 0 &&
               insertMallocTrapRecord(enterprise, "freshTrap", 6, 1, 0, nullptr, 1, 'A',
                                      doStrdup("$3"), nullptr, nullptr, nullptr, 1, 0, 0, nullptr,
                                      0, nullptr, nullptr) != nullptr;
    };
    fail_each({"inserting", read, [=] { insert(); },
               [=] {
                   insert();
                   return nameToExactTrap("freshTrap") != nullptr;
               }});
    fail_each({"looking up", read,
               [] {
                   enterprise_info* enterprise = nullptr;
                   trap_record* record = nullptr;
                   nameToTrapAndEnterprise("snmpLinkDown", &record, &enterprise);
                   name_to_enterprise("snmp", &enterprise);
                   find_trap_format(oid.data(), oid.size(), 2, 0, &record, &enterprise, "host");
                   std::array<uint32_t, 512> numbers{};
                   int count = 0;
                   cname_to_oid("snmp.1", numbers.data(), &count);
               },
               is_read});
    fail_each({"deleting", read,
               [] {
                   deleteTrapRecord("snmpLinkDown");
                   trapspec_relinked();
                   free_all_info();
               },
               is_read});
}

TEST_F(ExhaustedMemory, WritingTheConfiguration) {
    // The file names who wrote it; the system's user database stands no failure.
    const auto read = [&] { name_configuration(), is_read(), getpwuid(geteuid()); };
    fail_each({"lockVortdConfFile", read,
               [] {
                   char* message = nullptr;
                   FILE* const stream = lockVortdConfFile(&message);
                   if (stream != nullptr) {
                       fclose(stream);
                   }
                   free(message);
               },
               is_read});
    fail_each({"lockVortdConfFile, of what is missing",
               [&] { setVortdConfFile(dir_.path("missing").c_str()); },
               [] {
                   char* message = nullptr;
                   lockVortdConfFile(&message);
                   free(message);
               },
               [] { return true; }});
    fail_each({"write_trapspec_file", read,
               [] {
                   char* message = nullptr;
                   FILE* const stream = lockVortdConfFile(&message);
                   if (stream != nullptr && write_trapspec_file(stream) != 0) {
                       fclose(stream);
                   }
                   free(message);
               },
               is_read});
    fail_each({"write_ferlospec_file", read,
               [] {
                   char* message = nullptr;
                   write_ferlospec_file(&message);
               },
               is_read});
    fail_each({"open_ferlo_lock_file", read,
               [] {
                   FILE* stream = nullptr;
                   char* name = nullptr;
                   open_ferlo_lock_file("r", &stream, &name);
                   if (stream != nullptr) {
                       fclose(stream);
                   }
               },
               is_read});
}

TEST_F(ExhaustedMemory, Formatting) {
    const auto format = [] {
        static snmp_trap_infoEMS trap;
        static std::array<SnmpVarBindEMS, 2> vars;
        static constexpr std::array<uint32_t, 7> name{1, 3, 6, 1, 4, 1, 8072};
        std::copy(name.begin(), name.end(), trap.enterprise);
        trap.elen = name.size();
        trap.gen = 2;
        trap.agent = htonl(INADDR_LOOPBACK);
        trap.vars = 2;
        for (SnmpVarBindEMS& var : vars) {
            std::copy(name.begin(), name.end(), var.oid);
            var.oid_length = name.size();
        }
        vars[0].type = ASN_OBJID09;
        std::copy(name.begin(), name.end(), vars[0].val.objid);
        vars[0].val_len = name.size();
        vars[1].type = ASN_OCTETSTR09;
        vars[1].val_len = 100;
        std::array<char, 8192> text{};
        char* host = nullptr;
        return trp_format(KMEVENTS_USER, &trap, text.data(), text.size(), vars.data(), &host, 0) >=
               0;
    };
    fail_each(
        {"trp_format", [&] { name_configuration(), get_own_name(); }, [=] { format(); }, format});
    fail_each({"trp_format, read", [&] { name_configuration(), is_read(), get_own_name(); },
               [=] { format(); }, format});
    fail_each({"makeFormatString", nothing,
               [] {
                   trap_element element{};
                   makeFormatString(doStrdup("$3 of $E $* $#"), &element);
               },
               [] { return true; }});
}

TEST_F(ExhaustedMemory, Names) {
    const std::string labels = dir_.path("oid_to_label");
    const auto parse = [&] {
        parseOidFile(labels.c_str());
        return oidTree != nullptr;
    };
    const auto use = [] {
        dumpLocalList();
        dumpOidTree(oidTree, nullptr);
        findOidInTree(oidTree, "sysDescr");
        insertOid("1.3.6.1.9.9", buildOidData("nine"));
        std::array<uint32_t, 512> oid{};
        buildEntOid(oid.data(), "1.3.6.1.4.1.8072");
    };
    fail_each({"parseOidFile", nothing, [=] { parse(); }, parse});
    fail_each({"names", [=] { parse(); },
               [=] {
                   (void)!freopen("/dev/null", "w", stdout);
                   use();
               },
               parse});
    fail_each({"WQmib_load_mib", nothing, [] { WQmib_load_mib(); },
               [] { return WQmib_load_mib() == 0; }});
    fail_each({"sprint__objid", nothing,
               [] {
                   std::array<char, 2048> text{};
                   const std::array<uint32_t, 3> oid{1, 3, 6};
                   sprint__objid(text.data(), oid.data(), 3);
                   WQmib_get_mib_filename();
               },
               [] { return WQmib_load_mib() == 0; }});
    fail_each({"gethostbyname_new", nothing, [] { gethostbyname_new("127.0.0.1"); },
               [] { return gethostbyname_new("127.0.0.1") != nullptr; }});
}

TEST_F(ExhaustedMemory, CodePoints) {
    const std::string points = dir_.path("codepoint.cat");
    const auto load = [&] {
        codeptpath(points.c_str());
        codeptcatinit();
        codeptpath(nullptr);
        codeptpath("");
        codeptcatinit();
        return codeptstr(1, 1) != nullptr;
    };
    fail_each({"codeptcatinit", nothing, [=] { load(); }, load});
}

TEST_F(ExhaustedMemory, Channel) {
    std::string path = dir_.path("socket");
    const Fd listener = local_listener(path, 4096);
    // The system's resolver is not this library's, and stands no failure.
    const auto known = [] { get_own_name(); };
    const auto open_and_close = [&] {
        event_infoEMS channel{};
        const bool opened = open_event(&channel, 12, path.data(), 2) >= 0;
        close_event(&channel);
        return opened;
    };
    fail_each({"open_event", known, [=] { open_and_close(); }, open_and_close});
    const auto open_by_name = [] {
        std::array<char, 10> name{"127.0.0.1"};
        event_infoEMS channel{};
        const bool opened = open_event(&channel, 4, name.data(), 1) >= 0;
        close_event(&channel);
        return opened;
    };
    fail_each({"open_event by name", known, [=] { open_by_name(); }, open_by_name});
    const auto exchange = [] {
        const SocketPair pair = local_pair();
        event_infoEMS ours{};
        ours.sd = pair.ours.get();
        ours.trans = 2;
        ours.source = 12;
        event_infoEMS peer = ours;
        peer.sd = pair.peer.get();
        static snmp_trap_infoEMS trap;
        static std::array<SnmpVarBindEMS, 5> vars;
        trap.maxvars = 5;
        return send_event(&ours, 1, "host", "text", nullptr, nullptr) == 0 &&
               recv_event(&peer, &trap, vars.data()) > 0;
    };
    fail_each({"send_event, recv_event", known, [=] { exchange(); }, exchange});
    fail_each({"sendFMTCHGevent", [&] { name_configuration(), known(); },
               [] {
                   char* message = nullptr;
                   sendFMTCHGevent("editor", 12, &message);
               },
               [] {
                   char* message = nullptr;
                   return sendFMTCHGevent("editor", 12, &message) == 0 || message != nullptr;
               }});
    const auto client = [] {
        snmp_call_info* const made = init_snmp_call(1, 0);
        if (made != nullptr) {
            init_snmp_request(made, htonl(INADDR_LOOPBACK), "public");
            SnmpVarBindEMS var{};
            getvar(made, &var, &var);
            snmpcall_error(made);
        }
        close_snmp_call(made);
        return made != nullptr;
    };
    fail_each({"init_snmp_call", nothing, [=] { client(); }, client});
}

TEST_F(ExhaustedMemory, LogsAndMessages) {
    setenv("WQULOG", dir_.path("log").c_str(), 1);
    const std::string text(3000, 't');
    const std::string trace = dir_.path("trace");
    const auto log = [&] {
        open_trace_log(trace.c_str());
        log_trace("routine", "%s", text.c_str());
        logger(1, "routine", "%s", text.c_str());
        const std::array<unsigned char, 200> bytes{};
        sigblockhexdump(bytes.data(), static_cast<int>(bytes.size()));
        WQuLogS(84, 2, "events.cat", 1, 0, "%s", text.c_str());
        close_trace_log();
        return std::strcmp(_eventsMsg(1, 1, "text"), "text") == 0;
    };
    fail_each({"logs", nothing, [=] { log(); }, log});
    unsetenv("WQULOG");
}

TEST_F(ExhaustedMemory, Daemons) {
    fail_each({"status", nothing,
               [] {
                   isDaemonEnabled_("kmpollerd");
                   getSnmpGleanPidFile();
                   isSnmpGleanRunning();
                   isDaemonRunning_("/nowhere/pid");
               },
               [] { return getSnmpGleanPidFile() != nullptr; }});
}

}  // namespace
}  // namespace wq::test

#else

// The sanitizer's allocator is not this program's to replace.
TEST(ExhaustedMemory, IsNotMadeUnderSanitizers) {
    GTEST_SKIP();
}

#endif
