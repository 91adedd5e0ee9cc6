// SoundCard: grouping the system's endpoints into cards by their adapter, the card's
// identity and value semantics, and picking one card by an id a caller gives.
#include "foundation/osServices.h"
#include "libAudio/EndpointDeviceEnumerator.h"
#include "libAudio/internal/soundcardunit.h"

#include <initializer_list>

namespace soundcardunit {
QEL_DEFINE_UNIT_LOGGER("libAudio.soundcard")
} // namespace soundcardunit

using soundcardunit::sameText;
using soundcardunit::unitLogger;

SoundCardObserver::~SoundCardObserver() = default;

SoundCard::SoundCard(bool registerForNotifications)
    : m_notificationRegistered(false), m_playbackDevices(new qel::Array<AudioDevice>()),
      m_recordDevices(new qel::Array<AudioDevice>()),
      m_internalDevices(new qel::Array<AudioDevice>()),
      m_playbackObservers(new qel::Array<SoundCardObserverPtr>()),
      m_recordObservers(new qel::Array<SoundCardObserverPtr>()), m_deviceId(new qel::String()) {
    QEL_TRACE_SCOPE("SoundCard::SoundCard(bool registerForNotifications)");
    m_updater = SoundCardDeviceUpdater::createUpdater();
    m_state = m_updater->m_state;
    m_updater->setRecordDeviceList(m_recordDevices);
    m_updater->setPlaybackDeviceList(m_playbackDevices);
    m_updater->setOwnerId(m_deviceId);
    m_updater->setPlaybackObserver(m_playbackObservers);
    m_updater->setRecordObserver(m_recordObservers);
    if (registerForNotifications) {
        m_notificationRegistered = registerUpdater();
    }
}

SoundCard::SoundCard(const SoundCard& other) = default;
SoundCard& SoundCard::operator=(const SoundCard& other) = default;
SoundCard::~SoundCard() = default;

void SoundCard::setDeviceId(const qel::String& id) {
    std::lock_guard lock(m_state->lists);
    *m_deviceId = id;
}

const qel::String& SoundCard::deviceId() const {
    return *m_deviceId;
}

qel::Array<AudioDevice> SoundCard::snapshot(const DeviceList& list) const {
    std::lock_guard lock(m_state->lists);
    return *list;
}

bool SoundCard::isDeviceAlreadyInTheCard(const qel::String& endpointId) {
    std::lock_guard lock(m_state->lists);
    for (const DeviceList* list : {&m_playbackDevices, &m_recordDevices}) {
        for (const AudioDevice& device : **list) {
            if (sameText(device.deviceProperty().deviceId, endpointId)) {
                return true;
            }
        }
    }
    return false;
}

bool SoundCard::addDevice(qel::Array<AudioDevice>& deviceTable, const AudioDevice& device) {
    QEL_TRACE_SCOPE("addDevice(Array<AudioDevice>& deviceTable, const AudioDevice& device)");
    const qel::String& id = device.deviceProperty().deviceId;
    // Across both flows: an id already filed as render is refused as capture too.
    if (isDeviceAlreadyInTheCard(id)) {
        QEL_LOG_AT(PRIORITY_ERROR, 78, "Cannot add duplicate device ", id);
        return false;
    }
    std::lock_guard lock(m_state->lists);
    deviceTable.append(device);
    return true;
}

bool SoundCard::addEndpointDevice(EDataFlow dataFlow, const AudioDevice& device) {
    if (dataFlow == eRender) {
        return addPlaybackEndpointDevice(device);
    }
    if (dataFlow == eCapture) {
        return addCaptureEndpointDevice(device);
    }
    return false;
}

bool SoundCard::addPlaybackEndpointDevice(const AudioDevice& device) {
    return addDevice(*m_playbackDevices, device);
}

bool SoundCard::addCaptureEndpointDevice(const AudioDevice& device) {
    return addDevice(*m_recordDevices, device);
}

qel::Array<SoundCard> SoundCard::enumerateSystemSoundDevices(bool registerForNotifications) {
    QEL_TRACE_SCOPE("SoundCard::enumerateSystemSoundDevices");
    qel::OrderedHashTable<qel::String, SoundCard> table;
    qel::Array<SoundCard> cards;
    {
        libAudio::EndpointDeviceEnumerator enumerator;
        if (!enumerator.isInitialized()) {
            QEL_LOG_AT(PRIORITY_ERROR, 166, "Faild to initialize endpoint device enumerator");
            return cards;
        }
        // Capture first: an adapter with a microphone is placed by it, before playback-only
        // adapters.
        for (EDataFlow flow : {eCapture, eRender}) {
            qel::Array<AudioDevice> devices(8);
            enumerator.audioDevices(flow, devices);
            for (const AudioDevice& device : devices) {
                enumerateSystemSoundDevices(device, flow, table, registerForNotifications);
            }
        }
    }
    for (const auto& entry : table) {
        entry.value().initializeConnectorMap();
    }
    for (const auto& entry : table) {
        cards.append(entry.value());
    }
    return cards;
}

void SoundCard::enumerateSystemSoundDevices(const AudioDevice& audioDevice, EDataFlow dataFlow,
                                            qel::OrderedHashTable<qel::String, SoundCard>& table,
                                            bool registerForNotifications) {
    QEL_TRACE_SCOPE("SoundCard::enumerateSystemSoundDevices(const AudioDevice& audioDevice, "
                    "EDataFlow dataFlow, OrderedHashTable<String, SoundCard>& deviceTable)");
    const qel::String& key = audioDevice.deviceProperty().instancePath;
    if (SoundCard* card = table.lookup(key)) {
        card->addEndpointDevice(dataFlow, audioDevice);
        return;
    }
    SoundCard card(registerForNotifications);
    card.setDeviceId(key);
    card.addEndpointDevice(dataFlow, audioDevice);
    table.insert(key, card);
}

qel::String SoundCard::instanceId() const {
    QEL_TRACE_SCOPE("SoundCard::instanceId");
    qel::Array<qel::String> parts = deviceId().tokenize(".");
    if (parts.size() < 2) {
        QEL_LOG_AT(PRIORITY_ERROR, 197, "Unrecognized device id format ", deviceId());
        return qel::String();
    }
    return parts[1];
}

bool SoundCard::parentId(qel::String& parent) const {
    QEL_TRACE_SCOPE("SoundCard::parentId");
    return getParentDeviceInstanceId(instanceId(), parent);
}

qel::String SoundCard::friendlyName() const {
    QEL_TRACE_SCOPE("SoundCard::friendlyName");
    std::lock_guard lock(m_state->lists);
    for (const DeviceList* list : {&m_recordDevices, &m_playbackDevices}) {
        for (const AudioDevice& device : **list) {
            if (!device.deviceProperty().friendlyName.empty()) {
                return device.deviceProperty().friendlyName;
            }
        }
    }
    return qel::String();
}

qel::String SoundCard::enumeratorName() const {
    QEL_TRACE_SCOPE("SoundCard::enumeratorName");
    std::lock_guard lock(m_state->lists);
    for (const DeviceList* list : {&m_recordDevices, &m_playbackDevices}) {
        for (const AudioDevice& device : **list) {
            if (!device.deviceProperty().enumeratorName.empty()) {
                return device.deviceProperty().enumeratorName;
            }
        }
    }
    return qel::String();
}

bool SoundCard::createSoundCard(const qel::String& id, SoundCard& card,
                                bool registerForNotifications) {
    QEL_TRACE_SCOPE("SoundCard::createSoundCard");
    qel::Array<SoundCard> cards = enumerateSystemSoundDevices(registerForNotifications);
    for (const SoundCard& candidate : cards) {
        qel::String instance = candidate.instanceId();
        qel::String parent;
        if (getParentDeviceInstanceId(instance, parent)) {
            QEL_LOG_AT(PRIORITY_INFO, 219, "Parent device id = ", parent, " device id =", instance);
        } else {
            QEL_LOG_AT(PRIORITY_ERROR, 215, "Unable to get parent id from the child id ", instance);
            parent.clear();
        }
        QEL_LOG_AT(PRIORITY_INFO, 222, instance);
        QEL_LOG_AT(PRIORITY_INFO, 223, id);
        // The adapter itself or the device it hangs on, such as its bus controller.
        if (sameText(id, instance) || sameText(id, parent)) {
            card = candidate;
            return true;
        }
    }
    return false;
}

bool SoundCard::operator==(const SoundCard& other) const {
    QEL_TRACE_SCOPE("SoundCard::operator==");
    return sameText(deviceId(), other.deviceId());
}

bool SoundCard::hasEndpoint(const qel::String& endpointId) const {
    QEL_TRACE_SCOPE("SoundCard::hasEndpoint");
    AudioDevice found;
    return findEndpoint(*m_playbackDevices, endpointId, found) ||
           findEndpoint(*m_recordDevices, endpointId, found) ||
           findEndpoint(*m_internalDevices, endpointId, found);
}

bool SoundCard::findEndpoint(const qel::Array<AudioDevice>& searchFrom,
                             const qel::String& endpointId, AudioDevice& result) const {
    QEL_TRACE_SCOPE("SoundCard::findEndpoint(const Array<AudioDevice>& searchFrom, const String& "
                    "endpointId, AudioDevice& result)");
    std::lock_guard lock(m_state->lists);
    for (const AudioDevice& device : searchFrom) {
        if (sameText(device.deviceProperty().deviceId, endpointId)) {
            result = device;
            return true;
        }
    }
    return false;
}

namespace libAudio {

void enumerateSoundCards(qel::Array<SoundCardResource>& cards) {
    QEL_TRACE_SCOPE("enumerateSoundCards");
    qel::Array<SoundCard> found = SoundCard::enumerateSystemSoundDevices(false);
    for (const SoundCard& card : found) {
        cards.append(SoundCardResource(new SoundCard(card)));
    }
}

namespace {

bool startsWith(const qel::String& text, const qel::String& prefix) {
    return !text.empty() && prefix.length() <= text.length() &&
           qel::String::fromUnits(text.getUCS2Buffer(), prefix.length()).compareNoCase(prefix) == 0;
}

// The names a person may know a card by.
qel::Array<qel::String> namesOf(const SoundCard& card) {
    qel::Array<qel::String> names;
    names.append(card.deviceId());
    names.append(card.instanceId());
    qel::String parent;
    if (card.parentId(parent)) {
        names.append(parent);
    }
    names.append(card.friendlyName());
    return names;
}

CardLookup pick(const qel::Array<qel::Uint32>& found, qel::Array<qel::Uint32>& matches) {
    for (qel::Uint32 index : found) {
        matches.append(index);
    }
    if (found.size() == 1) {
        return CardLookup::Found;
    }
    return found.empty() ? CardLookup::NotFound : CardLookup::Ambiguous;
}

} // namespace

CardLookup findSoundCard(const qel::Array<SoundCard>& cards, const qel::String& name,
                         qel::Uint32& index) {
    qel::Array<qel::Uint32> matches;
    CardLookup result = findSoundCard(cards, name, matches);
    if (result == CardLookup::Found) {
        index = matches[0];
    }
    return result;
}

CardLookup findSoundCard(const qel::Array<SoundCard>& cards, const qel::String& name,
                         qel::Array<qel::Uint32>& matches) {
    QEL_TRACE_SCOPE("libAudio::findSoundCard");
    if (name.empty()) {
        return CardLookup::NotFound;
    }
    qel::Array<qel::Uint32> exact;
    qel::Array<qel::Uint32> prefixed;
    for (qel::Uint32 i = 0; i < cards.size(); ++i) {
        bool isExact = false;
        bool isPrefixed = false;
        for (const qel::String& known : namesOf(cards[i])) {
            isExact = isExact || (!known.empty() && sameText(known, name));
            isPrefixed = isPrefixed || startsWith(known, name);
        }
        if (isExact) {
            exact.append(i);
        }
        if (isPrefixed) {
            prefixed.append(i);
        }
    }
    return exact.empty() ? pick(prefixed, matches) : pick(exact, matches);
}

} // namespace libAudio
