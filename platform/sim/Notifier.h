// The platform's notification thread: device and volume notifications are delivered there,
// one at a time, in the order the changes happened.
#pragma once

#include "platform/win32.h"

#include <functional>
#include <string>
#include <vector>

namespace sim {

// Queues a delivery for the notification thread.
void postNotification(std::function<void()> delivery);
// Blocks until every notification queued so far has been delivered.
LIBAUDIO_PLATFORM_API void waitForNotifications();
// True on the notification thread.
bool onNotificationThread();

// E_ILLEGAL_METHOD_CALL: "a method was called at an unexpected time". Windows deadlocks when
// a callback registers or unregisters notification callbacks; the platform refuses the call
// with this code instead, so that the misuse shows instead of hanging the process.
constexpr HRESULT ILLEGAL_METHOD_CALL = HRESULT(0x8000000EL);

// A call refused because it came from inside a notification callback.
struct RefusedCall {
    std::string operation;
    HRESULT result;
};
// The calls refused since the last call, oldest first.
LIBAUDIO_PLATFORM_API std::vector<RefusedCall> takeRefusedCalls();
// ILLEGAL_METHOD_CALL (and a record) when called from inside a notification callback; S_OK
// elsewhere.
HRESULT refuseInsideCallback(const char* operation);

// Clients of IMMNotificationClient registered with any enumerator.
HRESULT registerEndpointClient(IMMNotificationClient* client);
HRESULT unregisterEndpointClient(IMMNotificationClient* client);
// Calls f for every registered client on the notification thread, skipping clients that
// unregister before their turn.
void notifyEndpointClients(std::function<void(IMMNotificationClient*)> f);

// Volume callbacks of one endpoint.
HRESULT registerVolumeCallback(const std::string& endpointId, IAudioEndpointVolumeCallback* cb);
HRESULT unregisterVolumeCallback(const std::string& endpointId, IAudioEndpointVolumeCallback* cb);
void notifyVolumeCallbacks(const std::string& endpointId, const GUID& context, bool muted,
                           float master, const std::vector<float>& channels);

} // namespace sim
