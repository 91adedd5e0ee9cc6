#include "platform/model/JsonNames.h"

#include "platform/model/Machine.h"

namespace model::json {

namespace {

constexpr Choice flows[] = {{"render", 0}, {"capture", 1}};

constexpr Choice states[] = {{"active", STATE_ACTIVE},
                             {"disabled", STATE_DISABLED},
                             {"notpresent", STATE_NOTPRESENT},
                             {"unplugged", STATE_UNPLUGGED}};

constexpr Choice formFactors[] = {
    {"RemoteNetworkDevice", RemoteNetworkDevice},
    {"Speakers", Speakers},
    {"LineLevel", LineLevel},
    {"Headphones", Headphones},
    {"Microphone", Microphone},
    {"Headset", Headset},
    {"Handset", Handset},
    {"UnknownDigitalPassthrough", UnknownDigitalPassthrough},
    {"SPDIF", SPDIF},
    {"DigitalAudioDisplayDevice", DigitalAudioDisplayDevice},
    {"UnknownFormFactor", UnknownFormFactor},
};

constexpr Choice connectorTypes[] = {
    {"Unknown", 0},    {"PhysicalInternal", 1}, {"PhysicalExternal", 2},
    {"SoftwareIO", 3}, {"SoftwareFixed", 4},    {"Network", 5},
};

constexpr Choice connectorFlows[] = {{"in", 0}, {"out", 1}};

constexpr Choice domains[] = {{"unspecified", std::uint32_t(SignalDomain::Unspecified)},
                              {"analog", std::uint32_t(SignalDomain::Analog)},
                              {"digital", std::uint32_t(SignalDomain::Digital)}};

constexpr Choice connectionTypes[] = {
    {"Unknown", 0},         {"3Point5mm", 1},   {"Quarter", 2},
    {"AtapiInternal", 3},   {"RCA", 4},         {"Optical", 5},
    {"OtherDigital", 6},    {"OtherAnalog", 7}, {"MultichannelAnalogDIN", 8},
    {"XlrProfessional", 9}, {"RJ11Modem", 10},  {"Combination", 11},
};

constexpr Choice geoLocations[] = {
    {"Rear", 1},
    {"Front", 2},
    {"Left", 3},
    {"Right", 4},
    {"Top", 5},
    {"Bottom", 6},
    {"RearPanel", 7},
    {"Riser", 8},
    {"InsideMobileLid", 9},
    {"Drivebay", 10},
    {"HDMI", 11},
    {"OutsideMobileLid", 12},
    {"ATAPI", 13},
    {"NotApplicable", 14},
    {"Reserved6", 15},
};

constexpr Choice genLocations[] = {
    {"PrimaryBox", 0}, {"Internal", 1}, {"Separate", 2}, {"Other", 3}};

constexpr Choice portConnections[] = {
    {"Jack", 0}, {"IntegratedDevice", 1}, {"BothIntegratedAndJack", 2}, {"Unknown", 3}};

} // namespace

const std::span<const Choice> kFlows = flows;
const std::span<const Choice> kStates = states;
const std::span<const Choice> kFormFactors = formFactors;
const std::span<const Choice> kConnectorTypes = connectorTypes;
const std::span<const Choice> kConnectorFlows = connectorFlows;
const std::span<const Choice> kDomains = domains;
const std::span<const Choice> kConnectionTypes = connectionTypes;
const std::span<const Choice> kGeoLocations = geoLocations;
const std::span<const Choice> kGenLocations = genLocations;
const std::span<const Choice> kPortConnections = portConnections;

} // namespace model::json
