#pragma once

#include <string>

namespace vrqtest {

// A loopback address (127.0.0.2 to 127.0.0.254) that no other test process
// holds while this one runs: servers bind fixed ports (the reconnect port
// 7392) on it without meeting another test's. The same address is returned
// for the rest of the process, and freed when the process ends.
std::string loopbackAddress();

} // namespace vrqtest
