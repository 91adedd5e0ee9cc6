// What a test module does when it starts: enumerate the endpoints of both flows, build every
// sound card with its connector map, and ask what each endpoint physically is. Measured on
// generated machines of 12, 120 and 480 endpoints: HD Audio codecs of 12 endpoints each,
// every endpoint with its own topology device wired to a pin of its codec's filter, and
// each pin with a volume and a mute node on its path to the filter's software pins.
//
// The reference is the platform traffic such a start cannot do without: enumerating both
// flows, reading each endpoint's adapter from its property store, and opening its topology
// and connector. "vs_platform" is the library's time over the reference's in the same run;
// "us_per_endpoint" shows how the cost grows (bench/compare.py prints it across sizes).
#include "common.h"

#include "libAudio/EndpointClassification.h"
#include "libAudio/EndpointDeviceEnumerator.h"
#include "libAudio/SoundCard.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <string>

namespace {

using model::ConnectorType;
using model::Flow;

constexpr unsigned int kEndpointsPerCodec = 12;

std::string hex(unsigned int value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "%0*X", digits, value);
    return text;
}

model::Jack jackOf(bool internal) {
    model::Jack jack;
    jack.channelMapping = 3;
    jack.connectionType = internal ? 3 : 1; // AtapiInternal or 3.5 mm
    jack.geoLocation = internal ? 13 : 2;   // ATAPI or front
    jack.genLocation = internal ? 1 : 0;    // internal or the primary box
    jack.portConnection = internal ? 1 : 0; // integrated or a jack
    return jack;
}

// `endpoints` endpoints on codecs of twelve: render and capture in turn, every third one
// internal, the rest behind 3.5 mm jacks.
model::Machine generatedMachine(unsigned int endpoints) {
    model::MachineBuilder b("generated " + std::to_string(endpoints));
    for (unsigned int codec = 0; codec * kEndpointsPerCodec < endpoints; ++codec) {
        const std::string dev = hex(0x0200 + codec, 4);
        b.adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_" + dev +
                      "&SUBSYS_17AA21FA&REV_1002\\4&1C0A5E&0&" + hex(codec, 4),
                  "Codec " + std::to_string(codec),
                  "PCI\\VEN_8086&DEV_9D70&SUBSYS_21FA17AA&REV_21\\3&11583659&0&" + hex(codec, 2));
        const unsigned int here =
            std::min(kEndpointsPerCodec, endpoints - codec * kEndpointsPerCodec);
        std::vector<std::string> ids;
        for (unsigned int i = 0; i < here; ++i) {
            const bool render = i % 2 == 0;
            b.endpoint(render ? Flow::Render : Flow::Capture,
                       (render ? "Speakers " : "Microphone ") + std::to_string(i),
                       render ? model::Speakers : model::Microphone)
                .endpointDevice();
            ids.push_back(b.lastEndpoint().id);
        }
        const std::string filter = "{2}.\\\\?\\hdaudio#func_01&ven_10ec&dev_" + dev +
                                   "#4&1c0a5e&0&0001#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\\etopo";
        b.device(filter);
        for (unsigned int i = 0; i < here; ++i) {
            const bool render = i % 2 == 0;
            b.connector("Pin " + std::to_string(i),
                        render ? KSNODETYPE_SPEAKER : KSNODETYPE_MICROPHONE,
                        ConnectorType::PhysicalExternal, render ? 1 : 0)
                .jack(jackOf(i % 3 == 0));
        }
        b.connector("Playback", KSNODETYPE_ANALOG_CONNECTOR, ConnectorType::SoftwareIO, 0);
        b.connector("Capture", KSNODETYPE_ANALOG_CONNECTOR, ConnectorType::SoftwareIO, 1);
        for (unsigned int i = 0; i < here; ++i) {
            const std::string n = std::to_string(i);
            b.subunit("Volume " + n, KSNODETYPE_VOLUME).subunit("Mute " + n, KSNODETYPE_MUTE);
            if (i % 2 == 0) {
                b.chain({"Playback", "Mute " + n, "Volume " + n, "Pin " + n});
            } else {
                b.chain({"Pin " + n, "Volume " + n, "Mute " + n, "Capture"});
            }
        }
        for (unsigned int i = 0; i < here; ++i) {
            b.connect({ids[i], 0}, {filter, i});
        }
    }
    return b.build();
}

// What a test module asks of the library at its start; returns the number of endpoints
// classified.
unsigned int startLikeATestModule() {
    libAudio::EndpointDeviceEnumerator enumerator;
    qel::Array<AudioDevice> render, capture;
    enumerator.audioDevices(eRender, render);
    enumerator.audioDevices(eCapture, capture);
    unsigned int classified = 0;
    for (const SoundCard& card : SoundCard::enumerateSystemSoundDevices(false)) {
        qel::Array<AudioDevice> playback, record;
        card.allPlaybackDevice(playback);
        card.allRecordDevice(record);
        for (AudioDevice& d : playback) {
            benchmark::DoNotOptimize(libAudio::isInternalSpeaker(d) +
                                     libAudio::isIntegratedSpeaker(d) +
                                     libAudio::isExternalAnalogJack(d) + libAudio::isUSBSpeaker(d) +
                                     libAudio::isVirtualDevice(d) + libAudio::isActive(d));
            ++classified;
        }
        for (AudioDevice& d : record) {
            benchmark::DoNotOptimize(
                libAudio::isInternalMicrophone(d) + libAudio::isIntegratedMicrophone(d) +
                libAudio::isExternalAnalogJack(d) + libAudio::isUSBMicrophone(d) +
                libAudio::isVirtualDevice(d) + libAudio::isActive(d));
            ++classified;
        }
    }
    return classified;
}

// The platform calls such a start cannot avoid, made directly.
unsigned int platformOnly() {
    CComPtr<IMMDeviceEnumerator> enumerator;
    enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator);
    unsigned int seen = 0;
    for (EDataFlow flow : {eRender, eCapture}) {
        CComPtr<IMMDeviceCollection> collection;
        enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection);
        UINT count = 0;
        collection->GetCount(&count);
        for (UINT i = 0; i < count; ++i) {
            CComPtr<IMMDevice> device;
            collection->Item(i, &device);
            CComPtr<IPropertyStore> store;
            device->OpenPropertyStore(STGM_READ, &store);
            PROPVARIANT value;
            PropVariantInit(&value);
            store->GetValue(AudioDevice::m_instancePathKey, &value);
            PropVariantClear(&value);
            CComPtr<IDeviceTopology> topology;
            device->Activate(platform::iidOf<IDeviceTopology>(), CLSCTX_ALL, nullptr,
                             reinterpret_cast<void**>(&topology));
            CComPtr<IConnector> connector;
            topology->GetConnector(0, &connector);
            benchmark::DoNotOptimize(connector.p);
            ++seen;
        }
    }
    return seen;
}

// The reference's mean time per size, for the library's run to set beside its own.
std::map<unsigned int, double>& referenceSeconds() {
    static std::map<unsigned int, double> seconds;
    return seconds;
}

template <class Work> double timeOf(benchmark::State& state, Work work, unsigned int expected) {
    double total = 0;
    for (auto _ : state) {
        auto begin = std::chrono::steady_clock::now();
        unsigned int done = work();
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        if (done != expected) {
            state.SkipWithError("not every endpoint was reached");
            return 0;
        }
    }
    return total / double(state.iterations());
}

void BM_CardStartup_platformOnly(benchmark::State& state) {
    const unsigned int n = unsigned(state.range(0));
    sim::setClockMode(sim::ClockMode::Real);
    sim::installMachine(generatedMachine(n));
    const double seconds = timeOf(state, platformOnly, n);
    referenceSeconds()[n] = seconds;
    state.counters["us_per_endpoint"] = seconds * 1e6 / n;
}

void BM_CardStartup_libAudio(benchmark::State& state) {
    const unsigned int n = unsigned(state.range(0));
    sim::setClockMode(sim::ClockMode::Real);
    sim::installMachine(generatedMachine(n));
    const double seconds = timeOf(state, startLikeATestModule, n);
    state.counters["us_per_endpoint"] = seconds * 1e6 / n;
    auto reference = referenceSeconds().find(n);
    if (reference != referenceSeconds().end() && reference->second > 0) {
        state.counters["vs_platform"] = seconds / reference->second;
    }
}

// The reference first, so that each size of the library's run has its ratio.
BENCHMARK(BM_CardStartup_platformOnly)->Arg(12)->Arg(120)->Arg(480)->Apply(bench::shortRun);
BENCHMARK(BM_CardStartup_libAudio)->Arg(12)->Arg(120)->Arg(480)->Apply(bench::shortRun);

} // namespace
