/*
 * Where one trap ends and the next begins on a stream: pure functions over the bytes that have
 * arrived.
 */
#ifndef WQEVENTS_TOOL_FRAMING_H
#define WQEVENTS_TOOL_FRAMING_H

#include <wqevents.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace wq::command {

enum class Framing {
    header,  // a transmission header before every trap
    raw,     // encoded traps back to back
};

inline constexpr std::size_t trap_min = 20;  // bytes of the shortest trap that anybody takes
/* What a peer may keep waiting: a header and all but the last byte of a trap. */
inline constexpr std::size_t frame_max = EMS_HEADER_LEN + EMS_TRAP_MAX;

struct Frame {
    enum class State {
        unfinished,  // more bytes must come
        whole,       // `trap` is all there
        refused,     // no trap can be found any more; `reason` says why
    };
    State state = State::unfinished;
    const char* reason = nullptr;
    std::optional<trap_headerEMS> header;  // of Framing::header
    std::span<const std::uint8_t> trap;
    std::size_t length = 0;  // whole: bytes from the start to the next trap's start
};

/* next_frame: looks for a trap at the start of `bytes`. */
Frame next_frame(Framing framing, std::span<const std::uint8_t> bytes);

}  // namespace wq::command

#endif
