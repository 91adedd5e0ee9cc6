// The streaming classes' worker threads: creation that survives a failed allocation, and
// the join that every stop and destructor does before letting go of the handle.
#pragma once

#include "libAudio/AudioRenderer.h"

namespace libAudio::worker {

// A new worker whose routine serves context; an empty handle when the system has no room
// for one.
WorkerThreadHandle create(qel::ManagedThread::Function routine, void* context);

// Waits for the worker to end and lets go of it.
inline void join(WorkerThreadHandle& thread) {
    if (!thread.isEmpty()) {
        thread->join();
        thread.reset();
    }
}

} // namespace libAudio::worker
