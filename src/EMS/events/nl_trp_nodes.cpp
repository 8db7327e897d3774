#include "EMS/events/nl_trp_format.h"

const char* trpAllSourcesStr = "ALL SOURCES";

namespace wq {
namespace {

constexpr std::string_view ellipsis = "...";
// Behind a name there must be room for a blank, the ellipsis and the terminator.
constexpr std::size_t reserve = 1 + ellipsis.size() + 1;

std::string_view text_or_empty(const char* text) {
    return text != nullptr ? std::string_view(text) : std::string_view();
}

void append_nodes(TextSink& sink, const trap_record& record, std::size_t size) {
    for (int32_t i = 0; i < record.nodeCnt; ++i) {
        if (i != 0) {
            sink.append(' ');
        }
        const std::string_view name = text_or_empty(record.nodeList[i]);
        if (sink.length() + name.size() + reserve > size) {
            sink.append(ellipsis);
            return;
        }
        sink.append(name);
    }
}

}  // namespace
}  // namespace wq

void trpFmtSprintNodes(trap_record* rec, char* sourceBuf, int sourceBufLen) {
    if (rec == nullptr || sourceBuf == nullptr || sourceBufLen <= 0) {
        return;
    }
    const auto size = static_cast<std::size_t>(sourceBufLen);
    wq::TextSink sink(sourceBuf, size);
    if (rec->nodeCnt <= 0 || rec->nodeList == nullptr) {
        sink.append(wq::text_or_empty(trpAllSourcesStr));
    } else {
        wq::append_nodes(sink, *rec, size);
    }
}
