/*
 * Files of captured frames. Nothing else knows libpcap.
 */
#ifndef WQEVENTS_TOOL_PCAP_FILE_H
#define WQEVENTS_TOOL_PCAP_FILE_H

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "input_file.h"
#include "packet.h"

struct pcap;

namespace wq::command {

struct CapturedFrame {
    std::time_t time;  // when it was captured
    std::span<const std::uint8_t> bytes;
};

class PcapFile {
  public:
    static constexpr std::size_t magic_size = 4;

    /* Whether a file that begins so is a capture. */
    static bool begins_with(std::string_view start);

    /* Takes the file over; a Failure where it is no capture, or one of frames of another kind. */
    PcapFile(InputFile file, std::string name);

    Link link() const { return link_; }

    /* The next frame, valid until the next call; none at the end. A Failure where it is damaged. */
    std::optional<CapturedFrame> next();

  private:
    struct Close {
        void operator()(pcap* capture) const;
    };
    std::string name_;
    std::unique_ptr<pcap, Close> capture_;
    Link link_ = Link::raw_ip;
};

}  // namespace wq::command

#endif
