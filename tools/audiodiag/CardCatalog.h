// The sound cards of the machine as audiodiag shows them: each card with its connector map,
// the lookup of a card by the names a person knows it by, and the rows that describe a card
// and its endpoints.
#pragma once

#include "EndpointCatalog.h"

#include "libAudio/SoundCard.h"

#include <nlohmann/json.hpp>

#include <string>

namespace audiodiag {

class CardCatalog {
public:
    CardCatalog(); // every card of the machine, each with its connector map
    const qel::Array<SoundCard>& cards() const { return m_cards; }
    // The card the user means (device id, instance id, parent id, adapter name or a unique
    // prefix of one, any case), or null with the reason in `why` (the candidates, one a
    // line, when the name fits several).
    const SoundCard* find(const std::string& wanted, std::string& why) const;
    // The card that holds the endpoint; null when none does.
    const SoundCard* cardOf(const AudioDevice& endpoint) const;

private:
    qel::Array<SoundCard> m_cards;
};

// The name of a part's subtype: the KSNODETYPE name ("SPEAKER"), KSCATEGORY_AUDIO for the
// software pins that drivers give the audio category, "none" for the zero GUID, else the
// GUID's text.
std::string partTypeName(const GUID& subType);

// "1 connector", "2 connectors".
std::string counted(std::size_t n, const std::string& noun);

// Lower case, for names compared ignoring case.
std::string lowered(std::string s);

// The adapter's name, or its instance id when its endpoints give none.
std::string cardName(const SoundCard& card);
// {"id", "name"}: enough to tell which card a report is about.
nlohmann::ordered_json cardIdentity(const SoundCard& card);
// A card in full: its ids, bus, endpoints of both flows with their classification, and the
// internal devices its connector map reached.
nlohmann::ordered_json cardReport(const SoundCard& card);

// Endpoints of one flow, in the card's order.
qel::Array<AudioDevice> cardEndpoints(const SoundCard& card, EDataFlow flow);
// What the library answers about what the endpoint physically is, asked as the flow makes
// sense: the speaker questions of a playback endpoint, the microphone ones of a recording
// endpoint. Keys as in JSON ("internal_speaker"), in a fixed order, "active" last.
nlohmann::ordered_json classification(const AudioDevice& endpoint, EDataFlow flow);
// The same as words for people: "internal speaker, integrated speaker"; "none" when no
// answer is yes. "active" is left out: the state says it.
std::string classificationWords(const nlohmann::ordered_json& answers);

} // namespace audiodiag
