// The probe of the plain PCM formats that an audio client accepts.
#include "foundation/qelLog.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/PCMSupport.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.pcmsupport")
}

namespace libAudio {

unsigned int enumerateCompatibleFormat(const IAudioClient& client, AUDCLNT_SHAREMODE mode,
                                       qel::Array<WAVEFORMATEX>& formats) {
    QEL_TRACE_SCOPE("enumerateCompatibleFormat");
    formats.clear();
    auto& probe = const_cast<IAudioClient&>(client);
    for (unsigned int channels : {1u, 2u}) {
        for (unsigned int bits : {16u, 24u}) {
            for (unsigned int rate : {44100u, 48000u, 96000u}) {
                WAVEFORMATEX format{};
                createWaveformatEx(channels, bits, rate, format);
                WAVEFORMATEX* closest = nullptr;
                HRESULT hr = probe.IsFormatSupported(
                    mode, &format, mode == AUDCLNT_SHAREMODE_SHARED ? &closest : nullptr);
                CoTaskMemFree(closest);
                if (hr == S_OK) {
                    formats.append(format);
                    QEL_DEBUG("Waveformatex : ", channels, " chan ", bits, " bits ", rate, "Hz");
                }
            }
        }
    }
    return formats.size();
}

} // namespace libAudio
