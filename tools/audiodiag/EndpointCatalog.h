// The endpoints of the machine as audiodiag shows them, and the lookup of an endpoint by
// full id, a unique prefix of the id or of its GUID part, or the name or a unique prefix of
// it, all ignoring case.
#pragma once

#include "libAudio/AudioDevice.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace audiodiag {

struct EndpointEntry {
    AudioDevice device;
    EDataFlow flow;
};

class EndpointCatalog {
public:
    EndpointCatalog(); // enumerates every endpoint of both flows, whatever its state
    const std::vector<EndpointEntry>& entries() const { return m_entries; }
    // The endpoint the user means, or nothing with the reason in `why` (the candidates, one
    // a line, when the name fits several).
    const EndpointEntry* find(const std::string& wanted, std::string& why) const;

private:
    std::vector<EndpointEntry> m_entries;
};

std::string text(const qel::String& s);
std::string guidText(const GUID& guid);
std::string stateName(std::uint32_t state);
std::string flowName(EDataFlow flow);
// "Speakers (Realtek High Definition Audio)": the endpoint type and the adapter's name.
std::string displayName(const AudioDevice& device);
// The KSNODETYPE name of a node GUID ("SPEAKER"), or the GUID's text.
std::string nodeTypeName(const GUID& nodeType);
// The platform's device behind an endpoint, as the streaming classes take it; null when
// the endpoint is gone.
CComPtr<IMMDevice> openDevice(const AudioDevice& device);
// The form factor property, which the cached properties do not carry.
std::optional<std::uint32_t> formFactor(const AudioDevice& device);
std::string formFactorName(std::optional<std::uint32_t> formFactor);

// The library opens every endpoint's properties for reading and writing, which Windows
// grants only to an administrator: without the rights the endpoints show no names. EXIT_OK
// when the rights are there (or no endpoint tells); otherwise the message is printed and
// EXIT_FAILED returned.
int requireAdministrator(const EndpointCatalog& catalog);

// The summary row of one endpoint.
nlohmann::ordered_json endpointSummary(const EndpointEntry& entry);

} // namespace audiodiag
