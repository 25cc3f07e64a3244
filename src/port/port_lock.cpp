#include "port/port_lock.h"

namespace brisolt {

thread_local char PortLock::thisThread = 0;

} // namespace brisolt
