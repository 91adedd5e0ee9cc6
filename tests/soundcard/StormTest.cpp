// A hot-plug storm: one thread plugs, unplugs and reconfigures endpoints thousands of times
// while other threads hold cards, copy them, query them and register observers. Afterwards
// every card's lists are what the machine has. Run under ThreadSanitizer and
// AddressSanitizer this shows the lists, observers and updaters are shared safely.
#include "SoundCardSupport.h"

#include <chrono>
#include <map>
#include <random>
#include <thread>
#include <utility>

namespace soundcard {
namespace {

using model::Flow;

// The sanitizers make each platform call many times slower.
#if defined(__SANITIZE_THREAD__)
constexpr int kRounds = 500;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kRounds = 1500;
#else
constexpr int kRounds = 3000;
#endif
constexpr int kPool = 12; // endpoint ids the storm reuses

std::string stormId(Flow flow, int n) {
    char text[64];
    std::snprintf(text, sizeof text, "{0.0.%d.00000000}.{57024000-0000-4000-8000-%012d}",
                  flow == Flow::Render ? 0 : 1, n);
    return text;
}

// What the machine holds for one adapter: ids by flow, in the platform's order, and states.
struct AdapterView {
    std::vector<std::string> playback, record;
    std::map<std::string, std::uint32_t> states;
};

AdapterView machineView(const std::string& adapter) {
    AdapterView view;
    sim::withMachine([&](model::Machine& m) {
        for (const model::Endpoint& e : m.endpoints) {
            if (e.adapter == adapter) {
                (e.flow == Flow::Render ? view.playback : view.record).push_back(e.id);
                view.states[e.id] = e.state;
            }
        }
    });
    return view;
}

// 0 when the machine has no such endpoint.
std::uint32_t stateOf(const std::string& id) {
    std::uint32_t state = 0;
    sim::withMachine([&](model::Machine& m) {
        if (const model::Endpoint* e = m.findEndpoint(id)) {
            state = e->state;
        }
    });
    return state;
}

std::vector<std::string> sorted(std::vector<std::string> ids) {
    std::sort(ids.begin(), ids.end());
    return ids;
}

void expectMatchesMachine(const SoundCard& card, const std::string& adapter) {
    AdapterView view = machineView(adapter);
    // Hot-plugged endpoints are appended as they arrive, so compare as sets.
    EXPECT_EQ(sorted(playbackIds(card)), sorted(view.playback));
    EXPECT_EQ(sorted(recordIds(card)), sorted(view.record));
    qel::Array<AudioDevice> devices;
    card.allPlaybackDevice(devices);
    card.allRecordDevice(devices);
    for (const AudioDevice& device : devices) {
        std::string id = utf8(device.deviceProperty().deviceId);
        EXPECT_EQ(device.deviceProperty().state, view.states[id]) << id;
    }
}

// Plugs, unplugs and changes the state of endpoints of the codec and the headset; returns
// how many changes the platform announced.
int storm(int rounds) {
    int announced = 0;
    std::mt19937 random(20240607);
    const std::string adapters[] = {laptop::kRealtek, laptop::kUsb};
    const std::uint32_t states[] = {model::STATE_ACTIVE, model::STATE_DISABLED,
                                    model::STATE_UNPLUGGED};
    for (int round = 0; round < rounds; ++round) {
        int n = int(random() % kPool);
        Flow flow = random() % 2 ? Flow::Render : Flow::Capture;
        std::string id = stormId(flow, n);
        switch (random() % 3) {
        case 0:
            announced += sim::addEndpoint(newEndpoint(id, flow, adapters[n % 2], "Storm"));
            break;
        case 1:
            announced += sim::removeEndpoint(id);
            break;
        default: {
            // The bundled endpoints change state too.
            const std::string& bundled = random() % 2 ? laptop::kHeadphones : laptop::kUsbMic;
            for (const std::string* target : {&std::as_const(id), &bundled}) {
                std::uint32_t before = stateOf(*target);
                std::uint32_t state = states[random() % 3];
                announced += sim::setEndpointState(*target, state) && state != before;
            }
            break;
        }
        }
    }
    return announced;
}

// Holds copies of the cards, copies them again, asks them everything and registers and
// unregisters observers, until told to stop.
void worker(const qel::Array<SoundCard>& cards, const std::atomic<bool>& done, int seed,
            std::atomic<long>& work) {
    std::mt19937 random(seed);
    qel::Array<SoundCard> held = cards;
    CountingObserver observer;
    while (!done) {
        SoundCard& card = held[random() % held.size()];
        SoundCard copy(card);
        qel::Array<AudioDevice> found;
        copy.allPlaybackDevice(found, DEVICE_STATE_ACTIVE);
        copy.allRecordDevice(found);
        copy.microphoneEndpointDevice(found, 15);
        copy.waveOutEndpointDevice(found);
        for (const AudioDevice& device : found) {
            copy.hasEndpoint(device.deviceProperty().deviceId);
            VolumeControllerHandle volume = device.volumeControl();
        }
        qel::Array<AudioDevicePtr> handles;
        copy.speakerEndpointDevice(handles);
        copy.microphoneEndpointDevice(handles);
        for (const AudioDevicePtr& handle : handles) {
            EXPECT_FALSE(handle->deviceProperty().deviceId.empty());
        }
        // Only on the cards that listen already: every listening card rebuilds each device
        // the platform announces, which the sanitizers make slow.
        if (copy == held[0] || copy == held[1]) {
            if (copy.registerRecordObserver(observer.handle())) {
                copy.unregisterRecordObserver(observer.handle());
            }
        }
        card = copy;
        ++work;
        // Leave the notification thread room on a small machine.
        std::this_thread::sleep_for(std::chrono::microseconds(500));
    }
    for (SoundCard& card : held) {
        card.unregisterRecordObserver(observer.handle());
    }
}

TEST(StormTest, CardsFollowThousandsOfChangesWhileOtherThreadsUseThem) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, laptop::kRealtek);
    SoundCard usb = cardOf(cards, laptop::kUsb);
    CountingObserver codecPlayback, usbRecord;
    Registration a(codec, Registration::Playback, codecPlayback);
    Registration b(usb, Registration::Record, usbRecord);

    std::atomic<bool> done{false};
    std::atomic<long> work{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 3; ++i) {
        workers.emplace_back(worker, std::cref(cards), std::cref(done), i, std::ref(work));
    }
    int announced = storm(kRounds);
    sim::waitForNotifications();
    done = true;
    for (std::thread& t : workers) {
        t.join();
    }
    // About two rounds in three change something.
    EXPECT_GE(announced, kRounds / 2);
    EXPECT_GT(work.load(), 0);

    // Every copy, the ones the workers left behind included, shows the machine.
    expectMatchesMachine(codec, laptop::kRealtek);
    expectMatchesMachine(usb, laptop::kUsb);
    expectMatchesMachine(cards[0], laptop::kRealtek);
    EXPECT_EQ(playbackIds(cardOf(cards, laptop::kIntel)), std::vector<std::string>{laptop::kHdmi});
    EXPECT_GT(codecPlayback.total(), 0);
    EXPECT_GT(usbRecord.total(), 0);
}

} // namespace
} // namespace soundcard
