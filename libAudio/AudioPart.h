// AudioPart: one part (connector or subunit) of a device topology, with its identity
// cached; AudioComponent: a connector or subunit paired with its part.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelString.h"
#include "platform/CComPtr.h"

class LIBAUDIO_API AudioPart {
public:
    AudioPart();
    AudioPart(IPart* part);
    AudioPart(const CComPtr<IPart>& part);
    AudioPart(const AudioPart& other);
    AudioPart(AudioPart&& other) noexcept;
    AudioPart& operator=(const AudioPart& other);
    AudioPart& operator=(AudioPart&& other) noexcept;
    AudioPart& operator=(IPart* part);
    AudioPart& operator=(const CComPtr<IPart>& part);
    ~AudioPart();

    CComPtr<IPart> part() const { return m_part; }
    GUID subType() const { return m_subType; }
    qel::String globalId() const { return m_globalId; }
    qel::String name() const { return m_name; }
    // The topology the part belongs to; null, logged, when the platform gives none.
    CComPtr<IDeviceTopology> topology() const;
    unsigned int incomingPartsList(qel::Array<AudioPart>& parts);
    unsigned int outgoingPartsList(qel::Array<AudioPart>& parts);

    // Parts are the same when their global ids are, ignoring case.
    bool operator==(const AudioPart& other) const;

private:
    void initialize();
    unsigned int storePartsList(IPartsList* partlist, qel::Array<AudioPart>& parts);
    static unsigned int copyOut(const qel::Array<AudioPart>& cache, qel::Array<AudioPart>& parts);

    CComPtr<IPart> m_part;
    GUID m_subType;
    qel::String m_globalId;
    qel::String m_name;
    qel::Array<AudioPart> m_incoming;
    qel::Array<AudioPart> m_outgoing;
};

template <class Interface> class AudioComponent {
public:
    AudioComponent() = default;
    explicit AudioComponent(Interface* component) : m_component(component) {
        CComPtr<IPart> part;
        if (component && SUCCEEDED(component->QueryInterface(platform::iidOf<IPart>(),
                                                             reinterpret_cast<void**>(&part)))) {
            m_part = part;
        }
    }
    explicit AudioComponent(const CComPtr<Interface>& component)
        : AudioComponent(static_cast<Interface*>(component)) {}

    const CComPtr<Interface>& component() const { return m_component; }
    const AudioPart& part() const { return m_part; }
    AudioPart& part() { return m_part; }
    bool operator==(const AudioComponent& other) const { return m_part == other.m_part; }

private:
    CComPtr<Interface> m_component;
    AudioPart m_part;
};
