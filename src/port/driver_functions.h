// The functions that a caller may put in the place of a port's primitives, and those that are told of
// received data: one list, in the order in which they stand in a port's parameters.
#pragma once

#include <tuple>
#include <type_traits>

#include "port/record.h"

namespace brisolt {

inline constexpr std::tuple driverFunctions{
    &PortRecord::breakFunc,        &PortRecord::carrierFunc,        &PortRecord::dtrFunc,
    &PortRecord::flushFunc,        &PortRecord::flushOutBufFunc,    &PortRecord::readFunc,
    &PortRecord::ringFunc,         &PortRecord::setBaudFunc,        &PortRecord::setParmsFunc,
    &PortRecord::setFlowFunc,      &PortRecord::statusFunc,         &PortRecord::outBufStatusFunc,
    &PortRecord::writeFunc,        &PortRecord::getBreakStatusFunc, &PortRecord::getCtsStatusFunc,
    &PortRecord::getDsrStatusFunc, &PortRecord::setDtrFunc,         &PortRecord::clearDtrFunc,
    &PortRecord::setRtsFunc,       &PortRecord::clearRtsFunc,       &PortRecord::updateStatusFunc,
};

inline constexpr std::tuple notificationFunctions{
    &PortRecord::onCharCallback,
    &PortRecord::anyCharCallback,
    &PortRecord::onStringCallback,
};

/// visit(field, index) for each of the 24; a field is a Shared pointer to a function of its own type.
template <class Record, class Visit> void forEachFunction(Record& record, Visit visit) {
    std::size_t index = 0;
    std::apply([&](auto... field) { (visit(record.*field, index++), ...); },
               std::tuple_cat(driverFunctions, notificationFunctions));
}

inline constexpr std::size_t functionCount =
    std::tuple_size_v<decltype(driverFunctions)> + std::tuple_size_v<decltype(notificationFunctions)>;
static_assert(functionCount == 24);

} // namespace brisolt
