#include "pcap_file.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>

#include "command.h"

namespace wq::command {
namespace {

/* The first octets of captures: by microsecond and nanosecond, of either order, and pcapng. */
constexpr std::array<std::string_view, 5> magic_numbers = {
    "\xA1\xB2\xC3\xD4", "\xD4\xC3\xB2\xA1", "\xA1\xB2\x3C\x4D",
    "\x4D\x3C\xB2\xA1", "\x0A\x0D\x0D\x0A",
};

struct LinkType {
    int number;
    Link link;
};

constexpr std::array link_types = {
    LinkType{DLT_EN10MB, Link::ethernet},      LinkType{DLT_LINUX_SLL, Link::cooked},
    LinkType{DLT_LINUX_SLL2, Link::cooked_v2}, LinkType{DLT_NULL, Link::loopback},
    LinkType{DLT_LOOP, Link::loopback},        LinkType{DLT_RAW, Link::raw_ip},
    LinkType{DLT_IPV4, Link::raw_ip},          LinkType{DLT_IPV6, Link::raw_ip},
};

std::string link_name(int number) {
    const char* name = pcap_datalink_val_to_description(number);
    return name == nullptr ? "type " + std::to_string(number) : name;
}

Link link_of(int number, const std::string& file) {
    const auto* row = std::find_if(link_types.begin(), link_types.end(),
                                   [&](const LinkType& type) { return type.number == number; });
    if (row == link_types.end()) {
        throw Failure("cannot read " + file +
                      ": its frames are of a kind that carries no trap: " + link_name(number));
    }
    return row->link;
}

}  // namespace

bool PcapFile::begins_with(std::string_view start) {
    return std::any_of(magic_numbers.begin(), magic_numbers.end(),
                       [&](std::string_view magic) { return start.starts_with(magic); });
}

PcapFile::PcapFile(InputFile file, std::string name) : name_(std::move(name)) {
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    capture_.reset(pcap_fopen_offline(file.get(), error.data()));
    if (!capture_) {
        throw Failure("cannot read " + name_ + ": " + error.data());
    }
    [[maybe_unused]] std::FILE* owned_by_capture = file.release();
    link_ = link_of(pcap_datalink(capture_.get()), name_);
}

std::optional<CapturedFrame> PcapFile::next() {
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int result = pcap_next_ex(capture_.get(), &header, &bytes);
    if (result == PCAP_ERROR) {
        throw Failure("cannot read " + name_ + ": " + pcap_geterr(capture_.get()));
    }
    if (result != 1) {
        return std::nullopt;
    }
    return CapturedFrame{header->ts.tv_sec, {bytes, header->caplen}};
}

void PcapFile::Close::operator()(pcap* capture) const {
    pcap_close(capture);
}

}  // namespace wq::command
