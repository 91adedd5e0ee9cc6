// A machine's scripted events reach the sound cards as a user's plugging would: in time,
// in order, through the cards' updaters; an adapter whose endpoints arrive late gets its
// card then; a machine replaced before its events stops playing them.
#include "SoundCardSupport.h"

#include "platform/model/Bundled.h"
#include "platform/sim/control.h"

#include <chrono>
#include <thread>

namespace soundcard {
namespace {

using Ids = std::vector<std::string>;
using std::chrono::milliseconds;

// The laptop with a script of hot-plug events written as a machine file would.
model::Machine laptopWith(const std::string& events) {
    std::string text = *model::bundledMachineJson("laptop");
    const std::size_t end = text.rfind('}');
    return model::loadMachineJson(text.substr(0, end) + ", \"events\": " + events + "}",
                                  "hotplug.json");
}

std::string event(int atMs, const std::string& field, const std::string& id,
                  const std::string& state = "") {
    return "{\"at_ms\": " + std::to_string(atMs) + ", \"" + field + "\": \"" + id + "\"" +
           (state.empty() ? "" : ", \"state\": \"" + state + "\"") + "}";
}

// Waits in real time for a condition the notification thread brings about.
template <class Condition> bool eventually(Condition condition, milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(5));
    }
    return true;
}

std::string stateOf(const SoundCard& card, const std::string& id) {
    qel::Array<AudioDevice> devices;
    card.allPlaybackDevice(devices);
    card.allRecordDevice(devices);
    for (const AudioDevice& d : devices) {
        if (utf8(d.deviceProperty().deviceId) == id) {
            return std::to_string(d.deviceProperty().state);
        }
    }
    return "gone";
}

class ScriptedHotPlugTest : public ::testing::Test {
protected:
    // The script's times are real milliseconds here.
    void SetUp() override { sim::setClockMode(sim::ClockMode::Real); }
    void TearDown() override {
        // Stops whatever is left of the script before the next test's machine.
        installBundled("laptop");
    }
};

TEST_F(ScriptedHotPlugTest, TheCardsSeeTheScriptInTimeAndInOrder) {
    using namespace laptop;
    model::Machine machine = laptopWith("[" + event(150, "endpoint", kHeadphones, "unplugged") +
                                        "," + event(300, "remove", kUsbSpeakers) + "," +
                                        event(450, "add", kUsbSpeakers) + "]");
    const auto installed = std::chrono::steady_clock::now();
    sim::installMachine(machine);
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, kRealtek);
    SoundCard usb = cardOf(cards, kUsb);
    CountingObserver codecSeen, usbSeen;
    Registration r1(codec, Registration::Playback, codecSeen);
    Registration r2(usb, Registration::Playback, usbSeen);

    // Not before its time.
    EXPECT_EQ(stateOf(codec, kHeadphones), "1");
    ASSERT_TRUE(eventually([&] { return codecSeen.stateChanged == 1; }, milliseconds(2000)));
    EXPECT_GE(std::chrono::steady_clock::now() - installed, milliseconds(150));
    EXPECT_EQ(stateOf(codec, kHeadphones), "8");

    ASSERT_TRUE(eventually([&] { return usbSeen.removed == 1; }, milliseconds(2000)));
    EXPECT_EQ(stateOf(usb, kUsbSpeakers), "gone");
    EXPECT_EQ(usbSeen.added, 0) << "removed before it comes back";
    ASSERT_TRUE(eventually([&] { return usbSeen.added == 1; }, milliseconds(2000)));
    EXPECT_GE(std::chrono::steady_clock::now() - installed, milliseconds(450));
    EXPECT_EQ(playbackIds(usb), Ids{kUsbSpeakers});

    // Back as it left: its own topology is wired to the headset's filter again, so a
    // card built now reaches the same volume node along it.
    qel::Array<SoundCard> again = SoundCard::enumerateSystemSoundDevices(false);
    qel::Array<SoundCard::VolumeController> nodes;
    EXPECT_EQ(cardOf(again, kUsb).volumeController(endpoint(kUsbSpeakers), nodes), 1u);
    EXPECT_EQ(codecSeen.total() + usbSeen.total(), 3);
}

TEST_F(ScriptedHotPlugTest, AnAdapterWhoseEndpointsArriveLateGetsItsCardThen) {
    using namespace laptop;
    sim::installMachine(
        laptopWith("[" + event(200, "add", kUsbSpeakers) + "," + event(200, "add", kUsbMic) + "]"));
    EXPECT_EQ(cardIds(SoundCard::enumerateSystemSoundDevices(false)),
              (Ids{cardId(kRealtek), cardId(kIntel), cardId(kRoot)}));
    ASSERT_TRUE(eventually([] { return SoundCard::enumerateSystemSoundDevices(false).size() == 4; },
                           milliseconds(2000)));
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard usb = cardOf(cards, kUsb);
    EXPECT_EQ(playbackIds(usb), Ids{kUsbSpeakers});
    EXPECT_EQ(recordIds(usb), Ids{kUsbMic});
    // With its own topology, the map reaches the headset's filter.
    qel::Array<AudioDevice> internal;
    EXPECT_EQ(usb.internalDevices(internal), 1u);
}

TEST_F(ScriptedHotPlugTest, AReplacedMachinesScriptStops) {
    using namespace laptop;
    sim::installMachine(laptopWith("[" + event(100, "remove", kSpeakers) + "]"));
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, kRealtek);
    CountingObserver seen;
    Registration r(codec, Registration::Playback, seen);
    std::this_thread::sleep_for(milliseconds(300));
    sim::waitForNotifications();
    EXPECT_EQ(seen.total(), 0);
    EXPECT_EQ(playbackIds(codec), (Ids{kSpeakers, kHeadphones}));
}

} // namespace
} // namespace soundcard
