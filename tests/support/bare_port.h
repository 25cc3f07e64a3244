// An open port without a device and without a thread, for tests of what only needs the port's record.
#pragma once

#include <new>
#include <stdexcept>

#include "port/blocks.h"
#include "port/port_table.h"

namespace brisolt::test {

class BarePort {
public:
    explicit BarePort(int32_t number, uint32_t rxSize = 2048, uint32_t txSize = 2048) {
        if (!table::claim(number))
            throw std::logic_error("the port is taken");
        port_ = table::make(number);
        if (port_ == nullptr || blocks::allocate(*port_, rxSize, txSize) != 0)
            throw std::bad_alloc();
        port_->open = 1;
        table::publish(*port_);
    }
    BarePort(const BarePort&) = delete;
    BarePort& operator=(const BarePort&) = delete;
    ~BarePort() {
        close();
        table::letGo(*port_);
    }

    /// Calls find the port no more; who holds it (the test does) still sees all of it.
    void close() {
        if (port_->open.exchange(0) == 1)
            table::withdraw(*port_);
    }
    Port& operator*() const { return *port_; }
    Port* operator->() const { return port_; }

private:
    Port* port_;
};

} // namespace brisolt::test
