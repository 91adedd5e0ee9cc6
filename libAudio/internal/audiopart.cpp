#include "libAudio/AudioPart.h"
#include "foundation/qelLog.h"

#include <cstddef>
#include <utility>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.audioPart")

// Copies a string the platform allocated and frees it.
qel::String takeString(LPWSTR text) {
    qel::String copy(platform::ucs2(text));
    CoTaskMemFree(text);
    return copy;
}
} // namespace

AudioPart::AudioPart() : m_subType{} {}

AudioPart::AudioPart(IPart* part) : m_part(part), m_subType{} {
    QEL_TRACE_SCOPE("AudioConnector::AudioConnector(const IPart* part)");
    initialize();
}

AudioPart::AudioPart(const CComPtr<IPart>& part) : m_part(part), m_subType{} {
    QEL_TRACE_SCOPE("AudioConnector(const CComPtr<IPart>& part)");
    initialize();
}

AudioPart::AudioPart(const AudioPart& other) = default;
AudioPart::AudioPart(AudioPart&& other) noexcept = default;
AudioPart& AudioPart::operator=(const AudioPart& other) = default;
AudioPart& AudioPart::operator=(AudioPart&& other) noexcept = default;
AudioPart::~AudioPart() = default;

AudioPart& AudioPart::operator=(IPart* part) {
    QEL_TRACE_SCOPE("AudioPart::operator=(IPart* part)");
    m_part = part;
    initialize();
    return *this;
}

AudioPart& AudioPart::operator=(const CComPtr<IPart>& part) {
    QEL_TRACE_SCOPE("AudioPart::operator=(const CComPtr<IPart>& part)");
    m_part = part;
    initialize();
    return *this;
}

void AudioPart::initialize() {
    QEL_TRACE_SCOPE("AudioPart::initialize()");
    if (!m_part) {
        return;
    }
    m_part->GetSubType(&m_subType);
    LPWSTR text = nullptr;
    if (SUCCEEDED(m_part->GetGlobalId(&text)) && text) {
        m_globalId = takeString(text);
    }
    text = nullptr;
    if (SUCCEEDED(m_part->GetName(&text)) && text) {
        m_name = takeString(text);
    }
}

CComPtr<IDeviceTopology> AudioPart::topology() const {
    QEL_TRACE_SCOPE("AudioPart::topology()");
    CComPtr<IDeviceTopology> topology;
    if (m_part) {
        platform::topologyOf(m_part, &topology);
    }
    if (!topology) {
        QEL_ERROR("Unable to get topology object from part ", m_name);
    }
    return topology;
}

unsigned int AudioPart::incomingPartsList(qel::Array<AudioPart>& parts) {
    QEL_TRACE_SCOPE("AudioPart::incomingPartsList");
    CComPtr<IPartsList> list;
    if (!m_part || FAILED(m_part->EnumPartsIncoming(&list)) || !list) {
        QEL_ERROR("Unable to enumerate incoming parts");
        m_incoming.clear();
    } else {
        storePartsList(list, m_incoming);
    }
    return copyOut(m_incoming, parts);
}

unsigned int AudioPart::outgoingPartsList(qel::Array<AudioPart>& parts) {
    QEL_TRACE_SCOPE("AudioPart::outgoingPartsList");
    CComPtr<IPartsList> list;
    if (!m_part || FAILED(m_part->EnumPartsOutgoing(&list)) || !list) {
        QEL_ERROR("Unable to enumerate outgoing parts");
        m_outgoing.clear();
    } else {
        storePartsList(list, m_outgoing);
    }
    return copyOut(m_outgoing, parts);
}

// The caller's array is written last and from a copy: it may hold this very part
// (parts[0].outgoingPartsList(parts)), which the assignment destroys.
unsigned int AudioPart::copyOut(const qel::Array<AudioPart>& cache, qel::Array<AudioPart>& parts) {
    qel::Array<AudioPart> copy = cache;
    parts = std::move(copy);
    return parts.size();
}

unsigned int AudioPart::storePartsList(IPartsList* partlist, qel::Array<AudioPart>& parts) {
    QEL_TRACE_SCOPE("AudioPart::storePartsList");
    QEL_ASSERT(partlist != NULL);
    parts.clear();
    UINT count = 0;
    partlist->GetCount(&count);
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IPart> part;
        if (SUCCEEDED(partlist->GetPart(i, &part)) && part) {
            parts.append(AudioPart(part));
        }
    }
    return parts.size();
}

bool AudioPart::operator==(const AudioPart& other) const {
    return m_globalId.compareNoCase(other.m_globalId) == 0;
}
