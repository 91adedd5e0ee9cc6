#include "EndpointReport.h"
#include "JackNames.h"

#include "foundation/qelLog.h"

#include <cctype>
#include <cstdio>

namespace audiodiag {

namespace {

// Collects what the property log writes, without the statement numbers.
class PropertyLines : public qel::LogSink {
public:
    void write(const qel::LogRecord& record) override {
        std::size_t i = 0;
        while (i < record.text.size() && std::isdigit((unsigned char)record.text[i])) {
            ++i;
        }
        if (record.priority == qel::LoggerPriority::PRIORITY_INFO) {
            lines.push_back(record.text.substr(i < record.text.size() ? i + 1 : i));
        }
    }
    std::vector<std::string> lines;
};

std::vector<std::string> propertyLines(const AudioDevice& device) {
    PropertyLines sink;
    int priority = qel::LogFactory::getPriority();
    qel::LogFactory::setPriority(qel::LoggerPriority::PRIORITY_INFO);
    qel::LogSink* previous = qel::LogFactory::setSink(&sink);
    device.deviceProperty().logPropertyInfo();
    qel::LogFactory::setSink(previous);
    qel::LogFactory::setPriority(priority);
    return sink.lines;
}

std::string hex(std::uint32_t value, int digits) {
    char out[16];
    std::snprintf(out, sizeof out, "0x%0*X", digits, value);
    return out;
}

nlohmann::ordered_json jackReport(const KSJACK_DESCRIPTION& jack) {
    char color[8];
    std::snprintf(color, sizeof color, "#%06X", unsigned(jack.Color & 0xFFFFFF));
    nlohmann::ordered_json report = {{"channel_mapping", hex(jack.ChannelMapping, 8)},
                                     {"color", color}};
    // The number as the platform reports it, and its name beside it (null when unknown).
    auto named = [&report](const char* key, unsigned int value, const char* name) {
        report[key] = value;
        report[std::string(key) + "_name"] =
            name ? nlohmann::ordered_json(name) : nlohmann::ordered_json(nullptr);
    };
    named("connection_type", unsigned(jack.ConnectionType),
          connectionTypeName(unsigned(jack.ConnectionType)));
    named("geo_location", unsigned(jack.GeoLocation), geoLocationName(unsigned(jack.GeoLocation)));
    named("gen_location", unsigned(jack.GenLocation), genLocationName(unsigned(jack.GenLocation)));
    named("port_connection", unsigned(jack.PortConnection),
          portConnectionName(unsigned(jack.PortConnection)));
    report["is_connected"] = jack.IsConnected != FALSE;
    return report;
}

nlohmann::ordered_json connectorReport(const AudioComponent<IConnector>& connector) {
    nlohmann::ordered_json report = {{"name", text(connector.part().name())},
                                     {"global_id", text(connector.part().globalId())},
                                     {"node_type", nodeTypeName(connector.part().subType())}};
    LPWSTR partner = nullptr;
    if (connector.component() &&
        SUCCEEDED(connector.component()->GetDeviceIdConnectedTo(&partner)) && partner) {
        report["connected_to"] = text(qel::String(platform::ucs2(partner)));
    } else {
        report["connected_to"] = nullptr;
    }
    CoTaskMemFree(partner);
    return report;
}

} // namespace

nlohmann::ordered_json volumeReport(const AudioDevice& device) {
    VolumeControllerHandle volume = device.volumeControl();
    if (volume.isEmpty()) {
        return nullptr;
    }
    VolumeControllerInterface::DbVolumeRange range{};
    bool hasRange = volume->volumeRangeDecibel(0, range);
    nlohmann::ordered_json channels = nlohmann::ordered_json::array();
    for (unsigned int c = 0; c < volume->numChannel(); ++c) {
        channels.push_back({{"channel", c},
                            {"level_db", volume->volumeLevelDecibel(c)},
                            {"percent", volume->volumeLevelPercent(c)}});
    }
    return {{"master_db", volume->masterVolumeLevelDecibel()},
            {"master_percent", volume->masterVolumeLevelPercent()},
            {"muted", volume->isMuted()},
            {"range", hasRange ? nlohmann::ordered_json{{"min_db", range.minDb},
                                                        {"max_db", range.maxDb},
                                                        {"step_db", range.stepDb}}
                               : nlohmann::ordered_json(nullptr)},
            {"channels", channels}};
}

nlohmann::ordered_json endpointReport(const EndpointEntry& entry) {
    const AudioDevice& device = entry.device;
    nlohmann::ordered_json report = endpointSummary(entry);
    report["properties"] = propertyLines(device);
    qel::Array<KSJACK_DESCRIPTION> jacks;
    device.jackInfo(jacks);
    report["jacks"] = nlohmann::ordered_json::array();
    for (const KSJACK_DESCRIPTION& jack : jacks) {
        report["jacks"].push_back(jackReport(jack));
    }
    qel::Array<AudioComponent<IConnector>> connectors;
    device.connector(connectors);
    report["connectors"] = nlohmann::ordered_json::array();
    for (const AudioComponent<IConnector>& connector : connectors) {
        report["connectors"].push_back(connectorReport(connector));
    }
    report["volume"] = volumeReport(device);
    report["default"] = device.isDefaultEndpoint();
    unsigned int legacy = device.waveLegacyDeviceID();
    report["legacy_wave_id"] =
        legacy == 0xFFFFFFFF ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(legacy);
    return report;
}

} // namespace audiodiag
