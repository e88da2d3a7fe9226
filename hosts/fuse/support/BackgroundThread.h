#pragma once

#include <functional>
#include <thread>

namespace fusehost {

/// A thread that receives no signals: they belong to whoever owns the process. Throws std::system_error if the process
/// can have no more threads.
std::thread startBackgroundThread(std::function<void()> work);

} // namespace fusehost
