// The streaming classes' worker threads: creation that survives a failed allocation, and
// the join that every stop and destructor does before letting go of the handle.
#pragma once

#include "foundation/qelThread.h"
#include "libAudio/AudioRenderer.h"

#include <new>
#include <utility>

namespace libAudio::worker {

// A new worker, or an empty handle when there is no memory for one.
inline WorkerThreadHandle create(qel::ManagedThread::Function routine, void* context) {
    try {
        return WorkerThreadHandle(new qel::ManagedThread(std::move(routine), context));
    } catch (const std::bad_alloc&) {
        return WorkerThreadHandle();
    }
}

// Waits for the worker to end and lets go of it.
inline void join(WorkerThreadHandle& thread) {
    if (!thread.isEmpty()) {
        thread->join();
        thread.reset();
    }
}

} // namespace libAudio::worker
