/*
 * The sockets that traps arrive at.
 */
#ifndef WQEVENTS_TOOL_ENDPOINT_H
#define WQEVENTS_TOOL_ENDPOINT_H

#include <netinet/in.h>
#include <sys/types.h>

#include <string>

#include "file_descriptor.h"

namespace wq::command {

struct Endpoint {
    FileDescriptor fd;
    std::string address;  // "127.0.0.1:16200", with the port that was got, or the path
};

/*
 * The file of a local socket, removed with the object if it is still the same, and the lock beside
 * it, "PATH.lock", by which starters on one path know of each other.
 */
class LocalSocketFile {
  public:
    LocalSocketFile() = default;
    /* Takes the lock; a Failure if another process has it. */
    explicit LocalSocketFile(const std::string& path);
    LocalSocketFile(LocalSocketFile&& other) noexcept;
    LocalSocketFile& operator=(LocalSocketFile&&) = delete;
    ~LocalSocketFile();

    /* The file that is there now is the object's. */
    void adopt();

  private:
    std::string path_;
    FileDescriptor lock_;
    bool adopted_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

struct LocalEndpoint {
    LocalSocketFile file;
    Endpoint endpoint;
};

/*
 * open_udp, open_tcp: a non-blocking socket bound to "[HOST:]PORT", the latter listening. HOST is
 * an IPv4 address or a name, every address of this host where it is missing; port 0 stands for any
 * that is free. `option` names the text in the UsageError of one that is not of this form.
 */
Endpoint open_udp(const std::string& option, const std::string& text);
Endpoint open_tcp(const std::string& option, const std::string& text);

/*
 * open_local: a non-blocking local stream socket that listens at `path`. A socket file at which
 * nobody listens any more is replaced; anything else at `path` is a Failure, and so is another
 * process that is about to listen there.
 */
LocalEndpoint open_local(const std::string& path);

/* address_name: "127.0.0.1:16200". */
std::string address_name(const sockaddr_in& address);

}  // namespace wq::command

#endif
