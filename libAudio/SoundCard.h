// SoundCard: one audio adapter as the library sees it. Its render and capture endpoints
// (grouped by the adapter's device instance path), the connector map of the topologies
// behind them, the volume controls along an endpoint's signal paths, the input selectors of
// its internal devices, and the notification client that keeps the endpoint lists current.
//
// Copies of a card share its endpoint lists, observers, id and notification client; each
// copy has its own connector map. The lists may change on the platform's notification
// thread at any time; every operation here reads them under the card's lock.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelHashTable.h"
#include "foundation/qelSharedResource.h"
#include "foundation/qelString.h"
#include "foundation/qelTypes.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/AudioDeviceTopology.h"
#include "libAudio/AudioPart.h"
#include "platform/CComPtr.h"

#include <atomic>
#include <cstdint>

namespace mixer2 {
class Mixer;
}

// Told that a card's endpoint set or an endpoint's state changed; it asks the card again
// to learn what. Calls arrive on the platform's notification thread.
class LIBAUDIO_API SoundCardObserver {
public:
    virtual ~SoundCardObserver();
    virtual void deviceStateChanged() = 0;
    virtual void deviceAdded() = 0;
    virtual void deviceRemoved() = 0;
};

// An observer as a card holds it: without ownership.
typedef qel::CopiedResource<qel::PointerStorage<SoundCardObserver, 3, 2>> SoundCardObserverPtr;
// A device that a card hands out by reference; the card keeps it alive.
typedef qel::CopiedResource<qel::PointerStorage<AudioDevice, 3, 2>> AudioDevicePtr;

class SoundCard;
// A heap copy of a card from libAudio::enumerateSoundCards; the caller releases it with
// qel::PointerStorage<SoundCard, 0, 3>::release(handle.get()).
typedef qel::CopiedResource<qel::PointerStorage<SoundCard, 0, 3>> SoundCardResource;

class LIBAUDIO_API SoundCard {
public:
    typedef qel::SharedResource<qel::PointerStorage<qel::Array<AudioDevice>, 0, 3>, 1> DeviceList;
    typedef qel::SharedResource<qel::PointerStorage<qel::Array<SoundCardObserverPtr>, 0, 3>, 1>
        ObserverList;
    typedef qel::SharedResource<qel::PointerStorage<qel::String, 0, 3>, 1> SharedId;

    // One volume node on an endpoint's signal path, with the mute node beside it (null when
    // there is none). subtype and name are those of the connector whose neighbour the volume
    // node is, not the node's own. ::VolumeController<RegularVolumeController> reads and sets
    // it in decibels and percent.
    struct VolumeController {
        CComPtr<IAudioVolumeLevel> volume;
        CComPtr<IAudioMute> mute;
        GUID subtype;
        qel::String name;
        // The volume node itself and its mute node (an empty part when there is none), so
        // that a caller can tell the nodes apart by name.
        AudioPart volumeNode;
        AudioPart muteNode;
    };

    // One connector of the card's signal graph and the entries it is joined to. When
    // hasPhysicalLink is set, links[0] is the connector on the other side of a physical
    // connection (-1 when that connector is not in the map); every other link joins two
    // connectors of one device through its subunits, and is stored on both entries.
    struct ConnectorEntry {
        AudioComponent<IConnector> connector;
        qel::Array<std::int32_t> links;
        bool hasPhysicalLink = false;
        // The device whose topology holds the connector.
        qel::String owner;
    };

    // An input selector (recording multiplexer) of one of the card's internal devices.
    struct InputSelector {
        CComPtr<IAudioInputSelector> selector;
        AudioPart part;
        // The internal device whose topology holds it.
        qel::String deviceId;
        // The parts that link into it, and the index among them of the selected one (-1
        // when the selection names none of them).
        qel::Array<AudioPart> inputs;
        std::int32_t selected = -1;
    };

    class SoundCardDeviceUpdater;
    struct SharedState;
    typedef qel::SharedResource<qel::PointerStorage<SharedState, 0, 3>, 1> SharedStateHandle;

    // An empty card. With registerForNotifications its updater is registered with the
    // process-wide device enumerator at once; otherwise when its first observer comes.
    explicit SoundCard(bool registerForNotifications = false);
    SoundCard(const SoundCard& other);
    SoundCard& operator=(const SoundCard& other);
    ~SoundCard();

    // Every card of the system, capture endpoints filed first, each with its connector map.
    static qel::Array<SoundCard> enumerateSystemSoundDevices(bool registerForNotifications);
    // The first card whose instance id, or whose parent device's instance id, equals id
    // ignoring case. False, card unchanged, when none does.
    static bool createSoundCard(const qel::String& id, SoundCard& card,
                                bool registerForNotifications);

    // The card id: the endpoints' device instance path, "{1}.<instance id>".
    const qel::String& deviceId() const;
    // The adapter's device instance id: the second "."-separated part of the card id.
    qel::String instanceId() const;
    // The device-tree parent of the adapter; false when the platform does not know it.
    bool parentId(qel::String& parent) const;
    // The adapter's name as its endpoints report it; empty when the card has none.
    qel::String friendlyName() const;
    // The adapter's bus as its endpoints report it ("HDAUDIO", "USB", "ROOT"); empty when the
    // card has no endpoints.
    qel::String enumeratorName() const;
    // Cards are equal when their ids are, ignoring case.
    bool operator==(const SoundCard& other) const;
    // The endpoint id (ignoring case) is a playback, record or internal device of the card.
    bool hasEndpoint(const qel::String& endpointId) const;
    bool isRegisteredForNotifications() const { return m_notificationRegistered; }

    // Endpoint queries. Each appends to result and returns how many it appended. filter is a
    // set of DEVICE_STATE_* bits; without one, every state is taken.
    qel::Uint32 microphoneEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 microphoneEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 lineInEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 lineInEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 spdifInEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 spdifInEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 spdifOutEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 spdifOutEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 hdmiOutEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 hdmiOutEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 displayportOutEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 displayportOutEndpointDevice(qel::Array<AudioDevice>& result,
                                             qel::Uint32 filter) const;
    // Headphones first, then speakers.
    qel::Uint32 waveOutEndpointDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 waveOutEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 speakerEndpointDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 allPlaybackDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 allPlaybackDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 allRecordDevice(qel::Array<AudioDevice>& result) const;
    qel::Uint32 allRecordDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    // There is no loopback mix endpoint: always 0.
    qel::Uint32 loopbackMixEndpointDevice(qel::Array<AudioDevice>& result) const;

    // The same by reference, in every state. A handle stays valid for as long as the process
    // runs, also after the endpoint leaves the card; it shows the endpoint as it was when
    // first handed out (refreshDeviceState() reads it again).
    qel::Uint32 microphoneEndpointDevice(qel::Array<AudioDevicePtr>& result);
    qel::Uint32 speakerEndpointDevice(qel::Array<AudioDevicePtr>& result);
    qel::Uint32 waveOutEndpointDevice(qel::Array<AudioDevicePtr>& result);
    qel::Uint32 lineInEndpointDevice(qel::Array<AudioDevicePtr>& result);
    qel::Uint32 spdifInEndpointDevice(qel::Array<AudioDevicePtr>& result);
    qel::Uint32 spdifOutEndpointDevice(qel::Array<AudioDevicePtr>& result);

    // The volume nodes on the signal paths joined to one of the card's endpoints, nearest
    // first; returns the size of controllers afterwards.
    qel::Uint32 volumeController(const AudioDevice& endpoint,
                                 qel::Array<SoundCard::VolumeController>& controllers) const;
    // Declared for callers that want interface handles, but it finds nothing: always 0,
    // neither argument touched. Use the overload above.
    qel::Uint32 volumeController(
        const AudioDevice& endpoint,
        qel::Array<qel::SharedResource<qel::PointerStorage<VolumeControllerInterface, 0, 3>, 0>>&
            controllers) const;
    // The input selectors of the card's internal devices (not of its endpoints); returns the
    // size of selectors afterwards.
    qel::Uint32 recordingMux(qel::Array<CComPtr<IAudioInputSelector>>& selectors);
    // The same with each selector's node, device and inputs; returns the number appended.
    qel::Uint32 inputSelectors(qel::Array<InputSelector>& selectors) const;
    // Makes selector.inputs[input] the selected input and records it in selector.selected.
    // False, nothing changed, when there is no such input or the platform refuses.
    static bool selectInput(InputSelector& selector, qel::Uint32 input);

    // The connector map, built once when the card was enumerated.
    const qel::Array<ConnectorEntry>& connectorMap() const { return m_connectorMap; }
    // Devices other than the card's endpoints that the map reached (adapter filters);
    // returns the number appended.
    qel::Uint32 internalDevices(qel::Array<AudioDevice>& result) const;

    // Observers of playback and record endpoint changes. Registering the first observer of a
    // card that is not yet registered for notifications registers it. Observers are not
    // owned: a caller unregisters one before destroying it. An observer must not register
    // observers from inside its own calls.
    bool registerPlaybackObserver(const SoundCardObserverPtr& observer);
    bool registerRecordObserver(const SoundCardObserverPtr& observer);
    // Once these return, the observer is not called again; false when it was not registered.
    bool unregisterPlaybackObserver(const SoundCardObserverPtr& observer);
    bool unregisterRecordObserver(const SoundCardObserverPtr& observer);

private:
    friend class mixer2::Mixer;

    static void enumerateSystemSoundDevices(const AudioDevice& audioDevice, EDataFlow dataFlow,
                                            qel::OrderedHashTable<qel::String, SoundCard>& table,
                                            bool registerForNotifications);
    void setDeviceId(const qel::String& id);
    bool isDeviceAlreadyInTheCard(const qel::String& endpointId);
    bool addDevice(qel::Array<AudioDevice>& deviceTable, const AudioDevice& device);
    bool addEndpointDevice(EDataFlow dataFlow, const AudioDevice& device);
    bool addPlaybackEndpointDevice(const AudioDevice& device);
    bool addCaptureEndpointDevice(const AudioDevice& device);
    bool findEndpoint(const qel::Array<AudioDevice>& searchFrom, const qel::String& endpointId,
                      AudioDevice& result) const;

    void initializeConnectorMap();
    void registerConnectors(const AudioDeviceTopology& deviceTopology);
    void registerConnectors(const qel::Array<AudioDevice>& deviceList);
    std::int32_t connectorIndex(const qel::String& globalId) const;

    qel::Uint32 findEndpoint(const qel::Array<AudioDevice>& searchFrom,
                             qel::Array<AudioDevice>& result, qel::Uint32 filter) const;
    qel::Uint32 findEndpoint(qel::Array<AudioDevice>& searchFrom, const GUID& deviceType,
                             qel::Array<AudioDevicePtr>& result);
    qel::Uint32 findEndpoint(const qel::Array<AudioDevice>& searchFrom, const GUID& deviceType,
                             qel::Array<AudioDevice>& result, qel::Uint32 filter) const;

    bool partFromList(const qel::Array<AudioPart>& partList, const GUID& subType,
                      AudioPart& result) const;
    bool volumeControllerFromList(const qel::Array<AudioPart>& partList,
                                  const AudioComponent<IConnector>& connector,
                                  qel::Array<SoundCard::VolumeController>& controllers) const;
    bool volumeControllerFromConnector(const AudioComponent<IConnector>& connector,
                                       qel::Array<SoundCard::VolumeController>& controllers) const;

    bool registerObserver(const ObserverList& list, const SoundCardObserverPtr& observer);
    bool unregisterObserver(const ObserverList& list, const SoundCardObserverPtr& observer);
    bool registerUpdater();
    // A copy of a shared list, taken under the card's lock.
    qel::Array<AudioDevice> snapshot(const DeviceList& list) const;

    bool m_notificationRegistered;
    CComPtr<SoundCardDeviceUpdater> m_updater;
    DeviceList m_playbackDevices;
    DeviceList m_recordDevices;
    DeviceList m_internalDevices;
    ObserverList m_playbackObservers;
    ObserverList m_recordObservers;
    SharedId m_deviceId;
    qel::Array<ConnectorEntry> m_connectorMap;
    // The lock and the devices handed out by reference, shared with copies and the updater.
    SharedStateHandle m_state;
};

// The card's device-notification client. It holds the card's lists, observers and id, so
// it keeps them current after every card that shared them is gone; it is never freed.
class LIBAUDIO_API SoundCard::SoundCardDeviceUpdater : public IMMNotificationClient {
public:
    static CComPtr<SoundCardDeviceUpdater> createUpdater();

    void setOwnerId(const SharedId& id);
    bool setPlaybackDeviceList(const DeviceList& list);
    bool setRecordDeviceList(const DeviceList& list);
    bool setPlaybackObserver(const ObserverList& observers);
    bool setRecordObserver(const ObserverList& observers);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR deviceId, DWORD newState) override;
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                     LPCWSTR deviceId) override;
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR deviceId,
                                                     const PROPERTYKEY key) override;

protected:
    virtual ~SoundCardDeviceUpdater();

private:
    friend class SoundCard;
    SoundCardDeviceUpdater();

    const DeviceList selectDeviceList(const AudioDevice& device) const;
    const ObserverList selectObserver(const AudioDevice& device) const;
    // The device a notification names, and the list and observers it concerns.
    void selectTarget(const qel::String& id, AudioDevice& device, DeviceList& list,
                      ObserverList& observers) const;
    void tellObservers(const ObserverList& observers, void (SoundCardObserver::*call)());

    std::atomic<ULONG> m_references;
    SharedId m_ownerId;
    DeviceList m_recordDevices;
    DeviceList m_playbackDevices;
    ObserverList m_playbackObservers;
    ObserverList m_recordObservers;
    SharedStateHandle m_state;
    // Registered with the device enumerator through some copy of the card.
    std::atomic<bool> m_registered;
};

namespace libAudio {

// Appends a heap copy of every card of the system to cards (see SoundCardResource); never
// registers for notifications.
LIBAUDIO_API void enumerateSoundCards(qel::Array<SoundCardResource>& cards);

enum class CardLookup { Found, NotFound, Ambiguous };
// The card a person names: its card id, instance id, parent id or adapter name, ignoring
// case; failing an exact match, a unique prefix of one of them. An exact match shared by
// several cards, or a prefix of several, is ambiguous.
LIBAUDIO_API CardLookup findSoundCard(const qel::Array<SoundCard>& cards, const qel::String& name,
                                      qel::Uint32& index);
// The same, with the indices of the cards the name fits in matches (appended): the one card
// found, or every card that makes the name ambiguous.
LIBAUDIO_API CardLookup findSoundCard(const qel::Array<SoundCard>& cards, const qel::String& name,
                                      qel::Array<qel::Uint32>& matches);

} // namespace libAudio
