// Routes, faults and default endpoints of a machine description.
#include "platform/model/JsonObject.h"
#include "platform/model/JsonSections.h"

namespace model::json {

namespace {

constexpr HRESULT kDefaultFaultResult = E_FAIL;

// A role's endpoint as written: a string for all three roles or one per role.
void readRoles(const Object& defaults, std::string_view flow,
               std::array<std::optional<std::string>, 3>& roles) {
    const Json* value = defaults.find(flow);
    if (!value) {
        return;
    }
    if (value->is_string()) {
        roles.fill(value->get<std::string>());
        return;
    }
    Object perRole(*value, defaults.at(flow), {"console", "multimedia", "communications"});
    const char* names[] = {"console", "multimedia", "communications"};
    for (int role = 0; role < 3; ++role) {
        if (perRole.find(names[role])) {
            roles[role] = perRole.text(names[role]);
        }
    }
}

} // namespace

Route readRoute(const Json& value, const Where& where) {
    Object o(value, where, {"render", "capture", "gain_db", "delay_ms", "noise_db", "channel_mix"});
    Route route;
    route.render = o.requiredText("render", "a route names its render endpoint");
    route.capture = o.requiredText("capture", "a route names its capture endpoint");
    route.gainDb = o.real("gain_db", route.gainDb);
    route.delayMs = o.real("delay_ms", route.delayMs);
    route.noiseDb = o.real("noise_db", route.noiseDb);
    for (auto& [row, rowWhere] : o.elements("channel_mix")) {
        if (!row->is_array()) {
            rowWhere.fail("expected an array of weights, one per render channel, got " +
                          describe(*row));
        }
        std::vector<double>& weights = route.channelMix.emplace_back();
        for (std::size_t i = 0; i < row->size(); ++i) {
            weights.push_back(asReal((*row)[i], rowWhere[i]));
        }
    }
    return route;
}

Fault readFault(const Json& value, const Where& where) {
    Object o(value, where, {"operation", "target", "results", "sticky"});
    Fault fault;
    fault.operation = o.requiredText("operation", "a fault names the operation that fails");
    fault.target = o.text("target");
    for (auto& [result, at] : o.elements("results")) {
        fault.results.push_back(asResult(*result, at));
    }
    if (!o.find("results")) {
        fault.results.push_back(kDefaultFaultResult);
    }
    fault.sticky = o.flag("sticky", false);
    return fault;
}

RoleRequests readDefaults(const Json& value, const Where& where) {
    Object o(value, where, {"render", "capture"});
    RoleRequests roles;
    readRoles(o, "render", roles.render);
    readRoles(o, "capture", roles.capture);
    return roles;
}

} // namespace model::json
