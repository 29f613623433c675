// Host stand-in for libhidlbase's HidlTransportSupport.h. On a Linux host the
// "thread pool" is the D-Bus connection's event loop: configureRpcThreadpool
// records the pool's shape, joinRpcThreadpool runs the loop on the calling
// thread until the bus connection fails.
#pragma once

#include <cstddef>

namespace android {
namespace hardware {

// Only a pool of one thread joined by the caller is supported; anything else
// is refused (false) and leaves the pool unconfigured.
bool configureRpcThreadpool(size_t maxThreads, bool callerWillJoin);

// Serves calls for every registered service on this thread. Returns only when
// the connection to the bus is lost (or nothing was registered).
void joinRpcThreadpool();

}  // namespace hardware
}  // namespace android
