// AudioDevice: the library's handle on one multimedia device (as a rule an endpoint), with
// its descriptive properties read once and cached, its topology and its volume controller.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelSharedResource.h"
#include "foundation/qelString.h"
#include "libAudio/AudioDeviceTopology.h"
#include "libAudio/VolumeController.h"
#include "platform/CComPtr.h"

#include <cstdint>

typedef qel::SharedResource<qel::PointerStorage<VolumeControllerInterface, 0, 3>, 0>
    VolumeControllerHandle;

class LIBAUDIO_API AudioDevice {
public:
    struct LIBAUDIO_API Properties {
        std::uint32_t physicalSpeakers = 0;
        std::uint32_t state = 0xFFFFFFFF;
        std::uint32_t eventDriven = 0;
        WAVEFORMATEXTENSIBLE deviceFormat{};
        qel::String deviceId;
        qel::String instancePath;
        qel::String driverNodeStrongName;
        qel::String friendlyName;
        qel::String endpointType;
        qel::String enumeratorName;
        GUID nodeGuid{};
        GUID directSoundGuid{};

        void logPropertyInfo() const;
    };

    // Keys of adapter properties that every endpoint's store carries.
    static const PROPERTYKEY m_friendlyName;
    static const PROPERTYKEY m_driverNodeStrongName;
    static const PROPERTYKEY m_instancePathKey;

    AudioDevice();
    explicit AudioDevice(IMMDevice* device);
    explicit AudioDevice(const qel::String& deviceId);
    AudioDevice(const AudioDevice& other);
    AudioDevice& operator=(const AudioDevice& other);
    ~AudioDevice();

    bool initialize(const qel::String& deviceId);
    bool initialize(IMMDevice* device);
    bool isInitialized() const { return m_device != nullptr; }
    bool reset();
    bool refreshDeviceInformation();
    unsigned int refreshDeviceState();
    const Properties& deviceProperty() const { return m_properties; }

    bool dataFlow(EDataFlow& flow) const;
    bool isEndpoint() const;
    bool isDefaultEndpoint() const;
    const CComPtr<IDeviceTopology>& deviceTopology() const { return m_topology.topology(); }
    void deviceTopology(AudioDeviceTopology& topology) const { topology = m_topology; }
    unsigned int connector(qel::Array<AudioComponent<IConnector>>& list) const;
    VolumeControllerHandle volumeControl() const { return m_volumeControl; }
    CComPtr<IAudioClient> audioClient() const;
    CComPtr<IBaseFilter> baseFilter() const;
    unsigned int compatibleFormats(qel::Array<WAVEFORMATEX>& formats, AUDCLNT_SHAREMODE mode) const;
    bool setFormat(const WAVEFORMATEXTENSIBLE& format);
    unsigned int jackInfo(qel::Array<KSJACK_DESCRIPTION>& jacks) const;
    // The legacy wave device number that drives this endpoint; 0xFFFFFFFF when none.
    unsigned int waveLegacyDeviceID() const;

    // Devices are the same when their ids are, ignoring case.
    bool operator==(const AudioDevice& other) const;

private:
    CComPtr<IAudioEndpointVolume> volumeController() const;
    bool createVolumeControl();
    void readProperties();
    void readNodeGuid();
    bool readDeviceFormat();
    unsigned int waveMessage(EDataFlow flow, unsigned int deviceNumber, unsigned int message,
                             DWORD_PTR param1, DWORD_PTR param2) const;
    bool legacyIdMatches(EDataFlow flow, unsigned int deviceNumber, bool& stop) const;
    void printReferenceCount() const;

    CComPtr<IMMDevice> m_device;
    CComPtr<IPropertyStore> m_propertyStore;
    VolumeControllerHandle m_volumeControl;
    AudioDeviceTopology m_topology;
    Properties m_properties;
    Properties m_snapshot;
};

namespace libAudio {

// Which of twelve plain PCM formats (1-2 channels, 16/24 bits, 44.1/48/96 kHz) the client
// supports in the share mode; returns how many.
LIBAUDIO_API unsigned int enumerateCompatibleFormat(const IAudioClient& client,
                                                    AUDCLNT_SHAREMODE mode,
                                                    qel::Array<WAVEFORMATEX>& formats);

} // namespace libAudio
