// What the files of the sound card unit share: its logger, the state that a card's copies
// and its updater hold together, and small helpers.
//
// The unit's messages carry fixed numbers, the same whichever of its files logs them, so
// its statements name their number (QEL_LOG_AT) instead of taking their line.
#pragma once

#include "foundation/qelLog.h"
#include "libAudio/SoundCard.h"

#include <mutex>

namespace soundcardunit {

// "libAudio.soundcard", for every file of the unit.
qel::Logger* unitLogger();

inline qel::Hex code(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}

inline bool sameText(const qel::String& a, const qel::String& b) {
    return a.compareNoCase(b) == 0;
}

inline qel::String takeString(LPWSTR text) {
    qel::String copy(text ? qel::String(platform::ucs2(text)) : qel::String());
    CoTaskMemFree(text);
    return copy;
}

} // namespace soundcardunit

struct SoundCard::SharedState {
    // Guards the endpoint and observer lists, the card id and the pinned devices. Platform
    // notifications change the lists while callers read them.
    mutable std::mutex lists;
    // Held while observers are called, so that unregistering one waits for a call in progress.
    // Recursive: an observer may unregister itself from inside its call.
    std::recursive_mutex calls;
    // Devices handed out by reference: they must outlive any change of the lists.
    qel::Array<qel::SharedResource<qel::PointerStorage<AudioDevice, 0, 3>, 1>> pinned;
};
