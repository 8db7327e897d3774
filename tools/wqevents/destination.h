/*
 * Where events and traps go: what --to names, and the channel opened to it.
 */
#ifndef WQEVENTS_TOOL_DESTINATION_H
#define WQEVENTS_TOOL_DESTINATION_H

#include <wqevents.h>

#include <string>
#include <string_view>

namespace wq::command {

struct Destination {
    std::string text;  // as --to gave it
    std::string name;  // what open_event() takes
    int mode;          // transport mode
    bool direct;       // to a port of its own, which open_event() does not know in this mode
};

/* The forms of --to, for help. */
extern const char* const destination_help;

/*
 * parse_destination: udp:HOST[:PORT], local:PATH, tcp:HOST[:PORT], raw:HOST[:PORT] or auto, else a
 * UsageError.
 */
Destination parse_destination(std::string_view text);

/* A channel that is closed, with its disconnect event, when the object goes. */
class Channel {
  public:
    /* Opens the channel as application `source`; a Failure says why it cannot. */
    Channel(const Destination& destination, int source);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    event_infoEMS* info() { return &info_; }
    /* Throws the Failure of what a send function returned, unless it is 0. Call it at once. */
    void check_sent(int result) const;
    /* This host's address as a number of the host. */
    std::uint32_t own_address() const;

  private:
    void open(const Destination& destination, int source);
    void open_directly(const Destination& destination, int source);
    void connect_datagrams(int port);

    std::string text_;
    event_infoEMS info_{};
    bool datagrams_ = false;  // by a connected socket
};

}  // namespace wq::command

#endif
