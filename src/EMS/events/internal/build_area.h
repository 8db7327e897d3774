// Messages built inside out with the exported encoders, item by item between two areas.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include <wqevents/channel.h>
#include <wqevents/codec.h>

namespace wq {

// Records come from callers: lengths beyond the arrays count as the arrays' size.
inline int checked_length(int32_t given, int32_t most) {
    return std::clamp(given, 0, most);
}
inline int checked_length(uint32_t given, uint32_t most) {
    return static_cast<int>(std::min(given, most));
}

inline int value_length(const SnmpVarBindEMS& binding) {
    const uint32_t most = binding.type == ASN_OBJID09 ? EMS_OID_MAX : EMS_STRING_MAX;
    return checked_length(binding.val_len, most);
}

// Octets written so far at `start`, and the room behind them, in the exported encoders' terms.
struct Area {
    unsigned char* start;
    unsigned char* position;
    int room;

    explicit Area(std::span<uint8_t> octets)
        : start(octets.data()),
          position(start),
          room(static_cast<int>(std::min<std::size_t>(octets.size(), INT32_MAX))) {}

    [[nodiscard]] int length() const { return static_cast<int>(position - start); }

    // Takes what an encoder returned; false if it failed.
    bool put(unsigned char* end) {
        if (end != nullptr) {
            position = end;
        }
        return end != nullptr;
    }

    bool append(const Area& other) {
        const int length = other.length();
        if (room < length) {
            return false;
        }
        std::memcpy(position, other.start, static_cast<std::size_t>(length));
        position += length;
        room -= length;
        return true;
    }
};

inline bool build_binding(Area& area, const SnmpVarBindEMS& binding) {
    const int name_length = checked_length(binding.oid_length, uint32_t{EMS_OID_MAX});
    return area.put(build_var_op(area.position, binding.oid, &name_length, binding.type,
                                 value_length(binding), &binding.val, &area.room));
}

// Wraps the contents of `from` into a constructed item in `to`.
inline bool build_item_around(Area& to, unsigned char tag, const Area& from) {
    return to.put(asnBuildHeader09(to.position, &to.room, tag, from.length())) && to.append(from);
}

}  // namespace wq
