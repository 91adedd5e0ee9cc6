// Adapters and endpoints of a machine description.
#include "platform/model/DeviceFormat.h"
#include "platform/model/Guid.h"
#include "platform/model/JsonNames.h"
#include "platform/model/JsonObject.h"
#include "platform/model/JsonSections.h"

namespace model::json {

namespace {

constexpr std::uint32_t kMaxChannels = 32;

WAVEFORMATEXTENSIBLE readFormat(const std::optional<Object>& o) {
    FormatFields fields;
    if (o) {
        fields.channels = o->integer("channels", fields.channels, 1, kMaxChannels);
        fields.rate = o->integer("rate", fields.rate, 1, 1000000);
        fields.bits = o->integer("bits", fields.bits, 8, 32);
        fields.validBits = o->integer("valid_bits", fields.bits, 1, 32);
        fields.channelMask = o->integer("channel_mask", defaultChannelMask(fields.channels));
    }
    return makeDeviceFormat(fields);
}

VolumeRange readRange(const std::optional<Object>& o) {
    VolumeRange range;
    if (o) {
        range.minDb = float(o->real("min_db", range.minDb));
        range.maxDb = float(o->real("max_db", range.maxDb));
        range.stepDb = float(o->real("step_db", range.stepDb));
    }
    return range;
}

std::optional<PropertyValue> readOverrideValue(const Object& o) {
    std::vector<std::string_view> given;
    for (std::string_view key : {"missing", "string", "uint32", "blob_hex"}) {
        if (o.find(key)) {
            given.push_back(key);
        }
    }
    if (given.size() != 1) {
        o.where().fail("needs exactly one of missing, string, uint32, blob_hex");
    }
    PropertyValue value;
    if (given[0] == "missing") {
        if (!o.flag("missing", true)) {
            o.at("missing").fail("can only be true; give a value to replace the property");
        }
        return std::nullopt;
    }
    if (given[0] == "string") {
        value.text = o.text("string");
    } else if (given[0] == "uint32") {
        value.type = PropertyValue::Type::UInt32;
        value.number = o.integer("uint32", 0);
    } else {
        value.type = PropertyValue::Type::Blob;
        value.blob = asHexBytes(*o.find("blob_hex"), o.at("blob_hex"));
    }
    return value;
}

void readOverrides(const Object& endpoint, Endpoint& e) {
    for (auto& [value, where] : endpoint.elements("property_overrides")) {
        Object o(*value, where, {"fmtid", "pid", "missing", "string", "uint32", "blob_hex"});
        if (!o.find("fmtid") || !o.find("pid")) {
            where.fail("needs fmtid and pid");
        }
        PropertyKey key{o.guid("fmtid"), o.integer("pid", 0)};
        if (e.propertyOverrides.count(key)) {
            where.fail("overrides the same property as an earlier entry");
        }
        e.propertyOverrides[key] = readOverrideValue(o);
    }
}

std::vector<std::uint32_t> readNumbers(const Object& o, std::string_view key, std::uint32_t min,
                                       std::uint32_t max) {
    std::vector<std::uint32_t> numbers;
    for (auto& [value, where] : o.elements(key)) {
        numbers.push_back(asInteger(*value, where, min, max));
    }
    return numbers;
}

std::int64_t readPeriod(const Object& o, std::string_view key, std::int64_t fallback) {
    double ms = o.real(key, double(fallback) / 10000.0);
    if (!(ms > 0.0 && ms <= 500.0)) {
        o.at(key).fail("must lie above 0 and at most 500 ms");
    }
    return std::int64_t(ms * 10000.0 + 0.5);
}

StreamTraits readStreamTraits(const std::optional<Object>& o) {
    StreamTraits traits;
    if (!o) {
        return traits;
    }
    traits.defaultPeriod = readPeriod(*o, "default_period_ms", traits.defaultPeriod);
    traits.minimumPeriod = readPeriod(*o, "minimum_period_ms", traits.minimumPeriod);
    if (traits.minimumPeriod > traits.defaultPeriod) {
        o->at("minimum_period_ms").fail("is longer than the default period");
    }
    traits.rates = readNumbers(*o, "rates", 1000, 1000000);
    traits.bits = readNumbers(*o, "bits", 8, 32);
    traits.channels = readNumbers(*o, "channels", 1, kMaxChannels);
    traits.alignmentBytes = o->integer("alignment_bytes", traits.alignmentBytes, 1, 65536);
    traits.exclusiveAllowed = o->flag("exclusive_mode_allowed", traits.exclusiveAllowed);
    traits.exclusivePriority = o->flag("exclusive_mode_priority", traits.exclusivePriority);
    return traits;
}

} // namespace

VolumeControl readVolumeControl(const Object& o, std::uint32_t defaultChannels) {
    VolumeRange range = readRange(o.object("range", {"min_db", "max_db", "step_db"}));
    std::vector<float> levels;
    for (auto& [value, where] : o.elements("levels_db")) {
        levels.push_back(float(asReal(*value, where)));
    }
    std::uint32_t fallback = levels.empty() ? defaultChannels : std::uint32_t(levels.size());
    std::uint32_t channels = o.integer("channels", fallback, 1, kMaxChannels);
    if (levels.empty()) {
        levels.assign(channels, range.maxDb);
    } else if (levels.size() != channels) {
        o.at("levels_db")
            .fail("has " + std::to_string(levels.size()) + " levels for " +
                  std::to_string(channels) + " channels");
    }
    return makeVolumeControl(levels, range);
}

Adapter readAdapter(const Json& value, const Where& where) {
    Object o(value, where,
             {"instance_id", "parent_instance_id", "enumerator", "friendly_name",
              "driver_node_strong_name"});
    Adapter a;
    a.instanceId = o.text("instance_id");
    a.parentInstanceId = o.text("parent_instance_id");
    a.enumerator = o.text("enumerator");
    a.friendlyName = o.text("friendly_name");
    a.driverNodeStrongName = o.text("driver_node_strong_name");
    return a;
}

Endpoint readEndpoint(const Json& value, const Where& where) {
    Object o(value, where,
             {"id", "flow", "state", "adapter", "description", "friendly_name", "form_factor",
              "jack_subtype", "physical_speakers", "event_driven", "direct_sound_guid", "format",
              "volume", "topology_device", "property_overrides", "stream"});
    Endpoint e;
    e.id = o.text("id");
    e.flow = Flow(o.choice("flow", 0, kFlows));
    e.state = o.choice("state", STATE_ACTIVE, kStates);
    e.adapter = o.text("adapter");
    e.description = o.text("description");
    e.friendlyName = o.text("friendly_name");
    e.formFactor = o.choice("form_factor", UnknownFormFactor, kFormFactors);
    e.jackSubType = o.nodeType("jack_subtype");
    e.physicalSpeakers = o.integer("physical_speakers", 0);
    e.eventDriven = o.flag("event_driven", true);
    e.directSoundGuid = o.find("direct_sound_guid") ? formatGuid(o.guid("direct_sound_guid")) : "";
    e.deviceFormat =
        readFormat(o.object("format", {"channels", "rate", "bits", "valid_bits", "channel_mask"}));
    if (auto volume = o.object("volume", {"channels", "range", "levels_db", "muted"})) {
        e.volume = readVolumeControl(*volume, e.deviceFormat.Format.nChannels);
        e.muted = volume->flag("muted", false);
    }
    e.topologyDevice = o.text("topology_device");
    e.stream = readStreamTraits(o.object(
        "stream", {"default_period_ms", "minimum_period_ms", "rates", "bits", "channels",
                   "alignment_bytes", "exclusive_mode_allowed", "exclusive_mode_priority"}));
    readOverrides(o, e);
    return e;
}

} // namespace model::json
