// The SIGBUS guard of mapped reads: the signal, raised in the thread that read
// past a mapping's end, jumps back to the guard of that thread.
#include "MappedRead.h"

#include <setjmp.h>
#include <signal.h>

namespace ostrel_report {

namespace {

thread_local sigjmp_buf* guardOfThisThread = nullptr;

void onBus(int, siginfo_t*, void*) {
    if (guardOfThisThread != nullptr) siglongjmp(*guardOfThisThread, 1);
    // Not in a guarded read: the signal does what it would have done.
    signal(SIGBUS, SIG_DFL);
    raise(SIGBUS);
}

}  // namespace

bool guardMappedRead(const std::function<bool()>& read, bool* cutShort) {
    struct sigaction guard = {}, before = {};
    guard.sa_sigaction = onBus;
    guard.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigemptyset(&guard.sa_mask);
    sigaction(SIGBUS, &guard, &before);
    sigjmp_buf here;
    volatile bool ok = false;
    *cutShort = false;
    if (sigsetjmp(here, 1) == 0) {
        guardOfThisThread = &here;
        ok = read();
    } else {
        *cutShort = true;
    }
    guardOfThisThread = nullptr;
    sigaction(SIGBUS, &before, nullptr);
    return ok;
}

}  // namespace ostrel_report
