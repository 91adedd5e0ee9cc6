#include "platform/model/DeviceFormat.h"

namespace model {

std::uint32_t defaultChannelMask(std::uint32_t channels) {
    switch (channels) {
    case 1:
        return SPEAKER_FRONT_CENTER;
    case 2:
        return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT;
    case 4:
        return SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT | SPEAKER_BACK_LEFT | SPEAKER_BACK_RIGHT;
    case 6:
        return 0x3F; // 5.1: front left, right, centre, LFE, back left, right
    case 8:
        return 0x63F; // 7.1: 5.1 plus side left and right
    default:
        return 0;
    }
}

WAVEFORMATEXTENSIBLE makeDeviceFormat(const FormatFields& fields) {
    WAVEFORMATEXTENSIBLE f{};
    f.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    f.Format.nChannels = WORD(fields.channels);
    f.Format.nSamplesPerSec = fields.rate;
    f.Format.wBitsPerSample = WORD(fields.bits);
    f.Format.nBlockAlign = WORD(fields.channels * fields.bits / 8);
    f.Format.nAvgBytesPerSec = fields.rate * f.Format.nBlockAlign;
    f.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
    f.Samples.wValidBitsPerSample = WORD(fields.validBits ? fields.validBits : fields.bits);
    f.dwChannelMask = fields.channelMask ? fields.channelMask : defaultChannelMask(fields.channels);
    f.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
    return f;
}

} // namespace model
