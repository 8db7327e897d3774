/*
 * The fields of a record as one value, to be compared.
 */
#ifndef WQEVENTS_TESTS_SUPPORT_RECORDS_H
#define WQEVENTS_TESTS_SUPPORT_RECORDS_H

#include <wqevents/channel.h>

#include <tuple>

namespace wq::test {

inline auto fields(const event_infoEMS& ei) {
    return std::make_tuple(ei.sd, ei.trans, ei.source, ei.agent, ei.manager, ei.time, ei.status,
                           ei.target);
}

}  // namespace wq::test

#endif
