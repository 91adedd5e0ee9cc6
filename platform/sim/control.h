// Test-side controls of the simulated platform: what a test may inspect or provoke that a
// program on the real platform cannot.
#pragma once

#include "platform/standin/types.h"
#include "platform/standin/audioclient.h"
#include "platform/standin/winuser.h"

#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// 100-ns units, the platform's REFERENCE_TIME.
typedef std::int64_t Hns;

// The clock of streams, Sleep and GetTickCount64. Real time by default; virtual time (set
// here, or by LIBAUDIO_CLOCK=virtual) runs streams as fast as the threads that feed and
// drain them allow, in lockstep.
enum class ClockMode { Real, Virtual };
LIBAUDIO_PLATFORM_API void setClockMode(ClockMode mode);
LIBAUDIO_PLATFORM_API ClockMode clockMode();
LIBAUDIO_PLATFORM_API Hns clockNow();
// While held, virtual time also waits for the calling thread: it moves only while that
// thread sleeps on the platform's clock. Tests hold it to act at a point in virtual time.
LIBAUDIO_PLATFORM_API void holdVirtualTime(bool hold);

// Number of unbalanced CoInitialize calls on the calling thread.
LIBAUDIO_PLATFORM_API int comInitCount();
// The next CoInitialize/CoInitializeEx on any thread fails with this code.
LIBAUDIO_PLATFORM_API void failNextCoInitialize(HRESULT code);
// The next CoTaskMemAlloc on any thread returns null, as an exhausted allocator does.
LIBAUDIO_PLATFORM_API void failNextCoTaskMemAlloc();
// Calls of CoUninitialize on the calling thread since it started.
LIBAUDIO_PLATFORM_API int comUninitializeCalls();

// One IAudioClient::Initialize call as the platform saw it, and what it answered.
struct InitializeRequest {
    std::string endpoint;
    AUDCLNT_SHAREMODE mode;
    REFERENCE_TIME duration;
    REFERENCE_TIME periodicity;
    HRESULT result;
};
// IAudioClient::Start takes this long on the platform's clock before the stream runs, as a
// driver that is slow to start does; 0 (the default) starts at once.
LIBAUDIO_PLATFORM_API void setStreamStartLatency(Hns latency);
// The Initialize calls since the last call, oldest first.
LIBAUDIO_PLATFORM_API std::vector<InitializeRequest> takeInitializeRequests();

// Whether a stream of the endpoint is running and has something to play or fill: what a
// listener in the room would hear.
LIBAUDIO_PLATFORM_API bool isStreaming(const std::string& endpointId);
// How often an audio client's render stream of the endpoint ran dry while it ran (the device
// played silence) since the last call.
LIBAUDIO_PLATFORM_API std::uint64_t takeRenderGlitches(const std::string& endpointId);

struct PostedMessage {
    HWND window;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
// The window messages posted since the last call, oldest first.
LIBAUDIO_PLATFORM_API std::vector<PostedMessage> takePostedMessages();

} // namespace sim
