// audiodiag endpoints, endpoint ID and volume ID.
#include "Commands.h"
#include "EndpointReport.h"
#include "Report.h"

#include <cstdio>
#include <memory>

namespace audiodiag {

namespace {

// One line an endpoint, grouped by state: what a person scanning a machine wants.
void printEndpointTable(const nlohmann::ordered_json& byState) {
    for (const auto& [state, rows] : byState.items()) {
        std::printf("%s (%zu)\n", state.c_str(), rows.size());
        for (const auto& row : rows) {
            std::printf("  %-7s %-58s %-22s %-26s %s\n", row["flow"].get<std::string>().c_str(),
                        row["name"].get<std::string>().c_str(),
                        row["node_type"].get<std::string>().c_str(),
                        row["form_factor"].get<std::string>().c_str(),
                        row["id"].get<std::string>().c_str());
        }
    }
}

int listEndpoints(const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    nlohmann::ordered_json byState = nlohmann::ordered_json::object();
    for (const char* state : {"active", "disabled", "notpresent", "unplugged"}) {
        byState[state] = nlohmann::ordered_json::array();
    }
    for (const EndpointEntry& entry : catalog.entries()) {
        byState[stateName(entry.device.deviceProperty().state)].push_back(endpointSummary(entry));
    }
    if (global.json) {
        printReport({{"endpoints", byState}}, true);
    } else {
        printEndpointTable(byState);
    }
    return EXIT_OK;
}

int showEndpoint(const std::string& wanted, const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    std::string why;
    const EndpointEntry* entry = catalog.find(wanted, why);
    if (!entry) {
        printError(why);
        return EXIT_USAGE;
    }
    printReport(endpointReport(*entry), global.json);
    return EXIT_OK;
}

struct VolumeOptions {
    std::string endpoint;
    std::optional<unsigned int> percent;
    std::optional<float> decibel;
    bool mute = false;
    bool unmute = false;
};

bool applyVolume(const VolumeOptions& o, VolumeControllerInterface& volume) {
    bool ok = true;
    if (o.percent) {
        ok = volume.setMasterVolumeLevelPercent(*o.percent) && ok;
    }
    if (o.decibel) {
        ok = volume.setMasterVolumeLevelDecibel(*o.decibel) && ok;
    }
    if (o.mute || o.unmute) {
        ok = volume.setMute(o.mute) && ok;
    }
    return ok;
}

int changeVolume(const VolumeOptions& o, const GlobalOptions& global) {
    EndpointCatalog catalog;
    if (int code = requireAdministrator(catalog); code != EXIT_OK) {
        return code;
    }
    std::string why;
    const EndpointEntry* entry = catalog.find(o.endpoint, why);
    if (!entry) {
        printError(why);
        return EXIT_USAGE;
    }
    VolumeControllerHandle volume = entry->device.volumeControl();
    if (volume.isEmpty()) {
        printError("the endpoint has no volume control");
        return EXIT_FAILED;
    }
    if (!applyVolume(o, *volume)) {
        printError("the endpoint refused the change (out of its range?)");
        return EXIT_FAILED;
    }
    printReport({{"id", text(entry->device.deviceProperty().deviceId)},
                 {"name", displayName(entry->device)},
                 {"volume", volumeReport(entry->device)}},
                global.json);
    return EXIT_OK;
}

} // namespace

Action addEndpointsCommand(CLI::App&, const GlobalOptions& global) {
    return [&global] {
        return listEndpoints(global);
    };
}

Action addEndpointCommand(CLI::App& app, const GlobalOptions& global) {
    auto wanted = std::make_shared<std::string>();
    app.add_option("id", *wanted, "Endpoint id, a unique prefix of it, or its name")->required();
    return [wanted, &global] {
        return showEndpoint(*wanted, global);
    };
}

Action addVolumeCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<VolumeOptions>();
    app.add_option("id", o->endpoint, "Endpoint id, a unique prefix of it, or its name")
        ->required();
    auto* percent =
        app.add_option("--set", o->percent, "Master level in percent")->check(CLI::Range(0u, 100u));
    auto* decibel = app.add_option("--set-db", o->decibel, "Master level in dB");
    percent->excludes(decibel);
    auto* mute = app.add_flag("--mute", o->mute, "Mute the endpoint");
    app.add_flag("--unmute", o->unmute, "Unmute the endpoint")->excludes(mute);
    return [o, &global] {
        return changeVolume(*o, global);
    };
}

} // namespace audiodiag
