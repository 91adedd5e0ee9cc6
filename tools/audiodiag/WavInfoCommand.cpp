// audiodiag wav-info: the format, the length and per-channel statistics of a WAV file.
#include "Commands.h"
#include "Report.h"

#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"
#include "libAudio/WaveFile.h"

#include <cmath>
#include <memory>

namespace audiodiag {

namespace {

nlohmann::ordered_json describeFormat(const WAVEFORMATEXTENSIBLE& f) {
    const WAVEFORMATEX& base = f.Format;
    nlohmann::ordered_json format = {{"tag", base.wFormatTag == WAVE_FORMAT_PCM ? "PCM"
                                             : base.wFormatTag == WAVE_FORMAT_EXTENSIBLE
                                                 ? "EXTENSIBLE"
                                                 : "other"},
                                     {"channels", base.nChannels},
                                     {"sample_rate", base.nSamplesPerSec},
                                     {"bits_per_sample", base.wBitsPerSample},
                                     {"block_align", base.nBlockAlign},
                                     {"bytes_per_second", base.nAvgBytesPerSec}};
    if (base.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        format["valid_bits"] = f.Samples.wValidBitsPerSample;
        format["channel_mask"] = f.dwChannelMask;
    }
    return format;
}

// Statistics read samples as 16-bit; other widths would give meaningless numbers.
nlohmann::ordered_json channelStatistics(const WaveFile& wave) {
    const WAVEFORMATEXTENSIBLE format = wave.waveFormat();
    nlohmann::ordered_json channels = nlohmann::ordered_json::array();
    if (format.Format.wBitsPerSample != 16 || wave.numBlocks() == 0) {
        return channels;
    }
    libAudio::StaticPCMBuffer buffer;
    buffer.set(wave.pcmData(), format);
    for (unsigned int c = 0; c < format.Format.nChannels; ++c) {
        channels.push_back({{"channel", c},
                            {"mean", libAudio::mean(buffer, c)},
                            {"std_dev", libAudio::stdDev(buffer, c)}});
    }
    return channels;
}

int describe(const std::string& path, const GlobalOptions& global) {
    WaveFile wave;
    if (!wave.loadFile(qel::String::fromUtf8(path))) {
        printError("cannot read " + path + " as a WAV file of PCM");
        return EXIT_FAILED;
    }
    const WAVEFORMATEXTENSIBLE format = wave.waveFormat();
    double seconds = format.Format.nSamplesPerSec
                         ? double(wave.numBlocks()) / format.Format.nSamplesPerSec
                         : 0.0;
    nlohmann::ordered_json report = {{"file", path},
                                     {"format", describeFormat(format)},
                                     {"blocks", wave.numBlocks()},
                                     {"duration_seconds", seconds},
                                     {"channels", channelStatistics(wave)}};
    printReport(report, global.json);
    return EXIT_OK;
}

} // namespace

Action addWavInfoCommand(CLI::App& app, const GlobalOptions& global) {
    auto path = std::make_shared<std::string>();
    app.add_option("file", *path, "WAV file to read")->required();
    return [path, &global] {
        return describe(*path, global);
    };
}

} // namespace audiodiag
