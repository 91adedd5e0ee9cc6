// The platform's notification thread: device and volume notifications are delivered there,
// one at a time, in the order the changes happened.
#pragma once

#include "platform/win32.h"

#include <functional>
#include <string>

namespace sim {

// Queues a delivery for the notification thread.
void postNotification(std::function<void()> delivery);
// Blocks until every notification queued so far has been delivered.
LIBAUDIO_PLATFORM_API void waitForNotifications();
// True on the notification thread.
bool onNotificationThread();

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
