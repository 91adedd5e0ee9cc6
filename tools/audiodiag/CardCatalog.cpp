#include "CardCatalog.h"

#include "libAudio/EndpointClassification.h"

#include <cctype>

namespace audiodiag {

CardCatalog::CardCatalog() : m_cards(SoundCard::enumerateSystemSoundDevices(false)) {}

const SoundCard* CardCatalog::find(const std::string& wanted, std::string& why) const {
    if (wanted.empty()) {
        why = "an empty name names no sound card (audiodiag cards lists them)";
        return nullptr;
    }
    qel::Array<qel::Uint32> matches;
    switch (libAudio::findSoundCard(m_cards, qel::String::fromUtf8(wanted), matches)) {
    case libAudio::CardLookup::Found:
        return &m_cards[matches[0]];
    case libAudio::CardLookup::Ambiguous:
        why = "\"" + wanted + "\" could be any of:";
        for (qel::Uint32 index : matches) {
            why += "\n  " + text(m_cards[index].deviceId()) + "  " + cardName(m_cards[index]);
        }
        return nullptr;
    case libAudio::CardLookup::NotFound:
        break;
    }
    why = "no sound card is \"" + wanted + "\" (audiodiag cards lists them)";
    return nullptr;
}

const SoundCard* CardCatalog::cardOf(const AudioDevice& endpoint) const {
    for (const SoundCard& card : m_cards) {
        if (card.hasEndpoint(endpoint.deviceProperty().deviceId)) {
            return &card;
        }
    }
    return nullptr;
}

std::string partTypeName(const GUID& subType) {
    // KSCATEGORY_AUDIO, which ksmedia.h declares for filters rather than nodes.
    static const GUID audioCategory = {
        0x6994AD04, 0x93EF, 0x11D0, {0xA3, 0xCC, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
    if (subType == GUID{}) {
        return "none";
    }
    return subType == audioCategory ? "KSCATEGORY_AUDIO" : nodeTypeName(subType);
}

std::string counted(std::size_t n, const std::string& noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

std::string lowered(std::string s) {
    for (char& c : s) {
        c = char(std::tolower((unsigned char)c));
    }
    return s;
}

std::string cardName(const SoundCard& card) {
    qel::String name = card.friendlyName();
    return text(name.empty() ? card.instanceId() : name);
}

nlohmann::ordered_json cardIdentity(const SoundCard& card) {
    return {{"id", text(card.deviceId())}, {"name", cardName(card)}};
}

qel::Array<AudioDevice> cardEndpoints(const SoundCard& card, EDataFlow flow) {
    qel::Array<AudioDevice> endpoints;
    if (flow == eRender) {
        card.allPlaybackDevice(endpoints);
    } else {
        card.allRecordDevice(endpoints);
    }
    return endpoints;
}

nlohmann::ordered_json classification(const AudioDevice& endpoint, EDataFlow flow) {
    // The library's questions read the device and may refresh it: ask a copy.
    AudioDevice device(endpoint);
    if (flow == eRender) {
        return {{"internal_speaker", libAudio::isInternalSpeaker(device)},
                {"integrated_speaker", libAudio::isIntegratedSpeaker(device)},
                {"external_analog_jack", libAudio::isExternalAnalogJack(device)},
                {"usb_speaker", libAudio::isUSBSpeaker(device)},
                {"virtual", libAudio::isVirtualDevice(device)},
                {"active", libAudio::isActive(device)}};
    }
    return {{"internal_microphone", libAudio::isInternalMicrophone(device)},
            {"integrated_microphone", libAudio::isIntegratedMicrophone(device)},
            {"external_analog_jack", libAudio::isExternalAnalogJack(device)},
            {"usb_microphone", libAudio::isUSBMicrophone(device)},
            {"virtual", libAudio::isVirtualDevice(device)},
            {"active", libAudio::isActive(device)}};
}

std::string classificationWords(const nlohmann::ordered_json& answers) {
    std::string words;
    for (const auto& [key, yes] : answers.items()) {
        if (key == "active" || !yes.get<bool>()) {
            continue;
        }
        std::string word = key;
        for (char& c : word) {
            c = c == '_' ? ' ' : c;
        }
        if (word.starts_with("usb ")) {
            word.replace(0, 3, "USB");
        }
        words += (words.empty() ? "" : ", ") + word;
    }
    return words.empty() ? "none" : words;
}

namespace {

nlohmann::ordered_json endpointRows(const SoundCard& card, EDataFlow flow) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const AudioDevice& device : cardEndpoints(card, flow)) {
        const AudioDevice::Properties& p = device.deviceProperty();
        rows.push_back({{"id", text(p.deviceId)},
                        {"name", displayName(device)},
                        {"state", stateName(p.state)},
                        {"node_type", nodeTypeName(p.nodeGuid)},
                        {"form_factor", formFactorName(formFactor(device))},
                        {"classification", classification(device, flow)}});
    }
    return rows;
}

} // namespace

nlohmann::ordered_json cardReport(const SoundCard& card) {
    qel::String parent;
    nlohmann::ordered_json report = cardIdentity(card);
    report["instance_id"] = text(card.instanceId());
    report["parent_id"] = card.parentId(parent) && !parent.empty()
                              ? nlohmann::ordered_json(text(parent))
                              : nlohmann::ordered_json(nullptr);
    report["enumerator"] = text(card.enumeratorName());
    report["playback"] = endpointRows(card, eRender);
    report["record"] = endpointRows(card, eCapture);
    qel::Array<AudioDevice> internal;
    card.internalDevices(internal);
    report["internal_devices"] = nlohmann::ordered_json::array();
    for (const AudioDevice& device : internal) {
        report["internal_devices"].push_back(text(device.deviceProperty().deviceId));
    }
    return report;
}

} // namespace audiodiag
