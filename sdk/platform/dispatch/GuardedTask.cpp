#include "vrq/platform/dispatch/GuardedTask.h"

#include "vrq/platform/services/LogBackend.h"

#include <exception>
#include <string>

namespace vrq {

void runGuarded(const char* where, const std::function<void()>& task) noexcept
{
    try {
        task();
        return;
    } catch (const std::exception& exception) {
        logging::logEx(logging::kError, std::string("(GuardedTask.cpp) a task on ") + where + " threw: " + exception.what()
                                            + "; it is dropped and the queue goes on");
    } catch (...) {
        logging::logEx(logging::kError, std::string("(GuardedTask.cpp) a task on ") + where
                                            + " threw a non-standard exception; it is dropped and the queue goes on");
    }
}

} // namespace vrq
