// Endpoint enumeration: lists of AudioDevice by data flow, split by state or not, and the
// process-wide enumerator that the rest of the library shares.
#pragma once

#include "COM/comptr.h"
#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelSharedResource.h"
#include "libAudio/AudioDevice.h"
#include "platform/CComPtr.h"

// The endpoints of one flow, kept in four lists by device state.
class LIBAUDIO_API EndpointDeviceEnumeratorCommon {
public:
    EndpointDeviceEnumeratorCommon();
    explicit EndpointDeviceEnumeratorCommon(EDataFlow flow);
    EndpointDeviceEnumeratorCommon(const EndpointDeviceEnumeratorCommon& other);
    EndpointDeviceEnumeratorCommon& operator=(const EndpointDeviceEnumeratorCommon& other);
    ~EndpointDeviceEnumeratorCommon();

    bool enumerate(EDataFlow flow);
    void refresh(EDataFlow flow);
    qel::Array<AudioDevice> activeDevice() const { return m_active; }
    qel::Array<AudioDevice> disabledDevice() const { return m_disabled; }
    qel::Array<AudioDevice> notPresentDevice() { return m_notPresent; }
    const qel::Array<AudioDevice>& notPresentDevice() const { return m_notPresent; }
    qel::Array<AudioDevice> unpluggedDevice() const { return m_unplugged; }
    CComPtr<IMMDeviceEnumerator> enumerator() const { return m_enumerator; }
    // Replaces the registered observer; a null client changes nothing.
    void registerNotificationObserver(IMMNotificationClient* client);

private:
    void unregisterNotificationObserver();
    void clear();
    void clearDeviceList();

    qel::Array<AudioDevice> m_active;
    qel::Array<AudioDevice> m_notPresent;
    qel::Array<AudioDevice> m_disabled;
    qel::Array<AudioDevice> m_unplugged;
    qel::Array<AudioDevice> m_reserved;
    IMMNotificationClient* m_observer = nullptr;
    CComPtr<IMMDeviceEnumerator> m_enumerator;
};

namespace libAudio {

// All endpoints of a flow, whatever their state, in one list.
class LIBAUDIO_API EndpointDeviceEnumerator {
public:
    EndpointDeviceEnumerator();
    EndpointDeviceEnumerator(const EndpointDeviceEnumerator& other) = default;
    EndpointDeviceEnumerator(EndpointDeviceEnumerator&& other) noexcept = default;
    EndpointDeviceEnumerator& operator=(const EndpointDeviceEnumerator& other) = default;
    EndpointDeviceEnumerator& operator=(EndpointDeviceEnumerator&& other) noexcept = default;
    ~EndpointDeviceEnumerator();

    bool isInitialized() const { return m_enumerator != nullptr; }
    unsigned int audioDevices(EDataFlow flow, qel::Array<AudioDevice>& devices);

private:
    bool initialize();

    CComPtr<IMMDeviceEnumerator> m_enumerator;
};

class AudioDeviceEnumerator;
typedef qel::CopiedResource<qel::PointerStorage<AudioDeviceEnumerator, 0, 3>>
    SharedAudioDeviceEnumerator;
typedef qel::SharedResource<qel::PointerStorage<AudioDeviceEnumerator, 0, 3>, 0>
    OwnedAudioDeviceEnumerator;

// Owns the platform enumerator and the notification clients registered through it.
class LIBAUDIO_API AudioDeviceEnumerator {
public:
    ~AudioDeviceEnumerator();
    AudioDeviceEnumerator(const AudioDeviceEnumerator&) = delete;
    AudioDeviceEnumerator& operator=(const AudioDeviceEnumerator&) = delete;

    bool initialize();
    qel::CopiedResource<qel::PointerStorage<IMMDeviceEnumerator, 3, 2>> deviceEnumerator();
    unsigned int audioDevices(EDataFlow flow, qel::Array<AudioDevice>& devices);
    bool addNotificationClient(const CComPtr<IMMNotificationClient>& client);

private:
    friend class AudioDeviceEnumeratorFactory;
    friend OwnedAudioDeviceEnumerator enumerator();
    AudioDeviceEnumerator();

    CComPtr<IMMDeviceEnumerator> m_enumerator;
    qel::Array<CComPtr<IMMNotificationClient>> m_clients;
    COMInitializer m_com;
};

// Declared after the class: GCC drops the import attribute of a friend that redeclares it.
LIBAUDIO_API OwnedAudioDeviceEnumerator enumerator();

class LIBAUDIO_API AudioDeviceEnumeratorFactory {
public:
    // The process-wide enumerator, made on first use and kept to the end of the process.
    static SharedAudioDeviceEnumerator& enumerator();
};

} // namespace libAudio
