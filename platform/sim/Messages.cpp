// Window messages: the simulated platform has no windows, so posted messages are kept in
// one queue that tests read.
#include "platform/sim/control.h"
#include "platform/standin/winuser.h"

#include <mutex>
#include <utility>
#include <vector>

namespace {

std::mutex queueMutex;
std::vector<sim::PostedMessage> queue;

} // namespace

namespace sim {

std::vector<PostedMessage> takePostedMessages() {
    std::lock_guard lock(queueMutex);
    return std::exchange(queue, {});
}

} // namespace sim

extern "C" BOOL PostMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    std::lock_guard lock(queueMutex);
    queue.push_back({window, message, wParam, lParam});
    return TRUE;
}
