// audiodiag watch [--seconds S] [--count N]: endpoint and card changes as they happen, as
// the sound cards' own updaters see them, until interrupted.
#include "CardCatalog.h"
#include "Commands.h"
#include "Report.h"
#include "Streaming.h"

#include "libAudio/EndpointDeviceEnumerator.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace audiodiag {

namespace {

using SteadyClock = std::chrono::steady_clock;

struct WatchOptions {
    std::optional<double> seconds;
    std::optional<unsigned int> count;
};

// What the notification thread hands to the command's thread: a change to report, or the
// id of an endpoint that arrived, which may belong to a card not watched yet.
struct Item {
    nlohmann::ordered_json change; // null for an arrival
    std::string arrival;
};

class Queue {
public:
    explicit Queue(SteadyClock::time_point start) : m_start(start) {}
    double elapsed() const {
        return std::chrono::duration<double>(SteadyClock::now() - m_start).count();
    }
    void push(Item item) {
        {
            std::lock_guard lock(m_mutex);
            if (m_closed) {
                return;
            }
            m_items.push_back(std::move(item));
        }
        m_ready.notify_one();
    }
    // The next item, waiting up to `patience` for one. One at a time: the command may stop
    // after any of them.
    std::optional<Item> take(std::chrono::milliseconds patience) {
        std::unique_lock lock(m_mutex);
        if (!m_ready.wait_for(lock, patience, [this] { return !m_items.empty(); })) {
            return std::nullopt;
        }
        Item item = std::move(m_items.front());
        m_items.pop_front();
        return item;
    }
    void close() {
        std::lock_guard lock(m_mutex);
        m_closed = true;
    }

private:
    const SteadyClock::time_point m_start;
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::deque<Item> m_items;
    bool m_closed = false;
};

struct Known {
    std::string id, name, state;
    EDataFlow flow;
};

nlohmann::ordered_json endpointOf(const Known& e) {
    return {{"id", e.id}, {"name", e.name}, {"flow", flowName(e.flow)}};
}

// Told by a card's updater that its endpoints changed; compares the card's lists with what
// it saw last and reports the difference. Its calls come on the notification thread, one
// at a time, each right after the change it reports.
class CardWatcher : public SoundCardObserver {
public:
    // A card seen from the start reports changes from what it holds now; a card that came
    // later reports itself and its endpoints as new at the first comparison.
    enum Baseline { AsItIs, AsNew };
    CardWatcher(const SoundCard& card, std::shared_ptr<Queue> queue, Baseline baseline)
        : m_card(card), m_queue(std::move(queue)), m_identity(cardIdentity(card)) {
        if (baseline == AsItIs) {
            m_known = current();
        }
    }

    const SoundCard& card() const { return m_card; }
    std::size_t endpoints() {
        std::lock_guard lock(m_mutex);
        return m_known.size();
    }
    bool watch() {
        return m_card.registerPlaybackObserver(handle()) && m_card.registerRecordObserver(handle());
    }
    void unwatch() {
        m_card.unregisterPlaybackObserver(handle());
        m_card.unregisterRecordObserver(handle());
    }

    void deviceStateChanged() override { compare(); }
    void deviceAdded() override { compare(); }
    void deviceRemoved() override { compare(); }

    void compare() {
        std::lock_guard lock(m_mutex);
        std::vector<Known> now = current();
        if (!now.empty()) {
            m_identity = cardIdentity(m_card);
        }
        if (m_known.empty() && !now.empty()) {
            report("card_added", nlohmann::ordered_json::object());
        }
        for (const Known& e : m_known) {
            if (!findIn(now, e.id)) {
                report("endpoint_removed", {{"endpoint", endpointOf(e)}, {"state", nullptr}});
            }
        }
        for (const Known& e : now) {
            const Known* before = findIn(m_known, e.id);
            if (!before) {
                report("endpoint_added", {{"endpoint", endpointOf(e)}, {"state", e.state}});
            } else if (before->state != e.state) {
                report("endpoint_state", {{"endpoint", endpointOf(e)},
                                          {"state", e.state},
                                          {"previous_state", before->state}});
            }
        }
        if (!m_known.empty() && now.empty()) {
            report("card_removed", nlohmann::ordered_json::object());
        }
        m_known = std::move(now);
    }

private:
    SoundCardObserverPtr handle() { return SoundCardObserverPtr(this); }

    std::vector<Known> current() const {
        std::vector<Known> now;
        for (EDataFlow flow : {eRender, eCapture}) {
            for (const AudioDevice& device : cardEndpoints(m_card, flow)) {
                const AudioDevice::Properties& p = device.deviceProperty();
                now.push_back({text(p.deviceId), displayName(device), stateName(p.state), flow});
            }
        }
        return now;
    }

    static const Known* findIn(const std::vector<Known>& list, const std::string& id) {
        for (const Known& e : list) {
            if (lowered(e.id) == lowered(id)) {
                return &e;
            }
        }
        return nullptr;
    }

    void report(const char* event, const nlohmann::ordered_json& details) {
        nlohmann::ordered_json change = {{"time_s", m_queue->elapsed()}, {"event", event}};
        change.update(details);
        change["card"] = m_identity;
        m_queue->push({change, {}});
    }

    SoundCard m_card;
    std::shared_ptr<Queue> m_queue;
    std::mutex m_mutex;
    std::vector<Known> m_known;
    // As the card was named when it had endpoints: a card without any has no name.
    nlohmann::ordered_json m_identity;
};

// Hears of every endpoint that arrives, so that a card that was not there when the watch
// began is found. The enumerator keeps its clients to the end of the process, so it is
// never freed; once the watch ends its queue takes nothing more.
class ArrivalListener final : public IMMNotificationClient {
public:
    explicit ArrivalListener(std::shared_ptr<Queue> queue) : m_queue(std::move(queue)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        if (iid == platform::iidOf<IUnknown>() || iid == platform::iidOf<IMMNotificationClient>()) {
            *object = static_cast<IMMNotificationClient*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override {
        m_queue->push({nullptr, id ? text(qel::String(platform::ucs2(id))) : std::string()});
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override {
        return S_OK;
    }

private:
    std::shared_ptr<Queue> m_queue;
    std::atomic<ULONG> m_references{1};
};

class Watch {
public:
    explicit Watch(std::shared_ptr<Queue> queue) : m_queue(std::move(queue)) {}
    ~Watch() {
        for (auto& watcher : m_watchers) {
            watcher->unwatch();
        }
        m_queue->close();
    }

    // Watches every card not watched yet; returns how many it added.
    std::size_t addNewCards(CardWatcher::Baseline baseline) {
        std::size_t added = 0;
        CardCatalog catalog;
        for (const SoundCard& card : catalog.cards()) {
            if (!watching(card)) {
                m_watchers.push_back(std::make_unique<CardWatcher>(card, m_queue, baseline));
                m_watchers.back()->watch();
                // A new card reports itself and its endpoints at once.
                m_watchers.back()->compare();
                ++added;
            }
        }
        return added;
    }
    bool knows(const std::string& endpointId) const {
        for (const auto& watcher : m_watchers) {
            if (watcher->card().hasEndpoint(qel::String::fromUtf8(endpointId))) {
                return true;
            }
        }
        return false;
    }
    std::size_t cards() const { return m_watchers.size(); }
    std::size_t endpoints() const {
        std::size_t n = 0;
        for (const auto& watcher : m_watchers) {
            n += watcher->endpoints();
        }
        return n;
    }

private:
    bool watching(const SoundCard& card) const {
        for (const auto& watcher : m_watchers) {
            if (watcher->card() == card) {
                return true;
            }
        }
        return false;
    }

    std::shared_ptr<Queue> m_queue;
    std::vector<std::unique_ptr<CardWatcher>> m_watchers;
};

void printChange(const nlohmann::ordered_json& change, bool json) {
    if (json) {
        std::printf("%s\n", change.dump().c_str());
    } else {
        const std::string event = change["event"].get<std::string>();
        std::printf("%8.3fs  ", change["time_s"].get<double>());
        if (event.starts_with("card_")) {
            std::printf("card %-14s %s  %s\n", event == "card_added" ? "added" : "removed",
                        change["card"]["name"].get<std::string>().c_str(),
                        change["card"]["id"].get<std::string>().c_str());
        } else {
            const auto& e = change["endpoint"];
            std::string what = event == "endpoint_added"     ? "added"
                               : event == "endpoint_removed" ? "removed"
                                                             : change["state"].get<std::string>();
            std::printf("endpoint %-10s %s  %s", what.c_str(), e["name"].get<std::string>().c_str(),
                        e["id"].get<std::string>().c_str());
            if (event == "endpoint_added") {
                std::printf("  (%s)", change["state"].get<std::string>().c_str());
            } else if (event == "endpoint_state") {
                std::printf("  (was %s)", change["previous_state"].get<std::string>().c_str());
            }
            std::printf("\n");
        }
    }
    // Live: a reader at the other end of a pipe sees each change as it happens.
    std::fflush(stdout);
}

int watch(const WatchOptions& o, const GlobalOptions& global) {
    if (o.seconds && !(*o.seconds > 0)) {
        printError("--seconds needs a time above 0");
        return EXIT_USAGE;
    }
    if (o.count && *o.count == 0) {
        printError("--count needs at least 1 change");
        return EXIT_USAGE;
    }
    if (int code = requireAdministrator(EndpointCatalog()); code != EXIT_OK) {
        return code;
    }
    catchInterrupt();
    const SteadyClock::time_point start = SteadyClock::now();
    auto queue = std::make_shared<Queue>(start);
    Watch watch(queue);
    watch.addNewCards(CardWatcher::AsItIs);
    // After the cards' updaters, so that an arrival reaches the card that takes it first.
    libAudio::SharedAudioDeviceEnumerator& shared =
        libAudio::AudioDeviceEnumeratorFactory::enumerator();
    if (shared.isEmpty() || !shared->addNotificationClient(
                                CComPtr<IMMNotificationClient>(new ArrivalListener(queue)))) {
        printError("cannot listen for new endpoints: the device enumerator refused");
        return EXIT_FAILED;
    }
    nlohmann::ordered_json begin = {{"time_s", 0.0},
                                    {"event", "watching"},
                                    {"cards", watch.cards()},
                                    {"endpoints", watch.endpoints()}};
    if (global.json) {
        std::printf("%s\n", begin.dump().c_str());
    } else {
        std::printf("watching %s with %s%s\n", counted(watch.cards(), "sound card").c_str(),
                    counted(watch.endpoints(), "endpoint").c_str(),
                    o.seconds ? ""
                    : o.count ? ""
                              : "; Ctrl-C stops");
    }
    std::fflush(stdout);

    const auto deadline = o.seconds ? start + std::chrono::duration_cast<SteadyClock::duration>(
                                                  std::chrono::duration<double>(*o.seconds))
                                    : SteadyClock::time_point::max();
    unsigned int reported = 0;
    while (!interrupted() && SteadyClock::now() < deadline && !(o.count && reported >= *o.count)) {
        std::optional<Item> item = queue->take(std::chrono::milliseconds(20));
        if (!item) {
            continue;
        }
        if (!item->change.is_null()) {
            printChange(item->change, global.json);
            ++reported;
        } else if (!watch.knows(item->arrival)) {
            // An endpoint of an adapter that had no card: the new card's watcher reports it,
            // through the queue.
            watch.addNewCards(CardWatcher::AsNew);
        }
    }
    return EXIT_OK;
}

} // namespace

Action addWatchCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<WatchOptions>();
    app.add_option("--seconds", o->seconds, "Stop after this many seconds")->type_name("S");
    app.add_option("--count", o->count, "Stop after this many changes")->type_name("N");
    return [o, &global] {
        return watch(*o, global);
    };
}

} // namespace audiodiag
