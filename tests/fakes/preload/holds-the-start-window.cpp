// Holds the host for two seconds where it starts its timer: before it hides the window of its start.

#include <dlfcn.h>
#include <wx/timer.h>

#include <chrono>
#include <thread>

bool wxTimer::Start(int milliseconds, bool oneShot) {
    std::this_thread::sleep_for(std::chrono::seconds(2));
    using Member = bool (*)(wxTimer*, int, bool);
    static const auto next = reinterpret_cast<Member>(dlsym(RTLD_NEXT, "_ZN7wxTimer5StartEib"));
    return next(this, milliseconds, oneShot);
}
