// The library linked statically, called from a constructor that runs before main() and from a
// destructor that runs after it.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <wqevents.h>
#include <wqplatform.h>

namespace {

#define CHECK(condition)                                                                 \
    do {                                                                                 \
        if (!(condition)) {                                                              \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
            std::_Exit(1);                                                               \
        }                                                                                \
    } while (0)

void use_messages_and_formats() {
    CHECK(std::strcmp(_eventsMsg(1, 1, "text"), "text") == 0);
    trap_element element{};
    makeFormatString(doStrdup("$3 of $E"), &element);
    CHECK(element.num_args > 0);
    doFree(element.rawstring);
    doFree(element.format);
    char name[2048];
    const uint32_t oid[] = {1, 3, 6};
    sprint__objid(name, oid, 3);
    CHECK(std::strcmp(name, ".iso.org.dod") == 0);
    CHECK(WQmib_get_mib_filename() != nullptr);
}

void use_names() {
    parseOidFile(EXAMPLES "/oid_to_label");
    CHECK(oidTree != nullptr);
    dumpLocalList();
    oidFreeTree(oidTree);
    oidTree = nullptr;
    codeptcatinit();
    CHECK(codeptstr(1, 1) != nullptr);
}

void use_configuration() {
    setVortdConfFile(EXAMPLES "/vortd.conf");
    char* message = nullptr;
    CHECK(read_trapspec_file(&message) == 0);
    trap_record* record = nullptr;
    enterprise_info* enterprise = nullptr;
    CHECK(nameToTrapAndEnterprise("snmpLinkDown", &record, &enterprise) == 0);
    snmp_trap_infoEMS trap{};
    trap.elen = 1;
    char text[4096];
    char* host = nullptr;
    CHECK(trp_format(ZLEEVENT_USER, &trap, text, sizeof text, nullptr, &host, 0) >= 0);
    CHECK(gethostbyname_new("127.0.0.1") != nullptr);
    free_all_info();
}

void use_channel() {
    char path[] = "/nowhere/socket";
    event_infoEMS channel{};
    CHECK(open_event(&channel, 12, path, 2) == -1);
    CHECK(snmpcall_error(nullptr) == nullptr);
    char* message = nullptr;
    setVortdConfFile("/nowhere/vortd.conf");
    sendFMTCHGevent("program", 12, &message);
    CHECK(lockVortdConfFile(&message) == nullptr && message != nullptr);
    std::free(message);
}

void use_everything() {
    use_messages_and_formats();
    use_names();
    use_configuration();
    use_channel();
}

struct Early {
    Early() { use_everything(); }
    ~Early() { use_everything(); }
    Early(const Early&) = delete;
    Early& operator=(const Early&) = delete;
};

// The first of all constructors that a program may have, and the last destructor.
__attribute__((init_priority(101))) Early early;

}  // namespace

int main() {
    return 0;
}
