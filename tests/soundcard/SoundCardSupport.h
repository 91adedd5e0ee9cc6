// Helpers shared by the sound card tests: the bundled machines' adapters and endpoints,
// machines built for one case, endpoint lists as text, numbered log texts and an observer
// that counts what reaches it.
#pragma once

#include "libAudio/EndpointClassification.h"
#include "libAudio/EndpointDeviceEnumerator.h"
#include "libAudio/SoundCard.h"
#include "platform/model/JsonLoader.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/MachineEvents.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

namespace soundcard {

using testsupport::LogCapture;

constexpr int kDebug = 1, kInfo = 2, kError = 3;
inline const std::string kCardLog = "libAudio.soundcard";
inline const std::string kEndpointLog = "libAudio.audioDeviceEndpoint";

// The bundled laptop.
namespace laptop {
inline const std::string kRealtek =
    "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269&SUBSYS_17AA21FA&REV_1002\\4&1C0A5E&0&0001";
inline const std::string kIntel =
    "HDAUDIO\\FUNC_01&VEN_8086&DEV_2809&SUBSYS_80860101&REV_1000\\4&1C0A5E&0&0201";
inline const std::string kUsb = "USB\\VID_046D&PID_0A38&MI_00\\7&2A6B8E32&0&0000";
inline const std::string kRoot = "ROOT\\MEDIA\\0000";
inline const std::string kPciParent =
    "PCI\\VEN_8086&DEV_9D70&SUBSYS_21FA17AA&REV_21\\3&11583659&0&FB";
inline const std::string kUsbParent = "USB\\VID_046D&PID_0A38\\5&1B0F4E6C&0&2";
inline const std::string kEtopo =
    "{2}.\\\\?\\hdaudio#func_01&ven_10ec&dev_0269&subsys_17aa21fa&rev_1002#4&1c0a5e&0&0001#{"
    "6994ad04-93ef-11d0-a3cc-00a0c9223196}\\etopo";
inline const std::string kSpeakers = "{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}";
inline const std::string kHeadphones = "{0.0.0.00000000}.{8e2a4c6d-1b3f-4d5e-a7c9-0f1e2d3c4b02}";
inline const std::string kHdmi = "{0.0.0.00000000}.{c5d7e9f1-2a4b-4c6d-8e0f-1a2b3c4d5e03}";
inline const std::string kUsbSpeakers = "{0.0.0.00000000}.{4f6a8c0e-3b5d-4f7a-9c1e-2b4d6f8a0c04}";
inline const std::string kCable = "{0.0.0.00000000}.{9a0b1c2d-4e5f-4a6b-8c7d-3e4f5a6b7c05}";
inline const std::string kMicArray = "{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}";
inline const std::string kHeadsetMic = "{0.0.1.00000000}.{6d8f0a2c-7e9b-4d1f-b3a5-5a6b7c8d9e07}";
inline const std::string kUsbMic = "{0.0.1.00000000}.{e1f3a5c7-9b0d-4e2f-8a4c-6b7c8d9e0f08}";
} // namespace laptop

// The bundled desktop.
namespace desktop {
inline const std::string kRealtek =
    "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0892&SUBSYS_10438436&REV_1003\\4&2D5C4E8B&0&0001";
inline const std::string kNvidia =
    "HDAUDIO\\FUNC_01&VEN_10DE&DEV_0083&SUBSYS_10DE120F&REV_1001\\5&2F1A5C3D&0&0001";
inline const std::string kSpeakers = "{0.0.0.00000000}.{a1b2c3d4-1111-4a2b-8c3d-0e1f2a3b4c11}";
inline const std::string kHeadphones = "{0.0.0.00000000}.{a1b2c3d4-2222-4a2b-8c3d-0e1f2a3b4c12}";
inline const std::string kSpdif = "{0.0.0.00000000}.{a1b2c3d4-3333-4a2b-8c3d-0e1f2a3b4c13}";
inline const std::string kDisplayPort = "{0.0.0.00000000}.{a1b2c3d4-4444-4a2b-8c3d-0e1f2a3b4c14}";
inline const std::string kMicrophone = "{0.0.1.00000000}.{b2c3d4e5-5555-4b3c-9d4e-1f2a3b4c5d15}";
inline const std::string kLineIn = "{0.0.1.00000000}.{b2c3d4e5-6666-4b3c-9d4e-1f2a3b4c5d16}";
inline const std::string kFrontMic = "{0.0.1.00000000}.{b2c3d4e5-7777-4b3c-9d4e-1f2a3b4c5d17}";
} // namespace desktop

inline std::string utf8(const qel::String& s) {
    return s.toStdString();
}

inline qel::String text(const std::string& s) {
    return qel::String::fromUtf8(s);
}

inline std::string cardId(const std::string& instanceId) {
    return "{1}." + instanceId;
}

inline void installBundled(const std::string& name) {
    sim::installMachine(model::loadMachine(name));
}

inline std::vector<std::string> ids(const qel::Array<AudioDevice>& devices) {
    std::vector<std::string> out;
    for (const AudioDevice& device : devices) {
        out.push_back(utf8(device.deviceProperty().deviceId));
    }
    return out;
}

inline std::vector<std::string> ids(const qel::Array<AudioDevicePtr>& devices) {
    std::vector<std::string> out;
    for (const AudioDevicePtr& device : devices) {
        out.push_back(utf8(device->deviceProperty().deviceId));
    }
    return out;
}

inline std::vector<std::string> playbackIds(const SoundCard& card) {
    qel::Array<AudioDevice> devices;
    card.allPlaybackDevice(devices);
    return ids(devices);
}

inline std::vector<std::string> recordIds(const SoundCard& card) {
    qel::Array<AudioDevice> devices;
    card.allRecordDevice(devices);
    return ids(devices);
}

inline std::vector<std::string> cardIds(const qel::Array<SoundCard>& cards) {
    std::vector<std::string> out;
    for (const SoundCard& card : cards) {
        out.push_back(utf8(card.deviceId()));
    }
    return out;
}

// The card of an adapter, by its instance id.
inline SoundCard cardOf(const qel::Array<SoundCard>& cards, const std::string& instanceId) {
    for (const SoundCard& card : cards) {
        if (card.deviceId() == text(cardId(instanceId))) {
            return card;
        }
    }
    ADD_FAILURE() << "no card for " << instanceId;
    return SoundCard();
}

// One endpoint of the installed machine, opened by id.
inline AudioDevice endpoint(const std::string& id) {
    AudioDevice device(text(id));
    EXPECT_TRUE(device.isInitialized()) << id;
    return device;
}

// Texts of one logger at one priority, with their numbers.
inline std::vector<std::string> numbered(const LogCapture& log, const std::string& logger,
                                         int priority) {
    return log.texts(logger, priority);
}

// The same without the entries and exits of trace scopes.
inline std::vector<std::string> messagesOnly(const LogCapture& log, const std::string& logger,
                                             int priority) {
    std::vector<std::string> out;
    for (const std::string& line : log.texts(logger, priority)) {
        if (line.find(" Entering ") == std::string::npos &&
            line.find(" Leaving ") == std::string::npos) {
            out.push_back(line);
        }
    }
    return out;
}

// The names of the trace scopes entered, in order.
inline std::vector<std::string> scopes(const LogCapture& log, const std::string& logger) {
    std::vector<std::string> out;
    for (const std::string& line : log.texts(logger, kDebug)) {
        std::size_t at = line.find(" Entering ");
        if (at != std::string::npos) {
            out.push_back(line.substr(at + 10));
        }
    }
    return out;
}

inline bool contains(const std::vector<std::string>& list, const std::string& item) {
    return std::find(list.begin(), list.end(), item) != list.end();
}

inline int countOf(const LogCapture& log, const std::string& logger, int priority,
                   const std::string& textWithNumber) {
    return log.count(logger, priority, textWithNumber);
}

// Counts the calls that reach it; registered on a card for the life of the object.
class CountingObserver : public SoundCardObserver {
public:
    std::atomic<int> added{0}, removed{0}, stateChanged{0};
    void deviceStateChanged() override { ++stateChanged; }
    void deviceAdded() override { ++added; }
    void deviceRemoved() override { ++removed; }
    int total() const { return added + removed + stateChanged; }
    SoundCardObserverPtr handle() { return SoundCardObserverPtr(this); }
};

// Registers an observer through a card and unregisters it when the test ends: the card's
// updater outlives the test, and must not call an observer that is gone.
class Registration {
public:
    enum Kind { Playback, Record };
    Registration(SoundCard& card, Kind kind, CountingObserver& observer)
        : m_card(card), m_kind(kind), m_observer(observer.handle()) {
        registered = kind == Playback ? m_card.registerPlaybackObserver(m_observer)
                                      : m_card.registerRecordObserver(m_observer);
    }
    ~Registration() {
        if (m_kind == Playback) {
            m_card.unregisterPlaybackObserver(m_observer);
        } else {
            m_card.unregisterRecordObserver(m_observer);
        }
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;
    bool registered = false;

private:
    SoundCard& m_card;
    Kind m_kind;
    SoundCardObserverPtr m_observer;
};

// A new endpoint of an installed adapter, without a topology of its own.
inline model::Endpoint newEndpoint(const std::string& id, model::Flow flow,
                                   const std::string& adapter, const std::string& description) {
    model::Machine m = model::MachineBuilder("one")
                           .adapter(adapter, "Adapter")
                           .endpoint(flow, description)
                           .id(id)
                           .build();
    return m.endpoints[0];
}

// Jack descriptions as drivers report them.
inline model::Jack jack(std::uint32_t connectionType, std::uint32_t geoLocation,
                        std::uint32_t genLocation = 0, std::uint32_t portConnection = 0) {
    model::Jack j;
    j.channelMapping = 3;
    j.connectionType = connectionType;
    j.geoLocation = geoLocation;
    j.genLocation = genLocation;
    j.portConnection = portConnection;
    return j;
}

enum : std::uint32_t {
    k35mm = 1,
    kQuarter = 2,
    kAtapiInternal = 3,
    kRca = 4,
    kOptical = 5,
    kOtherDigital = 6
};
enum : std::uint32_t { kRear = 1, kFront = 2, kLeft = 3, kHdmiGeo = 11, kAtapi = 13 };

inline const model::Jack kInternalJack = jack(kAtapiInternal, kAtapi, 1, 1);

} // namespace soundcard
