// Writes a line for each processing of events into "yields.txt": "yield" for all of them, else "some".

#include <dlfcn.h>
#include <wx/evtloop.h>

#include <cstdio>

bool wxEventLoopBase::YieldFor(long eventsToProcess) {
    if (std::FILE* file = std::fopen("yields.txt", "a")) {
        std::fputs(eventsToProcess == wxEVT_CATEGORY_ALL ? "yield\n" : "some\n", file);
        std::fclose(file);
    }
    using Member = bool (*)(wxEventLoopBase*, long);
    static const auto next = reinterpret_cast<Member>(dlsym(RTLD_NEXT, "_ZN15wxEventLoopBase8YieldForEl"));
    return next(this, eventsToProcess);
}
